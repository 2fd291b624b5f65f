#!/usr/bin/python3
"""A bare org.freedesktop.Notifications on the bus DBUS_SESSION_BUS_ADDRESS
names: it takes every banner and appends its summary to the file named by
the first argument, which it creates once it owns the name, so a test sees
the notices a recorder posts without a desktop to show them."""
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

IFACE = "org.freedesktop.Notifications"


class Service(dbus.service.Object):
    @dbus.service.method(IFACE, out_signature="ssss")
    def GetServerInformation(self):
        return ("stand-in", "tests", "1", "1.2")

    @dbus.service.method(IFACE, out_signature="as")
    def GetCapabilities(self):
        return ["body"]

    @dbus.service.method(IFACE, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app, replaces, icon, summary, body, actions, hints, timeout):
        with open(sys.argv[1], "a") as titles:
            print(summary, file=titles)
        return 1

    @dbus.service.method(IFACE, in_signature="u")
    def CloseNotification(self, ident):
        pass


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
name = dbus.service.BusName(IFACE, bus)
Service(bus, "/org/freedesktop/Notifications")
open(sys.argv[1], "a").close()
GLib.MainLoop().run()
