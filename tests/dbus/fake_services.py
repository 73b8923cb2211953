"""Small stand-ins for the desktop's D-Bus services, for the tests on a private session bus.

  fake_services.py watcher [--no-host]    a StatusNotifier watcher (the tray's registry); with
                                          --no-host it reports no tray showing the items
  fake_services.py notifications [--no-actions]
                                          a notification server; it can be told to press a
                                          button through dev.vantler.Test.Invoke(id, action)

Each prints "ready" once its name is on the bus, then one JSON line per call it receives."""
import json
import sys

from gi.repository import Gio, GLib

WATCHER = '''<node><interface name="org.kde.StatusNotifierWatcher">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
  <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
  <signal name="StatusNotifierHostRegistered"/>
</interface></node>'''

NOTIFICATIONS = '''<node><interface name="org.freedesktop.Notifications">
  <method name="GetCapabilities"><arg type="as" direction="out"/></method>
  <method name="Notify">
    <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="as" direction="in"/>
    <arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
    <arg type="u" direction="out"/></method>
  <method name="CloseNotification"><arg type="u" direction="in"/></method>
  <method name="GetServerInformation">
    <arg type="s" direction="out"/><arg type="s" direction="out"/><arg type="s" direction="out"/>
    <arg type="s" direction="out"/></method>
  <signal name="NotificationClosed"><arg type="u"/><arg type="u"/></signal>
  <signal name="ActionInvoked"><arg type="u"/><arg type="s"/></signal>
</interface>
<interface name="dev.vantler.Test">
  <method name="Invoke"><arg type="u" direction="in"/><arg type="s" direction="in"/></method>
</interface></node>'''


def log(**fields):
    print(json.dumps(fields), flush=True)


def watcher(bus, host):
    items = []

    def call(conn, sender, path, iface, method, params, invocation):
        if method == 'RegisterStatusNotifierItem':
            path = params.unpack()[0]
            # Items register with their object path; their bus name is the caller's.
            service = sender if path.startswith('/') else path
            items.append(service + (path if path.startswith('/') else ''))
            log(call=method, service=service, path=path if path.startswith('/') else '')
            conn.emit_signal(None, '/StatusNotifierWatcher', 'org.kde.StatusNotifierWatcher',
                             'StatusNotifierItemRegistered', GLib.Variant('(s)', (items[-1],)))
        else:
            log(call=method)
        invocation.return_value(None)

    def get(conn, sender, path, iface, name):
        return {'RegisteredStatusNotifierItems': GLib.Variant('as', items),
                'IsStatusNotifierHostRegistered': GLib.Variant('b', host),
                'ProtocolVersion': GLib.Variant('i', 0)}[name]

    info = Gio.DBusNodeInfo.new_for_xml(WATCHER).interfaces[0]
    bus.register_object('/StatusNotifierWatcher', info, call, get, None)
    return 'org.kde.StatusNotifierWatcher'


def notifications(bus, actions):
    state = {'next': 0}

    def call(conn, sender, path, iface, method, params, invocation):
        args = params.unpack()
        if method == 'GetCapabilities':
            invocation.return_value(GLib.Variant('(as)', (['body', 'actions'] if actions
                                                          else ['body'],)))
            return
        if method == 'GetServerInformation':
            invocation.return_value(GLib.Variant('(ssss)', ('fake', 'vantler', '1', '1.2')))
            return
        if method == 'Notify':
            state['next'] += 1
            log(call=method, id=state['next'], app=args[0], icon=args[2], summary=args[3],
                body=args[4], actions=args[5], hints=sorted(args[6]), timeout=args[7])
            invocation.return_value(GLib.Variant('(u)', (state['next'],)))
            return
        if method == 'CloseNotification':
            log(call=method, id=args[0])
            conn.emit_signal(None, '/org/freedesktop/Notifications',
                             'org.freedesktop.Notifications', 'NotificationClosed',
                             GLib.Variant('(uu)', (args[0], 3)))
        elif method == 'Invoke':
            conn.emit_signal(None, '/org/freedesktop/Notifications',
                             'org.freedesktop.Notifications', 'ActionInvoked',
                             GLib.Variant('(us)', args))
        invocation.return_value(None)

    for info in Gio.DBusNodeInfo.new_for_xml(NOTIFICATIONS).interfaces:
        bus.register_object('/org/freedesktop/Notifications', info, call, None, None)
    return 'org.freedesktop.Notifications'


def main():
    role, flags = sys.argv[1], sys.argv[2:]
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    loop = GLib.MainLoop()
    name = watcher(bus, '--no-host' not in flags) if role == 'watcher' \
        else notifications(bus, '--no-actions' not in flags)
    Gio.bus_own_name_on_connection(bus, name, Gio.BusNameOwnerFlags.NONE,
                                   lambda *_: print('ready', flush=True),
                                   lambda *_: loop.quit())
    loop.run()


if __name__ == '__main__':
    main()
