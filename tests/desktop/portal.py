"""The desktop portal's Settings interface, as much of it as Vantler reads, on the session bus:
the appearance's color-scheme starts as the first argument (1 dark, 2 light); SIGUSR1 turns it
light and SIGUSR2 dark, each change announced with SettingChanged as the real portal does."""
import signal
import sys

from gi.repository import Gio, GLib

NAME, PATH, IFACE = ('org.freedesktop.portal.Desktop', '/org/freedesktop/portal/desktop',
                     'org.freedesktop.portal.Settings')
XML = f'''<node><interface name="{IFACE}">
  <method name="Read"><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="v" direction="out"/></method>
  <signal name="SettingChanged"><arg type="s"/><arg type="s"/><arg type="v"/></signal>
</interface></node>'''
scheme = int(sys.argv[1])


def call(_conn, _sender, _path, _iface, _method, params, invocation):
    if params.unpack() == ('org.freedesktop.appearance', 'color-scheme'):
        invocation.return_value(GLib.Variant('(v)', (GLib.Variant('u', scheme),)))
    else:
        invocation.return_dbus_error('org.freedesktop.portal.Error.NotFound', 'no such setting')


def switch(value):
    global scheme
    scheme = value
    bus.emit_signal(None, PATH, IFACE, 'SettingChanged', GLib.Variant(
        '(ssv)', ('org.freedesktop.appearance', 'color-scheme', GLib.Variant('u', value))))
    return GLib.SOURCE_CONTINUE


bus = Gio.bus_get_sync(Gio.BusType.SESSION)
bus.register_object(PATH, Gio.DBusNodeInfo.new_for_xml(XML).interfaces[0], call)
Gio.bus_own_name_on_connection(bus, NAME, Gio.BusNameOwnerFlags.NONE,
                               lambda *_: print('ready', flush=True), None)
GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR1, switch, 2)
GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR2, switch, 1)
GLib.MainLoop().run()
