"""What assistive technology sees of a program: its windows, texts and buttons over AT-SPI."""

import contextlib

from gi.repository import GLib

from desktop.bus import Bus
from desktop.processes import wait_for

ACCESSIBLE = "org.a11y.atspi.Accessible"
ACTION = "org.a11y.atspi.Action"
COMPONENT = "org.a11y.atspi.Component"
REGISTRY = "org.a11y.atspi.Registry"
ROOT = "/org/a11y/atspi/accessible/root"
SCREEN = 0
STATES = {"enabled": 8, "focused": 12, "showing": 25, "visible": 30, "default": 39}


class Node:
    def __init__(self, bus, service, path):
        self.bus, self.service, self.path = bus, service, path

    def call(self, interface, method, signature="()", *arguments):
        return self.bus.call(self.service, self.path, interface, method, signature, *arguments)

    @property
    def name(self):
        return self.bus.get(self.service, self.path, ACCESSIBLE, "Name")

    @property
    def description(self):
        return self.bus.get(self.service, self.path, ACCESSIBLE, "Description")

    @property
    def role(self):
        return self.call(ACCESSIBLE, "GetRoleName")[0]

    @property
    def children(self):
        return [Node(self.bus, *child) for child in self.call(ACCESSIBLE, "GetChildren")[0]]

    @property
    def parent(self):
        return Node(self.bus, *self.bus.get(self.service, self.path, ACCESSIBLE, "Parent"))

    def has(self, state):
        low, high = self.call(ACCESSIBLE, "GetState")[0]
        return bool((high << 32 | low) >> STATES[state] & 1)

    @property
    def frame(self):
        """x, y, width and height on the screen."""
        return self.call(COMPONENT, "GetExtents", "(u)", SCREEN)[0]

    def press(self):
        self.call(ACTION, "DoAction", "(i)", 0)

    def walk(self):
        yield self
        for child in self.children:
            yield from child.walk()

    def find(self, role=None, name=None):
        """The first descendant of that role and name, or None."""
        for node in self.walk():
            if (role is None or node.role == role) and (name is None or node.name == name):
                return node
        return None

    def texts(self):
        return [node.name for node in self.walk() if node.role == "label" and node.name]


class Accessibility:
    def __init__(self, address):
        session = Bus(address)
        self.bus = Bus(wait_for("the accessibility bus", lambda: self.address(session)))
        session.close()
        self.focused = None
        self.bus.subscribe(self.focus_moved, "org.a11y.atspi.Event.Object", "StateChanged")
        wait_for("the accessibility registry", self.listen)

    @staticmethod
    def address(session):
        with contextlib.suppress(GLib.Error):
            return session.call("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress")[0]
        return None

    def listen(self):
        """Programs send only what somebody listens to."""
        with contextlib.suppress(GLib.Error):
            self.bus.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                          "StartServiceByName", "(su)", REGISTRY, 0)
            self.bus.call(REGISTRY, "/org/a11y/atspi/registry", REGISTRY, "RegisterEvent", "(sass)",
                          "object:state-changed:focused", [], "")
            return True
        return False

    def focus_moved(self, sender, path, arguments):
        if arguments[0] == "focused" and arguments[1]:
            self.focused = Node(self.bus, sender, path)

    def windows(self, process):
        """The program's windows on the screen; a pop-up menu is none."""
        for application in Node(self.bus, REGISTRY, ROOT).children:
            with contextlib.suppress(GLib.Error):
                if self.bus.process_of(application.service) == process:
                    return [window for window in application.children if window.has("showing")]
        return []

    def window(self, process, title=None, timeout=10.0):
        """The newest window, or the newest of that title."""
        def look():
            return [window for window in self.windows(process)
                    if title is None or window.name == title]
        return wait_for(f"a window {title or ''}", look, timeout)[-1]

    def close(self):
        self.bus.close()
