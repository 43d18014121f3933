"""A service that is down, sick or hostile: the menu says so, the interface stays quick, memory
comes back, and nothing leaves the machine.

PELLIX_SICK_POLLS=all takes one process through every sickness, poll by poll, for many minutes.
"""

import contextlib
import gzip
import json
import os
import socket
import statistics
import struct
import threading
import time

import pytest
from gi.repository import GLib

from desktop import product, traces
from desktop.processes import wait_for
from desktop.service import Service, http
from e2e_harness import GUARD_ID, SERVICE_ID, USUAL_MENU, wait_for_usual_menu

MIB = 1 << 20
ALL_POLLS = os.environ.get("PELLIX_SICK_POLLS") == "all"

# Generous, for loaded machines: that nothing blocks, not how fast it is. The figures are printed.
SLOWEST_CLICK = 3.0
MEMORY_TOLERANCE = 72 * MIB  # the allocator keeps up to 64 for the next large answer
MOST_MEMORY = 300 * MIB

STALE = b'{"state": "stale"}'
TOWER = b'{"":' * 900 + b"1" + b"}" * 900 + b","
# The state shown, and the age of the last heartbeat if there was an answer.
DOWN = ("offline", None)
ANSWERED = ("stale", "never")
EITHER = [DOWN, ANSWERED]  # that nothing breaks is what counts


def send(*parts, pause=0.0):
    def respond(connection):
        for part in parts:
            connection.sendall(part)
            time.sleep(pause)
    return respond


def head(*lines):
    return "".join(line + "\r\n" for line in ("HTTP/1.1 200 OK", *lines, "")).encode()


def reset(connection):
    connection.sendall(head("Content-Length: 1000") + STALE)
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def say_nothing(connection):
    connection.recv(1)  # until the other side gives up


def chunked(*sizes_and_chunks):
    return head("Transfer-Encoding: chunked") + b"".join(
        size + b"\r\n" + chunk + b"\r\n" for size, chunk in sizes_and_chunks)


def compressed(content):
    return http(gzip.compress(content, 1), headers=["Content-Encoding: gzip"])


def zstandard_of_blanks(size):
    """Blocks of 128 KiB, of which each is one repeated byte."""
    block_size = 1 << 17
    count = size // block_size
    frame = b"\x28\xb5\x2f\xfd\x00\x38" + b"".join(
        (block_size << 3 | 0b010 | (number == count - 1)).to_bytes(3, "little") + b" "
        for number in range(count))
    return http(frame, headers=["Content-Encoding: zstd"])


def object_with(content):
    return b'{"state": "stale", "x": ' + content + b"}"


def filled(begin, content, end, more=None):
    """An answer of 16 MiB whose last member is made of as much of these contents as it takes."""
    def respond(connection):
        rest = 16 * MIB - len(object_with(begin + end))
        if more is None:
            body = content * (rest // len(content))
        else:
            body = content + more * (rest - len(content))
        connection.sendall(http(object_with(begin + body + end)))
    return respond


def send_members(connection):
    connection.sendall(head(f"Content-Length: {250 * MIB}") + b"{")
    members = b"".join(b'"%06d":"",' % i for i in range(MIB // 10))
    while True:
        connection.sendall(members)


# What the service does, and what the menu shows then: one of these.
SICKNESSES = {
    "says nothing": (say_nothing, [DOWN]),
    "hangs up": (send(), [DOWN]),
    "resets in mid-answer": (reset, [DOWN]),
    "one byte a second": (send(head(f"Content-Length: {len(STALE)}") + STALE[:-6],
                               *(STALE[i:i + 1] for i in range(-6, -1)), STALE[-1:], pause=1.0),
                          [ANSWERED]),
    "no body": (send(head("Content-Length: 0")), [DOWN]),
    "no content": (send(b"HTTP/1.1 204 No Content\r\n\r\n"), [DOWN]),
    "Content-Length too large": (send(head("Content-Length: 1000") + STALE), [DOWN]),
    "Content-Length too small": (send(head("Content-Length: 9") + STALE), [DOWN]),
    "Content-Length negative": (send(head("Content-Length: -1") + STALE), [DOWN]),
    "Content-Length no number": (send(head("Content-Length: many") + STALE), [ANSWERED]),
    "Content-Length beyond all numbers": (send(head(f"Content-Length: {10 ** 40}") + STALE),
                                          [ANSWERED]),
    "two Content-Lengths": (send(head("Content-Length: 3", "Content-Length: 18") + STALE),
                            [DOWN]),
    "chunked": (send(chunked((b"9", STALE[:9]), (b"9", STALE[9:]), (b"0", b""))), [ANSWERED]),
    "chunked, cut short": (send(chunked((b"9", STALE[:9]))), [DOWN]),
    "chunked, sizes of nonsense": (send(chunked((b"zz", STALE), (b"-5", b""))), [DOWN]),
    # Qt notices most times that the rest is missing.
    "chunked, an enormous size": (send(chunked((b"f" * 15, STALE))), EITHER),
    "gzip": (send(compressed(STALE)), [ANSWERED]),
    "gzip, cut short": (send(http(gzip.compress(STALE)[:-12], headers=["Content-Encoding: gzip"])),
                        [DOWN]),
    "gzip, not true": (send(http(STALE, headers=["Content-Encoding: gzip"])), [DOWN]),
    "gzip, 300 MiB in little": (send(compressed(b" " * 300 * MIB)), [DOWN]),
    "zstd, 1 GiB in 32 KiB": (send(zstandard_of_blanks(1024 * MIB)), [DOWN]),
    "unheard-of encoding": (send(http(STALE, headers=["Content-Encoding: zap"])), [ANSWERED]),
    "HTTP/0.9": (send(STALE), [DOWN]),
    "noise": (send(bytes(range(256)) * 40), [DOWN]),
    "a head without end": (send(b"HTTP/1.1 200 OK\r\n" + b"X: y\r\n" * 200_000), [DOWN]),
    "a status of nonsense": (send(b"HTTP/1.1 9999999999 Hm\r\nContent-Length: 18\r\n\r\n" + STALE),
                             [DOWN]),
    "only ever 100 Continue": (send(b"HTTP/1.1 100 Continue\r\n\r\n" * 1000), [DOWN]),
    "wants a password": (send(http(STALE, "401 Unauthorized", [
        'WWW-Authenticate: Basic realm="x"'])), [ANSWERED]),
    "16 MiB in one text": (filled(b'"', b"a", b'"'), [ANSWERED]),
    "16 MiB of spaces": (filled(b"", b" ", b"0"), [ANSWERED]),
    "16 MiB of numbers": (filled(b"[", b"1,", b"1]"), [DOWN]),
    "16 MiB of members": (filled(b'{', b'"":1,', b'"":1}'), [DOWN]),
    "16 MiB of arrays": (filled(b"[", b"[1],", b"1]"), [DOWN]),
    "16 MiB of objects": (filled(b"[", b'{"":1},', b"1]"), [DOWN]),
    "16 MiB of towers": (filled(b"[", TOWER, b"1]"), [DOWN]),
    "as much as is parsed, of numbers": (filled(b"[", b"1," * 3_000_000, b"1]", b" "), [ANSWERED]),
    "as much as is parsed, of members": (filled(b"{", b'"":1,' * 3_000_000, b'"":1}', b" "),
                                         [ANSWERED]),
    "as much as is parsed, of towers": (filled(b"[", TOWER * 990, b"1]", b" "), [ANSWERED]),
    "more than 16 MiB": (send(http(STALE + b" " * 16 * MIB)), [DOWN]),
    "250 MiB of members": (send_members, [DOWN]),
    "arrays 1,000,000 deep": (send(http(b"[" * 1_000_000 + b"]" * 1_000_000)), [DOWN]),
    "objects 1,000,000 deep": (send(http(b'{"a":' * 1_000_000 + b"1" + b"}" * 1_000_000)), [DOWN]),
    "an object 1,000,000 wide": (send(http(b'{"state": "stale"' + b"".join(
        b', "%d": ""' % i for i in range(1_000_000)) + b"}")), [ANSWERED]),
    "invalid UTF-8": (send(http(object_with(b'"\xff\xfe\xc0\x80"'))), [DOWN]),
    "a NUL in a string": (send(http(object_with(b'"\0"'))), [DOWN]),
    "NULs around": (send(http(b"\0\0" + STALE + b"\0")), [DOWN]),
    "duplicate keys": (send(http(b'{"state": "stale", "state": "stale", "site": 1, "site": ""}')),
                       [ANSWERED]),
    "an enormous number": (send(http(object_with(b"9" * 100_000))), [DOWN]),
    "an enormous exponent": (send(http(object_with(b"-1e999999999"))), [DOWN]),
    "a heartbeat at the end of time": (send(http(
        b'{"state": "stale", "last_heartbeat": "9999-12-31T23:59:59Z"}')), [("stale", "just now")]),
}


def titles(outcome, device_id=GUARD_ID):
    state, age = outcome
    return product.menu(state, age, device_id)


class Clicks:
    """Asks again and again for the menu to be opened, and measures how long the answers take."""

    def __init__(self, application):
        self.item = application.item()
        self.seconds = []
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.run)

    def run(self):
        while not self.ended.wait(0.02):
            begin = time.monotonic()
            try:
                self.item.call_menu("AboutToShow", "(i)", 0)
            except GLib.Error as error:
                if "UnknownObject" in error.message:
                    continue  # a new menu has just come in this one's place
                raise
            self.seconds.append(time.monotonic() - begin)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_exception):
        with contextlib.suppress(AssertionError):
            wait_for("ten clicks", lambda: len(self.seconds) >= 10, 5)
        self.ended.set()
        self.thread.join()

    def __str__(self):
        return (f"{len(self.seconds)} clicks, median {1000 * statistics.median(self.seconds):.1f} "
                f"ms, slowest {1000 * max(self.seconds):.0f} ms")


def memory(application, name="VmRSS"):
    with open(f"/proc/{application.pid}/status", encoding="ascii") as file:
        [line] = [line for line in file if line.startswith(name + ":")]
    return 1024 * int(line.split()[1])


def expect_memory(application, before, name):
    with contextlib.suppress(AssertionError):
        wait_for("memory", lambda: memory(application) < before + MEMORY_TOLERANCE, 15)
    grown = memory(application) - before
    peak = memory(application, "VmHWM")
    print(f"    memory {grown / MIB:+.1f} MiB, at most {peak / MIB:.0f} MiB")
    assert grown < MEMORY_TOLERANCE, name
    assert peak < MOST_MEMORY, name


@pytest.fixture(scope="module")
def usual_memory():
    """Of a process that got one usual answer; measured by the first test of each worker."""
    return {}


def measure_usual_memory(application, service, usual_memory):
    if not usual_memory:
        application.start()
        wait_for_usual_menu(application)
        usual_memory["VmRSS"] = memory(application)
        application.stop()
    return usual_memory["VmRSS"]


@pytest.mark.parametrize("name", SICKNESSES)
def test_a_sick_service_disturbs_nobody(application, service, usual_memory, name):
    usual = measure_usual_memory(application, service, usual_memory)
    service.respond, outcomes = SICKNESSES[name]
    application.start()
    with Clicks(application) as clicks:
        wait_for("the outcome of the poll", lambda: application.item().menu, 60)
        shown = application.titles()
    print(f"\n{name}: {clicks}")
    assert shown in [titles(outcome) for outcome in outcomes]
    assert max(clicks.seconds) < SLOWEST_CLICK
    expect_memory(application, usual, name)
    assert application.windows() == []
    assert application.said() == ""


def test_nobody_there_is_no_trouble(application, service):
    service.close()
    application.start()
    with Clicks(application) as clicks:
        application.wait_for_titles(titles(DOWN))
    print(f"\nrefused: {clicks}")
    assert max(clicks.seconds) < SLOWEST_CLICK


def test_an_identifier_of_10_mib_is_shown_at_its_ends_and_copied_whole(application, service):
    identifier = "begin" + "x" * 10 * MIB + "end"
    service.status["device_id"] = identifier
    application.start()
    with Clicks(application) as clicks:
        row = wait_for("the menu", lambda: application.item().menu, 30)[product.ID_ROW].title
        assert row.startswith("beginxxx") and "…" in row and row.endswith("xxxend")
        application.item().click("Show device ID…")
        window = application.window(product.WINDOW_TITLE)
        window.find(name=product.COPY).press()
        application.desktop.wait_for_clipboard(identifier, 30)
    print(f"\nidentifier of 10 MiB: {clicks}; {memory(application) / MIB:.0f} MiB")
    assert max(clicks.seconds) < SLOWEST_CLICK
    assert application.running


def test_texts_of_16_mib_take_little_memory(application, service):
    texts = dict.fromkeys(("site", "email", "device_id", "last_heartbeat"), "x" * (4 * MIB - 99))
    service.answer(json.dumps({"state": "stale"} | texts))
    application.start()
    wait_for("the menu", lambda: application.item().menu, 30)
    assert application.titles()[0] == titles(ANSWERED)[0]
    peak = memory(application, "VmHWM")
    print(f"\n16 MiB of texts: at most {peak / MIB:.0f} MiB")
    assert peak < MOST_MEMORY


@pytest.mark.parametrize("more", [16, 32, 64, 96, 128, 160, 192])
@pytest.mark.parametrize("name", ["16 MiB in one text", "as much as is parsed, of members",
                                  "as much as is parsed, of towers"])
def test_running_out_of_memory_for_an_answer_is_no_answer(application, service, name, more):
    application.start()
    wait_for_usual_menu(application)
    size = memory(application, "VmPeak")
    application.stop()
    service.respond, _outcomes = SICKNESSES[name]
    application.start(wrapper=["prlimit", f"--as={size + more * MIB}"])
    wait_for("the outcome of the poll", lambda: application.item().menu, 60)
    shown = application.titles()
    assert shown in map(titles, EITHER)
    print(f"\n{name}, {more} MiB: {shown[0]}")
    assert application.said() == ""


def test_a_click_opens_the_menu_while_16_mib_come_in(application_on, service):
    application = application_on(bar="light")
    application.start()
    service.wait_for_requests(1)
    application.open_menu()
    application.desktop.press("Escape")
    sick, _outcomes = SICKNESSES["16 MiB of members"]
    busy = threading.Event()

    def respond(connection):
        busy.set()
        sick(connection)

    service.respond = respond
    assert busy.wait(25)
    begin = time.monotonic()
    application.open_menu()
    print(f"\nfrom the click to the open menu: {time.monotonic() - begin:.2f} s")
    assert len(application.read_open_menu()) == len(product.menu("unknown", None, ""))


# From poll to poll, in one process -------------------------------------------------

def test_memory_comes_back_and_the_next_poll_is_as_ever(application, service):
    application.start()
    wait_for_usual_menu(application)
    before = memory(application)
    sicknesses = SICKNESSES if ALL_POLLS else ["16 MiB of members", "16 MiB in one text"]
    for name in sicknesses:
        if name == "one byte a second":
            continue  # lasts longer than the time between two polls
        service.respond, outcomes = SICKNESSES[name]
        with Clicks(application) as clicks:
            service.wait_for_requests(len(service.requests) + 1, 45)
            wait_for("the outcome of the poll", lambda: application.titles() in [
                titles(outcome, SERVICE_ID) for outcome in outcomes],
                45)
        print(f"\n{name}: {clicks}")
        assert max(clicks.seconds) < SLOWEST_CLICK
        expect_memory(application, before, name)
    service.respond = service.send_status
    wait_for("the usual answer", lambda: application.titles()[product.STATE_ROW]
             == USUAL_MENU[product.STATE_ROW], 45)
    assert application.said() == ""


# Nothing leaves the machine ----------------------------------------------------------

AWAY = ["http://192.0.2.1/", "http://192.0.2.1:{port}/status.json", "https://192.0.2.1/",
        "http://[2001:db8::1]/", "http://intranet.example/", "https://intranet.example/",
        "//192.0.2.1/", "http://127.0.0.1@192.0.2.1/", "http://127.0.0.1.intranet.example/",
        "http://localhost.intranet.example/", "http://3221225985/", "http://0300.0.2.1/",
        "http://[::ffff:192.0.2.1]/", "http://0.0.0.0:{port}/", "ftp://192.0.2.1/",
        "file:///etc/passwd", "data:application/json,{{\"state\":\"stale\"}}", "javascript:1",
        "https://127.0.0.1:{port}/", "http://", "http://[", "\u2028", ""]
REDIRECTS = ["301 Moved Permanently", "302 Found", "303 See Other", "307 Temporary Redirect",
             "308 Permanent Redirect"]


def traced(application):
    """Starts it with its connections noted; where to."""
    trace = application.desktop.path("network")
    with contextlib.suppress(FileNotFoundError):
        os.remove(trace)
    application.start(wrapper=traces.wrapper(trace))
    wait_for("the outcome of the poll", lambda: application.item().menu, 60)
    return lambda: traces.addresses(trace)


@pytest.mark.parametrize("share", range(4))
def test_no_redirect_leads_off_this_machine(application, service, share):
    here = {("127.0.0.1", service.port)}
    for number, location in list(enumerate(AWAY))[share::4]:
        location = location.format(port=service.port)
        service.answer(b"{}", REDIRECTS[number % 5], [f"Location: {location}"])
        reached = traced(application)
        assert application.titles() == titles(DOWN) or location == "", location
        assert reached() == here, location
        application.stop()


def test_a_redirect_to_the_same_service_is_followed(application, service):
    def respond(connection):
        if len(service.requests) > 1:
            service.send_status(connection)
        else:
            connection.sendall(http("", "302 Found", [
                f"Location: http://127.0.0.1:{service.port}/elsewhere?x=y"]))

    service.respond = respond
    reached = traced(application)
    assert application.titles() == USUAL_MENU
    assert reached() == {("127.0.0.1", service.port)}
    assert service.requests[1].startswith("GET /elsewhere?x=y HTTP/1.1\r\n")


def test_a_redirect_to_another_port_is_not_followed(application, service, stack):
    other = stack.enter_context(contextlib.closing(Service(state="stale")))
    service.answer("", "302 Found", [f"Location: http://127.0.0.1:{other.port}/"])
    reached = traced(application)
    assert application.titles() == titles(DOWN)
    assert reached() == {("127.0.0.1", service.port)}


def test_a_redirect_loop_ends(application, service):
    service.answer("", "302 Found", ["Location: /status.json"])
    reached = traced(application)
    assert application.titles() == titles(DOWN)
    assert 2 <= len(service.requests) < 100
    assert reached() == {("127.0.0.1", service.port)}


def test_no_proxy_gets_to_see_the_request(application, service):
    for name in ("http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"):
        application.desktop.environment[name] = "http://192.0.2.1:3128"
    reached = traced(application)
    assert application.titles() == USUAL_MENU
    assert reached() == {("127.0.0.1", service.port)}
