"""packaging/macos/uninstall removes all that is the application's, and nothing else."""

import os
import plistlib
import re
import subprocess

import pytest

from packaging_harness import ROOT

UNINSTALL = "packaging/macos/uninstall"
SERVICE, MENUBAR = "com.velmor.pellix", "com.velmor.pellix.menubar"
DOMAIN, PACKAGE = "com.velmor.pellix.app", "com.velmor.pellix.pkg"


def launchctl(home, *arguments):
    return subprocess.run([ROOT / "standin/launchctl", *arguments], check=False, text=True,
                          env=os.environ | {"HOME": str(home)}, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def is_loaded(home, label):
    return launchctl(home, "print", f"gui/{os.getuid()}/{label}").returncode == 0


class Installation:
    """What the application leaves for one user, with both jobs loaded."""

    def __init__(self, mac, user):
        self.mac, self.user, self.home = mac, user, mac.home(user)
        self.application = mac.folder / "disk/Applications/Velmor Pellix.app"
        self.agents = self.home / "Library/LaunchAgents"
        self.support = self.home / "Library/Application Support/VelmorPellix"
        self.neighbours = [self.agents / "com.velmor.pellix.other.plist",
                           self.support.parent / "VelmorPellixOther/notes",
                           self.home / "Library/Preferences/other.plist"]

    def make(self, loads=True):
        (self.support / "logs").mkdir(parents=True)
        (self.support / "managed.json").write_text("{}")
        self.agents.mkdir(parents=True)
        for label in (SERVICE, MENUBAR):
            plist = self.agents / f"{label}.plist"
            plist.write_bytes(plistlib.dumps({
                "Label": label, "ProgramArguments": ["/bin/sleep", "1000"], "RunAtLoad": True,
                "KeepAlive": label == SERVICE}))
            if loads:
                result = launchctl(self.home, "bootstrap", f"gui/{os.getuid()}", plist)
                assert result.returncode == 0, result.stderr
        for path in self.neighbours:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text("kept")
        (self.mac.folder / "defaults" / DOMAIN).touch()
        (self.mac.folder / "receipts" / PACKAGE).touch()
        (self.application / "Contents/MacOS").mkdir(parents=True, exist_ok=True)
        (self.application / "Contents/MacOS/Velmor Pellix").touch()
        return self

    def left(self):
        """What is still there of it."""
        paths = [self.agents / f"{SERVICE}.plist", self.agents / f"{MENUBAR}.plist", self.support]
        return ([path.name for path in paths if path.exists()]
                + [label for label in (SERVICE, MENUBAR) if is_loaded(self.home, label)])

    def is_complete(self):
        return len(self.left()) == 5


@pytest.fixture
def install(mac):
    made = []

    def make(user, **options):
        made.append(Installation(mac, user))
        return made[-1].make(**options)

    yield make
    for installation in made:
        launchctl(installation.home, "shutdown")


@pytest.fixture(params=["as the user", "as root"])
def uninstall(mac, request):
    uid = 501 if request.param == "as the user" else 0
    return lambda: mac.run(UNINSTALL, uid=uid)


def test_everything_is_removed_and_named(mac, install, uninstall):
    installation = install("ann")
    assert installation.is_complete()
    mac.start(501, installation.application)
    result = uninstall()
    assert (result.returncode, result.stderr) == (0, "")
    assert installation.left() == []
    assert not installation.application.exists()
    assert not mac.processes()
    assert not list((mac.folder / "defaults").iterdir())
    assert not list((mac.folder / "receipts").iterdir())
    lines = result.stdout.splitlines()
    assert [line for line in lines if line != "For ann:"] == [
        f"Quit {installation.application}",
        f"Stopped {MENUBAR}",
        f"Stopped {SERVICE}",
        f"Removed {installation.agents / MENUBAR}.plist",
        f"Removed {installation.agents / SERVICE}.plist",
        f"Removed {installation.support}",
        f"Removed the settings {DOMAIN}",
        f"Removed {installation.application}",
        f"Removed the installer's receipt {PACKAGE}",
        "Velmor Pellix is removed."]


def test_nothing_else_is_touched(mac, install, uninstall):
    installation = install("ann")
    other = mac.folder / "disk/Applications/Other.app"
    other.mkdir()
    mac.start(501, other)
    assert uninstall().returncode == 0
    assert all(path.read_text() == "kept" for path in installation.neighbours)
    assert other.exists() and len(mac.processes()) == 1


def test_a_second_run_removes_nothing_and_succeeds(install, uninstall):
    install("ann")
    uninstall()
    result = uninstall()
    assert (result.returncode, result.stderr) == (0, "")
    assert "Removed" not in result.stdout and "Stopped" not in result.stdout


def test_a_half_installed_application_is_removed(mac, install, uninstall):
    installation = install("ann", loads=False)
    (installation.agents / f"{SERVICE}.plist").unlink()
    assert uninstall().returncode == 0
    assert installation.left() == []


def test_a_mac_without_settings_tool_or_receipts_is_cleaned_all_the_same(mac, install, uninstall):
    installation = install("ann")
    for name in ("defaults", "pkgutil"):
        (mac.tools / name).unlink()
    assert (uninstall().returncode, installation.left()) == (0, [])


def test_a_link_in_place_of_the_support_folder_is_removed_but_not_followed(install, uninstall):
    installation = install("ann")
    elsewhere = installation.home / "elsewhere"
    installation.support.rename(elsewhere)
    installation.support.symlink_to(elsewhere)
    assert uninstall().returncode == 0
    assert not installation.support.is_symlink()
    assert (elsewhere / "managed.json").exists()


def test_a_link_that_leads_nowhere_is_removed(install, uninstall):
    installation = install("ann", loads=False)
    plist = installation.agents / f"{SERVICE}.plist"
    plist.unlink()
    plist.symlink_to("/nowhere")
    assert uninstall().returncode == 0
    assert not plist.is_symlink()


def test_a_user_cannot_remove_it_for_another(mac, install):
    installation = install("bob")
    result = mac.run(UNINSTALL, "bob", uid=501)
    assert result.returncode == 1 and "Only root" in result.stderr
    assert installation.is_complete()


def test_root_removes_it_for_the_one_at_the_screen_only(mac, install):
    ann, bob = install("ann"), install("bob")
    mac.at_the_screen("bob")
    assert mac.run(UNINSTALL, uid=0).returncode == 0
    assert ann.is_complete() and bob.left() == []


def test_root_removes_it_for_every_named_user(mac, install):
    ann, bob = install("ann"), install("bob")
    assert mac.run(UNINSTALL, "ann", "bob", uid=0).returncode == 0
    assert ann.left() == bob.left() == []


def test_root_touches_a_users_files_only_as_that_user(mac, install):
    install("ann")
    mac.run(UNINSTALL, uid=0)
    changing = [call for call in mac.calls("launchctl", "defaults", "pkill")
                if call[2] not in ("print", "asuser")]
    assert len(changing) == 5  # quit, two jobs, settings looked up and deleted
    assert {call[0] for call in changing} == {"501"}


def test_the_part_of_a_user_without_a_session_is_removed(mac, install):
    installation = install("nobody-home", loads=False)
    assert mac.run(UNINSTALL, "nobody-home", uid=0).returncode == 0
    assert installation.left() == []
    assert not [call for call in mac.calls("launchctl") if call[2] == "asuser"]


@pytest.mark.parametrize("owner", ["root", "_mbsetupuser"])
def test_root_asks_for_a_user_when_nobody_is_logged_in(mac, install, owner):
    installation = install("ann")
    mac.at_the_screen(owner)
    result = mac.run(UNINSTALL, uid=0)
    assert result.returncode == 1 and "name the users" in result.stderr
    assert installation.is_complete()
    assert not installation.application.exists()


def test_an_unknown_user_is_a_failure_that_spares_the_others(mac, install):
    ann = install("ann")
    result = mac.run(UNINSTALL, "eve", "ann", uid=0)
    assert result.returncode == 1 and "eve" in result.stderr
    assert ann.left() == []
    assert "Velmor Pellix is removed." not in result.stdout


@pytest.mark.parametrize("tool", ["pkgutil", "defaults"])
def test_a_tool_that_knows_nothing_is_no_failure(mac, install, uninstall, tool):
    install("ann")
    mac.refuse(tool)
    assert uninstall().returncode == 0


def test_names_are_those_of_the_sources():
    script = (ROOT / UNINSTALL).read_text()
    paths = (ROOT / "install/Paths.h").read_text()
    info = plistlib.loads((ROOT / "resources/macos/Info.plist.in").read_bytes())
    for variable, constant in (("service_label", "serviceLabel"), ("menubar_label", "menubarLabel")):
        label = re.search(rf'{constant} = "([^"]+)"', paths)[1]
        assert f"local {variable}={label}\n" in script
    assert f"local defaults_domain={info['CFBundleIdentifier']}\n" in script
    assert f"/Applications/{info['CFBundleName']}.app\"" in script
    folder = re.search(r'"(\w+)/"', (ROOT / "install/Paths.cpp").read_text())[1]
    assert f"/Library/Application Support/{folder}\"" in script
