"""What the packaging tests run the scripts with."""

import json
import os
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOL = pathlib.Path(__file__).resolve().parent / "mac_tool"
TOOLS = ("defaults", "id", "launchctl", "open", "pgrep", "pkgutil", "pkill", "ps", "stat", "sudo")


class Mac:
    """A machine that looks like a Mac to a shell script; see mac_tool."""

    def __init__(self, folder):
        self.folder = folder
        self.tools = folder / "bin"
        for name in ("bin", "defaults", "receipts", "homes", "refuse", "disk/Applications"):
            (folder / name).mkdir(parents=True)
        for name in TOOLS:
            (self.tools / name).symlink_to(TOOL)
        (self.tools / "sleep").symlink_to("/bin/true")  # what is waited for has happened
        for user in ("ann", "bob", "nobody-home"):
            (folder / "homes" / user).mkdir()
        self.at_the_screen("ann")

    def home(self, user):
        return self.folder / "homes" / user

    def at_the_screen(self, user):
        (self.folder / "owner").write_text(user)

    def refuse(self, name):
        (self.folder / "refuse" / name).touch()

    def run(self, script, *arguments, uid, home="ann"):
        environment = os.environ | {
            "HOME": str(self.home(home)), "MAC": str(self.folder), "MAC_UID": str(uid),
            "PATH": f"{self.tools}:/usr/bin:/bin", "PELLIX_ROOT": str(self.folder / "disk")}
        return subprocess.run(["/bin/bash", ROOT / script, *map(str, arguments)], env=environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, timeout=60, check=False)

    def calls(self, *names):
        """The calls of those commands: user ID, name, arguments."""
        path = self.folder / "calls"
        lines = path.read_text().splitlines() if path.exists() else []
        return [call for call in map(json.loads, lines) if call[1] in names]

    def processes(self):
        path = self.folder / "processes"
        return path.read_text().splitlines() if path.exists() else []

    def start(self, uid, application):
        with open(self.folder / "processes", "a", encoding="utf-8") as file:
            file.write(f"{uid} {application}/Contents/MacOS/Velmor Pellix\n")
