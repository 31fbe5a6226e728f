#!/usr/bin/python3
"""A stand-in for GNOME's portal, which Mutter alone has none of: its shortcut is pressed by SIGUSR1 and let go by
SIGUSR2, and the keys that it is asked for are typed by Mutter's own remote desktop."""
import signal

from gi.repository import Gio, GLib

INTERFACES = """<node>
<interface name="org.freedesktop.portal.GlobalShortcuts">
  <method name="CreateSession"><arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
  <method name="BindShortcuts"><arg type="o" direction="in"/><arg type="a(sa{sv})" direction="in"/>
    <arg type="s" direction="in"/><arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
</interface>
<interface name="org.freedesktop.portal.RemoteDesktop">
  <method name="CreateSession"><arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
  <method name="SelectDevices"><arg type="o" direction="in"/><arg type="a{sv}" direction="in"/>
    <arg type="o" direction="out"/></method>
  <method name="Start"><arg type="o" direction="in"/><arg type="s" direction="in"/><arg type="a{sv}" direction="in"/>
    <arg type="o" direction="out"/></method>
  <method name="NotifyKeyboardKeycode"><arg type="o" direction="in"/><arg type="a{sv}" direction="in"/>
    <arg type="i" direction="in"/><arg type="u" direction="in"/></method>
</interface></node>"""
PATH = "/org/freedesktop/portal/desktop"
MUTTER = "org.gnome.Mutter.RemoteDesktop"
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
shortcuts = []  # the session and the one shortcut's name, for each that was bound


def mutter(path, interface, method, arguments=None):
    return bus.call_sync(MUTTER, path, interface, method, arguments, None, Gio.DBusCallFlags.NONE, -1, None)


remote = mutter("/org/gnome/Mutter/RemoteDesktop", MUTTER, "CreateSession")[0]
mutter(remote, MUTTER + ".Session", "Start")
for is_down in True, False:  # Shift: the seat has no keyboard before its first key
    mutter(remote, MUTTER + ".Session", "NotifyKeyboardKeycode", GLib.Variant("(ub)", (42, is_down)))


def called(_, sender, path, interface, method, arguments, invocation):
    arguments = arguments.unpack()
    if method == "NotifyKeyboardKeycode":
        mutter(remote, MUTTER + ".Session", method, GLib.Variant("(ub)", (arguments[2], arguments[3])))
        return invocation.return_value(None)
    token = arguments[-1].get("handle_token", "none")
    request = f"{PATH}/request/{sender[1:].replace('.', '_')}/{token}"
    results = {"session_handle": GLib.Variant("s", f"{PATH}/session/{interface.split('.')[-1]}")}
    if method == "BindShortcuts":
        name = arguments[1][0][0]
        shortcuts.append((arguments[0], name))
        bound = [(name, {"trigger_description": GLib.Variant("s", "Alt+Space")})]
        results["shortcuts"] = GLib.Variant("a(sa{sv})", bound)
    invocation.return_value(GLib.Variant("(o)", (request,)))
    bus.emit_signal(None, request, "org.freedesktop.portal.Request", "Response",
                    GLib.Variant("(ua{sv})", (0, results)))


def press(member):
    for session, name in shortcuts:
        bus.emit_signal(None, PATH, "org.freedesktop.portal.GlobalShortcuts", member,
                        GLib.Variant("(osta{sv})", (session, name, 0, {})))
    return True


for interface in Gio.DBusNodeInfo.new_for_xml(INTERFACES).interfaces:
    bus.register_object(PATH, interface, called)
Gio.bus_own_name_on_connection(bus, "org.freedesktop.portal.Desktop", Gio.BusNameOwnerFlags.NONE)
GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR1, press, "Activated")
GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR2, press, "Deactivated")
GLib.MainLoop().run()
