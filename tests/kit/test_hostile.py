"""script/check-service, and services that mean harm: a verdict each time, and soon."""

import os
import random
import subprocess
import threading
import time

import pytest

from desktop.service import Service
from kit_harness import Report, rules

from kit import exchange, session

HEAD = b"HTTP/1.1 200 OK\r\n"
ANSWERS = {
    "no HTTP": b'{"state": "authorized"}\r\n',
    "nothing": b"",
    "half a head": HEAD + b"Content-Le",
    "cut short": HEAD + b"Content-Length: 100\r\n\r\n{}",
    "a terabyte": HEAD + b"Content-Length: 1000000000000\r\n\r\n{}",
    "more than any number": HEAD + b"Content-Length: " + b"9" * 5000 + b"\r\n\r\n{}",
    "less than nothing": HEAD + b"Content-Length: -1\r\n\r\n{}",
    "many": HEAD + b"Content-Length: many\r\n\r\n{}",
    "two lengths": HEAD + b"Content-Length: 2\r\nContent-Length: 3\r\n\r\n{}",
    "a chunk of a terabyte": HEAD + b"Transfer-Encoding: chunked\r\n\r\nffffffffff\r\n{}\r\n",
    "a chunk beyond": HEAD + b"Transfer-Encoding: chunked\r\n\r\n" + b"f" * 60 + b"\r\n{}\r\n",
    "no chunk": HEAD + b"Transfer-Encoding: chunked\r\n\r\n{}\r\n",
    "no last chunk": HEAD + b"Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n",
    "in a way unheard of": HEAD + b"Transfer-Encoding: zip\r\nContent-Length: 2\r\n\r\n{}",
    "compressed": HEAD + b"Content-Encoding: gzip\r\nContent-Length: 2\r\n\r\n{}",
    "too large": HEAD + b"Content-Length: 2000000\r\n\r\n" + b" " * 2000000,
    "too many headers": HEAD + b"X: y\r\n" * 101 + b"\r\n{}",
    "a long header": HEAD + b"X: " + b"y" * 70000 + b"\r\n\r\n{}",
    "to be continued": b"HTTP/1.1 100 Continue\r\n\r\n" * 50000,
}


@pytest.fixture
def server():
    server = Service()
    yield server
    server.close()


def ask(server, data, seconds=20):
    server.respond = lambda connection: connection.sendall(data)
    return exchange.exchange(server.port, exchange.request(server.port, "/status.json"), seconds)


@pytest.mark.parametrize("name", ANSWERS)
def test_answers_that_are_not_whole_are_told_in_short(server, name):
    with pytest.raises(exchange.Broken) as told:
        ask(server, ANSWERS[name])
    assert str(told.value).isprintable() and len(str(told.value)) < 150


@pytest.mark.parametrize("data", [
    HEAD + b"Content-Length: 2\r\n\r\n{}", HEAD + b"\r\n{}",
    HEAD + b"content-length:2\r\n\r\n{}xyz",
    HEAD + b"Transfer-Encoding: Chunked\r\n\r\n1;a=b\r\n{\r\n1\r\n}\r\n0\r\nX: y\r\n\r\n",
    b"HTTP/1.0 200\r\n\r\n{}", b"HTTP/1.1 100 Continue\r\n\r\n" + HEAD + b"\r\n{}"])
def test_whole_answers_are_read(server, data):
    answer = ask(server, data)
    assert (answer.code, answer.body) == (200, b"{}")
    assert answer.is_measured is (b"ontent" in data.replace(b"100 Continue", b"")
                                  or b"Chunked" in data)


@pytest.mark.parametrize("data", [
    b"", HEAD, HEAD + b"Content-Length: 9\r\n\r\n", HEAD + b"\r\n{}"])
def test_answers_that_drip_or_stop_are_late(server, data):
    over = threading.Event()

    def drip(connection):
        connection.sendall(data)
        while not over.wait(0.05):
            connection.sendall(b"x" if data == HEAD else b"")

    server.respond = drip
    begin = time.monotonic()
    with pytest.raises(exchange.Late):
        exchange.exchange(server.port, exchange.request(server.port, "/"), 0.5)
    assert 0.4 < time.monotonic() - begin < 10
    over.set()


@pytest.mark.parametrize("text", ["no program", "#!/no/such/interpreter\n", ""],
                         ids=["text", "no interpreter", "empty"])
def test_what_cannot_be_started_is_told(tmp_path, scratch, text):
    path = tmp_path / "velmor-guard"
    path.write_text(text)
    report = Report(path)
    assert (report.status, report.error) == (1, "")
    assert report.named("failed") == ["id-ends", "listens"]
    assert report.seen("id-ends").startswith("it cannot be started: ")
    assert report.seen("listens").startswith("it cannot be started: ")


@pytest.mark.parametrize("harm", [
    "import shutil; shutil.rmtree(FOLDER)",
    "os.remove(os.path.join(FOLDER, 'managed.json'))",
    "os.remove(__file__)",
    "os.chmod(FOLDER, 0)",
    "os.rename(FOLDER, FOLDER + '2')",
])
def test_a_service_that_destroys_its_home_is_refused(make, harm):
    report = Report(make(f"def prepare():\n    try: {harm}\n    except OSError: pass"))
    assert report.error == ""
    assert len(report.rules) == len(rules())
    if "chmod" not in harm:  # root may all the same
        assert {"keeps-files", "keeps-running"} & set(report.named("failed"))
        assert report.status == 1


def test_a_home_of_any_depth_is_removed(make):
    """That it is gone is what `scratch` looks at."""
    report = Report(make("""
def prepare():
    os.chdir(FOLDER)
    for _ in range(1200):
        os.mkdir("deeper")
        os.chdir("deeper")
    os.chmod(FOLDER + "/deeper/deeper", 0)
"""), "--skip", "[!l]*")
    assert (report.status, report.error) == (0, "")


@pytest.mark.parametrize("call", ["chmod", "scandir", "mkdir", "rename", "remove", "rmdir"])
@pytest.mark.parametrize("moment", range(5))
def test_what_somebody_else_removes_meanwhile_keeps_nothing_else(
        tmp_path, monkeypatch, call, moment):
    """Just before a call, what it names is removed."""
    folder = tmp_path / "removed"
    for name in "abc":
        (folder / name / name).mkdir(parents=True)
        (folder / name / "file").touch()
    calls = 0

    def late(path, *more, real=getattr(os, call), **options):
        nonlocal calls
        if calls == moment:
            subprocess.run(["/bin/rm", "-r", os.path.dirname(path) if call == "mkdir" else path],
                           check=True)
        calls += 1
        return real(path, *more, **options)

    monkeypatch.setattr(os, call, late)
    session.remove(folder)
    assert list(tmp_path.iterdir()) == []
    assert calls


def test_what_cannot_be_removed_is_told(tmp_path, monkeypatch):
    (tmp_path / "removed").mkdir()

    def refuse(path):
        raise PermissionError(13, "Permission denied", path)

    monkeypatch.setattr(os, "rmdir", refuse)
    with pytest.raises(PermissionError):
        session.remove(tmp_path / "removed")


def test_a_port_of_one_check_is_no_port_of_another(monkeypatch):
    """Though nobody listens on it at the moment, and both try ports in the same order."""
    monkeypatch.setattr(random, "sample", lambda population, count: list(population)[:count])
    port, claim = session.free_port()
    another, another_claim = session.free_port()
    another_claim.close()
    assert another != port
    claim.close()
    again, claim = session.free_port()
    claim.close()
    assert again == port


def test_a_service_that_ends_at_once_keeps_nobody_waiting(make):
    begin = time.monotonic()
    report = Report(make("def prepare(): sys.exit(0)"), patience=10)
    assert report.named("failed") == ["listens"]
    assert report.seen("listens") == "it ended with status 0"
    assert time.monotonic() - begin < 60


def test_what_holds_no_longer_is_told(make):
    """It starts once, and ends on SIGTERM once."""
    report = Report(make("""
def prepare():
    name = os.path.join(FOLDER, "started")
    with open(name, "a") as file: file.write(".")
    if os.path.getsize(name) > 3: threading.Event().wait()
"""), patience=0.5)
    assert report.status == 1
    assert report.rules["listens"]["result"] == "ok"
    assert "keeps-running" in report.named("failed")


def test_ending_on_sigterm_once_is_not_enough(make):
    report = Report(make("""
import signal
right = listen
def listen():
    listener = right()
    name = os.path.join(FOLDER, "ended")
    def end():
        signal.sigwait([signal.SIGTERM])
        with open(name, "a") as file: file.write(".")
        if os.path.getsize(name) < 2: os._exit(0)
    signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
    threading.Thread(target=end, daemon=True).start()
    return listener
"""), "--skip", "stop-early", "--skip", "quiet", patience=1)
    assert report.rules["stop"]["result"] == "ok"
    assert report.status == 1
    assert "restart" in report.named("failed")


@pytest.mark.parametrize("target", [
    "http://[::", "/", "/a b\xff", "javascript:alert(1)", "/" + "x" * 60000])
def test_redirects_to_nowhere_are_followed_nowhere(make, target):
    headers = f"{{'Location': {target!r}, 'Connection': 'close'}}"
    report = Report(make(f"""
def root(): return http(302, {headers}, b"").decode().encode("latin-1")
def check_origin(headers):
    if headers.get("origin") not in [None, *(f"http://{{host}}" for host in hosts())]:
        raise Refused(403)
"""))
    assert report.error == ""
    assert report.named("failed") in (["page-root"], ["get-safe", "page-root"])


def test_pages_that_take_long_to_parse_keep_nobody_waiting(make):
    report = Report(make("def root(): return page(b'<!--' * 250000)"))
    assert report.named("failed") == ["page-root"]


def test_hostile_headers_stay_on_their_line(make):
    report = Report(make("""
def status_headers():
    return {"Content-Type": "text/\\x1b[31m\\x85\\u2028html", "Cache-Control": "\\x9b" + "x" * 5000}
right = http
def http(code, headers, body):
    lines = "".join(f"{name}: {value}\\r\\n" for name, value in headers.items())
    return (f"HTTP/1.1 {code} .\\r\\n{lines}Content-Length: {len(body)}\\r\\n\\r\\n"
            ).encode("utf-8") + body
"""))
    assert report.named("failed") == ["status-fresh"]
    assert report.named("unheeded") == ["status-type"]
    for rule in report.rules.values():
        assert rule["seen"].isprintable()
        assert len(rule["seen"]) < 200
