#!/usr/bin/env python3
"""The desktop app's D-Bus faces on a private session bus (under Xvfb and openbox): the tray
icon and its menu through com.canonical.dbusmenu, the fallback without a tray, update checks
against a local HTTP server, and notifications whose buttons answer a waiting `vantler-hook`.
Usage: dbus_test.py BUILD_DIR [case ...]"""
import http.server
import json
import os
import sys
import threading

sys.dont_write_bytecode = True  # keep the source tree clean
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, '..', 'desktop'))
from harness import accessible, centre, check, fixture, main, press, top_pill, wait_for  # noqa: E402
from x11_test import PERMISSION_ALLOWED, X11  # noqa: E402

SESSION = 'claude:4b1f2c9e-7d3a-4e51-9a0c-2f6b8d1e3a77'  # of the permission fixture


def bus():
    from gi.repository import Gio
    return Gio.bus_get_sync(Gio.BusType.SESSION)


def dbus_call(name, path, iface, method, args=None):
    from gi.repository import Gio
    return bus().call_sync(name, path, iface, method, args, None, Gio.DBusCallFlags.NONE, 5000,
                           None).unpack()


def fake(s, *args):
    proc = s.start(['/usr/bin/python3', os.path.join(HERE, 'fake_services.py'), *args])
    wait_for(lambda: 'ready' in proc.output() or not proc.running(), 10, args[0])
    check(proc.running(), f'{args[0]}: ' + proc.output('.err')[-500:])
    return proc


def calls(proc, method):
    return [c for c in map(json.loads, proc.output().splitlines()[1:]) if c['call'] == method]


class Tray:
    """The app's StatusNotifier item, found through the fake watcher it registered with."""

    def __init__(self, watcher, before=0):
        """The item registered after the first `before` ones."""
        item = wait_for(lambda: calls(watcher, 'RegisterStatusNotifierItem')[before:], 20,
                        'the tray item registering')[0]
        self.name, self.path = item['service'], item['path']
        self.menu = self.prop('Menu')

    def prop(self, name):
        from gi.repository import GLib
        return dbus_call(self.name, self.path, 'org.freedesktop.DBus.Properties', 'Get',
                         GLib.Variant('(ss)', ('org.kde.StatusNotifierItem', name)))[0]

    def items(self):
        """(id, label) of each top-level item as a host sees it just before opening the menu;
        "-" for separators, labels of disabled items in brackets."""
        from gi.repository import GLib
        dbus_call(self.name, self.menu, 'com.canonical.dbusmenu', 'AboutToShow',
                  GLib.Variant('(i)', (0,)))
        _, (_, _, children) = dbus_call(self.name, self.menu, 'com.canonical.dbusmenu',
                                        'GetLayout', GLib.Variant('(iias)', (0, 1, [])))
        out = []
        for ident, props, _ in children:
            if not props.get('visible', True):
                continue
            label = '-' if props.get('type') == 'separator' else props.get('label', '')
            out.append((ident, label if props.get('enabled', True) else f'[{label}]'))
        return out

    def labels(self):
        return [label for _, label in self.items()]

    def click(self, label):
        from gi.repository import GLib
        ident = dict((b, a) for a, b in self.items())[label]
        dbus_call(self.name, self.menu, 'com.canonical.dbusmenu', 'Event',
                  GLib.Variant('(isvu)', (ident, 'clicked', GLib.Variant('s', ''), 0)))


def tray_menu(s):
    watcher = fake(s, 'watcher')
    env, app, _ = s.started(pill=False)
    tray = Tray(watcher)
    icons = tray.prop('IconThemePath')
    check(tray.prop('IconName') == 'vantler-symbolic' and os.path.isfile(
        os.path.join(icons, 'hicolor/scalable/status/vantler-symbolic.svg')),
        f'icon {tray.prop("IconName")} in {icons}')
    expected = ['[Vantler 0.1.0]', '[No sessions right now]', '-', 'Open Vantler', 'Settings…',
                '-', 'Connect Claude Code', 'Show Walkthrough', 'Check for Updates…', '-',
                'Quit Vantler']
    wait_for(lambda: tray.labels() == expected, 10, f'the menu {expected} (is {tray.labels()})')

    # An item's action runs, and the menu shows the outcome the next time it opens.
    tray.click('Connect Claude Code')
    settings = os.path.join(env['HOME'], '.claude/settings.json')
    wait_for(lambda: os.path.exists(settings) and 'vantler-hook' in open(settings).read(), 5,
             'Claude Code connected from the menu')
    hook = s.hook(env, fixture('claude_permission.json'))
    wait_for(lambda: tray.labels()[1] == '[1 session · 1 needs you]', 5,
             f'the summary of a waiting session (is {tray.labels()[1]})')
    check('Disconnect Claude Code' in tray.labels(), f'after connecting: {tray.labels()}')
    code, out = s.command(env, 'allow', SESSION)
    check(code == 0 and hook.wait(5, 'the hook') == 0, f'allow: {out}')
    tray.click('Quit Vantler')
    check(app.wait(10, 'the app after Quit') == 0, 'Quit Vantler did not end the app cleanly')


def no_tray(s):
    for watcher in ([], ['watcher', '--no-host']):
        if watcher:
            fake(s, *watcher)
        env, app, _ = s.started(pill=False)
        wait_for(lambda: 'no StatusNotifier host; the menu opens from the panel' in
                 app.output('.err'), 20, 'the app saying there is no tray ' + str(watcher))
    # The same menu from the panel: a right click on the pill.
    x, y = centre(s.wait_drawn(top_pill, 20, 'the pill'))
    s.xdotool('mousemove', x, y, 'click', 3)
    accessible('No sessions right now', ('menu item',))
    press('Quit Vantler', ('menu item',))
    check(app.wait(10, 'the app after Quit') == 0, 'Quit Vantler did not end the app cleanly')


def icon_follows_the_panel_colour(s):
    """GTK draws the symbolic icon in the panel's text colour, eyes left open."""
    import gi
    gi.require_version('Gdk', '3.0')
    gi.require_version('Gtk', '3.0')
    from gi.repository import Gdk, Gtk
    theme = Gtk.IconTheme.new()
    theme.append_search_path(os.path.join(s.build, 'icons'))
    info = theme.lookup_icon('vantler-symbolic', 36, 0)
    check(info, 'no vantler-symbolic icon beside the build')
    for colour in ((255, 255, 255), (20, 20, 20)):
        pixbuf, _ = info.load_symbolic(Gdk.RGBA(*(c / 255 for c in colour), 1))
        data, n, row = pixbuf.get_pixels(), pixbuf.get_n_channels(), pixbuf.get_rowstride()
        px = [tuple(data[y * row + x * n:y * row + x * n + 4]) for y in range(36) for x in range(36)]
        solid = {p[:3] for p in px if p[3] == 255}
        check(solid == {colour}, f'icon drawn in {solid}, not {colour}')
        eye = px[20 * 36 + 13]  # the left eye, at (6.7, 10) of 18
        check(eye[3] == 0 and px[20 * 36 + 18][3] == 255, f'eyes not cut out: {eye}')


class Feed(http.server.BaseHTTPRequestHandler):
    bodies, seen = {}, []

    def do_GET(self):
        Feed.seen.append(self.path)
        body = Feed.bodies.get(self.path)
        self.send_response(200 if body else 404)
        self.end_headers()
        self.wfile.write((body or 'missing').encode())

    def log_message(self, *args):
        pass


def appcast(version):
    return (f'<?xml version="1.0"?><rss xmlns:sparkle="http://www.andymatuschak.org/xml-'
            f'namespaces/sparkle"><channel><item><sparkle:version>{version}</sparkle:version>'
            f'<link>https://example.org/vantler/{version}</link></item></channel></rss>')


def update_checks(s):
    server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Feed)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    url = f'http://127.0.0.1:{server.server_port}'
    Feed.bodies = {'/newer': appcast('9.9.9'), '/same': appcast('0.1.0'), '/bad': '<html>'}
    watcher = fake(s, 'watcher')
    try:
        for path, outcome in (('/newer', 'Vantler 9.9.9 Is Available…'),
                              ('/same', 'Vantler is up to date'), ('/bad', 'no version in it'),
                              ('/missing', 'answered HTTP 404')):
            before = len(calls(watcher, 'RegisterStatusNotifierItem'))
            env, app, _ = s.started(pill=False, VANTLER_UPDATE_FEED=url + path)
            tray = Tray(watcher, before)
            seen = len(Feed.seen)
            if path == '/newer':  # put off while a request waits for the user
                hook = s.hook(env, fixture('claude_permission.json'))
                wait_for(lambda: '[1 session · 1 needs you]' in tray.labels(), 5, 'the request')
                tray.click('Check for Updates…')
                wait_for(lambda: 'update check: put off' in app.output('.err'), 5,
                         'the check put off')
                check(len(Feed.seen) == seen, 'the feed was read while a request waited')
                s.command(env, 'allow', SESSION)
                hook.wait(5, 'the hook')
            tray.click('Check for Updates…')
            wait_for(lambda: len(Feed.seen) > seen, 5, 'the feed read')
            if path == '/newer':
                wait_for(lambda: outcome in tray.labels(), 5, f'{outcome} in {tray.labels()}')
            else:
                wait_for(lambda: outcome in app.output('.err'), 5, f'{outcome!r} logged')
            app.stop()
        before = len(calls(watcher, 'RegisterStatusNotifierItem'))
        env, app, _ = s.started(pill=False, VANTLER_UPDATE_FEED='http://127.0.0.1:9/feed')
        Tray(watcher, before).click('Check for Updates…')
        wait_for(lambda: 'could not be read' in app.output('.err'), 10, 'no server logged')
    finally:
        server.shutdown()


FULL_SCREEN = '''
import gi; gi.require_version("Gtk", "3.0"); from gi.repository import Gtk
w = Gtk.Window(title="full"); w.connect("map-event", lambda *_: print("ready", flush=True))
w.show_all(); w.fullscreen(); w.present(); Gtk.main()'''


def notifications(s):
    server = fake(s, 'notifications')
    full = s.start(['/usr/bin/python3', '-c', FULL_SCREEN])
    wait_for(lambda: 'ready' in full.output(), 10, 'a full-screen window')
    env, app, _ = s.started({'notifyAnswers': True}, pill=False)
    wait_for(lambda: 'hooks: listening' in app.output('.err'), 20, 'the app')

    hook = s.hook(env, fixture('claude_permission.json'))
    note = wait_for(lambda: calls(server, 'Notify'), 10, 'a notification')[0]
    check(note['actions'] == ['allow', 'Allow', 'deny', 'Deny', 'always', 'Always allow',
                              'default', 'Open Vantler'], f'actions {note["actions"]}')
    from gi.repository import GLib
    dbus_call('org.freedesktop.Notifications', '/org/freedesktop/Notifications',
              'dev.vantler.Test', 'Invoke', GLib.Variant('(us)', (note['id'], 'allow')))
    check(hook.wait(5, 'the hook after Allow in the notification') == 0, hook.output('.err'))
    check(json.loads(hook.output()) == PERMISSION_ALLOWED, 'hook printed ' + hook.output())

    # Answered from the command line: the notification goes.
    hook = s.hook(env, fixture('claude_permission.json'))
    note = wait_for(lambda: calls(server, 'Notify')[1:], 10, 'a second notification')[0]
    code, out = s.command(env, 'allow', SESSION)
    check(code == 0 and hook.wait(5, 'the hook') == 0, f'allow: {out}')
    wait_for(lambda: any(c['id'] == note['id'] for c in calls(server, 'CloseNotification')), 5,
             'the notification withdrawn')

    # A server without buttons: the notification only opens the panel.
    server.stop()
    server = fake(s, 'notifications', '--no-actions')
    env, app, _ = s.started({'notifyAnswers': True}, pill=False)
    wait_for(lambda: 'hooks: listening' in app.output('.err'), 20, 'the app')
    hook = s.hook(env, fixture('claude_permission.json'))
    note = wait_for(lambda: calls(server, 'Notify'), 10, 'a notification without buttons')[0]
    check(note['actions'] == ['default', 'Open Vantler'], f'actions {note["actions"]}')
    dbus_call('org.freedesktop.Notifications', '/org/freedesktop/Notifications',
              'dev.vantler.Test', 'Invoke', GLib.Variant('(us)', (note['id'], 'default')))
    wait_for(lambda: json.loads(s.command(env, 'state')[1]).get('open'), 5, 'the panel opened')
    check(hook.running(), 'the request was answered by opening the panel')


if __name__ == '__main__':
    main(X11, [tray_menu, icon_follows_the_panel_colour, no_tray, update_checks, notifications], ('Xvfb', 'dbus-daemon'))
