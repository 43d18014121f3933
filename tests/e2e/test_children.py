"""What the programs that the application starts get to see: the session, and nothing of its own."""

import os

import pytest

from desktop.files import listing, read, write_program
from desktop.processes import wait_for
from e2e_harness import wait_for_usual_menu

# Notes the environment that it was started with.
RECORDER = """#!/bin/sh
cat /proc/$$/environ > '{folder}.part'
mkdir -p '{folder}'
mv '{folder}.part' '{folder}'/$$
"""


def recorded_environments(folder):
    return [dict(entry.split("=", 1) for entry in os.fsdecode(read(folder, name)).split("\0")[:-1])
            for name in listing(folder)]


@pytest.fixture
def children(application):
    """The folders in which the tools of launchd, the service binary and the browser note their
    environments, and how often each of them is started."""
    folders = {}
    for path, count in ((application.launchctl_tool, 3), (application.resource("velmor-guard"), 1),
                        (application.desktop.path("bin", "xdg-open"), 1)):
        folder = application.desktop.path("environments", os.path.basename(path))
        os.makedirs(os.path.dirname(folder), exist_ok=True)
        write_program(RECORDER.format(folder=folder), path)
        folders[folder] = count
    return folders


def expect_children_see(application, children, environment):
    application.start()
    wait_for_usual_menu(application)
    application.item().click("Show status…")
    for folder, count in children.items():
        wait_for(folder, lambda: len(listing(folder)) == count)
        assert recorded_environments(folder) == [environment] * count, folder


@pytest.mark.parametrize("settings", [
    {},
    {"DBUS_FATAL_WARNINGS": "1", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "0"},
    {"DBUS_FATAL_WARNINGS": "", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": ""},
    {"NOT_UTF8": "caf\udce9", "EMPTY": ""},
])
def test_children_see_the_environment_of_the_session(application, children, settings):
    application.desktop.environment.update(settings)
    expect_children_see(application, children, application.desktop.environment)


def test_children_do_not_take_part_in_the_start_of_the_application(application, children):
    """The session's token for that start is used up: it would be taken for the browser's."""
    expected = dict(application.desktop.environment)
    application.desktop.environment["DESKTOP_STARTUP_ID"] = "session-1_TIME1"
    expect_children_see(application, children, expected)
