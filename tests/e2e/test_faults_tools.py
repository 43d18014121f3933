"""A service binary and a launchctl that fail in every way: the launch goes on, and ends."""

import os
import shutil
import signal
import time

import pytest

from desktop import product
from desktop.files import write, write_program
from desktop.processes import children, wait_for
from e2e_harness import launchctl_sequence, wait_for_usual_menu

SH = "#!/bin/sh\n"
PYTHON = "#!/usr/bin/python3\n"
ANSWER = '{"device_id": "GEN-answer"}'

# What the binary does, and the identifier that follows; the hardware's if None.
GUARDS = {
    "60 KiB": (f"{SH}head -c 61440 /dev/zero | tr '\\0' x\n", None),
    "60 KiB around an identifier": (
        f"{PYTHON}print('x\\n' * 15000 + 'GEN-amid\\n' + 'y\\n' * 15000)\n", "GEN-amid"),
    "60 KiB to both outputs": (
        f"{PYTHON}import sys\nsys.stderr.write('x' * 61440)\nprint('{ANSWER}' + ' ' * 61440)\n",
        "GEN-answer"),
    "10 MiB": (f"{PYTHON}print('x' * (10 << 20))\n", None),
    "10 MiB around an identifier": (
        f"{PYTHON}print('x\\n' * (5 << 20) + 'GEN-amid\\n')\n", "GEN-amid"),
    "10 MiB of errors": (
        f"{PYTHON}import sys\nsys.stderr.write('x' * (10 << 20))\nprint('{ANSWER}')\n",
        "GEN-answer"),
    "nothing": (f"{SH}exit 0\n", None),
    "nothing at all in the file": ("", None),
    "errors only": (f"{SH}echo '{ANSWER}' >&2\n", None),
    "closes its outputs": (f"{SH}exec >&- 2>&-\nsleep 0.3\n", None),
    "aborts": (f"{SH}kill -ABRT $$\n", None),
    "is killed": (f"{SH}kill -KILL $$\n", None),
    "answers, then crashes": (f"{SH}echo '{ANSWER}'\nkill -SEGV $$\n", "GEN-answer"),
    "answers, then fails": (f"{SH}echo '{ANSWER}'\nexit 255\n", "GEN-answer"),
    "deep nesting": (f"{PYTHON}print('[' * 1000000)\n", None),
    "invalid UTF-8": (f"{SH}printf 'GEN-\\377\\n'\n", None),
    "NUL bytes": (f"{SH}printf '\\0\\0\\0'\n", None),
    "takes a second": (f"{SH}sleep 1\necho '{ANSWER}'\n", "GEN-answer"),
    "never reads, is not read to": (f"{SH}exec < /dev/null\necho '{ANSWER}'\n", "GEN-answer"),
    "reads what there is to read": (f"{SH}cat > /dev/null\necho '{ANSWER}'\n", "GEN-answer"),
    "no shebang": (f"echo '{ANSWER}'\n", None),
    "an interpreter that is missing": (f"#!/nowhere/sh\necho '{ANSWER}'\n", None),
    "its own interpreter": ("#!{guard}\n", None),
    "a program for another machine": (b"\x7fELF\x02\x01\x01" + bytes(100), None),
    "removes itself": (f"{SH}rm \"$0\"\necho '{ANSWER}'\n", "GEN-answer"),
}


@pytest.mark.parametrize("name", GUARDS)
def test_a_guard_that_fails_holds_nothing_up(application, service, name):
    guard, identifier = GUARDS[name]
    if isinstance(guard, str):
        guard = guard.replace("{guard}", application.installed_guard)
    application.bundle_guard(guard)
    service.answer("{}")
    application.start()
    application.wait_for_titles(product.menu("unknown", "never",
                                             identifier or product.hardware_identifier()), 20)
    assert application.windows() == []
    assert application.said() == ""


@pytest.mark.parametrize("leaves", ["(sleep 1000) &", "setsid sleep 1000 &"])
def test_a_guard_that_leaves_a_child_with_its_output_open_holds_nothing_up(application, service,
                                                                         leaves):
    application.bundle_guard(f"{SH}{leaves}\necho '{ANSWER}'\n")
    service.answer("{}")
    application.start()
    application.wait_for_titles(product.menu("unknown", "never", "GEN-answer"), 20)


def test_a_folder_in_place_of_the_installed_guard_is_asked_nothing(application, service):
    """Which stays in its place while the bundle has no binary."""
    application.remove_resource("velmor-guard")
    write(b"x", application.installed_guard, "inside")
    service.answer("{}")
    application.start()
    application.wait_for_titles(product.menu("unknown", "never", product.hardware_identifier()))


def test_a_guard_that_may_not_be_run_is_asked_nothing(application, service):
    """Nor made runnable: only a bundled one gets its rights."""
    application.remove_resource("velmor-guard")
    write(f"{SH}echo '{ANSWER}'\n", application.installed_guard)
    os.chmod(application.installed_guard, 0o644)
    service.answer("{}")
    application.start()
    application.wait_for_titles(product.menu("unknown", "never", product.hardware_identifier()))


@pytest.mark.parametrize("end", ["TERM", "INT"])
def test_a_guard_that_never_ends_does_not_keep_the_application_from_ending(application, end):
    application.bundle_guard(f"{SH}exec sleep 1000\n")
    application.start()
    wait_for("the guard", lambda: os.path.exists(application.installed_guard) and
             children(application.pid))
    application.process.send_signal(getattr(signal, "SIG" + end))
    assert application.wait_for_end(5) != 0
    assert application.said() == ""


# launchctl -----------------------------------------------------------------------------

TOOLS = {
    "exits 1": f"{SH}exit 1\n",
    "is killed": f"{SH}kill -KILL $$\n",
    "is no program": "no program",
    "is empty": "",
    "has no interpreter": "#!/nowhere/sh\n",
    "reads its input": f"{SH}cat > /dev/null\n",
    "leaves a child": f"{SH}sleep 1000 &\n",
}


@pytest.mark.parametrize("name", [*TOOLS, "absent", "not executable", "a folder"])
def test_a_launchctl_that_fails_harms_nothing(application, name):
    tool = application.launchctl_tool
    os.remove(tool)
    if name == "a folder":
        os.mkdir(tool)
    elif name == "not executable":
        write(SH, tool)
        os.chmod(tool, 0o644)
    elif name != "absent":
        write_program(TOOLS[name], tool)
    application.start()
    wait_for_usual_menu(application)
    assert application.windows() == []
    assert sorted(os.listdir(application.agents)) == [
        "com.velmor.pellix.menubar.plist", "com.velmor.pellix.plist"]
    assert application.guard_calls() == ["id --json"]
    assert application.said() == ""


def test_a_slow_launchctl_is_waited_for_each_time(application, service):
    """The menu comes after the registration, however long that takes."""
    tool = application.launchctl_tool
    shutil.move(tool, tool + ".recorder")
    write_program(f"{SH}sleep 5\nexec /usr/bin/python3 \"$0.recorder\" \"$@\"\n", tool)
    begin = time.monotonic()
    application.start()
    service.wait_for_requests(1, 60)
    assert time.monotonic() - begin > 15
    assert application.launchctl_calls() == launchctl_sequence(application)
    wait_for_usual_menu(application)


def test_a_slow_launchctl_does_not_keep_the_application_from_ending(application):
    write_program(f"{SH}exec sleep 1000\n", application.launchctl_tool)
    application.start()
    wait_for("launchctl", lambda: os.path.exists(os.path.join(
        application.agents, "com.velmor.pellix.menubar.plist")) and children(application.pid))
    application.process.terminate()
    assert application.wait_for_end(5) != 0
    assert application.said() == ""
