#!/usr/bin/python3
"""A stand-in for GNOME Shell's org.gtk.Notifications on the test's bus.

It keeps the banners it is given and, when told to click one (the extra
method test.Desktop.Click), does what the shell does: calls
org.freedesktop.Application.ActivateAction on the application id, which
makes the bus start the program when nothing holds that name. Unlike the
shell it keeps a clicked banner, so that a second click reaches the program
and the program alone must answer it once."""
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

IFACE = "org.gtk.Notifications"


class Shell(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/gtk/Notifications")
        self.bus = bus
        self.banners = {}

    @dbus.service.method(IFACE, in_signature="ssa{sv}")
    def AddNotification(self, app, ident, banner):
        self.banners[(str(app), str(ident))] = banner
        print("added", app, ident, sorted(str(k) for k in banner), flush=True)

    @dbus.service.method(IFACE, in_signature="ss")
    def RemoveNotification(self, app, ident):
        self.banners.pop((str(app), str(ident)), None)

    # A body click ("" as button) or a click on the button of that action.
    @dbus.service.method("test.Desktop", in_signature="sss")
    def Click(self, app, ident, button):
        banner = self.banners.get((str(app), str(ident)))
        if banner is None:
            print("click on a banner never shown", flush=True)
            return
        if button:
            picked = [b for b in banner.get("buttons", []) if b["target"][1] == button]
            action, target = picked[0]["action"], picked[0]["target"]
        else:
            action, target = banner["default-action"], banner["default-action-target"]
        path = "/" + str(app).replace(".", "/").replace("-", "_")
        app_object = self.bus.get_object(str(app), path)
        app_object.ActivateAction(str(action)[len("app."):], [target], {}, signature="sava{sv}",
                                  dbus_interface="org.freedesktop.Application",
                                  reply_handler=lambda: None,
                                  error_handler=lambda e: print("activate failed:", e, flush=True))


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
session = dbus.SessionBus()
shell = Shell(session)
name = dbus.service.BusName(IFACE, session)
print("ready", flush=True)
GLib.MainLoop().run()
