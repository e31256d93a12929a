#!/usr/bin/env python3
"""A recording stand-in for the XDG desktop portal's RemoteDesktop interface, on the session bus.

Every call is appended to LOG as one JSON line: {"method": ..., "args": [...]}. Requests answer
through Request objects' Response signals, as the real portal does, after the call returned.
Behaviour is set through files beside LOG: LOG.refuse (Start answers 1, as when the user says
no); LOG.version1 (the interface is of version 1, as on Debian 12: Start grants no restore token). The mock's own method Mock.CloseSessions ends every session with the Closed signal.
Input calls take effect (are recorded) and are answered after a delay that is 40 ms for every
other call and none for the rest: the real portal handles calls concurrently, so calls sent
without waiting for the previous answer come out in another order, here as there.
Usage: portal_mock.py LOG
"""
import json
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

SERVICE = "org.freedesktop.portal.Desktop"
PATH = "/org/freedesktop/portal/desktop"
REMOTE = "org.freedesktop.portal.RemoteDesktop"
PROPS = "org.freedesktop.DBus.Properties"


def plain(value):
    if isinstance(value, (dbus.Dictionary, dict)):
        return {str(k): plain(v) for k, v in value.items()}
    if isinstance(value, (dbus.Array, list, tuple)):
        return [plain(v) for v in value]
    if isinstance(value, (dbus.String, dbus.ObjectPath)):
        return str(value)
    if isinstance(value, dbus.Boolean):
        return bool(value)
    if isinstance(value, (dbus.Int32, dbus.UInt32, dbus.Int64, dbus.UInt64, dbus.Byte)):
        return int(value)
    return value


class Request(dbus.service.Object):
    @dbus.service.signal("org.freedesktop.portal.Request", signature="ua{sv}")
    def Response(self, response, results):
        pass


class Session(dbus.service.Object):
    @dbus.service.signal("org.freedesktop.portal.Session", signature="")
    def Closed(self):
        pass

    @dbus.service.method("org.freedesktop.portal.Session", in_signature="", out_signature="")
    def Close(self):
        pass


class Portal(dbus.service.Object):
    def __init__(self, bus, log):
        super().__init__(bus, PATH)
        self.bus = bus
        self.log = log
        self.sessions = []
        self.requests = []
        self.started = 0

    def record(self, method, *args):
        with open(self.log, "a") as out:
            out.write(json.dumps({"method": method, "args": [plain(a) for a in args]}) + "\n")

    def answer(self, sender, options, response, results):
        token = str(options.get("handle_token", "t"))
        request_path = "/org/freedesktop/portal/desktop/request/%s/%s" % (
            sender[1:].replace(".", "_"), token)
        request = Request(self.bus, request_path)
        self.requests.append(request)
        GLib.idle_add(lambda: (request.Response(dbus.UInt32(response), results), False)[1])
        return dbus.ObjectPath(request_path)

    @dbus.service.method(PROPS, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return self.GetAll(interface)[name]

    def version(self):
        try:
            open(self.log + ".version1").close()
            return 1
        except OSError:
            return 2

    @dbus.service.method(PROPS, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return {"AvailableDeviceTypes": dbus.UInt32(7, variant_level=1),
                "version": dbus.UInt32(self.version(), variant_level=1)}

    @dbus.service.method(REMOTE, in_signature="a{sv}", out_signature="o", sender_keyword="sender")
    def CreateSession(self, options, sender=None):
        self.record("CreateSession", options)
        session_path = "/org/freedesktop/portal/desktop/session/%s/%s" % (
            sender[1:].replace(".", "_"), str(options.get("session_handle_token", "s")))
        self.sessions.append(Session(self.bus, session_path))
        return self.answer(sender, options, 0,
                           {"session_handle": dbus.String(session_path, variant_level=1)})

    @dbus.service.method(REMOTE, in_signature="oa{sv}", out_signature="o", sender_keyword="sender")
    def SelectDevices(self, session, options, sender=None):
        self.record("SelectDevices", session, options)
        return self.answer(sender, options, 0, {})

    @dbus.service.method(REMOTE, in_signature="osa{sv}", out_signature="o", sender_keyword="sender")
    def Start(self, session, parent, options, sender=None):
        self.record("Start", session, parent, options)
        try:
            open(self.log + ".refuse").close()
            return self.answer(sender, options, 1, {})
        except OSError:
            pass
        self.started += 1
        results = {"devices": dbus.UInt32(3, variant_level=1)}
        if self.version() >= 2:
            results["restore_token"] = dbus.String("token-%d" % self.started, variant_level=1)
        return self.answer(sender, options, 0, results)

    def take_effect(self, reply, method, *args):
        self.inputs = getattr(self, "inputs", 0) + 1
        delay = 40 if self.inputs % 2 else 0

        def later():
            self.record(method, *args)
            reply()
            return False
        GLib.timeout_add(delay, later)

    @dbus.service.method(REMOTE, in_signature="oa{sv}iu", out_signature="",
                         async_callbacks=("reply", "error"))
    def NotifyKeyboardKeysym(self, session, options, keysym, state, reply=None, error=None):
        self.take_effect(reply, "NotifyKeyboardKeysym", session, options, keysym, state)

    @dbus.service.method(REMOTE, in_signature="oa{sv}ui", out_signature="",
                         async_callbacks=("reply", "error"))
    def NotifyPointerAxisDiscrete(self, session, options, axis, steps, reply=None, error=None):
        self.take_effect(reply, "NotifyPointerAxisDiscrete", session, options, axis, steps)

    @dbus.service.method("org.freedesktop.DBus.Mock", in_signature="", out_signature="")
    def CloseSessions(self):
        for session in self.sessions:
            session.Closed()
        self.sessions = []


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    portal = Portal(bus, sys.argv[1])
    name = dbus.service.BusName(SERVICE, bus)
    GLib.MainLoop().run()
    del name, portal


if __name__ == "__main__":
    main()
