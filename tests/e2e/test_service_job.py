"""The whole pair: the application, and the stand-in service that the launchd stand-in supervises.

The service's port stands in its property list, so one such test runs at a time.
"""

import os
import signal
import socket
import urllib.request

import pytest

from desktop import processes, product
from desktop.processes import wait_for
from desktop.service import answers, require_free

STATUS = f"http://127.0.0.1:{product.PORT}/status.json"


@pytest.fixture
def port():
    """The service's port, ours alone: a name that disappears with us, however we end, says so."""
    def succeeds(call, *arguments):
        try:
            call(*arguments)
        except OSError:
            return False
        return True

    with socket.socket(socket.AF_UNIX) as name:
        wait_for("the turn", lambda: succeeds(name.bind, "\0velmor-pellix-8787"), 180)
        wait_for("the port", lambda: succeeds(require_free, product.PORT), 60)
        yield


@pytest.fixture
def application(application_on, port, stack):
    application = application_on(tray=True)
    application.use_standin_launchctl()
    application.bundle_standin_guard()
    application.set_defaults(vlx_welcomed="true")
    application.desktop.environment["LAUNCHCTL_THROTTLE_INTERVAL"] = "1"
    stack.callback(application.launchctl, "shutdown")
    return application


def guards(application):
    """The running services: process IDs."""
    found = []
    for pid in processes.running_with("HOME", application.home):
        try:
            with open(f"/proc/{pid}/cmdline", "rb") as file:
                arguments = file.read().decode().split("\0")
        except OSError:
            continue
        if application.installed_guard in arguments and "run" in arguments:
            found.append(pid)
    return found


def launch(application):
    application.start()
    application.wait_for_menu_of_service()
    assert len(guards(application)) == 1


def test_a_killed_service_comes_back(application):
    launch(application)
    for _time in range(2):
        [guard] = guards(application)
        os.kill(guard, signal.SIGKILL)
        wait_for("another service", lambda: guards(application) not in ([], [guard]))
        wait_for("its answer", lambda: answers(STATUS))


def test_the_next_launch_runs_the_bundles_new_binary(application):
    launch(application)
    [older] = guards(application)
    application.stop()
    with open(application.resource("velmor-guard"), encoding="utf-8") as file:
        first, rest = file.read().split("\n", 1)
    application.bundle_guard(f'{first}\nimport os\nos.environ["VLX_DEVICE_ID"] = "GEN-new"\n{rest}')
    launch(application)
    assert guards(application) != [older]
    assert application.titles()[product.ID_ROW] == "GEN-new"
    with urllib.request.urlopen(STATUS, timeout=5) as answer:
        assert b"GEN-new" in answer.read()


def test_quitting_leaves_the_service_running(application):
    launch(application)
    before = guards(application)
    application.item().click("Quit Pellix")
    application.window(product.WINDOW_TITLE)
    application.desktop.settled_picture()
    application.desktop.press("Return")
    assert application.wait_for_end() == 0
    assert guards(application) == before
    assert answers(STATUS)


def test_the_service_gets_its_arguments_environment_and_logs(application):
    application.bundle_guard("#!/bin/sh\n[ $1 = id ] && exec echo GEN-x\n"
                             'echo "$*, quiet $VLX_QUIET"\necho trouble >&2\nexec sleep 1000\n')
    application.start()
    application.wait_for_titles(product.menu("offline", None, "GEN-x"))

    def log(name):
        with open(os.path.join(application.support, "logs", name), encoding="ascii") as file:
            return set(file.read().splitlines())
    wait_for("the logs", lambda: log("launchd.out.log") and log("launchd.err.log"))
    assert log("launchd.out.log") == {"run --port 8787, quiet 1"}
    assert log("launchd.err.log") == {"trouble"}
