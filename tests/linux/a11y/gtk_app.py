#!/usr/bin/python3
"""A GTK 3 window for the accessibility tests: a menu bar (with a disabled entry, a submenu and a
separator), a one-line entry, a text area, a list and a button. What is invoked, typed and
pressed goes to the log file, one line each.

With --many N the menu bar holds N entries in all instead: twelve menus that share the rest
(for the menu benchmark).

With --page URL it is a small "browser": it also shows a web document with that address, as
browsers expose their pages; a line "url ADDRESS" on standard input loads another one.

usage: gtk_app.py LOG [--title TEXT] [--app-class NAME] [--page URL] [--many N]
(GTK takes "--class" for itself.)
"""
import sys

import gi

gi.require_version("Gtk", "3.0")
gi.require_version("Atk", "1.0")
from gi.repository import Atk, Gio, GLib, Gtk  # noqa: E402

log_path = sys.argv[1]


def option(name, default=None):
    return sys.argv[sys.argv.index(name) + 1] if name in sys.argv else default


title = option("--title", "GTK Probe")
page_url = option("--page")


def record(line):
    with open(log_path, "a", encoding="utf-8") as log:
        log.write(line + "\n")


def item(label, sensitive=True):
    entry = Gtk.MenuItem.new_with_label(label)
    entry.set_sensitive(sensitive)
    entry.connect("activate", lambda _: record("menu " + label))
    return entry


def menu(label, entries):
    top = Gtk.MenuItem.new_with_label(label)
    sub = Gtk.Menu()
    for entry in entries:
        sub.append(entry)
    sub.connect("show", lambda _: record("open " + label))
    top.set_submenu(sub)
    return top


window = Gtk.Window(title=title)
window.set_wmclass(option("--app-class", "gtkprobe"), option("--app-class", "gtkprobe"))
window.set_default_size(480, 360)
window.connect("destroy", Gtk.main_quit)

recent = menu("Recent", [item("First File"), item("Second File")])
disabled = menu("Disabled Tools", [item("Hidden Tool")])
disabled.set_sensitive(False)
bar = Gtk.MenuBar()
# Names that a client must never see, as on a Mac: the system menu and the services.
bar.append(menu("Apple", [item("About")]))
bar.append(menu("File", [item("New"), item("Locked", sensitive=False), Gtk.SeparatorMenuItem(),
                         recent, disabled, menu("Services", [item("Share")])]))
# Submenus that are never opened before their entries are invoked.
transform = menu("Transform", [])


def fill_transform():
    """Makes the Transform submenu anew, as programs rebuild menus of recent files."""
    sub = Gtk.Menu()
    for entry in (item("Upper"), menu("Case", [item("Title")])):
        sub.append(entry)
    transform.set_submenu(sub)
    sub.show_all()


fill_transform()
bar.append(menu("Edit", [item("Copy"), item("Paste"), transform]))

# A menu built from a menu model with actions, as GtkApplication programs build theirs.
actions = Gio.SimpleActionGroup()
for name in ("bold", "large"):
    action = Gio.SimpleAction.new(name, None)
    action.connect("activate", lambda a, _: record("menu " + a.get_name()))
    actions.add_action(action)
size_model = Gio.Menu()
size_model.append("Large", "probe.large")
format_model = Gio.Menu()
format_model.append("Bold", "probe.bold")
format_model.append_submenu("Size", size_model)
tools_model = Gio.Menu()
tools_model.append_submenu("Format", format_model)
tools = Gtk.MenuItem.new_with_label("Tools")
tools.set_submenu(Gtk.Menu.new_from_model(tools_model))
bar.append(tools)

many = int(option("--many", "0"))
if many:
    bar = Gtk.MenuBar()
    tops = 12
    for index in range(tops):
        count = (many - tops) // tops + (1 if index < (many - tops) % tops else 0)
        bar.append(menu("Menu %d" % (index + 1),
                        [item("Entry %d.%d" % (index + 1, n + 1)) for n in range(count)]))

# The caret waits after the third character, also when the entry takes the focus.
Gtk.Settings.get_default().set_property("gtk-entry-select-on-focus", False)
entry = Gtk.Entry()
entry.set_text("hello world")
entry.set_position(3)
entry.get_accessible().set_name("Search")
entry.connect("changed", lambda e: record("entry " + e.get_text()))

area = Gtk.TextView()
area.get_buffer().set_text("first line\nsecond line")
area.get_accessible().set_name("Notes")
area.get_buffer().connect(
    "changed", lambda b: record("area " + b.get_text(b.get_start_iter(), b.get_end_iter(), True)
                                .replace("\n", "\\n")))

names = Gtk.ListBox()
names.get_accessible().set_name("Names")
for name in ("alpha", "beta"):
    names.add(Gtk.Label(label=name))

button = Gtk.Button(label="Press Me")
button.connect("clicked", lambda _: record("button"))

box = Gtk.Box(orientation=Gtk.Orientation.VERTICAL, spacing=4)
box.pack_start(bar, False, False, 0)
box.pack_start(entry, False, False, 0)
box.pack_start(area, True, True, 0)
box.pack_start(button, False, False, 0)
box.pack_start(names, True, True, 0)


class Page(Atk.Object, Atk.Document):
    """The accessible of a web page: a document with its address."""

    def __init__(self, url):
        super().__init__()
        self.url = url
        self.set_role(Atk.Role.DOCUMENT_WEB)
        self.set_name("Page")

    def do_get_document_attribute_value(self, name):
        return self.url if name == "DocURL" else None

    def do_ref_state_set(self):
        states = Atk.StateSet()
        for state in (Atk.StateType.VISIBLE, Atk.StateType.SHOWING, Atk.StateType.ENABLED):
            states.add_state(state)
        return states


class PageView(Gtk.DrawingArea):
    def __init__(self, url):
        super().__init__()
        self.page = Page(url)
        self.set_size_request(200, 60)

    def do_get_accessible(self):
        if self.page.get_parent() is None and self.get_parent() is not None:
            self.page.set_parent(self.get_parent().get_accessible())
        return self.page


if page_url:
    view = PageView(page_url)
    box.pack_start(view, False, False, 0)




def read_command(source, _):
    """Commands on standard input: "url ADDRESS" (with --page), "rebuild", and "focus entry",
    "focus area" or "focus button"."""
    line = source.readline()
    if not line:
        return False
    if line.startswith("url ") and page_url:
        view.page.url = line[4:].strip()
        record("page " + view.page.url)
    elif line.strip() == "rebuild":
        fill_transform()
        record("rebuilt")
    elif line.startswith("focus "):
        {"entry": entry, "area": area, "button": button}[line.split()[1]].grab_focus()
    return True


GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, read_command)
window.add(box)
window.insert_action_group("probe", actions)


def key(_, event):
    record("key %x" % event.keyval)
    return False


window.connect("key-press-event", key)
window.show_all()


def ready():
    record("ready")
    return False


GLib.idle_add(ready)
Gtk.main()
