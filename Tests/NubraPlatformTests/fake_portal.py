#!/usr/bin/python3
"""A stand-in for the desktop portal's GlobalShortcuts, RemoteDesktop and Screenshot interfaces on a private
session bus, with the Request/Response pattern of the real one. A test scripts it through
org.nubra.test.FakePortal at /org/nubra/test: how each method answers, which key the "user" picks in the
dialog, shortcut activations, the picture file a screenshot hands over, and the log of the calls it received.

Usage: fake_portal.py BUS_ADDRESS   (prints "ready" once it owns org.freedesktop.portal.Desktop)
"""
import sys
import time

from gi.repository import Gio, GLib

PATH = "/org/freedesktop/portal/desktop"
SHORTCUTS = "org.freedesktop.portal.GlobalShortcuts"
REMOTE = "org.freedesktop.portal.RemoteDesktop"
SCREENSHOT = "org.freedesktop.portal.Screenshot"
SESSION = "org.freedesktop.portal.Session"
REQUEST = "org.freedesktop.portal.Request"
CONTROL = "org.nubra.test.FakePortal"

XML = f"""<node>
<interface name="{SHORTCUTS}">
  <method name="CreateSession"><arg type="a{{sv}}" direction="in"/><arg type="o" direction="out"/></method>
  <method name="BindShortcuts"><arg type="o" direction="in"/><arg type="a(sa{{sv}})" direction="in"/>
    <arg type="s" direction="in"/><arg type="a{{sv}}" direction="in"/><arg type="o" direction="out"/></method>
  <signal name="Activated"><arg type="o"/><arg type="s"/><arg type="t"/><arg type="a{{sv}}"/></signal>
  <signal name="ShortcutsChanged"><arg type="o"/><arg type="a(sa{{sv}})"/></signal>
  <property name="version" type="u" access="read"/>
</interface>
<interface name="{REMOTE}">
  <method name="CreateSession"><arg type="a{{sv}}" direction="in"/><arg type="o" direction="out"/></method>
  <method name="SelectDevices"><arg type="o" direction="in"/><arg type="a{{sv}}" direction="in"/>
    <arg type="o" direction="out"/></method>
  <method name="Start"><arg type="o" direction="in"/><arg type="s" direction="in"/><arg type="a{{sv}}" direction="in"/>
    <arg type="o" direction="out"/></method>
  <method name="NotifyKeyboardKeycode"><arg type="o" direction="in"/><arg type="a{{sv}}" direction="in"/>
    <arg type="i" direction="in"/><arg type="u" direction="in"/></method>
  <property name="version" type="u" access="read"/>
  <property name="AvailableDeviceTypes" type="u" access="read"/>
</interface>
<interface name="{SCREENSHOT}">
  <method name="Screenshot"><arg type="s" direction="in"/><arg type="a{{sv}}" direction="in"/>
    <arg type="o" direction="out"/></method>
  <property name="version" type="u" access="read"/>
</interface>
<interface name="{SESSION}">
  <method name="Close"/>
  <signal name="Closed"><arg type="a{{sv}}"/></signal>
</interface>
<interface name="{CONTROL}">
  <method name="Reset"/>
  <method name="Offer"><arg type="as" direction="in"/></method>
  <method name="Script"><arg type="s" direction="in"/><arg type="s" direction="in"/></method>
  <method name="Pick"><arg type="s" direction="in"/></method>
  <method name="Picture"><arg type="s" direction="in"/></method>
  <method name="Activate"><arg type="s" direction="in"/><arg type="s" direction="in"/></method>
  <method name="EndSessions"/>
  <method name="Calls"><arg type="as" direction="out"/></method>
</interface>
</node>"""
NODE = Gio.DBusNodeInfo.new_for_xml(XML)
OUTCOMES = {"answer": 0, "cancel": 1, "fail": 2}


class FakePortal:
    def __init__(self, connection):
        self.connection = connection
        self.offered = {}  # interface -> registration id
        self.sessions = {}  # session path -> (interface, registration id)
        self.hung = []  # invocations never answered, kept so that GLib does not answer them for us
        connection.register_object("/org/nubra/test", NODE.lookup_interface(CONTROL), self.on_call, None, None)
        self.reset()

    def reset(self):
        self.calls = []
        self.behaviour = {}
        self.picked = ""
        self.picture = ""
        self.started = set()
        for path in list(self.sessions):
            self.drop_session(path)
        self.offer([SHORTCUTS, REMOTE, SCREENSHOT])

    def offer(self, interfaces):
        for registration in self.offered.values():
            self.connection.unregister_object(registration)
        self.offered = {
            name: self.connection.register_object(PATH, NODE.lookup_interface(name), self.on_call, self.on_property, None)
            for name in interfaces
        }

    def drop_session(self, path):
        self.connection.unregister_object(self.sessions.pop(path)[1])
        self.started.discard(path)

    def log(self, *parts):
        self.calls.append(" ".join(str(part) for part in parts))

    def on_property(self, connection, sender, path, interface, name):
        return GLib.Variant("u", {"version": 1 if interface != REMOTE else 2, "AvailableDeviceTypes": 7}[name])

    @staticmethod
    def object_path(kind, sender, token):
        return f"{PATH}/{kind}/{sender[1:].replace('.', '_')}/{token}"

    def answer(self, key, sender, invocation, options, results):
        """Replies with the request's path, then sends its Response as scripted for `key`."""
        request = self.object_path("request", sender, options.get("handle_token", "unnamed"))
        behaviour = self.behaviour.get(key, "answer")
        if behaviour == "hang":
            self.hung.append(invocation)
            return
        invocation.return_value(GLib.Variant("(o)", (request,)))
        if behaviour == "silent":
            return
        outcome = OUTCOMES[behaviour]
        response = GLib.Variant("(ua{sv})", (outcome, results if outcome == 0 else {}))
        GLib.idle_add(lambda: self.connection.emit_signal(None, request, REQUEST, "Response", response) and False)

    def create_session(self, interface, sender, invocation, options):
        path = self.object_path("session", sender, options["session_handle_token"])
        self.log(f"{interface.rsplit('.', 1)[1]}.CreateSession", path)
        if self.behaviour.get("CreateSession", "answer") == "answer":
            registration = self.connection.register_object(path, NODE.lookup_interface(SESSION), self.on_call, None, None)
            self.sessions[path] = (interface, registration)
        self.answer("CreateSession", sender, invocation, options, {"session_handle": GLib.Variant("s", path)})

    def shortcut_list(self, shortcuts):
        bound = []
        for shortcut_id, properties in shortcuts:
            trigger = self.picked or properties.get("preferred_trigger", "")
            if trigger != "none":
                bound.append((shortcut_id, {"description": GLib.Variant("s", properties.get("description", "")),
                                            "trigger_description": GLib.Variant("s", trigger)}))
        return GLib.Variant("a(sa{sv})", bound)

    def on_call(self, connection, sender, path, interface, method, parameters, invocation):
        args = parameters.unpack()
        if interface == CONTROL:
            self.on_control(method, args, invocation)
        elif method == "CreateSession":
            self.create_session(interface, sender, invocation, args[0])
        elif interface == SESSION:
            self.log("Session.Close", path)
            self.drop_session(path)
            invocation.return_value(None)
        elif method == "BindShortcuts":
            session, shortcuts, _, options = args
            for shortcut_id, properties in shortcuts:
                self.log("GlobalShortcuts.BindShortcuts", session, shortcut_id,
                         properties.get("preferred_trigger", "-"), properties.get("description", ""))
            self.answer("BindShortcuts", sender, invocation, options, {"shortcuts": self.shortcut_list(shortcuts)})
        elif method == "Screenshot":
            options = args[1]
            self.log("Screenshot.Screenshot", f"interactive={options.get('interactive', False)}")
            self.answer("Screenshot", sender, invocation, options, {"uri": GLib.Variant("s", f"file://{self.picture}")})
        elif method == "SelectDevices":
            self.log("RemoteDesktop.SelectDevices", args[0], args[1].get("types", 0))
            self.answer("SelectDevices", sender, invocation, args[1], {})
        elif method == "Start":
            self.log("RemoteDesktop.Start", args[0])
            if self.behaviour.get("Start", "answer") == "answer":
                self.started.add(args[0])
            self.answer("Start", sender, invocation, args[2], {"devices": GLib.Variant("u", 1)})
        elif method == "NotifyKeyboardKeycode":
            if args[0] not in self.started:
                invocation.return_dbus_error("org.freedesktop.DBus.Error.AccessDenied", "session not started")
                return
            self.log("RemoteDesktop.NotifyKeyboardKeycode", args[2], args[3])
            invocation.return_value(None)

    def on_control(self, method, args, invocation):
        reply = None
        if method == "Reset":
            self.reset()
        elif method == "Offer":
            self.offer(args[0])
        elif method == "Script":
            self.behaviour[args[0]] = args[1]
        elif method == "Pick":
            self.picked = args[0]
        elif method == "Picture":
            self.picture = args[0]
        elif method == "Activate":
            session = args[0] or next(
                (path for path, (interface, _) in reversed(self.sessions.items()) if interface == SHORTCUTS), "/")
            self.connection.emit_signal(None, PATH, SHORTCUTS, "Activated",
                                        GLib.Variant("(osta{sv})", (session, args[1], int(time.time() * 1000), {})))
        elif method == "EndSessions":
            for path in list(self.sessions):
                self.connection.emit_signal(None, path, SESSION, "Closed", GLib.Variant("(a{sv})", ({},)))
                self.drop_session(path)
        elif method == "Calls":
            reply = GLib.Variant("(as)", (self.calls,))
        invocation.return_value(reply)


def main():
    connection = Gio.DBusConnection.new_for_address_sync(
        sys.argv[1], Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
    portal = FakePortal(connection)
    loop = GLib.MainLoop()
    Gio.bus_own_name_on_connection(connection, "org.freedesktop.portal.Desktop", Gio.BusNameOwnerFlags.NONE,
                                   lambda *_: print("ready", flush=True), lambda *_: loop.quit())
    connection.connect("closed", lambda *_: loop.quit())
    loop.run()
    del portal


if __name__ == "__main__":
    main()
