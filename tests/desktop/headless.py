"""The built program without display or bus: for many quick runs of which only the disk counts."""

import contextlib
import os
import time

from desktop import files, processes
from desktop.application import Installation

# They note who called them, so that a killed run's last calls are not taken for the next one's.
TOOL = """#!/bin/sh
echo "$PPID $*" >> '{log}'
"""
GUARD = TOOL + "echo GEN-quick\nexit\n"
CALLS = ("mkdir openat write fchmod linkat rename unlink unlinkat rmdir fchmodat").split()  # by which the disk is changed
GUARD_SIZE = 1 << 20


class Headless(Installation):
    """velmor-pellix with a home, a bundle and quick tools of its own in `folder`."""

    def __init__(self, folder):
        self.folder = str(folder)
        super().__init__(os.path.join(self.folder, "bundle"), os.path.join(self.folder, "home"))
        self.guard_log = os.path.join(self.folder, "guard.log")
        self.output = os.path.join(self.folder, "output")  # of the run that was started last
        self.set_defaults(port=1, vlx_welcomed="true")
        files.write_program(TOOL.format(log=os.path.join(self.folder, "launchctl.log")),
                            self.launchctl_tool)

    def guard(self, version):
        """A service binary, as bytes: large enough that copying it takes a moment."""
        script = GUARD.format(log=self.guard_log).encode()
        return script + f"{version:08}\n".encode() * ((GUARD_SIZE - len(script)) // 9)

    def start(self, *wrapper):
        self.entries_at_start = self.entries()
        environment = {
            "DBUS_SESSION_BUS_ADDRESS": "disabled:",
            "HOME": self.home,
            "LANG": "C.UTF-8",
            "PATH": "/usr/bin:/bin",
            "QT_QPA_PLATFORM": "offscreen",
            "XDG_CONFIG_HOME": os.path.join(self.home, ".config"),
        }
        with open(self.output, "wb") as output:
            return processes.start([*wrapper, self.executable], environment, stdout=output,
                                   stderr=output)

    def has_installed(self, process):
        """Whether that run has come past the install sequence, to the question that follows it."""
        return f"{process.pid} id --json" in files.read_lines(self.guard_log)

    def launch(self):
        """One whole launch: seconds from the first change on disk to the end of the sequence."""
        process = self.start()
        try:
            begin = self.wait_for_first_change(process)
            processes.wait_for("the end of the install sequence",
                               lambda: self.has_installed(process), 60, interval=0.002)
            return time.monotonic() - begin
        finally:
            process.kill()
            process.wait()

    def entries(self):
        """What lies in the support folder: a replaced file is another one."""
        with contextlib.suppress(FileNotFoundError):
            return sorted((entry.name, entry.inode()) for entry in os.scandir(self.support))
        return None

    def wait_for_first_change(self, process):
        """When the install sequence of the run that was started last began."""
        processes.wait_for("the first change", lambda: self.entries() != self.entries_at_start or
                           process.poll() is not None, 60, interval=0.0005)
        return time.monotonic()

    def is_idle(self, process):
        """Whether that run waits for somebody, and not for a child."""
        def look():
            with open(f"/proc/{process.pid}/stat", encoding="ascii") as file:
                fields = file.read().rpartition(") ")[2].split()
            return fields[0], fields[11:13], processes.children(process.pid)

        first = look()
        for _look in range(4):
            time.sleep(0.05)
            if look() != first:
                return False
        return first[0] == "S" and not first[2]

    def record_calls(self):
        """The system calls with which a launch changes the installation, in order: the name of
        each, its number among the calls of that name since the start, and what it is about."""
        trace = os.path.join(self.folder, "calls")
        process = self.start("strace", "-D", "-o", trace, "-e", "trace=" + ",".join(CALLS))
        processes.wait_for("the end of the install sequence",
                           lambda: self.has_installed(process), 60)
        process.kill()
        process.wait()
        calls, counts, begun, end = [], dict.fromkeys(CALLS, 0), False, 0
        for line in files.read_lines(trace):
            name, bracket, about = line.partition("(")
            if not bracket or name not in counts:
                continue
            counts[name] += 1
            begun = begun or self.support in line
            if begun:
                calls.append((name, counts[name], about))
            if self.installed_files[-1] in line:
                end = len(calls)
        return calls[:end]

    def start_with_fault(self, call, fault):
        """A run to which one of those calls does not do what it should."""
        name, number, _about = call
        self.trace = os.path.join(self.folder, "fault")
        with contextlib.suppress(FileNotFoundError):
            os.remove(self.trace)
        return self.start("strace", "-D", "-o", self.trace, "-e", "trace=" + name,
                          "-e", f"inject={name}:{fault}:when={number}")

    def met_fault(self):
        return any("(INJECTED" in line for line in files.read_lines(self.trace))
