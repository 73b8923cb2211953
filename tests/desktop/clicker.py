"""A plain window that fills the screen with one colour and prints each click it receives, so
the tests can tell what lies beneath the panel and whether clicks pass through to it."""
import sys

import gi

gi.require_version('Gtk', '3.0')
from gi.repository import GLib, Gtk  # noqa: E402

from harness import BACKGROUND  # noqa: E402

GLib.set_prgname('clicker')
win = Gtk.Window(title='clicker')
win.set_decorated(False)
geometry = win.get_screen().get_display().get_monitor(0).get_geometry()
win.move(0, 0)
# One row short of the screen: a window manager may take a window that covers the whole screen
# for a full-screen one and stack it above everything.
win.set_default_size(geometry.width, geometry.height - 1)
css = Gtk.CssProvider()
css.load_from_data(b'window { background: rgb(%d, %d, %d); }' % BACKGROUND)
Gtk.StyleContext.add_provider_for_screen(win.get_screen(), css, 800)


def clicked(_w, event):
    print(f'click {int(event.x_root)} {int(event.y_root)}', flush=True)


def shown(*_):
    print('ready', flush=True)


win.connect('button-press-event', clicked)
win.connect('map-event', shown)
win.connect('destroy', Gtk.main_quit)
win.show_all()
Gtk.main()
sys.exit(0)
