"""python3-dbusmock template: the freedesktop ScreenSaver service of a desktop session.

Inhibit hands out increasing cookies; every call is recorded by the mock (Mock.GetCalls).
"""

BUS_NAME = "org.freedesktop.ScreenSaver"
MAIN_OBJ = "/org/freedesktop/ScreenSaver"
MAIN_IFACE = "org.freedesktop.ScreenSaver"
SYSTEM_BUS = False


def load(mock, parameters):
    mock.next_cookie = 41
    mock.AddMethods(MAIN_IFACE, [
        ("Inhibit", "ss", "u", "self.next_cookie += 1\nret = dbus.UInt32(self.next_cookie)"),
        ("UnInhibit", "u", "", ""),
        ("Lock", "", "", ""),
        ("GetActive", "", "b", "ret = False"),
        # For tests: the cookie that the latest Inhibit handed out.
        ("LastCookie", "", "u", "ret = dbus.UInt32(self.next_cookie)"),
    ])
