"""script/check-service: each rule refuses the service that breaks it, and no other rule does."""

import concurrent.futures
import textwrap

import pytest

from kit_harness import ROOT, Report, rules, service

MAC = ["mac-architectures", "mac-oldest", "mac-uuid", "mac-entitlements"]


def test_a_right_service_keeps_every_rule(make):
    report = Report(make())
    assert report.status == 0
    assert report.content["holds"] is True
    assert report.named("failed") == report.named("unheeded") == []
    assert report.named("skipped") == MAC
    assert report.named("ok") + MAC == [rule["rule"] for rule in rules()]


def test_the_stand_in_keeps_every_rule(scratch):
    report = Report(ROOT / "standin" / "velmor-guard")
    assert (report.status, report.named("failed"), report.named("unheeded")) == (0, [], [])
    assert report.named("skipped") == MAC


WITHOUT_FIRST_THREAD = """
    import ctypes
    right_run = run
    def run():
        threading.Thread(target=lambda: os._exit(right_run())).start()
        ctypes.CDLL(None).pthread_exit(None)
    """
SECOND_PORT = """
    def prepare():
        global other
        other = socket.socket()
        other.listen()
    """

# Right services that are written otherwise.
OTHERWISE = {
    "goes on without its first thread": WITHOUT_FIRST_THREAD,
    "takes IPv4 on a socket of IPv6": """
        ADDRESS = "::ffff:127.0.0.1"
        right = set_options
        def set_options(listener):
            right(listener)
            listener.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 0)
        """,
    "has another port for itself": """
        def prepare():
            global other
            other = socket.socket()
            other.bind(("127.0.0.1", 0))
            other.listen()
        """,
    "knows little at first": """
        import time
        begin = time.monotonic()
        right = answer_status
        def answer_status():
            if time.monotonic() < begin + 1:
                return http(503, status_headers(), b'{"state": "unknown"}')
            return right()
        """,
    "knows little after a restart": """
        import time
        NAME = os.path.join(FOLDER, "starts")
        begin = time.monotonic()
        right = answer_status
        def prepare():
            with open(NAME, "a") as file: file.write(".")
        def answer_status():
            if os.path.getsize(NAME) > 1 and time.monotonic() < begin + 1:
                return http(503, status_headers(), b'{"state": "unknown"}')
            return right()
        """,
    "never knows": """
        right = status
        def status(): return right() | {"state": "unknown"}
        """,
    "is asked again each time": """
        right = status_headers
        def status_headers(): return right() | {"Cache-Control": "private, max-age=0"}
        """,
    "has a large page": """
        right = page
        def page(body): return right(b"<style>" + b".a { color: red }" * 10000 + b"</style>" + body)
        """,
    "has no administration yet": "def authorize(): raise Refused(403)",
    "says much when it starts": """
        def prepare(): print("It starts.\\n" * 100, file=sys.stderr, flush=True)
        """,
    "leaves somebody behind for a moment": """
        import time
        right = identify
        def identify():
            right()
            sys.stdout.flush()
            if os.fork() == 0: time.sleep(1)
            return 0
        """,
    "leaves somebody behind with its standard error": """
        right = identify
        def identify():
            right()
            sys.stdout.flush()
            if os.fork() == 0:
                os.close(1)
                threading.Event().wait()
            return 0
        """,
}


@pytest.mark.parametrize("name", OTHERWISE)
def test_a_service_may_be_right_in_another_way(make, name):
    report = Report(make(textwrap.dedent(OTHERWISE[name])))
    assert {name: report.seen(name) for name in report.named("failed")} == {}
    assert report.named("skipped") == MAC


# A short name: the rule, and how the right service is changed.
BREAKING = {}
HANGING = {}  # those that take all of a limit


def breaking(rule, name, change, services=BREAKING):
    services[f"{rule}: {name}"] = (rule, textwrap.dedent(change))


def hanging(rule, name, change):
    breaking(rule, name, change, HANGING)


def member(rule, name, **members):
    breaking(rule, name, f"""
        right = status
        def status():
            return right() | {members!r}
        """)


def body(rule, name, data):
    breaking(rule, name, f"def status_body(): return {data!r}")


def headers(rule, name, change):
    breaking(rule, name, f"""
        right = status_headers
        def status_headers():
            return right() | {change!r}
        """)


breaking("id-ends", "fails", """
    right = identify
    def identify(): return right() or 3
    """)
hanging("id-ends", "asks a question", """
    right = identify
    def identify():
        print(json.dumps({"device_id": DEVICE_ID}), flush=True)
        threading.Event().wait()
    """)
hanging("id-closed", "leaves somebody behind", """
    right = identify
    def identify():
        right()
        sys.stdout.flush()
        if os.fork() == 0: os.execv("/bin/sleep", ["sleep", "60"])
        return 0
    """)
breaking("id-short", "more than a pipe holds", """
    right = identify
    def identify():
        print("x" * 200000, file=sys.stderr)
        return right()
    """)
breaking("id-json", "an empty identifier", """
    def identify(): print('{"device_id": ""}'); return 0
    """)
breaking("id-json", "the placeholder", "DEVICE_ID = '—'")
breaking("id-plain", "a long one", "DEVICE_ID = 'x' * 5000")
hanging("listens", "another port", """
    right = listen
    def listen():
        global PORT
        PORT = 0
        return right()
    """)
breaking("foreground", "forks", """
    def prepare():
        if os.fork(): os._exit(0)
        os.setsid()
        if os.fork(): os._exit(0)
    """)
breaking("loopback", "all addresses", "ADDRESS = '0.0.0.0'")
breaking("loopback", "a second port", SECOND_PORT)
breaking("loopback", "a second port, without its first thread", SECOND_PORT + WITHOUT_FIRST_THREAD)
hanging("status-time", "never answers", """
    def answer_status(): threading.Event().wait()
    """)
hanging("status-time", "drips", """
    import time
    def answer_status():
        return b"HTTP/1.1 200 OK\\r\\nContent-Length: 1000000\\r\\n\\r\\n{"
    def send(connection, answer):
        connection.sendall(answer)
        while answer.endswith(b"{"):
            connection.sendall(b" ")
            time.sleep(0.05)
    """)
breaking("status-http", "cut short", """
    def answer_status():
        return b"HTTP/1.1 200 OK\\r\\nConnection: close\\r\\nContent-Length: 100\\r\\n\\r\\n{}"
    """)
breaking("status-http", "endless", """
    def answer_status():
        return b"HTTP/1.1 200 OK\\r\\n\\r\\n{"
    def send(connection, answer):
        connection.sendall(answer)
        while answer.endswith(b"{"): connection.sendall(b" " * 65536)
    """)
breaking("status-http", "compressed", """
    import gzip
    def answer_status():
        return http(200, status_headers() | {"Content-Encoding": "gzip"},
                    gzip.compress(status_body()))
    """)
breaking("status-direct", "elsewhere", """
    def answer_status(): return http(302, status_headers() | {"Location": "/status"}, b"")
    """)
breaking("status-code", "an error", """
    def answer_status(): return http(500, status_headers(), status_body())
    """)
headers("status-type", "text", {"Content-Type": "text/plain"})
breaking("status-length", "none", """
    def answer_status():
        head = http(200, status_headers() | {"Connection": "close"}, b"")
        return head.replace(b"\\r\\nContent-Length: 0", b"") + status_body()
    """)
headers("status-fresh", "for a minute", {"Cache-Control": "max-age=60"})
body("status-json", "UTF-16", '{"state": "not_enrolled"}'.encode("utf-16"))
body("status-json", "two states", b'{"state": "revoked", "state": "authorized"}')
member("status-members", "a number", email=4711)
member("status-state", "capitals", state="Authorized")
member("status-state", "none", state=None)
member("status-heartbeat", "no such day", last_heartbeat="2023-02-29T12:34:56Z")
breaking("status-heartbeat", "wrong once it is known", """
    import time
    begin = time.monotonic()
    right = status
    def status():
        if time.monotonic() < begin + 0.5: return {"state": "unknown"}
        return right() | {"last_heartbeat": "yesterday"}
    """)
member("same-id", "another", device_id="GEN-other")
member("same-id", "empty", device_id="")
breaking("stable-id", "random", """
    import random
    def identify():
        print(json.dumps({"device_id": f"GEN-{random.random()}"}))
        return 0
    right = status
    def status(): return right() | {"device_id": None}
    """)
hanging("stable-id", "leaves somebody behind while the service runs", """
    right = identify
    def identify():
        right()
        sys.stdout.flush()
        if os.path.exists(os.path.join(FOLDER, "runs")) and os.fork() == 0:
            os.execv("/bin/sleep", ["sleep", "60"])
        return 0
    def prepare():
        with open(os.path.join(FOLDER, "runs"), "w"): pass
    """)
hanging("stable-id", "waits for the service", """
    right = identify
    def identify():
        right()
        sys.stdout.flush()
        while os.path.exists(os.path.join(FOLDER, "runs")): pass
        return 0
    def prepare():
        with open(os.path.join(FOLDER, "runs"), "w"): pass
    """)
breaking("managed-site", "its own", "def site(): return 'https://own.example'")
breaking("page-root", "nothing to do", "def root(): return page(b'<p>All is well.</p>')")
breaking("page-root", "elsewhere", """
    right = root
    def root():
        return http(302, {"Location": "https://intranet.velmor.example/"}, b"")
    def check_origin(headers):
        if headers.get("origin") not in [None, *(f"http://{host}" for host in hosts())]:
            raise Refused(403)
    """)
breaking("page-authorize", "not found", "def authorize(): raise Refused(404)")
breaking("page-frame", "may be framed", """
    def page(body):
        return http(200, {"Content-Type": "text/html"}, body)
    """)
breaking("get-safe", "authorizes", """
    state = "not_enrolled"
    right_status, right_authorize = status, authorize
    def status():
        return right_status() | {"state": state}
    def authorize():
        global state
        state = "authorized"
        return right_authorize()
    """)
breaking("foreign-host", "not looked at", "def check_host(headers): pass")
breaking("foreign-host", "looked at its beginning", """
    def check_host(headers):
        if not headers["host"].startswith("127.0.0.1"): raise Refused(403)
    """)
breaking("foreign-origin", "not looked at", "def check_origin(headers): pass")
breaking("foreign-origin", "null", """
    def check_origin(headers):
        if headers.get("origin", "").startswith("https:"): raise Refused(403)
    """)
breaking("foreign-origin", "may be read", """
    right = http
    def http(code, headers, body):
        return right(code, headers | {"Access-Control-Allow-Origin": "*"}, body)
    """)
breaking("own-origin", "refused", """
    def check_origin(headers):
        if "origin" in headers: raise Refused(403)
    """)
breaking("crowd", "a few at a time", """
    import time
    busy = threading.Lock()
    def answer_status():
        if threading.active_count() > 8: raise Refused(503)
        time.sleep(0.05)
        return http(200, status_headers(), status_body())
    """)
hanging("idle", "one at a time", """
    def accepted(connection):
        connection.settimeout(None)
        right(connection)
    right = serve
    def serve(connection):
        return right(connection)
    """)
breaking("cut-short", "dies of bytes", """
    right = read_head
    def read_head(connection):
        head = right(connection)
        if head == ["", "", ""]: os.abort()
        return head
    """)
breaking("long-header", "dies of it", """
    def check_length(head):
        if len(head) > 65536: os.abort()
    """)
hanging("taken-port", "waits", """
    def port_is_taken(error):
        print(error, file=sys.stderr, flush=True)
        threading.Event().wait()
    """)
breaking("taken-port", "without a word", "def port_is_taken(error): return 1")
breaking("taken-port", "as if all were well", """
    def port_is_taken(error):
        print(error)
        return 0
    """)
hanging("taken-port", "shares it", """
    def set_options(listener):
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
    """)
hanging("stop", "waits for its clients", """
    import signal
    clients = set()
    right = serve
    def serve(connection):
        clients.add(connection)
        right(connection)
        clients.remove(connection)
    def end(*_):
        while clients: pass
        os._exit(0)
    right_listen = listen
    def listen():
        listener = right_listen()
        signal.signal(signal.SIGTERM, end)
        return listener
    """)
breaking("restart", "no address reuse", "def set_options(listener): pass")
breaking("managed-anew", "remembered", """
    def site():
        name = os.path.join(FOLDER, "site")
        if not os.path.exists(name):
            with open(os.path.join(FOLDER, "managed.json"), encoding="utf-8") as file:
                known = json.load(file)["site"]
            with open(name, "w", encoding="utf-8") as file: file.write(known)
        with open(name, encoding="utf-8") as file: return file.read()
    """)
hanging("stop-early", "deaf at first", """
    import signal
    import time
    if sys.argv[1] == "run": signal.signal(signal.SIGTERM, signal.SIG_IGN)
    def prepare():
        time.sleep(1)
    right = listen
    def listen():
        listener = right()
        signal.signal(signal.SIGTERM, signal.SIG_DFL)
        return listener
    """)
breaking("quiet", "an access log", """
    right = respond
    def respond(method, path, headers):
        print(f"{method} {path} from the application", flush=True)
        return right(method, path, headers)
    """)
breaking("quiet", "all the time", """
    def prepare():
        def flood():
            while True: os.write(1, b"x" * 65536)
        threading.Thread(target=flood, daemon=True).start()
    """)
breaking("keeps-files", "writes managed.json", """
    def prepare():
        name = os.path.join(FOLDER, "managed.json")
        with open(name + ".new", "w", encoding="utf-8") as file:
            json.dump({"site": SITE, "seen": True}, file)
        os.replace(name + ".new", name)
    """)
breaking("keeps-files", "leaves more than anybody can read", """
    NAME = os.path.join(FOLDER, "managed.json")
    def site():
        with open(NAME, encoding="utf-8") as file:
            return json.loads(file.read(1000).rstrip("\\0"))["site"]
    def prepare():
        os.truncate(NAME, 1 << 42)
    """)


def verdict(report):
    return {"failed": report.named("failed"), "unheeded": report.named("unheeded"),
            "holds": report.content["holds"], "status": report.status}


def refusal(rule):
    """The verdict on a service that breaks this rule alone."""
    is_must = {each["rule"]: each["kind"] == "must" for each in rules()}[rule]
    return {"failed": [rule] if is_must else [], "unheeded": [] if is_must else [rule],
            "holds": not is_must, "status": 1 if is_must else 0}


def test_services_that_hang_are_refused_by_their_rules(tmp_path, scratch):
    """All at once, as they mostly wait."""
    def check(name):
        return verdict(Report(service(tmp_path / name, HANGING[name][1]), patience=1))

    with concurrent.futures.ThreadPoolExecutor(len(HANGING)) as pool:
        found = dict(zip(HANGING, pool.map(check, HANGING)))
    assert found == {name: refusal(rule) for name, (rule, _change) in HANGING.items()}


@pytest.mark.parametrize("name", BREAKING)
def test_a_broken_service_is_refused_by_its_rule(make, name):
    rule, change = BREAKING[name]
    assert verdict(Report(make(change))) == refusal(rule)


def test_a_service_that_ends_by_itself_is_refused(make):
    report = Report(make(textwrap.dedent("""
        right = send
        def send(connection, answer):
            right(connection, answer)
            if b"button" in answer: os._exit(0)
        """)))
    assert "keeps-running" in report.named("failed")


def test_there_is_a_broken_service_for_every_rule():
    broken = {rule for rule, _change in [*BREAKING.values(), *HANGING.values()]}
    assert broken | {"keeps-running", *MAC} == {each["rule"] for each in rules()}
