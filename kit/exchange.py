"""One HTTP request and its answer, whatever comes: limited in time and size."""

import contextlib
import http.client
import io
import re
import socket
import time
import types

from kit.outcome import quoted

LARGEST = 1 << 20


class Late(Exception):
    """No whole answer in time."""


class Broken(Exception):
    """No whole answer, and none will come."""


class Wire(io.RawIOBase):
    """What arrives on a connection before the deadline."""

    def __init__(self, connection, deadline):
        super().__init__()
        self.connection = connection
        self.deadline = deadline
        self.count = 0
        self.has_ended = False

    def readable(self):
        return True

    def readinto(self, buffer):
        self.connection.settimeout(left(self.deadline))
        count = self.connection.recv_into(buffer)
        self.count += count
        self.has_ended = count == 0
        if self.count > LARGEST:
            raise Broken(f"more than {LARGEST} bytes")
        return count


class Bounded(io.BufferedReader):
    """Never makes room for more than may come, whatever is announced."""

    def read(self, size=-1):
        return super().read(LARGEST + 1 if size is None or size < 0 else min(size, LARGEST + 1))


class Answer:
    def __init__(self, response, start):
        self.code = response.status
        self.header = response.getheader
        self.is_measured = response.length is not None or response.chunked
        self.body = response.read()
        self.seconds = time.monotonic() - start


def check_framing(header):
    """What says how the body is to be read must be right."""
    length = header("Content-Length", "0")
    transfer = header("Transfer-Encoding", "chunked").lower()
    if not re.fullmatch("[0-9]{1,15}", length):
        raise Broken(f"Content-Length: {quoted(length)}")
    if transfer not in ("chunked", "identity"):
        raise Broken(f"Transfer-Encoding: {quoted(transfer)}")
    encoding = header("Content-Encoding", "identity")
    if encoding != "identity":
        raise Broken(f"nobody asked for the encoding {quoted(encoding)}")


def left(deadline):
    seconds = deadline - time.monotonic()
    if seconds <= 0:
        raise Late
    return seconds


def request(port, path, method="GET", headers=(), host=None):
    """The bytes of a request such as the application's."""
    lines = [f"{method} {path} HTTP/1.1", f"Host: {host or f'127.0.0.1:{port}'}", *headers]
    return "\r\n".join(lines + ["", ""]).encode("ascii")


def connect(port, seconds, address="127.0.0.1"):
    return socket.create_connection((address, port), timeout=seconds)


def exchange(port, data, seconds, connection=None):
    """The answer to these bytes; Late or Broken if there is none. A connection that is handed in
    stays open."""
    start = time.monotonic()
    try:
        with contextlib.ExitStack() as stack:
            if connection is None:
                connection = stack.enter_context(connect(port, seconds))
            connection.settimeout(left(start + seconds))
            with contextlib.suppress(ConnectionError):  # an answer may have come before the end
                connection.sendall(data)
            wire = Wire(connection, start + seconds)
            reader = Bounded(wire)
            response = http.client.HTTPResponse(
                types.SimpleNamespace(makefile=lambda mode: reader), method="GET")
            response.begin()
            if wire.has_ended:
                raise Broken("the head of an answer without its end")
            check_framing(response.getheader)
            return Answer(response, start)
    except (socket.timeout, TimeoutError, Late):
        raise Late(f"no whole answer within {seconds:g} s") from None
    except http.client.IncompleteRead as error:
        raise Broken(f"{len(error.partial)} bytes of a body that was to be longer") from None
    except (http.client.HTTPException, ValueError) as error:
        raise Broken(f"no HTTP: {type(error).__name__} {quoted(str(error))}") from None
    except OSError as error:
        raise Broken(error.strerror or str(error)) from None
