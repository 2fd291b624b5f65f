#!/usr/bin/python3
# A stand-in for GNOME Shell's org.gtk.Notifications on the test's bus.
#
# It keeps the banners it is given and, when told to click one (the extra
# method test.Desktop.Click), does what the shell does on a body click: calls
# org.freedesktop.Application.ActivateAction on the application id, which
# makes the bus start the program when nothing holds that name. Unlike the
# shell it keeps a clicked banner, so that a second click reaches the program
# and the program alone must answer it once.
import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

IFACE = "org.gtk.Notifications"


class Shell(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/gtk/Notifications")
        self.bus, self.banners = bus, {}

    @dbus.service.method(IFACE, in_signature="ssa{sv}")
    def AddNotification(self, app, ident, banner):
        self.banners[(str(app), str(ident))] = banner
        print("added", app, ident, flush=True)

    @dbus.service.method(IFACE, in_signature="ss")
    def RemoveNotification(self, app, ident):
        self.banners.pop((str(app), str(ident)), None)

    @dbus.service.method("test.Desktop", in_signature="ss")
    def Click(self, app, ident):
        banner = self.banners[(str(app), str(ident))]
        action, target = banner["default-action"], banner["default-action-target"]
        path = "/" + str(app).replace(".", "/").replace("-", "_")
        self.bus.get_object(str(app), path).ActivateAction(
            str(action)[len("app."):], [target], {}, signature="sava{sv}",
            dbus_interface="org.freedesktop.Application", reply_handler=lambda: None,
            error_handler=lambda e: print("activate failed:", e, flush=True))


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
session = dbus.SessionBus()
shell = Shell(session)
name = dbus.service.BusName(IFACE, session)
print("ready", flush=True)
GLib.MainLoop().run()
