"""A StatusNotifierItem host: what a modern panel sees and does."""

import time
from dataclasses import dataclass

from gi.repository import GLib

from desktop.bus import Bus
from desktop.processes import wait_for

WATCHER = "org.kde.StatusNotifierWatcher"
WATCHER_PATH = "/StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"

# Clients look a property up only if it is listed here.
WATCHER_XML = f"""
<node><interface name="{WATCHER}">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
  <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
  <signal name="StatusNotifierItemUnregistered"><arg type="s"/></signal>
  <signal name="StatusNotifierHostRegistered"/>
</interface></node>
"""


@dataclass(frozen=True)
class Entry:
    """One entry of a menu. `label` is what travels, `title` what a host shows of it."""
    number: int
    label: str
    enabled: bool
    separator: bool
    key: str

    @property
    def title(self):
        return "\0".join(part.replace("_", "") for part in self.label.split("__")).replace("\0", "_")


class Item:
    """A program's status item, asked afresh for everything."""

    def __init__(self, bus, service, path):
        self.bus, self.service, self.path = bus, service, path

    def __getitem__(self, name):
        return self.bus.get(self.service, self.path, ITEM, name)

    @property
    def tooltip(self):
        _icon, _pixmaps, title, text = self["ToolTip"]
        return title if not text else f"{title}\n{text}"

    @property
    def icon(self):
        """The largest drawing: its width and its pixels as (alpha, red, green, blue)."""
        width, _height, data = max(self["IconPixmap"])
        return width, list(zip(data[0::4], data[1::4], data[2::4], data[3::4]))

    def call_menu(self, method, signature, *arguments):
        return self.bus.call(self.service, self["Menu"], MENU, method, signature, *arguments)

    @property
    def menu(self):
        """The entries, read as a host does before it shows them."""
        self.call_menu("AboutToShow", "(i)", 0)
        _revision, (_number, _properties, children) = self.call_menu(
            "GetLayout", "(iias)", 0, -1, [])
        return [self.entry(*child) for child in children if child[1].get("visible", True)]

    @staticmethod
    def entry(number, properties, _children):
        key = "+".join(properties.get("shortcut", [[]])[0])
        return Entry(number, properties.get("label", ""), properties.get("enabled", True),
                     properties.get("type") == "separator", key)

    def click(self, title):
        entry = next(entry for entry in self.menu if entry.title == title)
        self.click_number(entry.number)

    def click_number(self, number):
        self.call_menu("Event", "(isvu)", number, "clicked", GLib.Variant("i", 0),
                       int(time.time()) & 0x7FFFFFFF)

    def activate(self):
        """What a host that reads no menus sends for a click."""
        self.bus.call(self.service, self.path, ITEM, "Activate", "(ii)", 0, 0)


class Host:
    def __init__(self, address):
        self.bus = Bus(address)
        self.services = []
        self.bus.export(WATCHER_PATH, WATCHER_XML, {
            "RegisterStatusNotifierItem": self.register,
            "RegisterStatusNotifierHost": lambda sender, name: None,
        }, {
            "RegisteredStatusNotifierItems": lambda: GLib.Variant("as", [
                service + path for service, path in self.services]),
            "IsStatusNotifierHostRegistered": lambda: GLib.Variant("b", True),
            "ProtocolVersion": lambda: GLib.Variant("i", 0),
        })
        self.bus.own_name(WATCHER)
        self.bus.emit(WATCHER_PATH, WATCHER, "StatusNotifierHostRegistered")

    def register(self, sender, name):
        service, path = (sender, name) if name.startswith("/") else (name, "/StatusNotifierItem")
        self.services.append((service, path))
        self.bus.emit(WATCHER_PATH, WATCHER, "StatusNotifierItemRegistered", "(s)", service + path)

    @property
    def items(self):
        return [Item(self.bus, service, path) for service, path in self.services
                if self.bus.has_owner(service)]

    def item(self, timeout=10.0):
        return wait_for("a status item", lambda: self.items, timeout)[-1]

    def be_busy(self, seconds):
        """Answers nobody for so long, and then all."""
        GLib.idle_add(time.sleep, seconds)

    def close(self):
        self.bus.close()
