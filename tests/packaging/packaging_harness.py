"""What the packaging tests run the scripts with."""

import contextlib
import os
import pathlib
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOL = pathlib.Path(__file__).resolve().parent / "mac_tool"
TOOLS = ("codesign", "curl", "defaults", "dscl", "id", "launchctl", "ls", "lsof", "open", "pgrep",
         "pkgutil", "pkill", "plutil", "ps", "rm", "stat", "sudo", "sw_vers", "xattr")
USERS = {"ann": "Users/ann", "bob": "Users/bob", "zoe": "Users/zoe",
         "nobody-home": "Volumes/More homes/nobody-home"}


class Mac:
    """A machine that looks like a Mac to a shell script; see mac_tool."""

    def __init__(self, folder):
        self.folder = folder
        self.tools = folder / "bin"
        self.disk = folder / "disk"
        for name in ("bin", "defaults", "receipts", "refuse", "disk/Applications",
                     "disk/Library/LaunchAgents"):
            (folder / name).mkdir(parents=True)
        for name in TOOLS:
            (self.tools / name).symlink_to(TOOL)
        # What is waited for in small steps has happened. The rest are limits.
        (self.tools / "sleep").write_text('#!/bin/sh\n[ "${1%.*}" -lt 10 ] || exec /bin/sleep "$1"\n')
        (self.tools / "sleep").chmod(0o755)
        for user in USERS:
            self.home(user).mkdir(parents=True)
        self.at_the_screen("ann")

    def home(self, user):
        return self.disk / USERS[user]

    def at_the_screen(self, user):
        (self.folder / "owner").write_text(user)

    def refuse(self, name):
        (self.folder / "refuse" / name).touch()

    def lock(self, *paths):
        (self.folder / "locked").write_text("".join(f"{path}\n" for path in paths))

    def environment(self, uid, home="ann", **variables):
        inherited = {name: value for name, value in os.environ.items() if not name.startswith("SUDO_")}
        return inherited | {
            "HOME": str(self.home(home)), "MAC": str(self.folder), "MAC_UID": str(uid),
            "PELLIX_TOOLS": str(self.tools), "PELLIX_ROOT": str(self.disk)} | variables

    def run(self, script, *arguments, uid, home="ann", variables=None, command=None):
        command = command or ["/bin/bash", ROOT / script, *map(str, arguments)]
        return subprocess.run(command, env=self.environment(uid, home, **(variables or {})),
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, timeout=60, check=False)

    def left_running(self):
        """The command lines of what of the fake Mac still runs on this one, if it does not end soon."""
        for _ in range(100):
            found = []
            for process in pathlib.Path("/proc").glob("[0-9]*"):
                with contextlib.suppress(OSError):  # it has just ended
                    if f"MAC={self.folder}\0".encode() in (process / "environ").read_bytes():
                        found.append((process / "cmdline").read_bytes())
            if not found:
                break
            time.sleep(0.05)
        return found

    def calls(self, *names):
        """The calls of those commands, or of all: user ID, name, arguments."""
        path = self.folder / "calls"
        records = path.read_text().split("\036\n")[:-1] if path.exists() else []
        calls = [record.split("\037") for record in records]
        return [call for call in calls if not names or call[1] in names]

    def processes(self):
        path = self.folder / "processes"
        return path.read_text().splitlines() if path.exists() else []

    def start(self, uid, application):
        self.start_process(uid, f"{application}/Contents/MacOS/Velmor Pellix")

    def start_process(self, uid, command):
        with open(self.folder / "processes", "a", encoding="utf-8") as file:
            file.write(f"{uid} {command}\n")
