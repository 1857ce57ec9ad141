#!/usr/bin/python3
"""The panel's side of the D-Bus tray (StatusNotifierItem), for the desktop tests.

Run as a program, this is a stand-in StatusNotifierWatcher on the session bus: it owns
org.kde.StatusNotifierWatcher, claims that a tray host is there (so Qt's QSystemTrayIcon takes its
D-Bus backend), keeps the items registered with it until their bus names go, prints READY once it owns
the name and ITEM <service>/<path> for each item. Imported, it gives start_watcher() and
click_menu_item(), which chooses an item of the tray menu by its label through com.canonical.dbusmenu,
as a panel does when the user clicks it. Needs Debian's python3-gi.
"""
import os
import re
import sys
import time

from gi.repository import Gio, GLib

from desktop_kit import Failure, Lines

WATCHER = "org.kde.StatusNotifierWatcher"
WATCHER_PATH = "/StatusNotifierWatcher"
PROPERTIES = "org.freedesktop.DBus.Properties"
INTERFACE = Gio.DBusNodeInfo.new_for_xml(f"""<node><interface name="{WATCHER}">
  <method name="RegisterStatusNotifierItem"><arg name="service" type="s" direction="in"/></method>
  <method name="RegisterStatusNotifierHost"><arg name="service" type="s" direction="in"/></method>
  <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
  <signal name="StatusNotifierItemUnregistered"><arg type="s"/></signal>
  <signal name="StatusNotifierHostRegistered"/>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
</interface></node>""").interfaces[0]


def serve():
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    items = []

    def announce(signal, item):
        print(f"{'ITEM' if signal.endswith('Registered') else 'GONE'} {item}", flush=True)
        bus.emit_signal(None, WATCHER_PATH, WATCHER, signal, GLib.Variant("(s)", (item,)))

    def method_call(_bus, sender, _path, _interface, method, parameters, invocation):
        if method == "RegisterStatusNotifierItem":
            # A bus name (the item at /StatusNotifierItem there) or an object path of the caller.
            service = parameters.unpack()[0]
            item = sender + service if service.startswith("/") else service + "/StatusNotifierItem"
            if item not in items:
                items.append(item)
                announce("StatusNotifierItemRegistered", item)
        invocation.return_value(None)

    def get_property(_bus, _sender, _path, _interface, name):
        return {"RegisteredStatusNotifierItems": GLib.Variant("as", items),
                "IsStatusNotifierHostRegistered": GLib.Variant("b", True),
                "ProtocolVersion": GLib.Variant("i", 0)}[name]

    def name_owner_changed(_bus, _sender, _path, _interface, _signal, parameters):
        name, _, owner = parameters.unpack()
        for item in [item for item in items if not owner and item.split("/")[0] == name]:
            items.remove(item)
            announce("StatusNotifierItemUnregistered", item)

    bus.register_object(WATCHER_PATH, INTERFACE, method_call, get_property, None)
    bus.signal_subscribe("org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged", "/org/freedesktop/DBus",
                         None, Gio.DBusSignalFlags.NONE, name_owner_changed)
    reply = bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                          GLib.Variant("(su)", (WATCHER, 4)), None, Gio.DBusCallFlags.NONE, -1, None)
    if reply.unpack()[0] != 1:  # 4: do not queue; 1: the primary owner
        sys.exit(f"another StatusNotifierWatcher owns {WATCHER}")
    print("READY", flush=True)
    GLib.MainLoop().run()


def start_watcher(desktop):
    """Starts the stand-in watcher on the desktop's session bus; its process and its output Lines once it
    owns the name."""
    process = desktop.spawn([sys.executable, os.path.abspath(__file__)], capture=True)
    lines = Lines(process)
    lines.expect("READY", 15)
    return process, lines


def _call(bus, service, path, interface, method, arguments, reply):
    return bus.call_sync(service, path, interface, method, arguments, GLib.VariantType(reply),
                         Gio.DBusCallFlags.NONE, 5000, None).unpack()


def _plain(label):
    """A label without its mnemonic marks: Qt's '&' and dbusmenu's '_' (doubled, they stand for themselves)."""
    return re.sub(r"[&_](.)", r"\1", label)


def _find(node, label, ancestors=()):
    """The id of the first visible entry labelled `label` under `node` (id, properties, children), with the
    ids of the menus leading to it; None when there is none."""
    for entry in node[2]:
        if not entry[1].get("visible", True):
            continue
        if _plain(entry[1].get("label", "")) == _plain(label):
            return entry[0], (*ancestors, node[0])
        found = _find(entry, label, (*ancestors, node[0]))
        if found:
            return found
    return None


def _labels(node):
    """The labels of the visible entries under `node`, submenus after their menu."""
    shown = [entry for entry in node[2] if entry[1].get("visible", True)]
    return [entry[1]["label"] for entry in shown if entry[1].get("label")] + [
        label for entry in shown for label in _labels(entry)]


def click_menu_item(label, timeout=5):
    """Clicks the visible entry labelled `label` (mnemonics aside) in the menu of the first item registered
    with the watcher, opening the menus above it first. Waits up to `timeout` seconds for the item and the
    entry to be there; raises Failure saying what is missing when they are not."""
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    deadline = time.monotonic() + timeout
    while True:
        try:
            items = _call(bus, WATCHER, WATCHER_PATH, PROPERTIES, "Get",
                          GLib.Variant("(ss)", (WATCHER, "RegisteredStatusNotifierItems")), "(v)")[0]
            if not items:
                raise LookupError("no tray item is registered with the watcher")
            service, path = items[0].split("/", 1)
            menu = _call(bus, service, "/" + path, PROPERTIES, "Get",
                         GLib.Variant("(ss)", ("org.kde.StatusNotifierItem", "Menu")), "(v)")[0]
            layout = _call(bus, service, menu, "com.canonical.dbusmenu", "GetLayout",
                           GLib.Variant("(iias)", (0, -1, [])), "(u(ia{sv}av))")[1]
            found = _find(layout, label)
            if not found:
                raise LookupError(f"no visible entry labelled {label!r} in the tray menu; it has {_labels(layout)}")
            break
        except (LookupError, GLib.Error) as error:
            if time.monotonic() >= deadline:
                raise Failure(f"cannot click {label!r} in the tray menu: {error}") from None
            time.sleep(0.1)
    entry, menus = found
    try:
        for opened in menus:
            _call(bus, service, menu, "com.canonical.dbusmenu", "AboutToShow", GLib.Variant("(i)", (opened,)), "(b)")
        _call(bus, service, menu, "com.canonical.dbusmenu", "Event",
              GLib.Variant("(isvu)", (entry, "clicked", GLib.Variant("i", 0), 0)), "()")
    except GLib.Error as error:
        raise Failure(f"clicking {label!r} in the tray menu: {error}") from None


if __name__ == "__main__":
    serve()
