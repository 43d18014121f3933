"""What the installer package does once its files are in place."""

import plistlib
import time

import pytest

from packaging_harness import ROOT

POSTINSTALL = "packaging/macos/scripts/postinstall"
APPLICATION = "/Applications/Velmor Pellix.app"


def postinstall(mac, volume="/", script=POSTINSTALL):
    result = mac.run(script, "/Volumes/Downloads/Pellix.pkg", "/Applications", volume, "/", uid=0)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


DOCK = "/System/Library/CoreServices/Dock.app/Contents/MacOS/Dock"


def opened_by(mac):
    return [call[0] for call in mac.calls("open")]


def test_the_application_is_opened_for_the_user_at_the_screen(mac):
    postinstall(mac)
    assert mac.calls("open") == [["501", "open", APPLICATION]]
    assert ["0", "launchctl", "asuser", "501", "sudo", "-H", "-u", "#501", "open",
            APPLICATION] in mac.calls("launchctl")


@pytest.mark.parametrize("owner", ["root", "_mbsetupuser"])
def test_nothing_is_opened_when_nobody_is_logged_in(mac, owner):
    mac.at_the_screen(owner)
    postinstall(mac)
    assert opened_by(mac) == []


def test_nothing_is_opened_when_another_disk_is_installed_to(mac):
    mac.start(501, APPLICATION)
    postinstall(mac, volume="/Volumes/New")
    assert opened_by(mac) == [] and len(mac.processes()) == 1


def test_a_running_application_is_replaced_for_everyone_who_runs_it(mac):
    mac.start(501, APPLICATION)
    mac.start(502, APPLICATION)
    mac.start(502, "/Applications/Other.app")
    postinstall(mac)
    assert opened_by(mac) == ["501", "502"]
    assert sorted(line.partition("/Contents")[0] for line in mac.processes()) == [
        f"501 {APPLICATION}", "502 /Applications/Other.app", f"502 {APPLICATION}"]


def test_it_is_reopened_for_its_users_behind_the_login_window(mac):
    mac.start(502, APPLICATION)
    mac.at_the_screen("root")
    postinstall(mac)
    assert opened_by(mac) == ["502"]


def test_an_application_that_does_not_quit_is_killed(mac):
    mac.start(501, APPLICATION)
    mac.refuse("to-quit")
    postinstall(mac)
    assert [call[2] for call in mac.calls("pkill")] == ["-TERM", "-KILL"]
    assert len(mac.processes()) == 1


def test_an_account_without_a_launch_agents_folder_gets_one(mac):
    postinstall(mac)
    assert (mac.home("ann") / "Library/LaunchAgents").is_dir()
    assert not (mac.home("bob") / "Library").exists()


def test_a_refused_opening_is_tried_again_but_does_not_fail_the_installation(mac):
    mac.refuse("open")
    postinstall(mac)
    assert len(opened_by(mac)) == 5


def test_an_opening_that_hangs_is_left_behind(mac, tmp_path):
    (mac.folder / "hang").mkdir()
    (mac.folder / "hang/open").touch()
    hurried = tmp_path / "postinstall"
    hurried.write_text((ROOT / POSTINSTALL).read_text().replace("sleep 30", "/bin/sleep 1"))
    said = postinstall(mac, script=hurried)
    assert opened_by(mac) == ["501"]
    assert not mac.left_running()
    assert said == "The application could not be opened for the user 501 (exit status 137).\n"


def test_what_an_opening_leaves_behind_is_not_waited_for(mac):
    (mac.tools / "open").unlink()
    (mac.tools / "open").write_text("#!/bin/sh\n/bin/sleep 20 &\n")
    (mac.tools / "open").chmod(0o755)
    started = time.monotonic()
    postinstall(mac)
    assert time.monotonic() - started < 15


def with_first_login(mac):
    path = mac.disk / "Library/LaunchAgents/com.velmor.pellix.first-login.plist"
    path.touch()
    for uid in (501, 502):
        mac.start_process(uid, DOCK)
    return str(path)


def loaded(mac):
    return [call[2:] for call in mac.calls("launchctl") if call[2] in ("bootstrap", "kickstart")]


def test_for_others_who_are_logged_in_the_launch_agent_looks(mac):
    path = with_first_login(mac)
    postinstall(mac)
    assert opened_by(mac) == ["501"]
    assert loaded(mac)[0] == ["bootstrap", "gui/502", path]


def test_a_launch_agent_that_was_loaded_before_looks_once_more(mac):
    with_first_login(mac)
    mac.refuse("launchctl-bootstrap")
    postinstall(mac)
    assert loaded(mac)[1:] == [["kickstart", "gui/502/com.velmor.pellix.first-login"]]


def test_an_account_that_is_being_set_up_is_left_to_the_launch_agent(mac):
    path = with_first_login(mac)
    (mac.folder / "processes").write_text(f"502 {DOCK}\n")
    postinstall(mac)
    assert opened_by(mac) == []
    assert loaded(mac) == [["bootstrap", "gui/501", path], ["bootstrap", "gui/502", path]]


def test_the_launch_agent_does_not_look_where_the_application_was_just_opened(mac):
    with_first_login(mac)
    mac.start(502, APPLICATION)
    postinstall(mac)
    assert opened_by(mac) == ["501", "502"] and loaded(mac) == []


def test_the_launch_agent_is_for_nobody_when_it_is_not_there(mac):
    with_first_login(mac)
    (mac.disk / "Library/LaunchAgents/com.velmor.pellix.first-login.plist").unlink()
    postinstall(mac)
    assert loaded(mac) == []


def test_the_application_is_that_of_the_bundle():
    info = plistlib.loads((ROOT / "resources/macos/Info.plist.in").read_bytes())
    script = (ROOT / POSTINSTALL).read_text()
    assert f'application="/Applications/{info["CFBundleName"]}.app"\n' in script
    assert f'/Contents/MacOS/{info["CFBundleExecutable"]}"\n' in script
