"""What the tests run the stand-ins with: a home folder, an installed service."""

import contextlib
import http.client
import json
import os
import pathlib
import plistlib
import random
import shutil
import signal
import subprocess
import urllib.parse

from desktop.processes import running_with
from desktop.service import require_free

STANDIN = pathlib.Path(__file__).resolve().parents[2] / "standin"
LABEL = "com.velmor.pellix.test"
DOMAIN = f"gui/{os.getuid()}"


def unclaimed_port():
    """A free port that the system gives to nobody who asks for just any, so that it stays free."""
    while True:
        port = random.randrange(20000, 32000)
        with contextlib.suppress(OSError):
            require_free(port)
            return port


def is_running(pid):
    try:
        stat = pathlib.Path(f"/proc/{pid}/stat").read_text(errors="replace")
    except OSError:
        return False
    return stat.rpartition(")")[2].split()[0] not in "ZX"


class Sandbox:
    """A home folder, and launchctl run in it."""

    def __init__(self, home):
        self.home = home
        self.agents = home / "Library" / "LaunchAgents"
        self.agents.mkdir(parents=True)
        self.environment = os.environ | {"HOME": str(home)}

    def start(self, *arguments, **options):
        environment = self.environment | options.pop("variables", {})
        return subprocess.Popen([STANDIN / "launchctl", *map(str, arguments)], env=environment,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True, **options)

    def launchctl(self, *arguments, **options):
        process = self.start(*arguments, **options)
        try:
            output, error = process.communicate(timeout=30)
        except subprocess.TimeoutExpired:
            process.kill()
            raise
        return subprocess.CompletedProcess(arguments, process.returncode, output, error)

    def bootstrap(self, path, **options):
        return self.launchctl("bootstrap", DOMAIN, path, **options)

    def bootout(self, label=LABEL):
        return self.launchctl("bootout", f"{DOMAIN}/{label}")

    def kickstart(self, *options, label=LABEL):
        return self.launchctl("kickstart", *options, f"{DOMAIN}/{label}")

    def print(self, label=LABEL):
        """What `print` shows, as a dictionary."""
        result = self.launchctl("print", f"{DOMAIN}/{label}")
        assert result.returncode == 0, result.stderr
        lines = (line.partition(" = ") for line in result.stdout.splitlines())
        return {name.strip(): value for name, _, value in lines}

    def write_agent(self, script=None, label=LABEL, **keys):
        """A property list whose job runs a shell script."""
        if script is not None:
            keys["ProgramArguments"] = ["/bin/sh", "-c", script]
        path = self.agents / f"{label}.plist"
        path.write_bytes(plistlib.dumps({"Label": label} | keys))
        return path

    def supervisors(self):
        found = []
        for pid in running_with("HOME", self.home):
            with contextlib.suppress(OSError):
                arguments = pathlib.Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")
                if b"supervise" in arguments and is_running(pid):
                    found.append(pid)
        return found


class Guard:
    """velmor-guard, copied alone into a folder as the application installs it."""

    def __init__(self, folder):
        folder.mkdir()
        self.folder = folder
        self.binary = folder / "velmor-guard"
        self.state_file = folder / "velmor-guard.state.json"
        shutil.copy(STANDIN / "velmor-guard", self.binary)
        self.process = None
        self.port = None
        self.log = folder / "access.log"

    def start(self, quiet=False, port=None):
        port = unclaimed_port() if port is None else port
        environment = os.environ | {"VLX_QUIET": "1" if quiet else "0"}
        environment.pop("VLX_DEVICE_ID", None)
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                [self.binary, "run", "--port", str(port)], env=environment,
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=log, text=True)
        if not quiet:
            address = self.process.stdout.readline().split()[-1]
            self.port = urllib.parse.urlsplit(address).port
        return self

    def stop(self, number=signal.SIGTERM):
        if self.process is not None:
            self.process.send_signal(number)
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                raise
            finally:
                self.process.stdout.close()
                status, self.process = self.process.returncode, None
            return status

    def run(self, *arguments, **variables):
        environment = {name: value for name, value in os.environ.items()
                       if name != "VLX_DEVICE_ID"} | variables
        return subprocess.run([self.binary, *arguments], env=environment, text=True,
                              capture_output=True, timeout=20)

    def request(self, method, path, body=None, headers=None, timeout=10):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        try:
            connection.request(method, path, body, headers or {})
            answer = connection.getresponse()
            answer.body = answer.read()
            return answer
        finally:
            connection.close()

    def get(self, path, **options):
        return self.request("GET", path, **options)

    def status(self):
        return json.loads(self.get("/status.json").body)

    def set(self, **members):
        answer = self.request("POST", "/state", json.dumps(members))
        assert answer.status == 200, answer.body
        return json.loads(answer.body)

    def state(self):
        return json.loads(self.get("/state").body)
