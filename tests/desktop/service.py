"""A velmor-guard that answers whatever a test wants, over HTTP on the loopback interface."""

import contextlib
import json
import socket
import threading
import urllib.request

from desktop.processes import wait_for
from desktop.product import POLL_INTERVAL


def http(body, status="200 OK", headers=()):
    """A whole answer, as bytes."""
    if isinstance(body, str):
        body = body.encode()
    lines = [f"HTTP/1.1 {status}", f"Content-Length: {len(body)}", "Connection: close", *headers]
    return "\r\n".join(lines).encode() + b"\r\n\r\n" + body


def require_free(port):
    """Raises OSError if nobody can listen there."""
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        probe.bind(("127.0.0.1", port))


def answers(url):
    """Whether a service answers there as it should."""
    with contextlib.suppress(OSError), urllib.request.urlopen(url, timeout=1) as answer:
        return answer.status == 200
    return False


class Service:
    """`respond(connection)` answers one request; by default with `status` as JSON."""

    def __init__(self, **status):
        self.status = status
        self.respond = self.send_status
        self.requests = []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.connections = []
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                connection, _address = self.listener.accept()
            except OSError:
                return
            self.connections.append(connection)
            threading.Thread(target=self.serve, args=(connection,), daemon=True).start()

    def serve(self, connection):
        with contextlib.suppress(OSError), connection:
            request = b""
            while b"\r\n\r\n" not in request:
                part = connection.recv(65536)
                if not part:
                    return
                request += part
            self.requests.append(request.decode("latin-1"))
            self.respond(connection)

    def send_status(self, connection):
        connection.sendall(http(json.dumps(self.status)))

    def answer(self, body, status="200 OK", headers=()):
        """From now on, these bytes."""
        self.respond = lambda connection: connection.sendall(http(body, status, headers))

    def wait_for_requests(self, count, timeout=POLL_INTERVAL + 5):
        wait_for(f"{count} polls", lambda: len(self.requests) >= count, timeout)

    def close(self):
        with contextlib.suppress(OSError):  # wakes the accepting thread
            self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        for connection in self.connections:
            connection.close()
