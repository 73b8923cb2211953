#!/usr/bin/env python3
"""Keys and dictated text on headless sway (a Wayland compositor where no program can grab
keys): with a small stand-in for org.freedesktop.portal.GlobalShortcuts on the private session
bus the real `vantler` binds its two combinations there and the portal's Activated signal opens
the panel; without the portal the settings say why. Dictated text is typed into a focused GTK
entry with wtype, or left on the clipboard when nothing is focused.
Usage: portal_test.py BUILD_DIR [case ...]"""
import json
import os
import subprocess
import sys
import time

sys.dont_write_bytecode = True  # keep the source tree clean
from harness import check, main, opened, top_pill, wait_for
from sway_test import Sway

# The portal's side of CreateSession and BindShortcuts; the file named by its argument,
# once it exists, presses "open".
PORTAL = r'''
import os, sys
from gi.repository import Gio, GLib
node = Gio.DBusNodeInfo.new_for_xml("""<node>
 <interface name="org.freedesktop.portal.GlobalShortcuts">
  <method name="CreateSession"><arg type="a{sv}" direction="in"/>
   <arg type="o" direction="out"/></method>
  <method name="BindShortcuts"><arg type="o" direction="in"/>
   <arg type="a(sa{sv})" direction="in"/><arg type="s" direction="in"/>
   <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
  <signal name="Activated"><arg type="o"/><arg type="s"/><arg type="t"/><arg type="a{sv}"/>
  </signal>
 </interface></node>""")
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
session = []
ROOT = '/org/freedesktop/portal/desktop'


def respond(sender, token, results):
    path = f'{ROOT}/request/{sender[1:].replace(".", "_")}/{token}'
    GLib.timeout_add(20, lambda: bus.emit_signal(
        sender, path, 'org.freedesktop.portal.Request', 'Response',
        GLib.Variant('(ua{sv})', (0, results))) and False)
    return GLib.Variant('(o)', (path,))


def call(conn, sender, path, iface, method, params, invocation):
    args = params.unpack()
    if method == 'CreateSession':
        session[:] = [f'{ROOT}/session/{sender[1:].replace(".", "_")}/'
                      + args[0]['session_handle_token']]
        invocation.return_value(respond(sender, args[0]['handle_token'],
                                        {'session_handle': GLib.Variant('s', session[0])}))
    else:
        for name, props in args[1]:
            print('bound', name, props['preferred_trigger'], flush=True)
        invocation.return_value(respond(sender, args[3]['handle_token'], {}))


def press():
    if not os.path.exists(sys.argv[1]):
        return True
    bus.emit_signal(None, ROOT, 'org.freedesktop.portal.GlobalShortcuts', 'Activated',
                    GLib.Variant('(osta{sv})', (session[0], 'open', 0, {})))
    return False


bus.register_object(ROOT, node.interfaces[0], call, None, None)
GLib.timeout_add(50, press)
Gio.bus_own_name_on_connection(bus, 'org.freedesktop.portal.Desktop', 0,
                               lambda *a: print('ready', flush=True), None)
GLib.MainLoop().run()
'''


def problems(s, env):
    code, out = s.command(env, 'state')
    check(code == 0, 'vantler state: ' + out)
    st = json.loads(out)['settings']
    return st['openKey']['problem'], st['talkKey']['problem']


def shortcuts_through_the_portal(s):
    env, _, _ = s.started()
    wait_for(lambda: 'no global shortcuts' in problems(s, env)[0], 5,
             'the settings saying why there are no hot keys')
    check('vantler talk' in problems(s, env)[1], f'talk key: {problems(s, env)[1]}')
    check(s.command(env, 'quit')[0] == 0, 'vantler quit')

    trigger = os.path.join(s.tmp, 'press-open')
    portal = s.start(['/usr/bin/python3', '-c', PORTAL, trigger])
    wait_for(lambda: 'ready' in portal.output() or not portal.running(), 10, 'the portal')
    check(portal.running(), 'the portal: ' + portal.output('.err')[-500:])
    s.vantler(env)
    s.wait_drawn(top_pill, 20, 'the pill')
    wait_for(lambda: 'bound talk CTRL+ALT+space' in portal.output(), 10, 'the shortcuts bound')
    check('bound open CTRL+ALT+r' in portal.output(), portal.output())
    wait_for(lambda: problems(s, env) == ('', ''), 5, 'the hot keys reported working')
    open(trigger, 'w').close()
    s.wait_drawn(opened, 5, 'the panel opened by the portal shortcut', 'portal-open')


def dictation_left_on_the_clipboard(s):
    """No program can type into another here: the text stays on the Wayland clipboard."""
    env, _, _ = s.started(VANTLER_DEBUG_DICTATION='hello from Vantler')
    for _ in range(2):
        check(s.command(env, 'talk')[0] == 0, 'vantler talk')
    paste = lambda: subprocess.run(s.wrap(['wl-paste', '-n'], s.env), capture_output=True,
                                   text=True, timeout=10).stdout
    wait_for(lambda: paste() == 'hello from Vantler', 5, 'the text on the clipboard')


def dictation_typed_with_wtype(s):
    """On wlroots the text is typed through the virtual-keyboard protocol (wtype)."""
    from keys_test import ENTRY_WINDOW, SAID
    env = s.home({'onboarded': True})
    env['VANTLER_DEBUG_DICTATION'] = SAID
    del env['NO_AT_BRIDGE']
    s.vantler(env)
    s.wait_drawn(top_pill, 20, 'the pill')
    entry = s.start(['/usr/bin/python3', '-c', ENTRY_WINDOW], env)
    wait_for(lambda: 'ready' in entry.output(), 10, 'the entry window')
    time.sleep(1)
    for _ in range(2):
        check(s.command(env, 'talk')[0] == 0, 'vantler talk')
    wait_for(lambda: 'text ' + SAID in entry.output(), 5, 'the text typed into the entry')

if __name__ == '__main__':
    main(Sway, [shortcuts_through_the_portal, dictation_left_on_the_clipboard,
                dictation_typed_with_wtype], ('sway', 'grim', 'wayvnc', 'wtype', 'wl-paste'))
