"""The built program: a bundle of its own, its home folder, its runs."""

import configparser
import contextlib
import json
import os
import shutil
import subprocess

from desktop import files, processes
from desktop.product import POLL_INTERVAL, SEPARATOR, STARTING
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


class Installation:
    """A copy of build/bin, to be changed at will, and what it installs into its home folder."""

    def __init__(self, folder, home):
        self.bundle = folder
        self.home = home
        self.support = os.path.join(home, "Library", "Application Support", "VelmorPellix")
        self.agents = os.path.join(home, "Library", "LaunchAgents")
        self.installed_guard = os.path.join(self.support, "velmor-guard")
        # In the order in which they are written.
        self.installed_files = [os.path.join(self.support, "managed.json"), self.installed_guard,
                                os.path.join(self.agents, "com.velmor.pellix.plist"),
                                os.path.join(self.agents, "com.velmor.pellix.menubar.plist")]
        self.defaults_file = os.path.join(home, ".config", "Velmor", "Pellix.conf")
        copy_bundle(folder)
        os.makedirs(self.agents, exist_ok=True)

    @property
    def executable(self):
        return os.path.join(self.bundle, PROGRAM)

    @property
    def launchctl_tool(self):
        return os.path.join(self.bundle, "launchctl")

    def resource(self, *parts):
        return os.path.join(self.bundle, "resources", *parts)

    def remove_resource(self, *parts):
        os.remove(self.resource(*parts))

    def bundle_guard(self, content):
        """Bundles this as the service binary."""
        files.write_program(content, self.resource("velmor-guard"))

    def set_defaults(self, **values):
        files.write("[General]\n" + "".join(f"{key}={value}\n" for key, value in values.items()),
                    self.defaults_file)

    def installed_content(self, root=""):
        """What each installed file holds, by its path; None where there is none. `root` leads to
        the disk that it is on."""
        content = dict.fromkeys(self.installed_files)
        for path in content:
            with contextlib.suppress(FileNotFoundError):
                content[path] = files.read(root + path)
        return content


class Application(Installation):
    """velmor-pellix on one desktop."""

    def __init__(self, desktop, bundle=None):
        super().__init__(bundle or desktop.path("bundle"), desktop.home)
        self.desktop = desktop
        self.user_id = os.getuid() if desktop.user is None else desktop.user
        self.launchctl_log = desktop.path("launchctl.log")
        self.process = None

    # Its surroundings --------------------------------------------------------

    def bundle_standin_guard(self):
        self.bundle_guard(files.read(STANDIN_GUARD))

    def bundle_scripted_guard(self, output='{"device_id": "GEN-guard"}'):
        """Bundles a service binary that prints `output` for `id --json`."""
        self.set_guard_output(output)
        self.bundle_guard(GUARD.format(folder=self.desktop.folder))

    def set_guard_output(self, output):
        files.write(output, self.desktop.path("guard.output"))

    def guard_calls(self):
        return files.read_lines(self.desktop.path("guard.log"))

    def record_launchctl(self):
        """Puts a tool in launchctl's place that only notes how it was called."""
        files.write_program(LAUNCHCTL_RECORDER.format(log=self.launchctl_log), self.launchctl_tool)

    def use_standin_launchctl(self):
        """Puts the stand-in back that the build bundles."""
        shutil.copy(os.path.join(BUILT, "launchctl"), self.bundle)

    def launchctl_calls(self):
        return [json.loads(line) for line in files.read_lines(self.launchctl_log)]

    def launchctl(self, *arguments):
        return subprocess.run([self.launchctl_tool, *arguments],
                              env=self.desktop.environment, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=60, check=False)

    def defaults(self):
        parser = configparser.ConfigParser()
        parser.read(self.defaults_file, encoding="utf-8")
        return dict(parser["General"]) if "General" in parser else {}

    # Its runs ----------------------------------------------------------------

    def start(self, *arguments, wrapper=()):
        """`wrapper` is a command that starts the program in its turn."""
        self.process = self.desktop.start("application", *wrapper, self.executable, *arguments)

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
        processes.wait_for("an answer in the menu", lambda: self.titles()[1] != STARTING,
                           POLL_INTERVAL + 5)

    # Its icon in a bar, and the menu that it opens there ----------------------

    def bar_icon(self, timeout=10.0):
        """Frame of the icon in the menu bar."""
        def look():
            frames = [self.desktop.x_frame(window) for window in self.x_windows()]
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
        return [window for window in self.x_windows()
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

    def x_windows(self):
        return self.desktop.x_windows("--class", PROGRAM)

    def window(self, title=None, timeout=10.0):
        return self.desktop.accessibility.window(self.pid, title, timeout)

    def windows(self):
        return self.desktop.accessibility.windows(self.pid)

    def wait_for_no_windows(self):
        processes.wait_for("the end of the window", lambda: not self.windows())
