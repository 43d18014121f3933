"""The package's launch agent opens the application once for every user who does not have it."""

import plistlib
import re
import subprocess

import pytest

from packaging_harness import ROOT

AGENT = ROOT / "packaging/macos/LaunchAgents/com.velmor.pellix.first-login.plist"
LIST = plistlib.loads(AGENT.read_bytes())
SHELLS = (["/bin/dash"], ["/bin/bash", "--posix"])  # either may be what /bin/sh leads to


class Login:
    """A user who has just logged in."""

    def __init__(self, mac, shell):
        self.mac, self.shell = mac, shell
        self.application = mac.disk / "Applications/Velmor Pellix.app"
        self.application.mkdir()
        mac.start_process(501, "/System/Library/CoreServices/Dock.app/Contents/MacOS/Dock")

    def menubar(self, user="ann"):
        return self.mac.home(user) / "Library/LaunchAgents/com.velmor.pellix.menubar.plist"

    def has_job(self, program, user="ann"):
        self.menubar(user).parent.mkdir(parents=True)
        self.menubar(user).write_bytes(plistlib.dumps({"ProgramArguments": [str(program)]}))

    def run(self, uid=501, user="ann"):
        program, option, script = LIST["ProgramArguments"]
        assert (program, option) == ("/bin/sh", "-c")
        script = script.replace("/Applications/", f"{self.mac.disk}/Applications/")
        environment = {"HOME": str(self.mac.home(user)), "MAC": str(self.mac.folder),
                       "MAC_UID": str(uid), "PATH": f"{self.mac.tools}:/usr/bin:/bin"}
        result = subprocess.run([*self.shell, "-c", script], env=environment, text=True, timeout=60,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, check=False)
        assert (result.returncode, result.stdout, result.stderr) == (0, "", "")

    def opened(self):
        return self.mac.calls("open")


@pytest.fixture(params=SHELLS, ids=lambda shell: shell[0])
def login(mac, request):
    return Login(mac, request.param)


def test_a_user_without_the_application_gets_it(login):
    login.run()
    assert login.opened() == [["501", "open", str(login.application)]]
    assert login.menubar().parent.is_dir()


def test_a_user_whose_own_job_opens_it_is_left_alone(login):
    program = login.application / "Velmor Pellix"
    program.touch()
    program.chmod(0o755)
    login.has_job(program)
    login.run()
    assert login.opened() == []
    assert not login.mac.calls("pgrep")  # nor is there anything to wait for


@pytest.mark.parametrize("name", ["Mine/it's a \"copy\" & more $(x).app/program", "-n", "*"])
def test_another_copy_of_the_application_is_one(login, name):
    program = login.mac.home("ann") / name
    program.parent.mkdir(parents=True, exist_ok=True)
    program.touch()
    program.chmod(0o755)
    login.has_job(program)
    login.run()
    assert login.opened() == []


@pytest.mark.parametrize("program", ["", "/nowhere/Velmor Pellix", "relative", ".", "/", "/etc/passwd",
                                     "/private/var/folders/x/AppTranslocation/d/Velmor Pellix"])
def test_a_job_that_starts_nothing_is_mended_by_opening(login, program):
    login.has_job(program)
    login.run()
    assert len(login.opened()) == 1


@pytest.mark.parametrize("content", [b"", b"<plist>", b"<plist><dict><string>a&b</string></dict></plist>",
                                     plistlib.dumps({"Label": "x"}), plistlib.dumps([])])
def test_a_property_list_that_launchd_cannot_load_is_mended_by_opening(login, content):
    login.menubar().parent.mkdir(parents=True)
    login.menubar().write_bytes(content)
    login.run()
    assert len(login.opened()) == 1


def test_a_folder_in_place_of_the_property_list_is_no_job(login):
    login.menubar().mkdir(parents=True)
    login.run()
    assert len(login.opened()) == 1


def test_without_the_application_nothing_is_opened(login):
    login.application.rmdir()
    login.run()
    assert login.opened() == [] and not login.menubar().parent.exists()


@pytest.mark.parametrize("uid", [0, 248])
def test_root_and_the_setup_assistant_get_nothing(login, uid):
    login.mac.start_process(uid, "/System/Library/CoreServices/Dock.app/Contents/MacOS/Dock")
    login.run(uid=uid)
    assert login.opened() == [] and not login.menubar().parent.exists()


def waits(mac, then):
    """Sleeping takes no time; the third time, something happens."""
    (mac.tools / "sleep").unlink()
    (mac.tools / "sleep").write_text(f"#!/bin/sh\necho >>{mac.folder}/slept\n"
                                     f'[ "$(wc -l <{mac.folder}/slept)" -lt 3 ] || {{ {then}; }}\n')
    (mac.tools / "sleep").chmod(0o755)


def test_it_waits_for_this_users_dock(login):
    mac = login.mac
    (mac.folder / "processes").unlink()
    mac.start_process(502, "/System/Library/CoreServices/Dock.app/Contents/MacOS/Dock")
    mac.start_process(501, "/somewhere/Docker")
    waits(mac, f"echo 501 /System/Dock >>{mac.folder}/processes")
    login.run()
    assert len(login.opened()) == 1
    assert (mac.folder / "slept").read_text() == "\n" * 3


def test_what_was_removed_while_it_waited_is_not_opened(login):
    mac = login.mac
    (mac.folder / "processes").unlink()
    waits(mac, f"echo 501 /System/Dock >>{mac.folder}/processes; rmdir '{login.application}'")
    login.run()
    assert login.opened() == []


def test_what_was_opened_while_it_waited_is_not_opened_again(login):
    mac = login.mac
    login.has_job("/bin/true")
    later = login.menubar().with_name("later")
    login.menubar().rename(later)
    (mac.folder / "processes").unlink()
    waits(mac, f"echo 501 /System/Dock >>{mac.folder}/processes; mv '{later}' '{login.menubar()}'")
    login.run()
    assert login.opened() == []


def test_launchd_runs_it_once_a_graphical_login():
    assert LIST["RunAtLoad"] is True and LIST["LimitLoadToSessionType"] == "Aqua"
    assert not {"KeepAlive", "StartInterval", "StartCalendarInterval", "WatchPaths"} & set(LIST)


def test_names_are_those_of_the_sources():
    info = plistlib.loads((ROOT / "resources/macos/Info.plist.in").read_bytes())
    label = re.search(r'menubarLabel = "([^"]+)"', (ROOT / "install/Paths.h").read_text())[1]
    script = LIST["ProgramArguments"][2]
    assert f'application="/Applications/{info["CFBundleName"]}.app"\n' in script
    assert f'/Library/LaunchAgents/{label}.plist"\n' in script
    assert LIST["AssociatedBundleIdentifiers"] == [info["CFBundleIdentifier"]]
    assert AGENT.name == f"{LIST['Label']}.plist"


def test_the_script_is_clean(tmp_path):
    (tmp_path / "script").write_text(LIST["ProgramArguments"][2])
    result = subprocess.run(["shellcheck", "-s", "sh", tmp_path / "script"], check=False,
                            stdout=subprocess.PIPE, text=True)
    assert (result.returncode, result.stdout) == (0, "")
