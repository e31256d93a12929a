#!/usr/bin/env python3
"""A GTK 3 window for the window and keyboard tests, logging as probe_window does:
  ready 0                                  once the window is shown
  key <keysym hex> <modifiers hex> <text hex>   for every key press but modifier keys
  wheel <up|down>                          for every wheel step
  close                                    when asked to close (it then quits)
  active <1|0>                             when the window gains or loses the activation
  fullscreen <1|0>                         when it enters or leaves full screen
Modifiers are written with Qt's values (Shift 0x2000000, Control 0x4000000, Alt 0x8000000,
Meta 0x10000000) so that both probes log the same line for the same key.
Usage: probe_gtk.py --log FILE [--app-id ID] [--title TEXT]
"""
import argparse
import sys

import gi

gi.require_version("Gtk", "3.0")
gi.require_version("Gdk", "3.0")
from gi.repository import Gdk, GLib, Gtk  # noqa: E402

MODIFIER_KEYS = {
    "Shift_L", "Shift_R", "Control_L", "Control_R", "Alt_L", "Alt_R", "Meta_L", "Meta_R",
    "Super_L", "Super_R", "ISO_Level3_Shift", "ISO_Level5_Shift",
}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--log", required=True)
    parser.add_argument("--app-id", default="velm-gtk-probe")
    parser.add_argument("--title", default="GTK Probe")
    options = parser.parse_args()
    # Without a GtkApplication the Wayland app id is the program name.
    GLib.set_prgname(options.app_id)
    log = open(options.log, "a", buffering=1)

    def record(line):
        log.write(line + "\n")
        log.flush()

    window = Gtk.Window(title=options.title)
    window.set_default_size(320, 200)
    # Smooth scrolling: GTK then reports every axis event as one smooth step, whether the
    # compositor sends wheel clicks or plain amounts (and emulated click events beside them,
    # which are left out so that a step is logged once).
    window.add_events(Gdk.EventMask.SCROLL_MASK | Gdk.EventMask.SMOOTH_SCROLL_MASK)

    def on_key(_widget, event):
        name = Gdk.keyval_name(event.keyval) or ""
        if name in MODIFIER_KEYS:
            return False
        modifiers = 0
        if event.state & Gdk.ModifierType.SHIFT_MASK:
            modifiers |= 0x2000000
        if event.state & Gdk.ModifierType.CONTROL_MASK:
            modifiers |= 0x4000000
        if event.state & Gdk.ModifierType.MOD1_MASK:
            modifiers |= 0x8000000
        if event.state & (Gdk.ModifierType.SUPER_MASK | Gdk.ModifierType.MOD4_MASK):
            modifiers |= 0x10000000
        char = Gdk.keyval_to_unicode(event.keyval)
        text = chr(char).encode().hex() if char else ""
        record("key %x %x %s" % (event.keyval, modifiers, text))
        return True

    def on_scroll(_widget, event):
        if event.direction == Gdk.ScrollDirection.SMOOTH:
            _ok, _dx, dy = event.get_scroll_deltas()
            if dy < 0:
                record("wheel up")
            elif dy > 0:
                record("wheel down")
        return True

    def on_delete(_widget, _event):
        record("close")
        Gtk.main_quit()
        return False

    def on_active(widget, _param):
        record("active %d" % (1 if widget.is_active() else 0))

    def on_state(_widget, event):
        if event.changed_mask & Gdk.WindowState.FULLSCREEN:
            full = bool(event.new_window_state & Gdk.WindowState.FULLSCREEN)
            record("fullscreen %d" % (1 if full else 0))
        return False

    window.connect("notify::is-active", on_active)
    window.connect("window-state-event", on_state)
    window.connect("key-press-event", on_key)
    window.connect("scroll-event", on_scroll)
    window.connect("delete-event", on_delete)
    window.show_all()
    record("ready 0")
    Gtk.main()
    return 0


if __name__ == "__main__":
    sys.exit(main())
