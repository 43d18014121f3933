"""The desktop itself: an X server, the buses, a window manager, and a bar or a tray host."""

import contextlib
import fcntl
import glob
import os
import shutil
import stat
import subprocess
import tempfile
import time

from desktop import files, notifier, processes, screen
from desktop.accessibility import Accessibility

PREFIX = "velmor-pellix-desktop-"
LOCK = "lock"

BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
    <allow user="*"/>
  </policy>
</busconfig>
"""

WINDOW_MANAGER_CONFIGURATION = """<?xml version="1.0" encoding="UTF-8"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <focus><focusNew>yes</focusNew></focus>
  <theme><name>Clearlooks</name><titleLayout>LC</titleLayout></theme>
  <desktops><number>1</number><popupTime>0</popupTime></desktops>
  <keyboard>
    <keybind key="A-F4"><action name="Close"/></keybind>
  </keyboard>
  <mouse>
    <context name="Frame"/>
    <context name="Titlebar">
      <mousebind button="Left" action="Press"><action name="Focus"/><action name="Raise"/></mousebind>
    </context>
    <context name="Close">
      <mousebind button="Left" action="Click"><action name="Close"/></mousebind>
    </context>
    <context name="Client">
      <mousebind button="Left" action="Press"><action name="Focus"/><action name="Raise"/></mousebind>
    </context>
  </mouse>
</openbox_config>
"""

BAR_HEIGHT = 28
BAR_COLORS = {"light": "#f4f4f6", "dark": "#2a2c31"}  # what lies behind the icon
BAR_CONFIGURATION = """
rounded = 0
border_width = 0
background_color = {color} 100
panel_items = FS
panel_size = 100% {height}
panel_position = top center horizontal
panel_margin = 0 0
panel_padding = 10 0 8
panel_background_id = 1
panel_layer = normal
panel_dock = 0
wm_menu = 0
strut_policy = follow_size
systray_padding = 4 3 8
systray_background_id = 0
systray_sort = left2right
systray_icon_size = 22
"""

BROWSER_RECORDER = """#!/bin/sh
printf '%s\\n' "$*" >> '{log}'
"""


class Unavailable(Exception):
    """This machine cannot show a desktop."""


def sweep():
    """Removes what desktops left behind whose makers were killed."""
    for folder in glob.glob(os.path.join(tempfile.gettempdir(), PREFIX + "*")):
        with contextlib.suppress(OSError):
            found = os.lstat(folder)
            if os.getuid() not in (0, found.st_uid) or not stat.S_ISDIR(found.st_mode):
                continue
            with open(os.path.join(folder, LOCK), encoding="ascii") as lock:
                fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
                processes.stop_all_with("XDG_RUNTIME_DIR", os.path.join(folder, "runtime"))
                shutil.rmtree(folder, ignore_errors=True)


class Desktop:
    """Everything in a folder of its own under the temporary folder.

    home     the user's home folder; one inside the desktop's own folder by default
    bar      "light" or "dark": a menu bar at the top, with an X11 system tray
    tray     True: a StatusNotifierItem host, as `self.host`
    user     a user ID: run everything as that user, who is bound by permissions as root is not
    """

    def __init__(self, home=None, size=(1024, 640), bar=None, tray=False, user=None):
        sweep()
        self.user = user
        self.size = size
        self.started = []
        self.folder = tempfile.mkdtemp(prefix=PREFIX)
        try:
            self.lock = self.make_lock()
            self.home = home or self.make_folder("home")
            self.runtime = self.make_folder("runtime")
            self.browser_log = self.path("browser.log")
            self.environment = self.make_environment()
            files.write_program(BROWSER_RECORDER.format(log=self.browser_log),
                                self.path("bin", "xdg-open"))
            self.start_display()
            self.start_bus()
            self.start_accessibility()
            self.start_window_manager()
            if bar:
                self.start_bar(bar)
            self.host = notifier.Host(self.bus_address) if tray else None
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_exception):
        self.close()

    def close(self):
        for part in ("accessibility", "host"):
            if getattr(self, part, None):
                with contextlib.suppress(Exception):
                    getattr(self, part).close()
        for process in reversed(self.started):
            processes.stop(process)
        processes.stop_all_with("XDG_RUNTIME_DIR", self.path("runtime"))
        shutil.rmtree(self.folder, ignore_errors=True)
        self.lock.close()

    # Making it ---------------------------------------------------------------

    def path(self, *parts):
        return os.path.join(self.folder, *parts)

    def make_folder(self, name):
        path = self.path(name)
        os.makedirs(path, mode=0o700, exist_ok=True)
        return path

    def make_lock(self):
        """Says that this desktop is in use, until we end. Nobody sees the file unlocked before."""
        lock = open(self.path(LOCK + ".new"), "w", encoding="ascii")
        fcntl.flock(lock, fcntl.LOCK_EX)
        os.rename(lock.name, self.path(LOCK))
        return lock

    def make_environment(self):
        # Sanitizers and coverage are told through the environment what to do.
        handed_on = {name: value for name, value in os.environ.items()
                     if name.startswith(("ASAN_", "GCOV_", "LSAN_", "TSAN_", "UBSAN_"))}
        return handed_on | {
            "GSETTINGS_BACKEND": "memory",
            "HOME": self.home,
            "LANG": "C.UTF-8",
            "PATH": self.path("bin") + ":/usr/local/bin:/usr/bin:/bin",
            "QT_QPA_PLATFORM": "xcb",
            "TMPDIR": self.make_folder("tmp"),
            "XDG_CACHE_HOME": os.path.join(self.home, ".cache"),
            "XDG_CONFIG_HOME": os.path.join(self.home, ".config"),
            "XDG_DATA_HOME": os.path.join(self.home, ".local", "share"),
            "XDG_RUNTIME_DIR": self.runtime,
        }

    def start(self, name, *arguments, **options):
        """A program of the desktop; what it says goes into a log of its own."""
        identity = self.identity()
        with open(self.path(name + ".log"), "ab") as log:
            try:
                process = processes.start(arguments, self.environment, identity, stdout=log,
                                          stderr=log, **options)
            except FileNotFoundError as error:
                raise Unavailable(f"{error.filename} is missing; run script/bootstrap") from error
        self.started.append(process)
        return process

    def start_and_listen(self, name, *arguments):
        """A server whose last argument wants a file descriptor, and what it writes there once it
        is ready."""
        readable, writable = os.pipe()
        with open(readable, encoding="ascii") as answer:
            server = self.start(name, name, *arguments, str(writable), pass_fds=[writable])
            os.close(writable)
            line = answer.readline().strip()
        if not line:
            server.wait()
            raise Unavailable(f"{name} does not start: {self.log(name).strip()}")
        return server, line

    def identity(self):
        """Hands everything over to the desktop's user, and says how to become that one."""
        if self.user is None or self.user == os.getuid():
            return []
        for folder, _folders, names in os.walk(self.folder):
            for path in [folder, *(os.path.join(folder, name) for name in names)]:
                os.chown(path, self.user, self.user, follow_symlinks=False)
        return ["--reuid", str(self.user), "--regid", str(self.user), "--clear-groups"]

    def log(self, name):
        with contextlib.suppress(FileNotFoundError), open(
                self.path(name + ".log"), encoding="utf-8", errors="replace") as file:
            return file.read()
        return ""

    def start_display(self):
        width, height = self.size
        self.display, number = self.start_and_listen(
            "Xvfb", "-screen", "0", f"{width}x{height}x24", "-nolisten", "tcp", "-noreset",
            "-fbdir", self.make_folder("screen"), "-displayfd")
        self.environment["DISPLAY"] = ":" + number

    def end_display(self):
        processes.stop(self.display)

    def start_bus(self):
        configuration = files.write(BUS_CONFIGURATION.format(
            socket=os.path.join(self.runtime, "bus")), self.path("bus.conf"))
        _bus, self.bus_address = self.start_and_listen(
            "dbus-daemon", "--config-file=" + configuration, "--nofork", "--nopidfile",
            "--nosyslog", "--print-address")
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self.bus_address

    def start_accessibility(self):
        self.start("at-spi", "/usr/libexec/at-spi-bus-launcher", "--launch-immediately")
        self.accessibility = Accessibility(self.bus_address)

    def start_window_manager(self):
        self.start("openbox", "openbox", "--config-file",
                   files.write(WINDOW_MANAGER_CONFIGURATION, self.path("openbox.xml")))
        processes.wait_for("the window manager", lambda: b"window id" in self.run(
            "xprop", "-root", "_NET_SUPPORTING_WM_CHECK"))
        self.run("xsetroot", "-solid", "#6d87a6")

    def start_bar(self, bar):
        color = BAR_COLORS[bar]
        self.start("tint2", "tint2", "-c", files.write(
            BAR_CONFIGURATION.format(color=color, height=BAR_HEIGHT), self.path("tint2rc")))
        expected = tuple(bytes.fromhex(color[1:]))
        processes.wait_for("the menu bar", lambda: self.picture().pixel(4, 4) == expected)

    # What a person sees and does ---------------------------------------------

    def run(self, *arguments, **options):
        """One tool in this session: what it prints."""
        return subprocess.run(["/usr/bin/setpriv", *self.identity(), "--", *arguments],
                              env=self.environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=20,
                              check=False, **options).stdout

    def picture(self):
        return screen.read(self.path("screen", "Xvfb_screen0"))

    def settled_picture(self, timeout=3.0):
        """The picture once nothing has moved for a moment."""
        last = self.picture()
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            time.sleep(0.15)
            now = self.picture()
            if now.rows == last.rows:
                break
            last = now
        return last

    def press(self, *keys):
        """Keys by their X names, such as Return or ctrl+q."""
        self.run("xdotool", "key", "--clearmodifiers", *keys)

    def point(self, x, y):
        self.run("xdotool", "mousemove", str(x), str(y))

    def click(self, x, y, button=1):
        self.run("xdotool", "mousemove", str(x), str(y), "click", str(button))

    def x_windows(self, *criteria):
        """The numbers of the visible X windows that xdotool finds."""
        return self.run("xdotool", "search", "--onlyvisible", *criteria).decode().split()

    def x_frame(self, window):
        """x, y, width and height of an X window without its decoration."""
        values = dict(line.split("=", 1) for line in self.run(
            "xdotool", "getwindowgeometry", "--shell", window).decode().split())
        return tuple(int(values[name]) for name in ("X", "Y", "WIDTH", "HEIGHT"))

    def clipboard(self):
        return self.run("xclip", "-selection", "clipboard", "-out", "-target",
                        "UTF8_STRING").decode()

    def wait_for_clipboard(self, text, timeout=10.0):
        processes.wait_for("the copy", lambda: self.clipboard() == text, timeout)

    def fill_clipboard(self, text):
        subprocess.run(["xclip", "-selection", "clipboard", "-in"], env=self.environment,
                       input=text.encode(), stdout=subprocess.DEVNULL, timeout=20, check=True)

    def owns_clipboard(self):
        """Somebody offers something to paste."""
        return bool(self.run("xclip", "-selection", "clipboard", "-out", "-target", "TARGETS"))

    def opened_pages(self):
        return files.read_lines(self.browser_log)
