"""Child processes that never outlive us, and the hunt for those that try."""

import contextlib
import os
import signal
import subprocess
import time


def start(arguments, environment, identity=(), **options):
    """Starts a process that the kernel kills with us, however we end, and that ignores no signal,
    whatever we ignore. `identity` are options of setpriv that make it another user's."""
    return subprocess.Popen(["/usr/bin/env", "--default-signal", "/usr/bin/setpriv", *identity,
                             "--pdeathsig", "KILL", "--", *arguments],
                            env=environment, stdin=subprocess.DEVNULL, **options)


def stop(process, patience=5.0):
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(patience)
        except subprocess.TimeoutExpired:
            process.kill()
    process.wait()


def children(pid):
    """The process IDs of the children that its main thread started."""
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
        return [int(child) for child in file.read().split()]


def running_with(variable, value):
    """The processes that were started with an environment variable of that value."""
    entry = os.fsencode(f"{variable}={value}")
    found = []
    for name in os.listdir("/proc"):
        if not name.isdigit() or int(name) == os.getpid():
            continue
        with contextlib.suppress(OSError), open(f"/proc/{name}/environ", "rb") as file:
            if entry in file.read().split(b"\0"):
                found.append(int(name))
    return found


def stop_all_with(variable, value, patience=3.0):
    """Ends those processes, first politely."""
    for number, seconds in ((signal.SIGTERM, patience), (signal.SIGKILL, patience)):
        deadline = time.monotonic() + seconds
        for pid in running_with(variable, value):
            with contextlib.suppress(ProcessLookupError, PermissionError):
                os.kill(pid, number)
        while running_with(variable, value):
            if time.monotonic() > deadline:
                break
            time.sleep(0.05)
        else:
            return


class TimedOut(AssertionError):
    """What was waited for did not come."""


def wait_for(what, condition, timeout=10.0, interval=0.05):
    """The first true answer of `condition`."""
    deadline = time.monotonic() + timeout
    while True:
        answer = condition()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise TimedOut(f"{what}: not within {timeout:g} s")
        time.sleep(interval)
