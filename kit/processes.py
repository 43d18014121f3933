"""Child processes whose output is bounded, and whose end is certain."""

import contextlib
import ctypes
import os
import signal
import subprocess
import sys
import threading
import time

from kit import tools
from kit.outcome import NotSo, quoted

PR_SET_CHILD_SUBREAPER = 36
KEPT = 1 << 16  # of each output; what is beyond is counted
SETTLING_SECONDS = 0.5  # for the rest of what an ended process has written


class Output:
    """What a process writes to a pipe. Reading never makes it wait."""

    def __init__(self, pipe):
        self.data = b""
        self.size = 0
        self.reader = threading.Thread(target=self.drain, args=(pipe,), daemon=True)
        self.reader.start()

    def drain(self, pipe):
        with pipe:
            while True:
                part = os.read(pipe.fileno(), KEPT)
                if not part:
                    return
                self.data += part[:KEPT - len(self.data)]
                self.size += len(part)

    def ends_before(self, deadline):
        """Whether it is closed by then. What an ended process has started may keep it open."""
        self.reader.join(max(0, deadline - time.monotonic()))
        return not self.reader.is_alive()


class Process:
    """One start of the program, as the leader of a session of its own."""

    def __init__(self, arguments, environment):
        self.started = time.monotonic()
        try:
            self.popen = subprocess.Popen(
                arguments, env=environment, cwd="/", stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)
        except OSError as error:
            raise NotSo(f"it cannot be started: {error.strerror}") from None
        self.out = Output(self.popen.stdout)
        self.err = Output(self.popen.stderr)

    def status(self):
        """The exit status, or None while it runs."""
        return self.popen.poll()

    def wait(self, seconds):
        """The exit status, or None if it still runs after that time."""
        with contextlib.suppress(subprocess.TimeoutExpired):
            self.popen.wait(seconds)
            deadline = time.monotonic() + SETTLING_SECONDS
            self.out.ends_before(deadline)
            self.err.ends_before(deadline)
        return self.popen.returncode

    def terminate(self):
        self.popen.terminate()

    def kill(self):
        if self.status() is not None:
            return  # its group may be somebody else's by now
        with contextlib.suppress(ProcessLookupError, PermissionError):
            os.killpg(self.popen.pid, signal.SIGKILL)
        self.wait(5)

    def printed(self):
        return self.out.size + self.err.size

    def end(self):
        """How it has ended."""
        status = self.status()
        how = f"signal {-status}" if status < 0 else f"status {status}"
        return f"it ended with {how}{self.last_words()}"

    def last_words(self):
        """The last line that it has printed, as the end of a sentence."""
        lines = (self.err.data + b"\n" + self.out.data).decode("utf-8", "replace").split("\n")
        words = next((line.strip() for line in reversed(lines) if line.strip()), None)
        return f"; it said {quoted(words, 100)}" if words else ""


def adopt_orphans():
    """Makes what children of ours leave behind our own children, where the system can."""
    if sys.platform == "linux":
        ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def started_for(home):
    """The processes that were started here with this home folder, and those that they started."""
    if sys.platform == "linux":
        return descendants(parents_in_proc(), os.getpid())
    listing = tools.run("/bin/ps", "-axwwE", "-o", "pid=,command=")
    return with_variable(listing.stdout.decode("utf-8", "replace"), f"HOME={home}")


def parents_in_proc():
    """The parent of each process that has not ended. One whose first thread alone has ended looks
    like one that has, but for the number of its threads."""
    parents = {}
    for name in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError), open(f"/proc/{name}/stat", "rb") as file:
            fields = file.read().rpartition(b")")[2].split()
            state, parent, threads = fields[0], int(fields[1]), int(fields[17])
            if state not in b"ZX" or threads > 1:
                parents[int(name)] = parent
    return parents


def descendants(parents, ancestor):
    found = []
    generation = {ancestor}
    while generation:
        generation = {pid for pid, parent in parents.items() if parent in generation}
        found += generation
    return found


def with_variable(text, entry):
    """The process IDs in lines of `ps -E`, which puts the environment after the arguments."""
    return [int(line.split()[0]) for line in text.splitlines() if f" {entry} " in f"{line} "]


def kill_all_for(home, patience=5.0):
    """Ends those processes; NotSo if they do not end, or cannot be found."""
    deadline = time.monotonic() + patience
    while True:
        found = started_for(home)
        if not found:
            return
        if time.monotonic() > deadline:
            raise NotSo(f"these processes do not end: {found}")
        for pid in found:
            with contextlib.suppress(ProcessLookupError, PermissionError):
                os.kill(pid, signal.SIGKILL)
        time.sleep(0.01)
