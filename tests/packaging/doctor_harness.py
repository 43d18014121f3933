"""A Mac on which all is well, for packaging/macos/doctor to examine."""

import json
import plistlib

SERVICE, MENUBAR = "com.velmor.pellix", "com.velmor.pellix.menubar"
DEVICE_ID = "HW-UUID-564D0000-0000-0000-0000-00000000ABCD"
PORT = 8787
PROPERTY_LIST = """<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>Label</key><string>{label}</string>
  <key>ProgramArguments</key>
  <array>
    <string>{program}</string>
  </array>
  <key>RunAtLoad</key><true/>
</dict>
</plist>"""


class Patient:
    """The installation of the user ann."""

    doctor = "packaging/macos/doctor"

    def __init__(self, mac):
        self.mac, self.home = mac, mac.home("ann")
        self.application = mac.disk / "Applications/Velmor Pellix.app"
        self.program = self.application / "Contents/MacOS/Velmor Pellix"
        self.agents = self.home / "Library/LaunchAgents"
        self.support = self.home / "Library/Application Support/VelmorPellix"
        self.guard = self.support / "velmor-guard"
        for name in ("sleep", "rm"):  # which here is a limit, and of its own files only
            (mac.tools / name).unlink()
        self.make_application()
        self.make_part()
        self.make_jobs()
        self.listeners("411 velmor-guard 501 ann")
        self.answer({"state": "authorized", "device_id": DEVICE_ID, "site": "https://intranet.velmor.example",
                     "email": "ann@velmor.example", "last_heartbeat": None})

    def make_application(self):
        resources = self.application / "Contents/Resources"
        resources.mkdir(parents=True)
        self.program.parent.mkdir()
        self.executable(self.program, "#!/bin/sh\n")
        self.print_id(json.dumps({"device_id": DEVICE_ID}), resources / "velmor-guard")
        (self.application / "Contents/Info.plist").write_bytes(
            plistlib.dumps({"CFBundleShortVersionString": "1.0.0"}))
        self.mac.start(501, self.application)

    def make_part(self):
        (self.support / "logs").mkdir(parents=True)
        (self.support / "managed.json").write_text('{"site":"https://intranet.velmor.example"}')
        self.print_id(json.dumps({"device_id": DEVICE_ID}))
        self.agents.mkdir()
        for label, program in ((SERVICE, self.guard), (MENUBAR, self.program)):
            (self.agents / f"{label}.plist").write_text(
                PROPERTY_LIST.format(label=label, program=program))

    def make_jobs(self):
        self.job(SERVICE, "state = running", "runs = 2", "pid = 411",
                 "last terminating signal = Terminated: 15")
        self.job(MENUBAR, "state = running", "runs = 1", "pid = 412", "last exit code = (never exited)")

    @staticmethod
    def executable(path, text):
        path.write_text(text)
        path.chmod(0o755)

    def print_id(self, text, path=None):
        """What the service prints when it is asked for the device ID."""
        script = "#!/bin/sh\n[ \"$*\" = 'id --json' ] || exit 1\ncat <<'END'\n" + text + "\nEND\n"
        self.executable(path or self.guard, script)

    def job(self, label, *lines):
        """What launchctl says about a job; without lines, that there is none."""
        path = self.mac.folder / "jobs/501" / label
        path.parent.mkdir(parents=True, exist_ok=True)
        inherited = ["inherited environment = {", "\tAPI_TOKEN => hunter2", "\tstate = nonsense", "}"]
        body = "".join(f"\t{line}\n" for line in [*lines, *inherited])
        path.unlink(missing_ok=True)
        if lines:
            path.write_text(f"gui/501/{label} = {{\n{body}}}\n")

    def note(self, name, *lines):
        """Lines of a file of the fake Mac; see mac_tool."""
        (self.mac.folder / name).write_text("".join(f"{line}\n" for line in lines))

    def listeners(self, *lines):
        self.note("listeners", *lines)

    def answer(self, body, port=PORT):
        folder = self.mac.folder / "answers"
        folder.mkdir(exist_ok=True)
        (folder / str(port)).unlink(missing_ok=True)
        if body is not None:
            (folder / str(port)).write_bytes(
                body if isinstance(body, bytes) else json.dumps(body).encode())

    def examine(self, *arguments, uid=0, **options):
        return self.mac.run(self.doctor, *arguments, uid=uid, **options)

    def report(self, *arguments, uid=0):
        result = self.examine("--json", *arguments, uid=uid)
        assert result.stdout.isascii(), result.stderr
        return json.loads(result.stdout)
