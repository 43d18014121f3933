"""A disk that is full, things in the way, and rights withdrawn, for an ordinary user.

The files are looked at through the process, which has its own view of the disk.
"""

import os
import shutil
import stat
import subprocess
import sys

import pytest

from desktop import product, without_links
from desktop.files import read, write, write_program
from desktop.processes import wait_for
from e2e_harness import (ORDINARY_USER, expect_alert, expect_installation, expect_whole_files,
                         stray_files, wait_for_usual_menu)

UNSHARE = ["unshare", "--map-current-user", "--keep-caps", "--mount"]
OLDER = b"older\n" * 20

# A small disk of its own in the place of one folder, with the same files in it, filled up. The
# program has no privileges left.
FULL_DISK = """
set -e
cd "$1"
tar -c . > "$TMPDIR/kept.tar"
mount -t tmpfs -o size="$2",mode=755 tmpfs "$1"
cd "$1"
tar -x < "$TMPDIR/kept.tar"
dd if=/dev/zero of=filling bs=4096 2> "$TMPDIR/filled" || :
shift 2
exec setpriv --ambient-caps -all --inh-caps -all "$@"
"""

# Where no disk can be made: no file may become larger than so much, which is refused in the
# middle of a write, too.
SMALL_FILES = """
trap '' XFSZ
ulimit -f "$1"
shift
exec "$@"
"""


@pytest.fixture
def application(application_on):
    application = application_on(tray=True, user=ORDINARY_USER)
    write_older_files(application)
    return application


def write_older_files(application):
    for path in application.installed_files:
        write(OLDER, path)


def can_mount():
    made = subprocess.run([*UNSHARE, "mount", "-t", "tmpfs", "tmpfs", "/mnt"],
                          user=ORDINARY_USER if os.getuid() == 0 else None, check=False,
                          stderr=subprocess.DEVNULL)
    return made.returncode == 0


def expect_whole(application, before, renewed):
    """On the disk that the running application sees. What the files hold."""
    root = f"/proc/{application.pid}/root"
    assert {os.path.basename(path) for path in stray_files(application, root)} <= {"filling"}
    return expect_whole_files(application, before, renewed, root)


@pytest.fixture
def renewed(application):
    """What the files hold after a launch."""
    application.start()
    wait_for_usual_menu(application)
    content = application.installed_content()
    application.stop()
    os.remove(application.launchctl_log)
    write_older_files(application)
    return content


@pytest.mark.parametrize("place", ["support", "agents"])
def test_a_full_disk_is_reported_and_leaves_whole_files(application, renewed, place):
    before = application.installed_content()
    if can_mount():
        wrapper = [*UNSHARE, "sh", "-c", FULL_DISK, "sh", getattr(application, place), "40k"]
        reason = "No space left on device"
    else:
        wrapper = ["sh", "-c", SMALL_FILES, "sh", "0"]
        reason = "File too large"
    application.start(wrapper=wrapper)
    alert = application.window(product.WINDOW_TITLE)
    [text] = alert.texts()
    assert reason in text
    assert "managed.json" in text or place == "agents"
    expect_whole(application, before, renewed)
    assert expect_alert(application) == [text]
    expect_whole(application, before, renewed)
    application.stop()
    application.start()
    wait_for_usual_menu(application)
    expect_installation(application)


def test_a_disk_too_small_for_the_binary_leaves_none_rather_than_half(application, renewed):
    before = application.installed_content()
    large = read(application.resource("velmor-guard")) + b"\nexit\n" + b"x" * (1 << 20)
    application.bundle_guard(large)
    if can_mount():
        wrapper = [*UNSHARE, "sh", "-c", FULL_DISK.replace("dd if", ": dd if"), "sh",
                   application.support, "256k"]
    else:
        wrapper = ["sh", "-c", SMALL_FILES, "sh", "128"]
    application.start(wrapper=wrapper)
    [text] = application.window(product.WINDOW_TITLE).texts()
    assert "velmor-guard" in text
    found = expect_whole(application, before, renewed)
    assert found[application.installed_guard] is None
    managed = application.installed_files[0]
    assert found[managed] == renewed[managed]
    assert expect_alert(application) == [text]
    application.stop()
    application.start()
    wait_for_usual_menu(application)
    expect_installation(application, large)


@pytest.mark.parametrize("home", ["fresh", "older"])
def test_a_file_system_without_links_is_no_hindrance(application_on, home):
    application = application_on(tray=True)
    if home == "older":
        write_older_files(application)
    application.start(wrapper=[sys.executable, without_links.__file__])
    wait_for_usual_menu(application)
    expect_installation(application)
    assert stray_files(application) == []


def test_a_binary_in_use_is_replaced(application):
    """The program that runs goes on with what it was started from."""
    application.start()
    wait_for_usual_menu(application)
    application.stop()
    installed = application.installed_guard
    os.remove(installed)
    write_program(read("/usr/bin/sleep"), installed)
    running = application.desktop.start("running", installed, "1000")
    wait_for("the running binary", lambda: os.readlink(f"/proc/{running.pid}/exe") == installed)
    with pytest.raises(OSError), open(installed, "wb"):
        pass  # it cannot be written to, only replaced
    os.remove(application.launchctl_log)
    application.start()
    wait_for_usual_menu(application)
    expect_installation(application)
    assert running.poll() is None


def test_a_bundled_binary_in_use_is_copied(application):
    application.bundle_guard(read("/usr/bin/sleep"))
    running = application.desktop.start("running", application.resource("velmor-guard"), "1000")
    application.start()
    wait_for_usual_menu(application)
    expect_installation(application)
    assert running.poll() is None


def test_a_file_in_place_of_the_agents_folder_is_reported(application):
    shutil.rmtree(application.agents)
    write(b"kept", application.agents)
    application.start()
    [text] = expect_alert(application)
    assert "Not a directory" in text
    assert read(application.agents) == b"kept"
    assert application.launchctl_calls() == []


def test_a_file_in_place_of_application_support_is_reported(application):
    os.rename(os.path.dirname(application.support), application.desktop.path("aside"))
    write(b"kept", os.path.dirname(application.support))
    application.start()
    [text] = expect_alert(application)
    assert text
    assert read(os.path.dirname(application.support)) == b"kept"


def test_a_folder_bundled_in_place_of_the_binary_is_reported(application):
    application.remove_resource("velmor-guard")
    os.mkdir(application.resource("velmor-guard"))
    application.start()
    [text] = expect_alert(application)
    assert "velmor-guard" in text
    assert application.launchctl_calls() == []


@pytest.mark.parametrize("place", ["home", "support", "agents"])
def test_folders_that_cannot_be_entered_are_reported(application, place):
    folder = getattr(application, place) if place != "home" else os.path.join(
        application.home, "Library")
    mode = stat.S_IMODE(os.stat(folder).st_mode)
    os.chmod(folder, 0)
    try:
        application.start()
        [text] = expect_alert(application)
        assert "ermission" in text
        assert application.launchctl_calls() == []
        application.stop()
    finally:
        os.chmod(folder, mode)
    assert read(application.agents, "com.velmor.pellix.plist") == OLDER
    application.start()
    wait_for_usual_menu(application)
    expect_installation(application)
