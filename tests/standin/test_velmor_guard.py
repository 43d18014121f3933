"""standin/velmor-guard: answers as it is told to, and lets nobody else tell it."""

import ast
import datetime
import html.parser
import itertools
import json
import pathlib
import re
import shlex
import socket
import threading
import time
import urllib.parse

import pytest

from desktop.processes import wait_for
from desktop.product import STATES, hardware_identifier
from desktop.service import answers
from standin_harness import STANDIN

FORM = {"Content-Type": "application/x-www-form-urlencoded",
        "Accept": "text/html,application/xhtml+xml"}


# The device identifier

def test_id_prints_the_machines_identifier(stopped_guard):
    expected = hardware_identifier()
    assert json.loads(stopped_guard.run("id", "--json").stdout) == {"device_id": expected}
    assert stopped_guard.run("id").stdout == expected + "\n"


def test_id_takes_the_chosen_identifier(guard):
    guard.set(device_id='GEN-"ä"')
    assert json.loads(guard.run("id", "--json").stdout) == {"device_id": 'GEN-"ä"'}


def test_id_takes_the_environments_identifier_first(guard):
    guard.set(device_id="GEN-CHOSEN")
    output = guard.run("id", "--json", VLX_DEVICE_ID="GEN-ENVIRONMENT").stdout
    assert json.loads(output) == {"device_id": "GEN-ENVIRONMENT"}


@pytest.mark.parametrize("arguments", [[], ["stop"], ["run", "--port", "x"],
                                       ["run", "--port", "65536"], ["run", "--port", "-1"]])
def test_a_wrong_command_line_is_refused(stopped_guard, arguments):
    result = stopped_guard.run(*arguments)
    assert result.returncode == 2
    assert "usage: velmor-guard" in result.stderr


# The status

def test_a_fresh_installation_is_not_enrolled(stopped_guard):
    (stopped_guard.folder / "managed.json").write_text('{"site":"https://site.example"}')
    status = stopped_guard.start().status()
    assert status.pop("device_id").startswith("HW-UUID-")
    assert status == {"state": "not_enrolled", "site": "https://site.example", "email": None,
                      "last_heartbeat": None}


@pytest.mark.parametrize("state", STATES)
def test_each_state_is_answered(guard, state):
    assert guard.set(state=state)["state"] == state
    answer = guard.get("/status.json")
    assert answer.status == 200
    assert answer.getheader("Content-Type") == "application/json"
    assert json.loads(answer.body)["state"] == state


def test_details_are_answered_as_they_are(guard):
    details = {"site": "", "email": "ä <b>&\"' \u2028", "device_id": " GEN-1 "}
    guard.set(**details)
    assert {name: guard.status()[name] for name in details} == details


@pytest.mark.parametrize("age", [0, 59.9, 3600, -86400, 3_000_000_000])
def test_the_heartbeat_is_as_old_as_chosen(guard, age):
    guard.set(heartbeat_age=age)
    text = guard.status()["last_heartbeat"]
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", text)
    heartbeat = datetime.datetime.fromisoformat(text[:-1] + "+00:00")
    assert time.time() - heartbeat.timestamp() == pytest.approx(age, abs=5)


def test_no_heartbeat_is_null(guard):
    guard.set(heartbeat_age=5)
    guard.set(heartbeat_age=None)
    assert guard.status()["last_heartbeat"] is None


def test_only_the_members_given_change(guard):
    guard.set(state="stale", site="https://a.example", email="a@a.example")
    guard.set(email="b@b.example")
    status = guard.status()
    assert (status["state"], status["site"], status["email"]) == (
        "stale", "https://a.example", "b@b.example")


# Answers that are no status

def test_garbage_is_not_json(guard):
    guard.set(mode="garbage")
    answer = guard.get("/status.json")
    assert answer.status == 200
    with pytest.raises(ValueError):
        json.loads(answer.body)


def test_an_html_error_is_a_page_with_status_404(guard):
    guard.set(mode="html_error")
    answer = guard.get("/status.json")
    assert answer.status == 404
    assert answer.getheader("Content-Type").startswith("text/html")
    assert b"<html" in answer.body


def test_a_json_error_is_an_object_with_status_500(guard):
    guard.set(mode="json_error")
    answer = guard.get("/status.json")
    assert answer.status == 500
    assert json.loads(answer.body) == {"error": "Internal Server Error"}


def test_silence_holds_up_nobody_else(guard):
    guard.set(mode="silent")
    waiting = [socket.create_connection(("127.0.0.1", guard.port)) for _ in range(20)]
    try:
        for client in waiting:
            client.sendall(b"GET /status.json HTTP/1.1\r\nHost: 127.0.0.1:%d\r\n\r\n" % guard.port)
        with pytest.raises(TimeoutError):
            guard.get("/status.json", timeout=0.5)
        assert guard.get("/").status == 200
        guard.set(mode="normal")
        assert guard.status()["state"] == "not_enrolled"
        for client in waiting:
            client.settimeout(0.01)
            with pytest.raises(TimeoutError):
                client.recv(1)
        assert guard.stop() == 0
    finally:
        for client in waiting:
            client.close()


# As its guide says

def told_by_curl(line):
    """Method, path and body of a request in the guide."""
    words = shlex.split(line)
    body = "&".join(value for option, value in zip(words, words[1:]) if option == "-d")
    return "POST" if body else "GET", urllib.parse.urlsplit(words[-1]).path, body or None


def test_the_examples_of_the_guide_do_as_they_say(guard):
    lines = [line for line in (STANDIN / "README.md").read_text(encoding="utf-8").splitlines()
             if line.startswith("    curl ")]
    answers = [guard.request(*told_by_curl(line)) for line in lines]
    assert [answer.status for answer in answers] == [200, 200, 200]
    state = json.loads(answers[-1].body)
    assert (state["state"], state["heartbeat_age"], state["mode"]) == ("revoked", 7200, "silent")


def test_the_guide_lists_what_can_be_chosen(guard):
    text = (STANDIN / "README.md").read_text(encoding="utf-8")
    rows = dict(re.findall(r"^\| (`\w+`(?:, `\w+`)*) \| (.*) \|$", text, re.MULTILINE))
    assert set(re.findall(r"\w+", " ".join(rows))) == set(guard.state())
    assert re.findall(r"\w+", rows["`state`"]) == list(STATES)
    for mode in re.findall(r"\w+", rows["`mode`"]):
        assert guard.set(mode=mode)["mode"] == mode


# What was chosen is kept

def test_the_choices_outlive_a_restart(guard):
    guard.set(state="revoked", email="a@a.example", heartbeat_age=60, mode="json_error")
    before = guard.state()
    guard.stop()
    assert guard.start().state() == before


def test_the_state_file_is_whole_at_any_time(guard):
    guard.set(email="start")
    done = threading.Event()
    seen = set()

    def read():
        while not done.is_set():
            seen.add(json.loads(guard.state_file.read_text())["email"][:1])

    reader = threading.Thread(target=read)
    reader.start()
    try:
        for number in range(60):
            guard.set(email="ab"[number % 2] * 20000)
    finally:
        done.set()
        reader.join()
    assert seen >= {"a", "b"}
    assert sorted(path.name for path in guard.folder.glob("*state*")) == [guard.state_file.name]


def test_no_change_is_lost_when_two_come_at_once(guard):
    threads = [threading.Thread(target=guard.set, kwargs=change) for change in (
        {"state": "stale"}, {"email": "a@a.example"}, {"site": "https://a.example"},
        {"device_id": "GEN-1"}, {"heartbeat_age": 5})]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert guard.state() == {"state": "stale", "email": "a@a.example", "mode": "normal",
                             "site": "https://a.example", "device_id": "GEN-1", "heartbeat_age": 5}


@pytest.mark.parametrize("content", [
    b"", b"\xff\x00", b"[1]", b'"authorized"', b"[" * 100000,
    b'{"state": 5, "mode": [], "email": {}, "heartbeat_age": "x"}',
    b'{"heartbeat_age": 1e999}', b'{"heartbeat_age": ' + b"9" * 400 + b"}",
    b'{"heartbeat_age": NaN}', b'{"heartbeat_age": true, "state": "Authorized"}'],
    ids=itertools.count())
def test_a_damaged_state_file_means_the_defaults(stopped_guard, content):
    stopped_guard.state_file.write_bytes(content)
    guard = stopped_guard.start()
    assert guard.state() == {"state": "not_enrolled", "site": None, "email": None,
                             "device_id": None, "heartbeat_age": None, "mode": "normal"}
    assert guard.get("/").status == guard.get("/authorize").status == 200
    guard.set(state="stale")
    assert guard.status()["state"] == "stale"
    assert json.loads(guard.run("id", "--json").stdout)["device_id"].startswith("HW-UUID-")


def test_a_change_that_cannot_be_saved_is_refused(guard):
    guard.state_file.mkdir()
    answer = guard.request("POST", "/state", '{"state": "stale"}')
    assert answer.status == 500
    assert answer.body.startswith(b"Cannot be saved: ")
    assert guard.status()["state"] == "not_enrolled"


@pytest.mark.parametrize("body", [
    '{"state": "Authorized"}', '{"state": null}', '{"state": []}', '{"mode": "loud"}',
    '{"email": 5}', '{"site": {}}', '{"device_id": true}', '{"heartbeat_age": "5"}',
    '{"heartbeat_age": true}', '{"heartbeat_age": NaN}', '{"heartbeat_age": 1e300}',
    '{"heartbeat_age": 1' + "0" * 400 + "}", '{"colour": "red"}', '{"email": "a"', "[]",
    '{"a":' * 5000, b'{"email": "\xff"}', "state=nope", "heartbeat_age=soon", "email"],
    ids=itertools.count())
def test_a_wrong_change_is_refused_whole(guard, body):
    guard.set(state="stale", email="a@a.example")
    before = guard.state()
    if isinstance(body, str) and body.startswith('{"') and body.endswith("}"):
        body = '{"site": "https://new.example", ' + body[1:]
    answer = guard.request("POST", "/state", body)
    assert answer.status == 400
    assert answer.body.strip()
    assert guard.state() == before


@pytest.mark.parametrize("length, status", [("70000", 413), ("-1", 400), ("many", 400)])
def test_a_senseless_length_is_refused(guard, length, status):
    answer = guard.request("POST", "/state", headers={"Content-Length": length})
    assert answer.status == status


# Pages

class Page(html.parser.HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.buttons, self.fields, self.addresses = {}, {}, []
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        if tag == "button" and "name" in values:
            self.buttons[values["name"], values["value"]] = values.get("aria-pressed")
        if tag == "input":
            self.fields[values["name"]] = values["value"]
        self.addresses += [values[name] for name in ("src", "href", "action") if name in values]


def page(guard, path="/"):
    answer = guard.get(path)
    assert answer.status == 200
    return Page(answer.body.decode())


def test_the_page_offers_everything_and_shows_what_is_chosen(guard):
    guard.set(state="stale", mode="garbage", site="https://a.example", email="a@a.example",
              device_id="GEN-1", heartbeat_age=60)
    shown = page(guard)
    states = {value: pressed for (name, value), pressed in shown.buttons.items()
              if name == "state"}
    assert list(states) == list(STATES)
    assert [value for value, pressed in states.items() if pressed == "true"] == ["stale"]
    modes = {value: pressed for (name, value), pressed in shown.buttons.items() if name == "mode"}
    assert list(modes) == ["normal", "garbage", "html_error", "json_error", "silent"]
    assert [value for value, pressed in modes.items() if pressed == "true"] == ["garbage"]
    assert shown.fields == {"site": "https://a.example", "email": "a@a.example",
                            "device_id": "GEN-1", "heartbeat_age": "60"}


def test_the_pages_need_nothing_from_elsewhere(guard):
    for path in ("/", "/authorize"):
        answer = guard.get(path)
        assert set(Page(answer.body.decode()).addresses) <= {"/", "/state", "/authorize", "data:,"}
        assert b"url(" not in answer.body and b"@import" not in answer.body
        assert answer.getheader("Content-Security-Policy").startswith("default-src 'none'")


def test_what_is_shown_is_escaped(guard):
    evil = "\"'><script>alert(1)</script>&amp;"
    guard.set(site=evil, email=evil, device_id=evil)
    assert page(guard).fields["site"] == evil
    for path in ("/", "/authorize"):
        body = guard.get(path).body
        assert b"<script" not in body
        assert b"&lt;script&gt;" in body


def test_text_that_utf8_cannot_carry_breaks_no_page(guard):
    guard.request("POST", "/state", '{"email": "\\ud800"}')
    assert guard.get("/").status == 200
    assert guard.status()["email"] == "\ud800"


def test_a_form_leads_back_to_the_page(guard):
    answer = guard.request("POST", "/state", "state=revoked", FORM)
    assert (answer.status, answer.getheader("Location")) == (303, "/")
    assert guard.status()["state"] == "revoked"


def test_an_empty_field_means_the_default(guard):
    guard.set(site="https://a.example", email="a@a.example", device_id="GEN-1", heartbeat_age=5)
    guard.request("POST", "/state", "site=&email=&device_id=&heartbeat_age=", FORM)
    assert guard.state() == {"state": "not_enrolled", "site": None, "email": None,
                             "device_id": None, "heartbeat_age": None, "mode": "normal"}


def test_a_heartbeat_button_overrules_the_field(guard):
    guard.request("POST", "/state", "heartbeat_age=soon&heartbeat_age=300", FORM)
    assert guard.state()["heartbeat_age"] == 300


def authorize_buttons(guard, path):
    return guard.get(path).body.count(b'action="/authorize"><button')


def test_the_first_page_authorizes_the_mac(guard):
    guard.set(device_id="GEN-SHOWN")
    assert b"<dd><code>GEN-SHOWN</code>" in guard.get("/").body
    assert authorize_buttons(guard, "/") == 1
    answer = guard.request("POST", "/authorize", "", FORM)
    assert (answer.status, answer.getheader("Location")) == (303, "/")
    assert authorize_buttons(guard, "/") == 0
    assert "/authorize" in page(guard).addresses
    status = guard.status()
    assert status["state"] == "authorized"
    assert status["last_heartbeat"] is not None


@pytest.mark.parametrize("state", STATES)
def test_opening_the_pages_authorizes_nobody(guard, state):
    guard.set(state=state)
    before = guard.status()
    for path in ("/", "/authorize"):
        assert guard.get(path).status == 200
    assert guard.status() == before


def test_the_authorize_page_is_for_whom_is_authorized(guard):
    for state in STATES:
        guard.set(state=state)
        shown = guard.get("/authorize").body
        assert (b"<h1>WordPress Admin</h1>" in shown) is (state == "authorized")
        assert b"<form" not in shown and b"<button" not in shown
        assert page(guard, "/authorize").addresses == ["data:,", "/"]


def test_authorizing_keeps_a_chosen_heartbeat(guard):
    guard.set(heartbeat_age=172800)
    guard.request("POST", "/authorize")
    assert guard.state()["heartbeat_age"] == 172800


@pytest.mark.parametrize("path", ["/favicon.ico", "/status", "/state/", "/../etc/passwd"])
def test_nothing_else_is_served(guard, path):
    assert guard.get(path).status == 404


# Who may ask

@pytest.mark.parametrize("path", ["/state", "/authorize"])
@pytest.mark.parametrize("headers", [
    {"Origin": "https://evil.example"}, {"Origin": "null"}, {"Origin": "http://127.0.0.1:1"},
    {"Origin": "http://127.0.0.1"}, {"Host": "evil.example"}, {"Host": "127.0.0.1.evil.example"}])
def test_another_site_cannot_change_anything(guard, path, headers):
    assert guard.request("POST", path, "state=authorized", headers).status == 403
    assert guard.status()["state"] == "not_enrolled"


def test_another_name_for_this_machine_reads_nothing(guard):
    assert guard.get("/state", headers={"Host": f"evil.example:{guard.port}"}).status == 403


@pytest.mark.parametrize("name", ["127.0.0.1", "localhost"])
def test_its_own_pages_may_change_it(guard, name):
    host = f"{name}:{guard.port}"
    headers = {"Host": host, "Origin": f"http://{host}"}
    assert guard.request("POST", "/state", "state=stale", headers).status == 200
    assert guard.status()["state"] == "stale"


def test_only_the_loopback_interface_listens(guard):
    listening = [line.split()[1] for name in ("tcp", "tcp6")
                 for line in pathlib.Path("/proc/net", name).read_text().splitlines()[1:]
                 if line.split()[3] == "0A" and line.split()[1].endswith(f":{guard.port:04X}")]
    assert listening == [f"0100007F:{guard.port:04X}"]


# The process

def test_sigterm_ends_it_promptly(guard):
    idle = socket.create_connection(("127.0.0.1", guard.port))
    try:
        start = time.monotonic()
        assert guard.stop() == 0
        assert time.monotonic() - start < 3
    finally:
        idle.close()


def test_a_taken_port_is_one_line_and_a_failure(guard):
    result = guard.run("run", "--port", str(guard.port))
    assert result.returncode == 1
    assert result.stderr == (
        f"velmor-guard: cannot listen on 127.0.0.1:{guard.port}: Address already in use\n")


def test_the_port_is_free_again_at_once(guard):
    guard.status()
    port = guard.port
    guard.stop()
    assert guard.start(port=port).port == port


def test_port_zero_takes_any_free_port(stopped_guard):
    assert stopped_guard.start(port=0).port > 0
    assert stopped_guard.status()["state"] == "not_enrolled"


def test_requests_are_logged(guard):
    guard.status()
    assert '"GET /status.json HTTP/1.1" 200' in guard.log.read_text()


def test_quiet_means_no_output(guard):
    port = guard.port
    guard.stop()
    guard.log.write_text("")
    guard.start(quiet=True, port=port)
    wait_for("an answer", lambda: answers(f"http://127.0.0.1:{port}/status.json"))
    process = guard.process
    process.terminate()
    assert process.stdout.read() == ""
    assert guard.log.read_text() == ""


def test_clients_that_talk_nonsense_do_no_harm(guard):
    for data in (b"", b"\x00\xff\r\n\r\n", b"GET\r\n\r\n", b"GET //[ HTTP/1.1\r\n\r\n",
                 b"POST /state HTTP/1.1\r\nContent-Length: 10\r\n\r\n{"):
        with socket.create_connection(("127.0.0.1", guard.port)) as client:
            client.sendall(data)
    assert guard.status()["state"] == "not_enrolled"
    assert "Traceback" not in guard.log.read_text()


def test_an_old_python_can_read_it(guard):
    """macOS comes with Python 3.9, and the bundle carries this file there."""
    ast.parse(guard.binary.read_text(encoding="utf-8"), feature_version=(3, 9))
