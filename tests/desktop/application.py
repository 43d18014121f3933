"""The built program: a bundle of its own, its home folder, its runs."""

import configparser
import contextlib
import json
import os
import shutil
import subprocess

from desktop import processes
from desktop.product import SEPARATOR, STARTING
from desktop.session import BAR_HEIGHT

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILT = os.environ.get("PELLIX_BIN", os.path.join(ROOT, "build", "bin"))
STANDIN_GUARD = os.path.join(ROOT, "standin", "velmor-guard")
PROGRAM = "velmor-pellix"

LAUNCHCTL_RECORDER = """#!/usr/bin/python3
import json, sys
with open({log!r}, "a") as file:
    file.write(json.dumps(sys.argv[1:]) + "\\n")
"""

GUARD = """#!/bin/sh
# Answers `id --json` as the test wants, and notes how it was called.
printf '%s\\n' "$*" >> '{folder}/guard.log'
[ "$1" = id ] && exec cat '{folder}/guard.output'
"""


def install_bundle(folder):
    """A copy of the built program, with the stand-in service bundled."""
    copy_bundle(folder)
    shutil.copy(STANDIN_GUARD, os.path.join(folder, "resources", "velmor-guard"))


def copy_bundle(folder):
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(BUILT, folder, symlinks=True)


class Application:
    """velmor-pellix on one desktop, in a copy of build/bin that may be changed at will."""

    def __init__(self, desktop, bundle=None):
        self.desktop = desktop
        self.bundle = bundle or desktop.path("bundle")
        self.home = desktop.home
        self.support = os.path.join(self.home, "Library", "Application Support", "VelmorPellix")
        self.agents = os.path.join(self.home, "Library", "LaunchAgents")
        self.defaults_file = os.path.join(self.home, ".config", "Velmor", "Pellix.conf")
        self.user_id = os.getuid() if desktop.user is None else desktop.user
        self.launchctl_log = desktop.path("launchctl.log")
        self.process = None
        copy_bundle(self.bundle)
        os.makedirs(self.agents, exist_ok=True)

    # Its surroundings --------------------------------------------------------

    def resource(self, *parts):
        return os.path.join(self.bundle, "resources", *parts)

    def remove_resource(self, *parts):
        os.remove(self.resource(*parts))

    def bundle_guard(self, content):
        """Bundles these bytes as the service binary."""
        if isinstance(content, str):
            content = content.encode()
        with open(self.resource("velmor-guard"), "wb") as file:
            file.write(content)
        os.chmod(self.resource("velmor-guard"), 0o755)

    def bundle_standin_guard(self):
        with open(STANDIN_GUARD, "rb") as file:
            self.bundle_guard(file.read())

    def bundle_scripted_guard(self, output='{"device_id": "GEN-guard"}'):
        """Bundles a service binary that prints `output` for `id --json`."""
        self.set_guard_output(output)
        self.bundle_guard(GUARD.format(folder=self.desktop.folder))

    def set_guard_output(self, output):
        if isinstance(output, str):
            output = output.encode()
        with open(self.desktop.path("guard.output"), "wb") as file:
            file.write(output)

    def guard_calls(self):
        return read_lines(self.desktop.path("guard.log"))

    def record_launchctl(self):
        """Puts a tool in launchctl's place that only notes how it was called."""
        with open(os.path.join(self.bundle, "launchctl"), "w", encoding="utf-8") as file:
            file.write(LAUNCHCTL_RECORDER.format(log=self.launchctl_log))

    def use_standin_launchctl(self):
        """Puts the stand-in back that the build bundles."""
        shutil.copy(os.path.join(BUILT, "launchctl"), self.bundle)

    def launchctl_calls(self):
        return [json.loads(line) for line in read_lines(self.launchctl_log)]

    def launchctl(self, *arguments):
        return subprocess.run([os.path.join(self.bundle, "launchctl"), *arguments],
                              env=self.desktop.environment, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=60, check=False)

    def set_defaults(self, **values):
        os.makedirs(os.path.dirname(self.defaults_file), exist_ok=True)
        with open(self.defaults_file, "w", encoding="utf-8") as file:
            file.write("[General]\n")
            file.writelines(f"{key}={value}\n" for key, value in values.items())

    def defaults(self):
        parser = configparser.ConfigParser()
        parser.read(self.defaults_file, encoding="utf-8")
        return dict(parser["General"]) if "General" in parser else {}

    # Its runs ----------------------------------------------------------------

    def start(self, *arguments):
        self.process = self.desktop.start("application", os.path.join(self.bundle, PROGRAM),
                                          *arguments)

    @property
    def pid(self):
        return self.process.pid

    @property
    def running(self):
        return self.process is not None and self.process.poll() is None

    def wait_for_end(self, timeout=10.0):
        """The exit status."""
        with contextlib.suppress(subprocess.TimeoutExpired):
            return self.process.wait(timeout)
        raise processes.TimedOut(f"the end of the application: not within {timeout:g} s")

    def stop(self):
        processes.stop(self.process)
        return self.process.returncode

    def said(self):
        return self.desktop.log("application")

    # Its status item over D-Bus -----------------------------------------------

    def item(self, timeout=10.0):
        """This run's status item in the desktop's tray host."""
        host = self.desktop.host

        def look():
            return [item for item in host.items if host.bus.process_of(item.service) == self.pid]
        return processes.wait_for("the status item", look, timeout)[-1]

    def menu(self, timeout=10.0):
        """The entries of the menu, once there are some."""
        item = self.item(timeout)
        return processes.wait_for("the menu", lambda: item.menu, timeout)

    def titles(self):
        return [SEPARATOR if entry.separator else entry.title for entry in self.menu()]

    def wait_for_titles(self, expected, timeout=10.0):
        with contextlib.suppress(processes.TimedOut):
            processes.wait_for("these titles", lambda: self.titles() == expected, timeout)
        assert self.titles() == expected

    def wait_for_menu_of_service(self):
        """A launch restarts the service, which may come too late for the first poll."""
        processes.wait_for("an answer in the menu", lambda: self.titles()[1] != STARTING, 25)

    # Its icon in a bar, and the menu that it opens there ----------------------

    def bar_icon(self, timeout=10.0):
        """Frame of the icon in the menu bar."""
        def look():
            windows = self.desktop.x_windows("--class", PROGRAM)
            frames = [self.desktop.x_frame(window) for window in windows]
            return [frame for frame in frames if frame[1] < BAR_HEIGHT and frame[2] > 1]
        return processes.wait_for("the icon in the menu bar", look, timeout)[0]

    def open_menu(self):
        """Clicks on the icon, until there is a menu to open."""
        x, y, width, height = self.bar_icon()
        for _attempt in range(5):
            self.desktop.click(x + width // 2, y + height - 3)
            with contextlib.suppress(processes.TimedOut):
                return processes.wait_for("an open menu", self.popups, 1)
        raise processes.TimedOut("a click on the icon opens no menu")

    def popups(self):
        """The X windows of this program that no window manager manages: menus and tooltips."""
        return [window for window in self.desktop.x_windows("--class", PROGRAM)
                if self.desktop.x_frame(window)[3] > BAR_HEIGHT and
                b"not found" in self.desktop.run("xprop", "-id", window, "WM_STATE")]

    def read_open_menu(self):
        """The entries of the menu on the screen, as assistive technology reads them.

        The first key that moves the selection makes the menu known.
        """
        accessibility = self.desktop.accessibility
        accessibility.focused = None
        self.desktop.press("Down")
        item = processes.wait_for("the open menu", lambda: accessibility.focused)
        return item.parent.children

    # Its windows -------------------------------------------------------------

    def window(self, title=None, timeout=10.0):
        return self.desktop.accessibility.window(self.pid, title, timeout)

    def windows(self):
        return self.desktop.accessibility.windows(self.pid)


def read_lines(path):
    with contextlib.suppress(FileNotFoundError), open(path, encoding="utf-8") as file:
        return file.read().splitlines()
    return []
