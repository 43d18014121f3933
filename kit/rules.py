"""Every rule for a velmor-guard: what is expected, how to mend it, and how to find out.

A rule's function returns what it saw, raises NotSo with what it saw instead, or Untold. The order
is that of a check: later rules use what earlier ones have started or asked.
"""

import dataclasses
import filecmp
import re
import threading
import time
import urllib.parse
from typing import Callable

from kit import contract, exchange, listening, mac
from kit.outcome import NotSo, Untold, quoted
from kit.session import (ANSWER_SECONDS, ID_SECONDS, LISTEN_SECONDS, SITES, STOP_SECONDS,
                         TAKEN_SECONDS, managed_text)

PIPE = 16 << 10  # bytes that every pipe holds
CROWD = 20
LONG_HEADER = 1 << 20
QUIET_REQUESTS = 30
QUIET_BYTES = 300  # that they may leave
STARTING_BYTES = 4 << 10  # that a run without any may leave
LONGEST_ID = 100
FOREIGN_SITE = "https://elsewhere.example"
REDIRECTS = 3
CONTROL = re.compile(rb"<(?:a|button|form|input|script)[\s/>]", re.IGNORECASE)


@dataclasses.dataclass(frozen=True)
class Rule:
    name: str
    is_must: bool
    expected: str
    mend: str
    check: Callable


RULES = []


def must(name, expected, mend):
    return rule(name, True, expected, mend)


def advice(name, expected, mend):
    return rule(name, False, expected, mend)


def rule(*facts):
    def add(check):
        RULES.append(Rule(*facts, check))
    return add


# id --json -------------------------------------------------------------------

@must("id-ends", f"`id --json` exits with 0 after at most {ID_SECONDS} seconds",
      "Compute the ID without network and prompts: the application shows nothing until it has it.")
def _(session):
    try:
        run = session.identity()
    except Untold:
        raise NotSo(session.unstartable) from None
    must_have_ended(run)
    return f"status 0 after {run.seconds:.1f} s"


def must_have_ended(run):
    if run.ended_with is None:
        raise NotSo(f"it still runs after {run.seconds:.1f} s")
    if run.ended_with != 0:
        raise NotSo(run.end())


@must("id-closed", f"The output of `id --json` is closed after at most {ID_SECONDS} seconds, too",
      "Give what it starts another standard output: on a Mac the application reads to its end.")
def _(session):
    run = session.identity()
    if run.ended_with is None:
        raise Untold.because("id-ends")
    must_be_closed(run)
    return f"after {run.seconds:.1f} s"


def must_be_closed(run):
    if not run.is_closed:
        raise NotSo("something that it has started keeps its output open")


@must("id-short", f"`id --json` prints at most {PIPE} bytes on either output",
      "Print the object alone: output is read only after the exit, and more never ends.")
def _(session):
    run = session.identity()
    seen = f"{run.out.size} and {run.err.size} bytes"
    if max(run.out.size, run.err.size) > PIPE:
        raise NotSo(seen)
    return seen


@must("id-json",
      "`id --json` prints one JSON object in UTF-8; its `device_id` is a text, not empty",
      'Print {"device_id": "…"} and nothing else to standard output.')
def _(session):
    return quoted(contract.identifier(session.identity().out.data))


@advice("id-plain", f"The device ID is one line of at most {LONGEST_ID} printable characters",
        "People read it in the menu and send it by mail: keep it short, with no blanks around it.")
def _(session):
    found = session.identifier()
    if len(found) > LONGEST_ID or not found.isprintable() or found != found.strip():
        raise NotSo(f"{len(found)} characters: {quoted(found)}")
    return f"{len(found)} characters"


# run --port N ----------------------------------------------------------------

@must("listens", f"`run --port N` listens on 127.0.0.1:N after at most {LISTEN_SECONDS} seconds",
      "Listen before anything that takes time, and answer with the state `unknown` meanwhile.")
def _(session):
    try:
        return f"after {session.start().startup:.1f} s"
    except NotSo:
        session.broken = "listens"
        raise


@must("foreground", "The process that was started is the one that serves",
      "Do not fork into the background: launchd takes the exit for the service's end.")
def _(session):
    service = session.running or session.service()
    if service.wait(0.1) is not None:
        session.broken = "foreground"
        raise NotSo(f"{service.end()}, and another one listens")
    return "it runs"


@must("loopback", "It listens on 127.0.0.1 and nowhere else",
      "Bind to 127.0.0.1, not to all addresses, to localhost or to ::1.")
def _(session):
    session.service()
    found = listening.listeners(session.pids(), session.port)
    seen = ", ".join(found)
    if not all(each.startswith("127.0.0.1:") for each in found):
        raise NotSo(seen)
    others = [address for address in listening.other_addresses()
              if listening.accepts(session.port, address)]
    if others:
        raise NotSo(f"{seen}, but {', '.join(others)} answers too")
    return seen


# /status.json ----------------------------------------------------------------

@must("status-time", f"`/status.json` is answered whole within {ANSWER_SECONDS} seconds",
      "Answer from memory: ask the site in the background, never while the application waits.")
def _(session):
    return f"after {session.answer(exchange.Late).seconds:.2f} s"


@must("status-http", f"The answer is whole HTTP of at most {exchange.LARGEST >> 20} MiB, and plain",
      "Send what Content-Length announces; compress only for those who send Accept-Encoding.")
def _(session):
    return f"{len(session.answer(exchange.Broken).body)} bytes"


@must("status-direct", "It is no redirect",
      "Answer under this path itself: whoever follows a redirect may end up anywhere.")
def _(session):
    answer = session.answer()
    if 300 <= answer.code < 400:
        raise NotSo(f"{answer.code}, to {quoted(answer.header('Location', ''))}")
    return f"{answer.code}"


def direct(session):
    """The first answer, unless it leads elsewhere."""
    answer = session.answer()
    if 300 <= answer.code < 400:
        raise Untold.because("status-direct")
    return answer


@advice("status-code", "Its status code is 200",
        "The application reads any answer, but other tools do not.")
def _(session):
    answer = direct(session)
    if answer.code != 200:
        raise NotSo(f"{answer.code}")
    return "200"


@advice("status-type", "Its Content-Type is application/json",
        "Send Content-Type: application/json.")
def _(session):
    kind = direct(session).header("Content-Type", "none")
    if kind.partition(";")[0].strip().lower() != "application/json":
        raise NotSo(quoted(kind))
    return quoted(kind)


@advice("status-length", "It says how long it is",
        "Send Content-Length, or chunks: a service that dies half-way then does not look whole.")
def _(session):
    if not direct(session).is_measured:
        raise NotSo("neither Content-Length nor chunks")
    return "it does"


@must("status-fresh", "It may not be cached",
      "Send Cache-Control: no-store, or an old state may be shown.")
def _(session):
    control = direct(session).header("Cache-Control", "")
    words = {word.strip().lower() for word in control.split(",")}
    if not words & {"no-store", "no-cache", "max-age=0"}:
        raise NotSo(f"Cache-Control: {quoted(control)}" if control else "no Cache-Control")
    return f"Cache-Control: {quoted(control)}"


@must("status-json", "It is one JSON object in UTF-8 that every reader reads alike",
      "No byte-order mark, no two members of one name, no NaN, no half surrogate, only that.")
def _(session):
    return f"{len(contract.json_object(direct(session).body))} members"


@must("status-members", f"{', '.join(f'`{name}`' for name in contract.STATUS)} are texts or null",
      "Send texts as JSON strings; leave a member out, or send null, where there is no value.")
def _(session):
    status = session.status()
    contract.check_members(status)
    return ", ".join(name for name in contract.STATUS if status.get(name) is not None)


@must("status-state", f"`state` is {', '.join(f'`{s}`' for s in contract.STATES[:-1])} or "
      f"`{contract.STATES[-1]}`", "Spell it exactly so; send `unknown` until more is known.")
def _(session):
    status = session.status()
    contract.check_state(status)
    return quoted(status["state"])


@must("status-heartbeat", "`last_heartbeat` is a date-time that every system reads",
      "Send UTC in the form 2024-05-01T12:34:56Z, or null if there was none.")
def _(session):
    status = session.status()
    contract.check_heartbeat(status)
    return quoted(status.get("last_heartbeat"))


@must("same-id", "`device_id` is the one that `id --json` prints",
      "Take both from one function: IT approves the one and the site sees the other.")
def _(session):
    expected, found = session.identifier(), session.status().get("device_id")
    if found is None:
        return "none is sent"
    if found != expected:
        raise NotSo(f"{quoted(found)}, not {quoted(expected)}")
    return quoted(found)


@must("stable-id", "`id --json` ends and prints the same while the service runs",
      "Derive the ID from the Mac, or keep it in a file, and never wait for the service.")
def _(session):
    session.service()
    expected = session.identifier()
    first, run = session.identity(), session.identify()
    try:
        if run.ended_with != first.ended_with:
            must_have_ended(run)
        if first.is_closed:
            must_be_closed(run)
        found = contract.identifier(run.out.data)
    except NotSo as problem:
        raise NotSo(f"{problem}, while the service runs") from None
    if found != expected:
        raise NotSo(f"{quoted(found)} after {quoted(expected)}")
    return quoted(found)


@must("managed-site", "`site` is that of managed.json beside the program",
      'Read {"site": "…"} from managed.json in the folder of the program, at every start.')
def _(session):
    try:
        return same_site(session.status(), SITES[0])
    except NotSo:
        session.ignores_managed = True
        raise


def same_site(status, expected):
    found = status.get("site")
    if not isinstance(found, str) or found.rstrip("/") != expected:
        raise NotSo(f"{quoted(found)}, not {quoted(expected)}")
    return quoted(found)


# The pages -------------------------------------------------------------------

def page_at(session, path):
    """The answer under a path, or where it leads to in this service."""
    for _redirect in range(REDIRECTS + 1):
        try:
            answer = session.get(path)
        except (exchange.Late, exchange.Broken) as problem:
            raise NotSo(f"{path}: {problem}") from None
        target = answer.header("Location")
        if not 300 <= answer.code < 400 or not target:
            return answer
        here = f"http://127.0.0.1:{session.port}"
        try:
            address = urllib.parse.urljoin(here + path, target)
        except ValueError:
            raise NotSo(f"{path} leads to {quoted(target)}") from None
        path = address[len(here):].partition("#")[0]
        if not address.startswith(here + "/") or not re.fullmatch("[!-~]+", path):
            return answer
    raise NotSo(f"more than {REDIRECTS} redirects")


def must_be_page(answer):
    kind = answer.header("Content-Type", "none").partition(";")[0].strip().lower()
    if answer.code != 200 or kind != "text/html":
        raise NotSo(f"status {answer.code}, Content-Type {quoted(kind)}")


@must("get-safe", "Opening `/` and `/authorize` authorizes nobody",
      "Change only on POST: any site can make a browser open them, in a picture's address say.")
def _(session):
    session.service()
    before = session.status_now().get("state")
    for path in ("/", "/authorize"):
        page_at(session, path)
    after = session.status_now().get("state")
    if after == "authorized" != before:
        raise NotSo(f"the state {quoted(before)} became {quoted(after)}")
    return f"still {quoted(after)}"


@must("page-root", "`/` is a page in which a person can authorize the Mac",
      "Answer / with HTML and a form, a button or a link that leads to authorizing.")
def _(session):
    answer = page_at(session, "/")
    must_be_page(answer)
    controls = len(CONTROL.findall(answer.body))
    if not controls:
        raise NotSo("a page without a form, a button or a link")
    return f"a page with {controls} controls"


@must("page-authorize", "`/authorize`, which an authorized user opens, answers too",
      "Answer /authorize with HTML, or lead on to the site's administration. Until the Mac is "
      "authorized, 403 will do.")
def _(session):
    answer = page_at(session, "/authorize")
    if answer.code == 403 and session.status().get("state") != "authorized":
        return "403, as the Mac is not authorized"
    if 300 <= answer.code < 400:
        return f"it leads to {quoted(answer.header('Location'))}"
    must_be_page(answer)
    return "a page"


@advice("page-frame", "The pages cannot be put into another site's frame",
        "Send Content-Security-Policy: frame-ancestors 'none' with them.")
def _(session):
    for path in ("/", "/authorize"):
        answer = page_at(session, path)
        policy = answer.header("Content-Security-Policy", "")
        if answer.code == 200 and "frame-ancestors" not in policy and not answer.header(
                "X-Frame-Options"):
            raise NotSo(f"{path} can")
    return "they cannot"


# Other web sites ---------------------------------------------------------------

def must_refuse(session, what, path, **options):
    """No answer is a refusal too, and so is the end of the connection."""
    try:
        answer = session.ask(path, **options)
    except exchange.Broken:
        return
    except exchange.Late as problem:
        raise NotSo(f"{what}: {problem}") from None
    if answer.code < 400:
        raise NotSo(f"{what} is answered with {answer.code}")


@must("foreign-host", "A request for another host is refused",
      "Compare Host with 127.0.0.1:N (and localhost:N), and answer 403 to others: a name of any "
      "site can be made to lead here.")
def _(session):
    session.answering_service()
    for host in ("elsewhere.example", f"elsewhere.example:{session.port}",
                 f"127.0.0.1.elsewhere.example:{session.port}"):
        for path in ("/status.json", "/", "/authorize"):
            must_refuse(session, f"{path} for {host}", path, host=host)
    session.must_still_answer("these requests")
    return "refused"


@must("foreign-origin", "A request from another site's page is refused",
      "Answer 403 if Origin is there and not http://127.0.0.1:N (or http://localhost:N).")
def _(session):
    session.answering_service()
    form = ["Content-Type: application/x-www-form-urlencoded", "Content-Length: 0"]
    for origin in (FOREIGN_SITE, "null", f"http://127.0.0.1:{session.port + 1}"):
        header = f"Origin: {origin}"
        must_refuse(session, f"/status.json for {origin}", "/status.json", headers=[header])
        for path in ("/", "/authorize"):
            must_refuse(session, f"POST {path} from {origin}", path, method="POST",
                        headers=[header, *form])
    allowed = session.answer().header("Access-Control-Allow-Origin")
    if allowed:
        raise NotSo(f"Access-Control-Allow-Origin: {quoted(allowed)} lets pages read it")
    return "refused"


@must("own-origin", "A request from the service's own page is not refused",
      "Accept Origin: http://127.0.0.1:N, or no form of yours can be sent.")
def _(session):
    session.answering_service()
    try:
        without = session.ask("/")
        answer = session.ask("/", headers=[f"Origin: http://127.0.0.1:{session.port}"])
    except (exchange.Late, exchange.Broken) as problem:
        raise NotSo(str(problem)) from None
    if answer.code != without.code:
        raise NotSo(f"status {answer.code}, and {without.code} without Origin")
    return f"{answer.code}"


# Rough handling ------------------------------------------------------------------

@must("crowd", f"{CROWD} requests at once are answered, each within {ANSWER_SECONDS} seconds",
      "Serve connections side by side, and let enough of them queue.")
def _(session):
    session.answering_service()
    seen = []

    def ask(connection):
        try:
            with connection:
                seen.append(session.answer_now(connection) and None)
        except NotSo as problem:
            seen.append(str(problem))

    clients = [threading.Thread(target=ask, args=[session.open()], daemon=True)
               for _ in range(CROWD)]
    for client in clients:
        client.start()
    for client in clients:
        client.join()
    wrong = [each for each in seen if each]
    if wrong:
        raise NotSo(f"{len(wrong)} of {CROWD}: {wrong[0]}")
    session.must_still_answer(f"{CROWD} requests")
    return "all"


@must("idle", "Clients that send nothing, or half a request, hold up nobody",
      "Serve connections side by side: browsers open some in advance and leave them idle.")
def _(session):
    session.answering_service()
    try:
        for data in (b"", b"", b"GET /status.json HTTP/1.1\r\nHost: 127"):
            session.open(data)
        session.must_still_answer("opening idle connections")
    finally:
        session.close_connections()
    return "they do not"


@must("cut-short", "It survives requests that are cut short, and what is no HTTP",
      "Take the end of a connection at any byte, and any bytes, for that one client's failure.")
def _(session):
    session.answering_service()
    for data in (b"", b"GET", b"GET /status.json HTTP/1.1\r\nHost: 127.0.0.1\r\n", b"\r\n\r\n",
                 b"\x00\xff\r\n\r\n", b"\x16\x03\x01\x02\x00\x01\x00", b"GET //[ HTTP/1.1\r\n\r\n",
                 b"POST / HTTP/1.1\r\nContent-Length: 1000\r\n\r\nx",
                 b"POST / HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
                 b"POST / HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n"):
        session.open(data)
        session.close_connections()
        session.must_still_answer(f"{quoted(data.decode('latin-1'))} and no more")
    return "it does"


@must("long-header", f"It survives a header of {LONG_HEADER >> 20} MiB",
      "Limit what you read of a request, answer 431 or close the connection.")
def _(session):
    session.answering_service()
    filler = "X-Filler: " + "x" * LONG_HEADER
    try:
        seen = f"{session.ask('/status.json', headers=[filler]).code}"
    except exchange.Broken:
        seen = "it closed the connection"
    except exchange.Late:
        seen = "no answer"
    session.close_connections()
    session.must_still_answer("that header")
    return seen


# Stopping and starting -----------------------------------------------------------

@must("taken-port",
      f"A second one on a taken port fails after at most {TAKEN_SECONDS} seconds and says why",
      "Exit with a failure and a line on standard error, VLX_QUIET=1 or not; launchd tries again.")
def _(session):
    session.service()
    second = session.run(session.port)
    status = second.wait(session.limit(TAKEN_SECONDS))
    second.kill()
    if status is None:
        raise NotSo("it goes on, and nobody learns that another one has the port")
    if status == 0:
        raise NotSo(f"{second.end()}, as if all were well")
    if not second.printed():
        raise NotSo(f"{second.end()}, without a word")
    if session.running.status() is not None:
        raise NotSo(f"of the first one: {session.running.end()}")
    return second.end()


@must("stop", f"It ends at most {STOP_SECONDS} seconds after SIGTERM, also with connections open",
      "Exit at once: launchd kills after some seconds, and loads no new one before the end.")
def _(session):
    service = session.service()
    half = exchange.request(session.port, "/status.json")[:-4]
    idle = session.open()
    session.open(half)
    try:
        session.ask("/status.json", connection=idle)
    except (exchange.Late, exchange.Broken):
        pass  # that this is answered is another rule
    return ended(session, service)


def ended(session, service):
    """Asks the service to end, and says when it did."""
    start = time.monotonic()
    service.terminate()
    if service.wait(session.limit(STOP_SECONDS)) is None:
        raise NotSo("it still runs")
    session.running = None
    return f"it ended after {time.monotonic() - start:.1f} s"


@must("restart", f"It listens again on the same port after at most {LISTEN_SECONDS} seconds, twice",
      "Set SO_REUSEADDR before binding: connections of the one before keep the port for a while.")
def _(session):
    service = session.answering_service()
    port = session.port
    seen = []
    # The connections stay open on this side.
    for _attempt in range(2):
        try:
            with_answer = session.open()
            session.ask("/status.json", connection=with_answer)
        except (exchange.Late, exchange.Broken) as problem:
            raise NotSo(str(problem)) from None
        try:
            ended(session, service)
        except NotSo:
            raise Untold.because("stop") from None
        session.write_site(SITES[1])
        service = session.start(port)
        seen.append(f"{service.startup:.1f} s")
        session.must_still_answer("the restart")
    return f"after {' and '.join(seen)}"


@must("managed-anew", "After a restart `site` is that of the managed.json of then",
      "Read managed.json at every start: the application writes it anew at every launch.")
def _(session):
    if session.ignores_managed:
        raise Untold.because("managed-site")
    session.write_site(SITES[1])
    session.forget()
    session.service()
    return same_site(session.known(session.status_now()), SITES[1])


@must("stop-early", f"It ends at most {STOP_SECONDS} seconds after SIGTERM while it starts, too",
      "Leave SIGTERM to the system until you listen: every launch restarts the service at once.")
def _(session):
    startup = session.service().startup
    session.forget()
    service = session.running = session.run(session.port)
    time.sleep(startup / 2)
    return ended(session, service)


@must("quiet", "Under VLX_QUIET=1 requests leave nothing in the log",
      "Print nothing per request: launchd's two log files grow until the disk is full.")
def _(session):
    session.answering_service()
    without = logged(session, 0)
    if without.printed() > STARTING_BYTES:
        raise NotSo(f"{without.printed()} bytes without a request{without.last_words()}")
    service = logged(session, QUIET_REQUESTS)
    count = max(0, service.printed() - without.printed())
    seen = f"{count} bytes for {QUIET_REQUESTS} requests"
    if count > QUIET_BYTES:
        raise NotSo(seen + service.last_words())
    return seen


def logged(session, requests):
    """A service that has run and answered so many of them."""
    session.forget()
    service = session.service()
    for _request in range(requests):
        session.answer_now()
    try:
        ended(session, service)
    except NotSo:
        service.kill()
    session.running = None
    return service


@must("keeps-running", "It never ends by itself, and can be started again",
      "Catch what goes wrong while serving: launchd waits up to 10 seconds before another start.")
def _(session):
    if session.broken != "keeps-running":
        session.service()
    if session.deaths:
        raise NotSo(session.deaths[0])
    return "it runs"


@must("keeps-files", "It leaves the program and managed.json as they are",
      "Keep your own state in other files: these two are replaced at every launch.")
def _(session):
    program = session.installed
    if not (program.is_file() and filecmp.cmp(program, session.program, shallow=False)):
        raise NotSo("the program has changed")
    texts = [managed_text(site).encode() for site in SITES]
    if beginning(session.managed, max(map(len, texts)) + 1) not in texts:
        raise NotSo("managed.json has changed")
    return "they are"


def beginning(path, count):
    """The first bytes in a file; nothing if it is none."""
    if not path.is_file():
        return None
    with open(path, "rb") as file:
        return file.read(count)


# The file, on a Mac ----------------------------------------------------------------

@must("mac-architectures", f"It is one program for {' and '.join(mac.ARCHITECTURES)}",
      "Build for both (-arch arm64 -arch x86_64) or join two with lipo -create.")
def _(session):
    found = mac.architectures(session.program)
    if not set(mac.ARCHITECTURES) <= set(found):
        raise NotSo(" ".join(found) or "no program for a Mac")
    return " ".join(found)


@must("mac-oldest", f"It runs on macOS {mac.OLDEST} in both architectures",
      f"Build with -mmacosx-version-min={mac.OLDEST} or MACOSX_DEPLOYMENT_TARGET={mac.OLDEST}.")
def _(session):
    found = mac.oldest_systems(session.program)
    if not all(found.values()) or any(mac.version(each) > mac.version(mac.OLDEST)
                                      for each in found.values()):
        raise NotSo(mac.listed(found))
    return mac.listed(found)


@must("mac-uuid", "Each architecture has an LC_UUID of its own",
      "Link with Apple's linker, without -no_uuid: the system tells programs apart by it.")
def _(session):
    found = mac.identifiers(session.program)
    if not all(found.values()) or len(set(found.values())) < len(found):
        raise NotSo(mac.listed(found))
    return mac.listed(found)


@must("mac-entitlements", f"It does not ask for {mac.DEBUGGING}",
      "Build for release, or sign again without it: notarisation refuses it.")
def _(session):
    found = mac.entitlements(session.program)
    if found.get(mac.DEBUGGING):
        raise NotSo("it does")
    return ", ".join(sorted(found)) or "no entitlements"
