#!/usr/bin/python3 -SEB
"""A small velmor-guard of which nothing is wrong, for tests that spoil one thing of it each.

It starts quickly, as it is started hundreds of times. What spoils it is put before the last line.
"""

import json
import os
import socket
import sys
import threading

FOLDER = os.path.dirname(os.path.abspath(__file__))
DEVICE_ID = "GEN-right"
ADDRESS = "127.0.0.1"


class Refused(Exception):
    """The code of an answer that says nothing more."""


def device_id():
    return DEVICE_ID


def identify():
    print(json.dumps({"device_id": device_id()}))
    return 0


def site():
    with open(os.path.join(FOLDER, "managed.json"), encoding="utf-8") as file:
        return json.load(file)["site"]


def status():
    return {"state": "not_enrolled", "device_id": device_id(), "site": SITE, "email": None,
            "last_heartbeat": "2024-05-01T12:34:56Z"}


def status_body():
    return json.dumps(status()).encode()


def status_headers():
    return {"Content-Type": "application/json", "Cache-Control": "no-store"}


def answer_status():
    return http(200, status_headers(), status_body())


def page(body):
    return http(200, {"Content-Type": "text/html; charset=utf-8",
                      "Content-Security-Policy": "frame-ancestors 'none'"},
                b"<!doctype html><title>velmor-guard</title>" + body)


def root():
    return page(b"<form method=post action=/authorize><button>Authorize this Mac</button></form>")


def authorize():
    return page(b"<p>WordPress Admin</p>")


def http(code, headers, body):
    lines = [f"HTTP/1.1 {code} ."] + [f"{name}: {value}" for name, value in headers.items()]
    if "Content-Length" not in headers:
        lines.append(f"Content-Length: {len(body)}")
    return "\r\n".join(lines).encode() + b"\r\n\r\n" + body


def hosts():
    return [f"127.0.0.1:{PORT}", f"localhost:{PORT}"]


def check_host(headers):
    if headers.get("host") not in hosts():
        raise Refused(403)


def check_origin(headers):
    if headers.get("origin") not in [None, *(f"http://{host}" for host in hosts())]:
        raise Refused(403)


def respond(method, path, headers):
    check_host(headers)
    check_origin(headers)
    routes = {("GET", "/"): root, ("GET", "/authorize"): authorize,
              ("GET", "/status.json"): answer_status}
    if (method, path) not in routes:
        raise Refused(404)
    return routes[method, path]()


def read_head(connection):
    head = b""
    while b"\r\n\r\n" not in head:
        part = connection.recv(65536)
        if not part:
            return None
        head += part
        check_length(head)
    return head.decode("latin-1").split("\r\n")


def check_length(head):
    if len(head) > 65536:
        raise Refused(431)


def serve(connection):
    connection.settimeout(20)
    try:
        while True:
            try:
                head = read_head(connection)
                if head is None:
                    break
                method, path, _version = head[0].split()
                headers = {name.lower(): value.strip()
                           for name, _, value in (line.partition(":") for line in head[1:])}
                answer = respond(method, path, headers)
                send(connection, answer)
                if b"\r\nConnection: close\r\n" in answer:
                    break
            except (Refused, ValueError) as refusal:
                connection.sendall(http(refusal.args[0] if isinstance(refusal, Refused) else 400,
                                        {"Connection": "close"}, b""))
                break
    except OSError:
        pass
    connection.close()


def send(connection, answer):
    connection.sendall(answer)


def set_options(listener):
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)


def listen():
    listener = socket.socket(socket.AF_INET6 if ":" in ADDRESS else socket.AF_INET)
    set_options(listener)
    listener.bind((ADDRESS, PORT))
    listener.listen(64)
    return listener


def prepare():
    """What comes before listening."""


def accepted(connection):
    threading.Thread(target=serve, args=(connection,), daemon=True).start()


def run():
    """SIGTERM stays the system's: a handler of Python's would wait for the next connection if the
    signal came just before accept()."""
    prepare()
    try:
        listener = listen()
    except OSError as error:
        return port_is_taken(error)
    while True:
        accepted(listener.accept()[0])


def port_is_taken(error):
    print(f"velmor-guard: {error}", file=sys.stderr)
    return 1


def main():
    global PORT, SITE
    if sys.argv[1] == "id":
        return identify()
    PORT = int(sys.argv[3])
    SITE = site()
    return run()


sys.exit(main())
