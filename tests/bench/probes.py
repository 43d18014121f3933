"""What is read of a process, and where it is started: one desktop, one service, no surprises."""

import contextlib
import glob
import json
import os
import re
import signal
import subprocess
import tempfile
import threading
import time

from gi.repository import Gio, GLib

from desktop import notifier, processes
from desktop.application import ROOT, Application
from desktop.service import Service
from desktop.session import Desktop

BUILT = os.path.join(ROOT, "build", "bench", "tests", "bench")
ENTRIES = 10
PATIENCE = 120.0  # seconds, for what runs under valgrind
QT_MENU_PATH = "/MenuBar"


def tool(name):
    return os.path.join(BUILT, "bench_" + name)


class Host(notifier.Host):
    """Notes when an item registers and when its menu first has all its entries."""

    def __init__(self, address):
        self.expect()
        super().__init__(address)
        self.bus.subscribe(lambda sender, path, _arguments: self.read(sender, path),
                           notifier.MENU, "LayoutUpdated")

    def expect(self):
        self.registered_at = self.complete_at = None
        self.complete = threading.Event()

    def register(self, sender, name):
        self.registered_at = time.monotonic()
        super().register(sender, name)
        self.read(sender, QT_MENU_PATH)

    def read(self, service, path):
        self.bus.connection.call(service, path, notifier.MENU, "GetLayout",
                                 GLib.Variant("(iias)", (0, -1, [])), None,
                                 Gio.DBusCallFlags.NONE, -1, None, self.answered)

    def answered(self, connection, result):
        with contextlib.suppress(GLib.Error):  # a program that has ended meanwhile
            layout = connection.call_finish(result)
            entries = layout.get_child_value(1).get_child_value(2).n_children()
            if entries == ENTRIES and not self.complete.is_set():
                self.complete_at = time.monotonic()
                self.complete.set()


class Launch:
    """One started program; seconds from its exec."""

    def __init__(self, site, arguments):
        site.host.expect()
        site.asked_at = None
        self.started_at = time.monotonic()
        self.process = subprocess.Popen(arguments, env=site.environment, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.pid = self.process.pid
        if not site.host.complete.wait(PATIENCE):
            self.stop()
            raise RuntimeError(f"{arguments[-1]} shows no menu")
        self.item = site.host.registered_at - self.started_at
        self.menu = site.host.complete_at - self.started_at
        self.request = site.asked_at - self.started_at if site.asked_at else None

    def wait_until(self, seconds):
        time.sleep(max(0.0, self.started_at + seconds - time.monotonic()))

    def stop(self):
        self.process.terminate()
        self.process.wait()


class Site:
    """A desktop with both kinds of tray, a service that answers at once, and the application's folder with a
    launchctl and a service binary that return at once. All of its files, the home folder's too, are
    in a temporary folder, or in one that never waits for a disk."""

    def __init__(self, files_in_memory=False):
        tempfile.tempdir = "/dev/shm" if files_in_memory else None
        self.desktop = Desktop(bar="light")
        try:
            self.service = Service()
            self.host = self.desktop.host = Host(self.desktop.bus_address)
            self.environment = self.desktop.environment
            self.application = Application(self.desktop)
            self.application.set_defaults(port=self.service.port, vlx_welcomed="true")
            with open(tool("immediate_tool"), "rb") as file:
                content = file.read()
            self.application.bundle_guard(content)
            self.launchctl = os.path.join(self.application.bundle, "launchctl")
            with open(self.launchctl, "wb") as file:
                file.write(content)
            os.makedirs(self.application.support)
            self.guard = os.path.join(self.application.support, "velmor-guard")
            self.program = os.path.join(self.application.bundle, "velmor-pellix")
            self.asked_at = None
            self.use()
        except BaseException:
            self.desktop.close()
            raise

    def use(self, device_id="GEN-bench", answer_size=0):
        """What the service binary and the service answer from now on."""
        with open(os.path.join(self.application.support, "id"), "w", encoding="ascii") as file:
            json.dump({"device_id": device_id}, file)
        status = {"state": "authorized", "device_id": device_id, "email": "ann@velmor.example",
                  "site": "https://intranet.velmor.example",
                  "last_heartbeat": "2024-05-01T12:34:56.789Z"}
        missing = answer_size - len(json.dumps(status | {"notes": ""}))
        if missing > 0:
            status["notes"] = "x" * missing
        self.service.answer(json.dumps(status))
        send = self.service.respond

        def respond(connection):
            self.asked_at = self.asked_at or time.monotonic()
            send(connection)
        self.service.respond = respond

    def launch(self, program, *prefix):
        return Launch(self, [*prefix, program])

    def start_script(self, text):
        """Runs until its icon is there and its first poll is over."""
        before = self.polls()
        script = subprocess.Popen(["bash", "-c", text], env=self.environment,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, start_new_session=True)
        processes.wait_for("the script's poll", lambda: self.polls() > before, PATIENCE)
        time.sleep(5)
        return script

    def stop_script(self, script):
        os.killpg(script.pid, signal.SIGTERM)
        script.wait()

    def polls(self):
        return len(self.service.requests)

    def close(self):
        self.service.close()
        self.desktop.close()

    def __enter__(self):
        return self

    def __exit__(self, *_exception):
        self.close()


# Of a running process --------------------------------------------------------

def threads(pid):
    for folder in glob.glob(f"/proc/{pid}/task/*"):
        with contextlib.suppress(OSError):  # a thread that has ended meanwhile
            yield folder


def read(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def processor_time(pid):
    """Milliseconds of the whole process, threads that have ended included, in user mode and in the
    kernel."""
    scheduled = 2  # the process's clock as the scheduler keeps it, the way clock_getcpuclockid() does
    return time.clock_gettime((~pid << 3) | scheduled) * 1e3


def wake_ups(pid):
    return sum(int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", read(folder + "/status"),
                             re.MULTILINE)[1]) for folder in threads(pid))


def memory(pid):
    """KiB: proportional, and what no file backs, which nobody else can use."""
    values = dict(re.findall(r"^(\w+):\s+(\d+) kB", read(f"/proc/{pid}/smaps_rollup"), re.MULTILINE))
    return int(values["Pss"]), int(values["Anonymous"])


def memory_of_tree(pid):
    """The same, of a process and all that it started."""
    sums = [memory(pid), *map(memory_of_tree, processes.children(pid))]
    return tuple(map(sum, zip(*sums)))


def libraries(pid):
    return sorted(set(re.findall(r"\S*/([^/\s]+\.so[.\d]*)$", read(f"/proc/{pid}/maps"),
                                 re.MULTILINE)))


def system_calls(pid, seconds, folder):
    """By name, all that its threads make in that time."""
    summary = os.path.join(folder, "strace")
    tracer = subprocess.Popen(["strace", "-f", "-c", "-U", "calls,name", "-o", summary,
                               "-p", str(pid)], stderr=subprocess.DEVNULL)
    time.sleep(seconds)
    tracer.send_signal(signal.SIGINT)
    tracer.wait()
    calls = re.findall(r"^\s*(\d+)\s+(\w+)$", read(summary), re.MULTILINE)
    return {name: int(count) for count, name in calls if name != "total"}


# Instructions ----------------------------------------------------------------

class Callgrind:
    """Counts the instructions, in user mode, of a program and of all its threads."""

    def __init__(self, site, name, *options):
        self.environment = site.environment  # says where the running program can be reached
        self.output = site.desktop.path("callgrind." + name)
        self.prefix = ["valgrind", "-q", "--tool=callgrind", *options,
                       f"--callgrind-out-file={self.output}.%p"]

    def total(self):
        """Of everything written so far; written files are used up."""
        instructions = 0
        for path in glob.glob(self.output + ".*"):
            instructions += sum(map(int, re.findall(r"^totals: (\d+)", read(path), re.MULTILINE)))
            os.remove(path)
        return instructions

    def since_last(self, pid):
        """Of the running program since it started or since the last call."""
        subprocess.run(["callgrind_control", "--dump", str(pid)], check=True,
                       env=self.environment, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        return self.total()

    def run(self, *arguments):
        """Of a whole run, child processes included."""
        subprocess.run([*self.prefix, *arguments], check=True, env=self.environment,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return self.total()
