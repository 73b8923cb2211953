"""A plain window in one colour under everything that prints each click it receives, so the
tests can tell what is drawn over it and whether clicks pass through the panel to it."""
import gi

gi.require_version('Gtk', '3.0')
from gi.repository import GLib, Gtk  # noqa: E402

from harness import BACKGROUND  # noqa: E402

GLib.set_prgname('clicker')
win = Gtk.Window(title='clicker', decorated=False)
area = win.get_screen().get_display().get_monitor(0).get_geometry()
win.move(0, 0)
# One row short of the screen: window managers take a window that covers the whole screen for a
# full-screen one and stack it above everything.
win.set_default_size(area.width, area.height - 1)
css = Gtk.CssProvider()
css.load_from_data(b'window { background: rgb(%d, %d, %d); }' % BACKGROUND)
Gtk.StyleContext.add_provider_for_screen(win.get_screen(), css, 800)
win.connect('button-press-event', lambda _w, e: print(f'click {int(e.x_root)} {int(e.y_root)}',
                                                       flush=True))
win.connect('map-event', lambda *_: print('ready', flush=True))
win.connect('destroy', Gtk.main_quit)
win.show_all()
Gtk.main()
