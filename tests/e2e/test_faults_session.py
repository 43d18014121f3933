"""The session falls apart around the application, or asks it to end."""

import contextlib
import os
import random
import signal
import time

import pytest

from desktop import notifier, processes, product
from desktop.files import write_program
from desktop.headless import Headless
from desktop.processes import TimedOut, wait_for
from e2e_harness import SERVICE_ID, wait_for_usual_menu

ENDINGS = [signal.SIGTERM, signal.SIGINT, signal.SIGHUP]


def running(desktop, name):
    """That program of the desktop."""
    [process] = [process for process in desktop.started
                 if name in process.args and process.poll() is None]
    return process


def kill(desktop, name):
    process = running(desktop, name)
    process.kill()
    process.wait()


def show_nothing(application):
    wait_for_usual_menu(application)


def show_window(application):
    wait_for_usual_menu(application)
    application.item().click("Show device ID…")
    application.window(product.WINDOW_TITLE)


def show_quit_alert(application):
    wait_for_usual_menu(application)
    application.item().click("Quit Pellix")
    assert application.window(product.WINDOW_TITLE).texts()[0] == product.QUIT_QUESTION


def show_install_alert(application):
    assert application.window(product.WINDOW_TITLE).texts() == [product.MISSING_GUARD]


SHOWN = [show_nothing, show_window, show_quit_alert, show_install_alert]


@pytest.fixture
def showing(application):
    """The application, started, with that on the screen."""
    def make(show):
        if show is show_install_alert:
            application.remove_resource("velmor-guard")
        application.start()
        show(application)
        return application
    return make


# Asked to end ------------------------------------------------------------------------

@pytest.mark.parametrize("end", ENDINGS)
@pytest.mark.parametrize("show", SHOWN)
def test_a_signal_ends_it_whatever_is_on_the_screen(showing, show, end):
    application = showing(show)
    application.process.send_signal(end)
    assert application.wait_for_end(5) in (0, -end)
    assert application.said() == ""


@pytest.mark.parametrize("end", ENDINGS)
def test_a_signal_ends_it_at_any_moment_of_a_launch(tmp_path, end):
    program = Headless(tmp_path)
    program.bundle_guard(program.guard(0))
    begin = time.monotonic()
    program.launch()
    duration = 1.5 * (time.monotonic() - begin)
    for _launch in range(12):
        process = program.start()
        # Not before it is what it will be: until then, it is a tool of the tests.
        wait_for("the program", lambda: os.readlink(f"/proc/{process.pid}/exe").endswith(
            "velmor-pellix"), interval=0.001)
        time.sleep(random.uniform(0, duration))
        process.send_signal(end)
        assert process.wait(5) in (0, -end)
        with open(program.output, encoding="utf-8") as file:
            assert file.read() == ""
    program.launch()


def test_a_signal_ends_it_while_its_menu_is_open(application_on, service):
    application = application_on(bar="light")
    application.start()
    service.wait_for_requests(1)
    application.open_menu()
    application.process.terminate()
    assert application.wait_for_end(5) in (0, -signal.SIGTERM)
    assert application.said() == ""


def test_what_the_tests_ignore_still_ends_what_they_start():
    """Hang-ups, under nohup and on some runners."""
    before = signal.signal(signal.SIGHUP, signal.SIG_IGN)
    try:
        process = processes.start(["/bin/sh", "-c", "kill -HUP $$"], os.environ)
        assert process.wait(5) == -signal.SIGHUP
    finally:
        signal.signal(signal.SIGHUP, before)


# The display ends ----------------------------------------------------------------------

def expect_quiet_end(application):
    """At once. Xlib writes a line of its own if it is the first to notice."""
    assert application.wait_for_end(5) >= 0, "it crashed"
    assert application.said() == "" or application.said().startswith("XIO:")


@pytest.mark.parametrize("how", ["asked", "killed"])
@pytest.mark.parametrize("show", SHOWN)
def test_without_the_display_it_ends_at_once_and_quietly(showing, show, how):
    application = showing(show)
    if how == "asked":
        application.desktop.end_display()
    else:
        kill(application.desktop, "Xvfb")
    expect_quiet_end(application)


def test_without_the_display_it_ends_also_in_the_middle_of_the_launch(application):
    write_program(f"#!/bin/sh\necho >> '{application.launchctl_log}'\nexec sleep 1000\n",
                  application.launchctl_tool)
    application.start()
    wait_for("launchctl", lambda: os.path.exists(application.launchctl_log))
    kill(application.desktop, "Xvfb")
    expect_quiet_end(application)


# The session bus ends --------------------------------------------------------------------

def poll_again(application, service):
    service.wait_for_requests(2)
    assert application.running


def close_window(application, _service):
    application.desktop.press("Return")
    wait_for("the end of the window", lambda: not application.x_windows())
    assert application.running


def quit_application(application, _service):
    application.desktop.press("Return")
    assert application.wait_for_end() == 0


def go_on_launching(application, service):
    application.desktop.press("Return")
    service.wait_for_requests(1)
    assert application.running


@pytest.mark.parametrize("show, do", [
    (show_nothing, poll_again), (show_window, close_window),
    (show_quit_alert, quit_application), (show_install_alert, go_on_launching),
])
def test_without_the_session_bus_it_goes_on(showing, service, show, do):
    application = showing(show)
    application.desktop.settled_picture()
    kill(application.desktop, "dbus-daemon")
    do(application, service)
    assert application.said() == ""


def test_a_session_bus_that_ends_during_the_launch_ends_nothing_else(application_on, service):
    application = application_on(bar="light")
    application.remove_resource("velmor-guard")
    application.start()
    show_install_alert(application)
    application.desktop.settled_picture()
    kill(application.desktop, "dbus-daemon")
    application.desktop.press("Return")
    service.wait_for_requests(1)
    application.bar_icon()
    assert application.running


@pytest.mark.parametrize("share", range(8))
def test_a_session_bus_that_ends_at_any_moment_of_a_launch_ends_nothing_else(
        application_on, service, share):
    application = application_on()
    begin = time.monotonic()
    application.start()
    service.wait_for_requests(1)
    duration = time.monotonic() - begin
    application.stop()
    application.start()
    time.sleep(random.uniform(0, duration))
    kill(application.desktop, "dbus-daemon")
    service.wait_for_requests(2)
    assert application.running


def test_without_the_session_bus_a_bar_gets_the_icon(application_on, service):
    application = application_on(bar="light")
    kill(application.desktop, "dbus-daemon")
    application.start()
    service.wait_for_requests(1)
    application.bar_icon()
    assert application.said() == ""


# Bars come and go ---------------------------------------------------------------------------

def test_the_item_is_there_whenever_a_host_is(application, service):
    application.start()
    wait_for_usual_menu(application)
    for _time in range(8):
        application.desktop.host.close()
        application.desktop.host = notifier.Host(application.desktop.bus_address)
        wait_for_usual_menu(application)
        application.item().click(SERVICE_ID)
    application.desktop.wait_for_clipboard(SERVICE_ID)
    assert application.said() == ""


def test_hosts_that_go_at_once_are_no_trouble(application, service):
    application.start()
    wait_for_usual_menu(application)
    application.desktop.host.close()
    for _time in range(20):
        notifier.Host(application.desktop.bus_address).close()
    application.desktop.host = notifier.Host(application.desktop.bus_address)
    wait_for_usual_menu(application)
    assert application.said() == ""


def test_the_icon_is_there_whenever_a_bar_is(application_on, service):
    application = application_on(bar="light")
    application.start()
    service.wait_for_requests(1)
    for _time in range(3):
        application.bar_icon()
        kill(application.desktop, "tint2")
        with contextlib.suppress(TimedOut):
            wait_for("the end of the bar", lambda: not application.desktop.x_windows(
                "--class", "tint2"))
        application.desktop.start_bar("light")
    application.open_menu()
    assert [entry.name for entry in application.read_open_menu()][product.ID_ROW] == SERVICE_ID
    assert application.said() == ""


def test_a_window_manager_that_hangs_holds_nothing_up(application, service):
    application.start()
    wait_for_usual_menu(application)
    item = application.item()
    window_manager = running(application.desktop, "openbox")
    window_manager.send_signal(signal.SIGSTOP)
    try:
        service.status["state"] = "revoked"
        wait_for("the next state", lambda: item.tooltip == product.tooltip("revoked"),
                 product.POLL_INTERVAL + 10)
    finally:
        window_manager.send_signal(signal.SIGCONT)
