"""python3 soak.py POLLS: lets the program poll a sick and moody service without a pause.

States and identifiers change at random, some answers are broken, and now and then the menu and the
window are used. After the first 1,000 polls nothing may grow: resident memory by less than 1 MiB,
open files, threads and D-Bus objects not at all. Prints the figures; fails if one grew.
"""

import argparse
import contextlib
import json
import os
import pathlib
import random
import shutil
import socket
import sys
import threading
import time
import xml.etree.ElementTree

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TESTS))

from gi.repository import GLib  # noqa: E402

from desktop import product  # noqa: E402
from desktop.application import Application  # noqa: E402
from desktop.processes import wait_for  # noqa: E402
from desktop.session import Desktop  # noqa: E402

PROGRAM = TESTS.parent / "build/dev/tests/soak/soak"
WARM_UP = 1000  # polls
WARM_UP_DEEDS = 40  # enough for every use of every kind of identifier
MEMORY_LIMIT = 1024  # KiB
STATES = [*product.STATES, "nonsense"]
SEED = 1


class Service:
    """Answers at once, and with each answer gives the program the cue for its next poll."""

    def __init__(self):
        self.random = random.Random(SEED)
        self.status = {}
        self.lock = threading.Lock()
        self.answers = 0
        self.under_way = 0
        self.limit = 1  # the answers after which no more cues are given
        self.connections = set()
        self.cue_reader, self.cue_writer = os.pipe()
        self.listener = socket.create_server(("127.0.0.1", 0), backlog=64)
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            connection, _address = self.listener.accept()
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            threading.Thread(target=self.serve, args=(connection,), daemon=True).start()

    def serve(self, connection):
        self.connections.add(connection)
        with contextlib.suppress(OSError), connection:
            self.answer_all(connection)
        self.connections.discard(connection)

    def answer_all(self, connection):
        rest = b""
        while True:
            while b"\r\n\r\n" not in rest:
                part = connection.recv(65536)
                if not part:
                    return
                rest += part
            rest = rest.split(b"\r\n\r\n", 1)[1]
            if not self.answer(connection):
                return

    def answer(self, connection):
        """Whether the connection is kept."""
        with self.lock:
            self.under_way += 1
            answer, keep = self.next_answer()
        with contextlib.suppress(OSError):
            connection.sendall(answer)
            if not keep:
                connection.shutdown(socket.SHUT_RDWR)
        with self.lock:
            self.answers += 1
            self.under_way -= 1
            # The program's own timer polls too: those polls must not add up.
            if self.under_way == 0 and self.answers < self.limit:
                self.cue()
        return keep

    def cue(self):
        os.write(self.cue_writer, b".")

    def cue_trim(self):
        os.write(self.cue_writer, b"t")

    def next_answer(self):
        kind = self.random.random()
        if kind < 0.01:
            return b"", False
        if kind < 0.02:
            return b"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"state\":", False
        if kind < 0.2:
            self.status["state"] = self.random.choice(STATES)
        if self.random.random() < 0.1:
            self.status["device_id"] = self.random.choice(
                ["—", "", f"GEN-{self.random.getrandbits(64):x}", "R&D_" * self.random.randrange(40)])
        self.status["last_heartbeat"] = time.strftime(
            "%Y-%m-%dT%H:%M:%SZ", time.gmtime(time.time() - self.random.expovariate(1 / 7200)))
        body = json.dumps(self.status).encode()
        if kind > 0.98:
            body = b"<html>Not Found</html>"
        keep = kind < 0.9
        head = (f"HTTP/1.1 {404 if kind > 0.98 else 200} Whatever\r\nContent-Length: {len(body)}\r\n"
                f"Connection: {'keep-alive' if keep else 'close'}\r\n\r\n")
        return head.encode() + body, keep

    def close_connections(self):
        for connection in list(self.connections):
            with contextlib.suppress(OSError):
                connection.shutdown(socket.SHUT_RDWR)


def dbus_objects(item, path="/"):
    """How many objects the program has on its bus."""
    node = xml.etree.ElementTree.fromstring(item.bus.call(
        item.service, path, "org.freedesktop.DBus.Introspectable", "Introspect")[0])
    return 1 + sum(dbus_objects(item, path.rstrip("/") + "/" + child.get("name"))
                   for child in node.findall("node"))


def figures(pid, item):
    process = pathlib.Path(f"/proc/{pid}")
    rollup = dict(line.split(":", 1) for line in (process / "smaps_rollup").read_text().splitlines()
                  if ":" in line)
    return {
        "memory": int(rollup["Rss"].split()[0]),  # KiB
        "files": len(list((process / "fd").iterdir())),
        "threads": len(list((process / "task").iterdir())),
        "objects": dbus_objects(item),
    }


class User:
    """Uses the menu in every way that there is, over and over."""

    def __init__(self, desktop, application, item):
        self.desktop, self.application, self.item = desktop, application, item
        self.deeds = [self.read_menu, self.open_menu, self.open_window, self.copy]
        self.count = 0

    def act(self):
        self.deeds[self.count % len(self.deeds)]()
        self.count += 1

    def read_menu(self):
        """What a panel reads; it has to ask again if the menu was replaced meanwhile."""
        def read():
            with contextlib.suppress(GLib.Error):
                return self.item.menu
            return None
        menu = wait_for("the menu", read, interval=0)
        if len(menu) != 10:
            raise AssertionError("a menu of other than ten entries")
        return menu

    def open_menu(self):
        self.item.activate()
        time.sleep(0.2)
        self.desktop.press("Escape")

    def open_window(self):
        def is_open():
            return self.desktop.x_windows("--name", "^Velmor Pellix$")

        def click():
            self.click(5)
            time.sleep(0.1)
            return is_open()

        def close():
            self.desktop.press("Return")
            return not is_open()

        wait_for("the window", click)
        wait_for("the window's end", close)

    def copy(self):
        self.click(7)

    def click(self, entry):
        """A click on what may have been replaced twice since it was read, and so may be lost."""
        number = self.read_menu()[entry].number
        with contextlib.suppress(GLib.Error):
            self.item.click_number(number)


def soak(polls):
    service = Service()
    with Desktop(tray=True) as desktop:
        application = Application(desktop)
        application.bundle_scripted_guard()
        application.record_launchctl()
        application.set_defaults(port=service.port, vlx_welcomed="true")
        program = os.path.join(application.bundle, "soak")
        shutil.copy(PROGRAM, program)
        application.process = desktop.start("soak", program, str(service.cue_reader),
                                            pass_fds=[service.cue_reader])
        os.close(service.cue_reader)
        item = desktop.host.item()
        user = User(desktop, application, item)

        def poll_until(count):
            service.limit = count
            service.cue()
            while service.answers < count:
                before = service.answers
                user.act()
                time.sleep(0.2)
                if not application.running:
                    raise AssertionError(f"the program ended: {application.process.returncode}\n"
                                         + desktop.log("soak"))
                if service.answers == before:
                    # A request that is sent while its connection ends may never arrive; the program
                    # waits for its time-out.
                    service.cue()

        def measure():
            # Without polls, connections and memory that is free already, so that what is left is
            # what the program keeps.
            time.sleep(0.5)
            service.close_connections()
            time.sleep(0.5)
            service.cue_trim()
            time.sleep(0.5)
            found = figures(application.pid, item)
            print(f"{service.answers:>9} {found['memory']:>11} {found['files']:>6}"
                  f" {found['threads']:>8} {found['objects']:>8} {user.count:>6}"
                  f" {time.monotonic() - start:>8.0f}", flush=True)
            return found

        start = time.monotonic()
        print("    polls memory(KiB)  files  threads  objects  deeds  seconds", flush=True)
        for deed in range(1, WARM_UP_DEEDS + 1):
            poll_until(WARM_UP * deed // WARM_UP_DEEDS)
        first = measure()
        for tenth in range(1, 11):
            poll_until(WARM_UP + (polls - WARM_UP) * tenth // 10)
            last = measure()
        os.close(service.cue_writer)
        if application.wait_for_end() != 0:
            raise AssertionError("the program did not end well")

    grown = [name for name in ("files", "threads", "objects") if last[name] != first[name]]
    growth = last["memory"] - first["memory"]
    if growth >= MEMORY_LIMIT:
        grown.append("memory")
    print(f"{service.answers} polls: {growth:+} KiB of memory after the first {WARM_UP}; "
          + (f"GREW: {', '.join(grown)}" if grown else "nothing grew"))
    return 1 if grown else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("polls", type=int)
    options = parser.parse_args()
    if options.polls <= WARM_UP:
        parser.error(f"more than {WARM_UP} polls are needed")
    return soak(options.polls)


if __name__ == "__main__":
    sys.exit(main())
