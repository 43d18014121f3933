"""Connections to a private D-Bus, with one thread that serves the objects we export."""

import threading

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

TIMEOUT = 5000  # ms

_loop = None


def _serve():
    """Runs the default main context, on which exported objects are called."""
    global _loop
    if _loop is None:
        _loop = GLib.MainLoop()
        threading.Thread(target=_loop.run, name="D-Bus", daemon=True).start()


class Bus:
    def __init__(self, address):
        _serve()
        flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
                 Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self.connection = Gio.DBusConnection.new_for_address_sync(address, flags, None, None)
        self.connection.set_exit_on_close(False)

    def close(self):
        if not self.connection.is_closed():
            self.connection.close_sync(None)

    def call(self, service, path, interface, method, signature="()", *arguments, timeout=TIMEOUT):
        """The answer as a tuple; raises GLib.Error."""
        return self.connection.call_sync(
            service, path, interface, method, GLib.Variant(signature, arguments), None,
            Gio.DBusCallFlags.NO_AUTO_START, timeout, None).unpack()

    def get(self, service, path, interface, name):
        return self.call(service, path, "org.freedesktop.DBus.Properties", "Get", "(ss)",
                         interface, name)[0]

    def own_name(self, name):
        reply = self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                          "RequestName", "(su)", name, 4)[0]
        if reply != 1:
            raise RuntimeError(f"{name} has an owner already")

    def has_owner(self, name):
        return self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                         "NameHasOwner", "(s)", name)[0]

    def process_of(self, service):
        return self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                         "GetConnectionUnixProcessID", "(s)", service)[0]

    def export(self, path, interface_xml, methods, properties):
        """Answers calls with `methods[name](sender, *arguments)`, which give a Variant or None."""
        info = Gio.DBusNodeInfo.new_for_xml(interface_xml).interfaces[0]

        def call(_connection, sender, _path, _interface, method, parameters, invocation):
            invocation.return_value(methods[method](sender, *parameters.unpack()))

        def get(_connection, _sender, _path, _interface, name):
            return properties[name]()

        self.connection.register_object(path, info, call, get, None)

    def emit(self, path, interface, signal, signature="()", *arguments):
        self.connection.emit_signal(None, path, interface, signal,
                                    GLib.Variant(signature, arguments))

    def subscribe(self, callback, interface, member, path=None):
        """Calls `callback(sender, path, arguments)` on the serving thread."""
        def forward(_connection, sender, sender_path, _interface, _signal, parameters):
            callback(sender, sender_path, parameters.unpack())

        self.connection.signal_subscribe(None, interface, member, path, None,
                                         Gio.DBusSignalFlags.NONE, forward)
