"""script/check-service, and services that mean harm: a verdict each time, and soon."""

import pytest

from kit_harness import Report, rules

LENGTHS = {
    "terabyte": b"Content-Length: 1000000000000\r\n\r\n{}",
    "beyond all": b"Content-Length: " + b"9" * 5000 + b"\r\n\r\n{}",
    "a word": b"Content-Length: many\r\n\r\n{}",
    "chunk of a terabyte": b"Transfer-Encoding: chunked\r\n\r\nffffffffff\r\n{}\r\n",
    "chunk beyond all": b"Transfer-Encoding: chunked\r\n\r\n" + b"f" * 60 + b"\r\n{}\r\n",
    "unheard of": b"Transfer-Encoding: zip\r\nContent-Length: 2\r\n\r\n{}",
}


@pytest.mark.parametrize("name", LENGTHS)
def test_lengths_that_lie_are_no_danger(make, name):
    answer = b"HTTP/1.1 200 OK\r\nConnection: close\r\n" + LENGTHS[name]
    report = Report(make(f"def answer_status(): return {answer!r}"))
    assert report.named("failed") == ["status-http"]
    assert len(report.rules) == len(rules())


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
right = listen
def listen():
    listener = right()
    name = os.path.join(FOLDER, "ended")
    def end(*_):
        with open(name, "a") as file: file.write(".")
        if os.path.getsize(name) < 2: os._exit(0)
    signal.signal(signal.SIGTERM, end)
    signal.signal = lambda *_: None
    return listener
"""), patience=1)
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


def test_pages_that_take_long_to_read_are_not_read_whole(make):
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
