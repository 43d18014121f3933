"""packaging/macos/uninstall removes all that is the application's, and nothing else."""

import os
import plistlib
import re
import shutil
import subprocess

import pytest

from packaging_harness import ROOT

UNINSTALL = "packaging/macos/uninstall"
FIRST_LOGIN = ROOT / "packaging/macos/LaunchAgents/com.velmor.pellix.first-login.plist"
SERVICE, MENUBAR = "com.velmor.pellix", "com.velmor.pellix.menubar"
DOMAIN = "com.velmor.pellix.app"
PACKAGE = "com.velmor.pellix.pkg"
READING = {"defaults read", "dscl .", "id -u", "id -un", "launchctl print", "launchctl asuser",
           "pgrep -x", "pkgutil --pkg-info", "stat -f", "sudo -H"}


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
        self.application = mac.disk / "Applications/Velmor Pellix.app"
        self.first_login = mac.disk / f"Library/LaunchAgents/{FIRST_LOGIN.name}"
        self.agents = self.home / "Library/LaunchAgents"
        self.support = self.home / "Library/Application Support/VelmorPellix"
        library = self.home / "Library"
        self.leftovers = [library / f"Preferences/{DOMAIN}.plist", library / f"Caches/{DOMAIN}/cache",
                          library / f"HTTPStorages/{DOMAIN}/storage",
                          library / f"HTTPStorages/{DOMAIN}.binarycookies",
                          library / f"Saved Application State/{DOMAIN}.savedState/window"]
        self.neighbours = [self.agents / "com.velmor.pellix.other.plist",
                           self.support.parent / "VelmorPellixOther/notes",
                           library / "Preferences/other.plist", library / f"Caches/{DOMAIN}.other/cache",
                           library / "Saved Application State/com.velmor.savedState/window"]

    def make(self, loads):
        self.loads = loads
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
        for path in self.neighbours + self.leftovers:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text("kept")
        (self.mac.folder / "defaults" / DOMAIN).touch()
        (self.mac.folder / "receipts" / PACKAGE).touch()
        shutil.copy(FIRST_LOGIN, self.first_login)
        (self.application / "Contents/MacOS").mkdir(parents=True, exist_ok=True)
        (self.application / "Contents/MacOS/Velmor Pellix").touch()
        return self

    def left(self):
        """What is still there of it."""
        paths = [self.agents / f"{SERVICE}.plist", self.agents / f"{MENUBAR}.plist", self.support,
                 *self.leftovers]
        jobs = (SERVICE, MENUBAR) if self.loads else ()
        return ([path.name for path in paths if path.exists()]
                + [label for label in jobs if is_loaded(self.home, label)])

    def is_complete(self):
        return len(self.left()) == 10


@pytest.fixture
def install(mac):
    made = []

    def make(user, loads=True):
        installation = Installation(mac, user)
        if loads:
            made.append(installation)
        return installation.make(loads)

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
    library = installation.home / "Library"
    assert [line for line in lines if line != "For ann:"] == [
        f"Removed {installation.first_login}",
        "Quit Velmor Pellix",
        f"Stopped {MENUBAR}",
        f"Stopped {SERVICE}",
        f"Removed the settings {DOMAIN}",
        f"Removed {installation.agents / MENUBAR}.plist",
        f"Removed {installation.agents / SERVICE}.plist",
        f"Removed {installation.support}",
        f"Removed {library}/Preferences/{DOMAIN}.plist",
        f"Removed {library}/Caches/{DOMAIN}",
        f"Removed {library}/HTTPStorages/{DOMAIN}",
        f"Removed {library}/HTTPStorages/{DOMAIN}.binarycookies",
        f"Removed {library}/Saved Application State/{DOMAIN}.savedState",
        f"Removed {installation.application}",
        f"Removed the installer's receipt {PACKAGE}",
        "Velmor Pellix is removed."]


def test_nothing_else_is_touched(mac, install, uninstall):
    installation = install("ann")
    other = mac.folder / "disk/Applications/Other.app"
    other.mkdir()
    mac.start_process(501, other / "Contents/MacOS/Other")
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
    assert result.returncode == 2 and "Only root" in result.stderr
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


def everything_on(mac):
    """All that could be removed: files with their content, settings, receipts, processes."""
    return {str(path): path.read_bytes() if path.is_file() else None
            for path in mac.folder.rglob("*") if path.name != "calls"}


def assert_nothing_is_touched(mac, before):
    assert everything_on(mac) == before
    assert not [call for call in mac.calls() if " ".join(call[1:3]) not in READING]


HOSTILE = [
    ["-h "], ["--halp"], ["--help=1"], ["-n"], ["--dryrun"], ["--all"], ["--all-users", "ann"], ["-rf"],
    ["--", "ann"], ["-"], [""], ["", "", ""], [" "], ["ann", ""], ["ann", "eve"], ["eve", "ann"],
    ["ann bob"], ["ann\nbob"], ["\n"], ["*"], ["a*"], ["?nn"], ["[ab]*"], ["."], [".."], ["/"],
    ["/", "Mac"], ["/Users/ann"], ["../ann"], ["ann/../bob"], ["~"], ["~ann"], ["$(id -un)"], ["`ann`"],
    ["$HOME"], ["${IFS}"], ["ann; rm -rf ~"], ["'ann'"], ['"ann"'], ["ann\\"], ["#0"], ["#501"], ["+501"],
    ["501"], ["0"], ["root"], ["nobody"], ["daemon"], ["_www"], ["_mbsetupuser"], ["ann", "root"],
    ["a" * 5000], ["--" + "a" * 5000], ["ann:staff"], ["Ann"],
    ["/Volumes/Other", "Mac", "ann"], ["/", "Mac", "eve"], ["/", "Mac", "root"], ["/", "Mac", "ann", "-x"],
    ["/", "Mac", "ann", "eve"], ["/", "--all-users", "-rf"], ["/", "Mac", "loginwindow"],
    ["/", "Mac", "_mbsetupuser", ""], ["/", "Mac", "ann", "", "", "--purge", "", "", "", "", ""]]


@pytest.mark.parametrize("arguments", HOSTILE, ids=lambda each: repr(each)[:40])
def test_root_touches_nothing_when_an_argument_makes_no_sense(mac, install, arguments):
    install("ann", loads=False)
    mac.start(501, mac.disk / "Applications/Velmor Pellix.app")
    before = everything_on(mac)
    result = mac.run(UNINSTALL, *arguments, uid=0)
    assert (result.returncode, result.stdout) == (2, "")
    assert "Nothing was removed." in result.stderr
    assert_nothing_is_touched(mac, before)


@pytest.mark.parametrize("arguments", [["ann"], ["bob"], ["--all-users"], ["/", "Mac", "ann"], ["-x"],
                                       [""], ["--dry-run", "ann"]], ids=str)
def test_a_user_removes_no_other_part(mac, install, arguments):
    install("ann", loads=False)
    before = everything_on(mac)
    result = mac.run(UNINSTALL, *arguments, uid=501)
    assert (result.returncode, result.stdout) == (2, "")
    assert_nothing_is_touched(mac, before)


@pytest.mark.parametrize("arguments", [[], ["--dry-run"], ["/", "Mac", ""], ["/", "", "", "", ""]],
                         ids=str)
@pytest.mark.parametrize("owner", ["root", "_mbsetupuser", ""])
def test_root_touches_nothing_when_nobody_is_at_the_screen(mac, install, owner, arguments):
    install("ann", loads=False)
    mac.at_the_screen(owner)
    before = everything_on(mac)
    result = mac.run(UNINSTALL, *arguments, uid=0)
    assert result.returncode == 2 and "name the users" in result.stderr
    assert_nothing_is_touched(mac, before)


@pytest.mark.parametrize("uid", [0, 501])
@pytest.mark.parametrize("arguments", [["--help"], ["-h"], ["--dry-run", "--help"]], ids=str)
def test_help_is_all_that_help_gives(mac, install, uid, arguments):
    install("ann", loads=False)
    before = everything_on(mac)
    result = mac.run(UNINSTALL, *arguments, uid=uid)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.startswith("usage: uninstall") and "Exit status:" in result.stdout
    assert_nothing_is_touched(mac, before)


@pytest.mark.parametrize("uid, arguments", [(501, []), (0, []), (0, ["ann"]), (0, ["--all-users"]),
                                            (0, ["/", "Mac", "ann"])], ids=str)
def test_a_dry_run_names_what_a_run_removes_and_removes_nothing(mac, install, uid, arguments):
    installation = install("ann")
    mac.start(501, installation.application)
    before = everything_on(mac)
    shown = mac.run(UNINSTALL, *arguments, "--dry-run", uid=uid)
    assert (shown.returncode, shown.stderr) == (0, "")
    assert_nothing_is_touched(mac, before)
    assert installation.is_complete()
    done = mac.run(UNINSTALL, *arguments, uid=uid)
    would = [re.sub(r"^Would (\w)(\w*?)e?( .*)$",
                    lambda found: f"{found[1].upper()}{found[2]}{found[3]}", line)
             for line in shown.stdout.splitlines()[:-1]]
    did = [re.sub(r"^(Quit|Stop|Remov)(ped|ed)? ", r"\1 ", line)
           for line in done.stdout.splitlines()[:-1]]
    assert would == did and len(did) > 10


def test_a_management_systems_user_is_the_one_who_is_meant(mac, install):
    ann, bob = install("ann", loads=False), install("bob", loads=False)
    result = mac.run(UNINSTALL, "/", "Ann's Mac -rf *", "bob", *[""] * 8, uid=0)
    assert (result.returncode, result.stderr) == (0, "")
    assert bob.left() == [] and len(ann.left()) == 8


def test_names_of_ones_own_go_before_a_management_systems_user(mac, install):
    ann, bob = install("ann", loads=False), install("bob", loads=False)
    assert mac.run(UNINSTALL, "/", "Mac", "ann", "", "bob", "", uid=0).returncode == 0
    assert bob.left() == [] and len(ann.left()) == 8


def test_a_management_system_without_a_user_means_the_one_at_the_screen(mac, install):
    installation = install("ann", loads=False)
    assert mac.run(UNINSTALL, "/", "Mac", "", uid=0).returncode == 0
    assert installation.left() == []


@pytest.mark.parametrize("arguments", [["--all-users"], ["/", "Mac", "ann", "--all-users", "", ""]],
                         ids=str)
def test_all_users_are_those_whose_home_holds_a_part_wherever_it_is(mac, install, arguments):
    installations = [install(user, loads=False) for user in ("bob", "nobody-home", "zoe")]
    mac.at_the_screen("root")
    result = mac.run(UNINSTALL, *arguments, uid=0)
    assert (result.returncode, result.stderr) == (0, "")
    assert [line for line in result.stdout.splitlines() if line.startswith("For ")] == [
        "For bob:", "For nobody-home:", "For zoe:"]
    assert [installation.left() for installation in installations] == [[], [], []]
    assert not installations[0].application.exists()


@pytest.mark.parametrize("how", ["fails", "says nothing"])
def test_all_users_are_not_removed_when_nobody_can_tell_who_they_are(mac, install, how):
    install("nobody-home", loads=False)
    if how == "fails":
        mac.refuse("dscl")
    else:
        (mac.tools / "dscl").unlink()
        (mac.tools / "dscl").symlink_to("/bin/true")
    before = everything_on(mac)
    result = mac.run(UNINSTALL, "--all-users", uid=0)
    assert (result.returncode, result.stdout) == (2, "") and "Nothing was removed." in result.stderr
    assert_nothing_is_touched(mac, before)


def test_a_named_user_is_removed_though_nobody_can_tell_who_else_has_a_part(mac, install):
    installation = install("ann", loads=False)
    mac.refuse("dscl")
    result = mac.run(UNINSTALL, "ann", uid=0)
    assert result.returncode == 0 and "Whether others have a part is not known" in result.stderr
    assert installation.left() == [] and "Left" not in result.stdout


def test_a_copy_that_runs_from_elsewhere_does_not_go_on_without_its_service(mac, install, uninstall):
    installation = install("ann", loads=False)
    for copy in (mac.disk / "Volumes/Velmor Pellix/Velmor Pellix.app",
                 installation.home / "Downloads/Velmor Pellix 2.app"):
        mac.start(501, copy)
    mac.start(502, "/Users/bob/Velmor Pellix.app")  # which is another user's
    result = uninstall()
    assert (result.returncode, result.stderr) == (0, "") and "Quit Velmor Pellix" in result.stdout
    assert [line.partition("/")[0] for line in mac.processes()] == ["502 "]


def test_all_users_are_also_those_with_a_small_part(mac):
    left = mac.home("zoe") / f"Library/Caches/{DOMAIN}"
    left.mkdir(parents=True)
    assert mac.run(UNINSTALL, "--all-users", uid=0).returncode == 0
    assert not left.exists()


def test_the_part_of_an_account_of_the_system_is_not_one(mac):
    link = mac.disk / "var/root/Library/Application Support/VelmorPellix"
    link.mkdir(parents=True)
    assert mac.run(UNINSTALL, "--all-users", uid=0).returncode == 0
    assert link.exists()


def test_whose_part_remains_is_said(mac, install):
    install("ann", loads=False), install("bob", loads=False)
    shown = mac.run(UNINSTALL, "ann", "--dry-run", uid=0)
    result = mac.run(UNINSTALL, "ann", uid=0)
    assert shown.returncode == result.returncode == 0
    assert "Would be left: the part of bob. --all-users removes it too.\n" in shown.stdout
    assert "Left: the part of bob. --all-users removes it too.\n" in result.stdout


@pytest.mark.parametrize("user", ["ann", "bob"])
def test_the_application_remains_while_a_named_users_part_does(mac, install, user):
    ann, bob = install("ann", loads=False), install("bob", loads=False)
    mac.lock((ann if user == "ann" else bob).agents)
    result = mac.run(UNINSTALL, "ann", "bob", uid=0)
    assert result.returncode == 1 and "The application remains" in result.stderr
    assert ann.application.exists()
    assert list((mac.folder / "receipts").iterdir())
    other = bob if user == "ann" else ann
    assert other.left() == []


def test_a_job_that_cannot_be_stopped_keeps_the_application(mac, install):
    installation = install("ann", loads=False)
    (mac.tools / "launchctl").unlink()
    (mac.tools / "launchctl").write_text("#!/bin/sh\n")  # succeeds, and every job stays loaded
    (mac.tools / "launchctl").chmod(0o755)
    result = mac.run(UNINSTALL, uid=501)
    assert result.returncode == 1 and f"Could not stop {SERVICE}" in result.stderr
    assert installation.application.exists()


def test_an_application_that_does_not_quit_is_killed_before_anything_is_removed(mac, install, uninstall):
    installation = install("ann", loads=False)
    mac.start(501, installation.application)
    mac.refuse("to-quit")
    result = uninstall()
    assert (result.returncode, result.stderr) == (0, "") and not mac.processes()
    assert "Quit Velmor Pellix" in result.stdout
    after = [call[1] for call in mac.calls()][[call[1] for call in mac.calls()].index("pkill"):]
    assert "defaults" in after and "rm" in after


def test_root_who_is_refused_is_not_sent_for_root(mac, install):
    """As Terminal is, until it is allowed to manage applications."""
    installation = install("ann", loads=False)
    mac.lock(installation.application)
    result = mac.run(UNINSTALL, uid=0)
    assert result.returncode == 1 and "sudo" not in result.stderr
    assert "Permission denied" in result.stderr and "App Management" in result.stderr


def test_what_tests_set_counts_for_nothing_through_sudo(mac):
    mac.run(UNINSTALL, "--help", uid=0, variables={"SUDO_UID": "501"})
    assert mac.calls() == []


def test_a_user_named_twice_is_removed_once(mac, install):
    install("ann", loads=False)
    result = mac.run(UNINSTALL, "ann", "ann", uid=0)
    assert result.returncode == 0 and result.stdout.count("For ann:") == 1


def test_a_user_whose_home_is_missing_keeps_the_application(mac, install):
    installation = install("ann", loads=False)
    mac.home("bob").rmdir()
    result = mac.run(UNINSTALL, "bob", uid=0)
    assert result.returncode == 1 and "There is no home folder" in result.stderr
    assert installation.application.exists()


@pytest.mark.parametrize("home", ["/", "", "relative"])
def test_a_home_that_is_none_is_refused(mac, home):
    result = mac.run(UNINSTALL, uid=501, variables={"HOME": home})
    assert result.returncode == 1
    assert home == "/" or "There is no home folder" in result.stderr


def test_a_home_with_a_line_break_loses_its_part_and_nothing_else(mac, install):
    installation = install("ann", loads=False)
    home = installation.home.with_name("ann\nbob")
    installation.home.rename(home)
    installation.home.mkdir()
    (installation.home / "kept").touch()
    assert mac.run(UNINSTALL, uid=501, variables={"HOME": str(home)}).returncode == 0
    assert not (home / "Library/Application Support/VelmorPellix").exists()
    assert (home / "Library/Preferences/other.plist").exists()
    assert (installation.home / "kept").exists()


def test_a_linked_home_is_cleaned(mac, install):
    installation = install("ann", loads=False)
    real = mac.disk / "Volumes/Data"
    installation.home.rename(real)
    installation.home.symlink_to(real)
    assert mac.run(UNINSTALL, "ann", uid=0).returncode == 0
    assert installation.left() == [] and installation.home.is_symlink()
    assert all((real / path.relative_to(installation.home)).exists()
               for path in installation.neighbours)


def test_nobody_gets_the_application_anew_while_it_is_removed(mac, install):
    install("ann")
    mac.start_process(502, "/System/Library/CoreServices/loginwindow")
    assert mac.run(UNINSTALL, uid=0).returncode == 0
    changes = [call[1:] for call in mac.calls("launchctl", "pkill", "defaults")
               if call[2] not in ("print", "asuser", "read")]
    assert changes[0] == ["launchctl", "bootout", "gui/502/com.velmor.pellix.first-login"]


def test_a_user_who_may_not_remove_the_launch_agent_is_told(mac, install):
    installation = install("ann", loads=False)
    mac.lock(installation.first_login.parent)
    result = mac.run(UNINSTALL, uid=501)
    assert result.returncode == 1 and "run this again with sudo" in result.stderr
    assert "at the next login" in result.stderr
    assert installation.left() == [] and installation.application.exists()


@pytest.mark.parametrize("path", ["disk/Library/LaunchAgents", "disk/Applications", "disk/Users/ann/Library/LaunchAgents",
                                  "disk/Users/ann/Library/Application Support/VelmorPellix",
                                  "disk/Applications/Velmor Pellix.app"])
def test_a_dry_run_does_not_promise_what_the_caller_may_not_do(mac, install, path):
    install("ann", loads=False)
    command = ["/bin/bash", ROOT / UNINSTALL, "--dry-run"]
    if os.geteuid() == 0:  # who may do everything but with this
        command = ["setpriv", "--bounding-set=-dac_override,-dac_read_search", *command]
    (mac.folder / path).chmod(0o555)
    before = everything_on(mac)
    result = mac.run(UNINSTALL, uid=501, command=command)
    (mac.folder / path).chmod(0o755)
    assert result.returncode == 1
    assert "The application would remain" in result.stderr or "run this again with sudo" in result.stderr
    assert f"Would remove {mac.folder / path}/" not in result.stdout
    assert f"Would remove {mac.folder / path}\n" not in result.stdout
    assert result.stdout.endswith("This was a dry run: nothing was removed.\n")
    assert_nothing_is_touched(mac, before)


@pytest.mark.parametrize("tool", ["pkgutil", "defaults"])
def test_a_tool_that_knows_nothing_is_no_failure(mac, install, uninstall, tool):
    install("ann")
    mac.refuse(tool)
    assert uninstall().returncode == 0


def function(name, path):
    return re.search(rf"^{name}\(\) \{{.*?^\}}$", (ROOT / path).read_text(), re.MULTILINE | re.DOTALL)[0]


def test_what_uninstall_and_doctor_have_both_is_the_same():
    for name in ("is_a_person", "user_at_the_screen"):
        assert function(name, UNINSTALL) == function(name, "packaging/macos/doctor")


def test_names_are_those_of_the_sources():
    script = (ROOT / UNINSTALL).read_text()
    paths = (ROOT / "install/Paths.h").read_text()
    info = plistlib.loads((ROOT / "resources/macos/Info.plist.in").read_bytes())
    for variable, constant in (("service_label", "serviceLabel"), ("menubar_label", "menubarLabel")):
        label = re.search(rf'{constant} = "([^"]+)"', paths)[1]
        assert f"local {variable}={label}\n" in script
    assert f"local defaults_domain={info['CFBundleIdentifier']}\n" in script
    assert f"/Applications/{info['CFBundleName']}.app\"" in script
    for path in (UNINSTALL, "packaging/macos/doctor", "script/check-package"):
        assert f'\nexecutable="{info["CFBundleExecutable"]}"\n' in (ROOT / path).read_text(), path
    folder = re.search(r'"(\w+)/"', (ROOT / "install/Paths.cpp").read_text())[1]
    assert f"/Application Support/{folder}\"\n" in script
    assert f"local bundle={info['CFBundleIdentifier']}\n" in script
    agent = plistlib.loads(FIRST_LOGIN.read_bytes())
    assert f"\nfirst_login_label={agent['Label']}\n" in script
    assert FIRST_LOGIN.name == f"{agent['Label']}.plist"
