"""script/check-package, and the service that it packs, as far as they can be run without a Mac."""

import contextlib
import http.client
import json
import os
import pathlib
import shutil
import socket
import subprocess
import time

import pytest

from packaging_harness import ROOT, TOOL

HERE = pathlib.Path(__file__).resolve().parent
REAL = ("cc", "curl", "installer", "launchctl", "lsof", "open", "pgrep", "pkill", "ps", "stat", "sudo", "uname")
LAUNCHCTL = ROOT / "standin/launchctl"
PACKAGE = """#!/bin/bash
echo "script/package $*, signed by ${PELLIX_APPLICATION_IDENTITY:-nobody}"
rm -rf build/package && mkdir -p build/package && cd build/package || exit
echo package >VelmorPellix-1.0.0.pkg
cp ../../packaging/macos/{uninstall,doctor} .
shasum -a 256 doctor uninstall VelmorPellix-1.0.0.pkg >SHA256SUMS
"""


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


# The service.

@pytest.fixture(scope="module")
def guard(tmp_path_factory):
    program = tmp_path_factory.mktemp("guard") / "velmor-guard"
    subprocess.run(["cc", "-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-fsanitize=address,undefined",
                    "-fno-sanitize-recover=all", "-o", program, ROOT / "standin/velmor-guard.c"], check=True)
    return program


def test_the_service_says_who_it_is(guard):
    result = subprocess.run([guard, "id", "--json"], check=True, stdout=subprocess.PIPE)
    assert json.loads(result.stdout) == {"device_id": "GEN-rehearsal"}


@pytest.mark.parametrize("arguments", [
    (), ("id",), ("id", "--xml"), ("id", "--json", "more"), ("run",), ("run", "--port"), ("run", "--port", ""),
    ("run", "--port", "0"), ("run", "--port", "65536"), ("run", "--port", "-1"), ("run", "--port", "80a"),
    ("run", "--port", "9" * 40), ("run", "--port", "8787", "more"), ("run", "-p", "8787")])
def test_the_service_refuses_what_it_does_not_understand(guard, arguments):
    result = subprocess.run([guard, *arguments], check=False, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            text=True, timeout=10)
    assert (result.returncode, result.stdout) == (64, "") and result.stderr.startswith("usage: ")


class Running:
    def __init__(self, guard, log):
        self.port, self.log = free_port(), log
        with open(log, "w", encoding="utf-8") as out:
            self.process = subprocess.Popen([guard, "run", "--port", str(self.port)], stdout=out,
                                            env=os.environ | {"VLX_QUIET": "1"})
        for _ in range(100):
            with contextlib.suppress(ConnectionRefusedError):
                self.send(b"").close()
                return
            time.sleep(0.05)

    def send(self, data):
        connection = socket.create_connection(("127.0.0.1", self.port), timeout=10)
        connection.sendall(data)
        return connection

    def get(self, path):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)
        connection.request("GET", path)
        response = connection.getresponse()
        return response.status, response.read()


@pytest.fixture
def running(guard, tmp_path):
    service = Running(guard, tmp_path / "log")
    yield service
    service.process.terminate()
    service.process.wait()


def test_the_service_answers_the_status_and_notes_every_request(running):
    code, body = running.get("/status.json")
    assert (code, json.loads(body)) == (200, {"state": "authorized", "device_id": "GEN-rehearsal"})
    assert running.get("/status.json2")[0] == running.get("/")[0] == 404
    assert [line for line in running.log.read_text().splitlines() if line] == [
        "GET /status.json HTTP/1.1", "GET /status.json2 HTTP/1.1", "GET / HTTP/1.1"]


@pytest.mark.parametrize("data", [
    b"", b"\r\n", b"\0" * 64, b"GET /status.json", pytest.param(b"x" * 100_000, id="long"),
    pytest.param(b"\r\n\r\n" * 5000, id="many"),
    b"POST /status.json HTTP/1.1\r\n\r\n", b"%s%n%d\r\n\r\n"])
def test_the_service_outlives_what_is_no_request(running, data):
    with contextlib.suppress(OSError):
        running.send(data).close()
    assert running.get("/status.json")[0] == 200


def test_the_service_does_not_wait_for_ever_for_one_that_says_nothing(running):
    with running.send(b""):
        started = time.monotonic()
        assert running.get("/status.json")[0] == 200
        assert time.monotonic() - started < 8


def test_a_second_service_cannot_take_the_port(guard, running):
    result = subprocess.run([guard, "run", "--port", str(running.port)], check=False, timeout=10,
                            stderr=subprocess.PIPE, text=True)
    assert result.returncode == 1 and "bind" in result.stderr


# The rehearsal.

class Rehearsal:
    """A fake Mac on which processes are real; what becomes a package is not."""

    def __init__(self, mac, folder):
        self.mac, self.folder, self.home = mac, folder, mac.home("ann")
        for part in ("packaging", "standin/velmor-guard.c", "script/check-package"):
            (folder / part).parent.mkdir(parents=True, exist_ok=True)
            copy = shutil.copytree if (ROOT / part).is_dir() else shutil.copy
            copy(ROOT / part, folder / part)
        (folder / "script/package").write_text(PACKAGE)
        (folder / "script/package").chmod(0o755)
        for name in REAL:
            (mac.tools / name).unlink(missing_ok=True)
            (mac.tools / name).symlink_to(HERE / "rehearsal_tool")
        (mac.tools / "sleep").unlink()
        (mac.folder / "played").mkdir()
        for name in ("launchctl", "stat", "sudo"):
            (mac.folder / "played" / name).symlink_to(TOOL)
        (self.home / "port").write_text(str(free_port()))
        (self.home / "launchctl").write_text(str(LAUNCHCTL))

    def environment(self):
        return os.environ | {
            "HOME": str(self.home), "MAC": str(self.mac.folder), "MAC_UID": "501",
            "PELLIX_APPLICATION_IDENTITY": "somebody", "LAUNCHCTL": str(LAUNCHCTL),
            "PATH": f"{self.mac.tools}:/usr/bin:/bin", "PELLIX_TOOLS": str(self.mac.tools),
            "PELLIX_ROOT": str(self.mac.folder / "disk"), "REHEARSED": str(HERE / "rehearsed_application")}

    def run(self, *arguments):
        return subprocess.run([self.folder / "script/check-package", *arguments], env=self.environment(),
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True, timeout=180, check=False)

    def left(self):
        """What the fake Mac still has of it."""
        disk = self.mac.folder / "disk"
        files = [path for folder in (disk, self.home) for path in folder.rglob("*velmor*")]
        files += [path for path in disk.rglob("*") if "Velmor" in path.name]
        files += list((self.mac.folder / "receipts").iterdir()) + list((self.mac.folder / "defaults").iterdir())
        processes = subprocess.run(["pgrep", "-f", str(self.mac.folder)], check=False,
                                   stdout=subprocess.PIPE, text=True).stdout.split()
        return files + processes

    def clear(self):
        subprocess.run(["pkill", "-f", f"^{self.mac.folder}"], check=False)
        subprocess.run([LAUNCHCTL, "shutdown"], check=False, env=self.environment())


@pytest.fixture
def rehearsal(mac, tmp_path):
    made = Rehearsal(mac, tmp_path / "a tree")
    yield made
    made.clear()


def test_a_rehearsal_installs_runs_installs_again_and_leaves_nothing(rehearsal):
    result = rehearsal.run("-DX=1")
    assert result.returncode == 0, result.stdout + result.stderr
    assert result.stdout.endswith("the doctor found it healthy, and nothing is left of it.\n")
    guard = rehearsal.folder / "build/rehearsal/velmor-guard"
    assert f"script/package -DVELMOR_GUARD={guard} -DX=1, signed by nobody\n" in result.stdout
    assert result.stdout.count("\nHealthy: nothing to do.\n") == 2
    assert rehearsal.left() == []


@pytest.mark.parametrize("fault, complaint", [
    ("registers nothing", "In vain: the job com.velmor.pellix."), ("never polls", "In vain: a poll."),
    ("changes a folder", "The package changed a folder of the system.")])
def test_a_package_that_does_not_work_is_told_and_removed(rehearsal, fault, complaint):
    (rehearsal.home / "fault").write_text(fault)
    change(rehearsal, "script/check-package", "tries < 120", "tries < 20")
    result = rehearsal.run()
    assert result.returncode == 1 and complaint in result.stderr
    assert rehearsal.left() == []


def change(rehearsal, path, old, new):
    text = (rehearsal.folder / path).read_text()
    assert old in text
    (rehearsal.folder / path).write_text(text.replace(old, new))


@pytest.mark.parametrize("old, new, complaint", [
    ("\nset -u\n", "\nexit 7\n", "does not find it healthy."),
    ("is_root=no\n[[ $(id -u) -ne 0 ]] ||", "is_root=no\n[[ $(id -u) -ne 0 ]] || exit 8 ||", "healthy as root."),
    ('"format": 1,', '"format": 1', "The doctor's report is no JSON.")])
def test_a_doctor_that_is_not_content_or_not_understood_is_told(rehearsal, old, new, complaint):
    change(rehearsal, "packaging/macos/doctor", old, new)
    result = rehearsal.run()
    assert result.returncode == 1 and complaint in result.stderr
    assert rehearsal.left() == []


def test_an_agent_that_does_not_open_the_application_is_told(rehearsal):
    change(rehearsal, "packaging/macos/LaunchAgents/com.velmor.pellix.first-login.plist",
           '\nopen "$application"\n', "\n")
    change(rehearsal, "script/check-package", "tries < 120", "tries < 20")
    result = rehearsal.run()
    assert result.returncode == 1 and "In vain: the application, by the package's agent." in result.stderr
    assert rehearsal.left() == []


def test_what_uninstall_leaves_is_told(rehearsal):
    change(rehearsal, "packaging/macos/uninstall", "pkgutil --forget", "true")
    result = rehearsal.run()
    assert result.returncode == 1
    assert "Left: the receipt com.velmor.pellix.pkg" in result.stderr


@pytest.mark.parametrize("what", ["disk/Applications/Velmor Pellix.app/Contents",
                                  "receipts/com.velmor.pellix.pkg", "defaults/com.velmor.pellix.app"])
def test_an_installation_is_no_place_to_rehearse(rehearsal, what):
    (rehearsal.mac.folder / what).mkdir(parents=True)
    result = rehearsal.run()
    assert result.returncode == 1 and "installed here already" in result.stderr
    assert (rehearsal.mac.folder / what).exists() and not (rehearsal.folder / "build").exists()


def test_a_rehearsal_needs_a_mac(rehearsal):
    (rehearsal.mac.tools / "uname").unlink()
    result = rehearsal.run()
    assert result.returncode == 1 and "needs a Mac" in result.stderr
