#!/usr/bin/env python3
"""Hot keys, the Alt tap and the delivery of dictated text on X11 (Xvfb, openbox, xcompmgr),
driven with xdotool against the real `vantler`.
Usage: keys_test.py BUILD_DIR [case ...]"""
import json
import os
import sys
import time

sys.dont_write_bytecode = True  # keep the source tree clean
from harness import check, main, opened, top_pill, wait_for
from x11_test import X11

# Holds Ctrl+Alt+R on the root window, as another program's global shortcut would.
GRAB_CTRL_ALT_R = r'''
import ctypes, time
x = ctypes.CDLL('libX11.so.6')
x.XOpenDisplay.restype = ctypes.c_void_p
x.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
x.XDefaultRootWindow.restype = ctypes.c_ulong
x.XStringToKeysym.restype = ctypes.c_ulong
x.XKeysymToKeycode.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
x.XGrabKey.argtypes = [ctypes.c_void_p, ctypes.c_int, ctypes.c_uint, ctypes.c_ulong,
                       ctypes.c_int, ctypes.c_int, ctypes.c_int]
x.XSync.argtypes = [ctypes.c_void_p, ctypes.c_int]
d = x.XOpenDisplay(None)
x.XGrabKey(d, x.XKeysymToKeycode(d, x.XStringToKeysym(b'r')), 4 | 8,
           x.XDefaultRootWindow(d), 1, 1, 1)
x.XSync(d, 0)
print('grabbed', flush=True)
time.sleep(600)
'''


def log(env, name='keys.log'):
    try:
        with open(os.path.join(env['HOME'], '.vantler', name)) as f:
            return f.read()
    except FileNotFoundError:
        return ''


def settings(s, env):
    code, out = s.command(env, 'state')
    check(code == 0, 'vantler state: ' + out)
    return json.loads(out)['settings']


def hot_keys_and_alt_tap(s):
    env, app, _ = s.started(VANTLER_TRACE='1')  # the panel's decisions in hover.log
    wait_for(lambda: 'start: optionTap=true trusted=true' in log(env), 5,
             'the Alt tap started, ready')
    st = settings(s, env)
    check(st['optionTapReady'] and st['openKey']['problem'] == '' and
          st['talkKey']['label'] == 'Ctrl+Alt+Space', f'settings: {st}')
    s.xdotool('key', 'ctrl+alt+r')
    s.wait_drawn(opened, 5, 'the panel opened by Ctrl+Alt+R', 'keys-open-hot-key')
    s.xdotool('key', 'ctrl+alt+r')  # the same key again leaves keyboard mode
    s.wait_drawn(top_pill, 5, 'the panel closed by Ctrl+Alt+R again')
    # XTest delivers each Alt release twice; the second must not count as a second tap.
    s.xdotool('key', 'Alt_L', 'sleep', 0.1, 'key', 'Alt_L')
    s.wait_drawn(opened, 5, 'the panel opened by a double tap of Alt')
    check(log(env).count('alt double tap: open') == 1, 'keys.log: ' + log(env))
    s.xdotool('key', 'ctrl+alt+r')
    s.wait_drawn(top_pill, 5, 'the panel closed')
    # Alt with a letter is a modifier, not a tap.
    s.xdotool('key', 'alt+x', 'sleep', 0.1, 'key', 'Alt_L')
    time.sleep(0.5)
    check(top_pill(s.drawn()[0]), 'Alt+X then Alt opened the panel')
    # The talk key and a held Alt both start dictation: with no speech engine set up, the
    # page shows why (keys-talk.png).
    s.xdotool('key', 'ctrl+alt+space')
    s.wait_drawn(opened, 5, 'the panel opened by the talk key', 'keys-talk')
    wait_for(lambda: log(env, 'hover.log').count('talk error: Speech recognition') == 1, 5,
             'dictation started by the talk key')
    s.xdotool('keydown', 'Alt_L', 'sleep', 0.6, 'keyup', 'Alt_L')
    wait_for(lambda: log(env, 'hover.log').count('talk error: Speech recognition') == 2, 5,
             'dictation started by holding Alt')
    check('alt held: talk' in log(env) and log(env).count('talk error: ') == 2,
          'keys.log: ' + log(env))
    check(app.running(), 'vantler exited')


# A window with one text field that prints what it holds after every change.
ENTRY_WINDOW = r'''
import gi
gi.require_version('Gtk', '3.0')
from gi.repository import Gtk
w = Gtk.Window(title='entry')
e = Gtk.Entry()
e.connect('changed', lambda e: print('text ' + e.get_text(), flush=True))
w.add(e)
w.set_default_size(400, 40)
w.connect('destroy', Gtk.main_quit)
w.show_all()
w.present()
print('ready', flush=True)
Gtk.main()
'''
SAID = 'hello from Vantler'


def clipboard(s, text=None):
    if text is None:
        return s.x(['xclip', '-o', '-selection', 'clipboard'])
    s.start(['xclip', '-i', '-selection', 'clipboard'], stdin=text.encode())


def dictate(s, env):
    """`vantler talk` twice: the scripted voice hears SAID, delivered when it stops."""
    check(s.command(env, 'talk')[0] == 0, 'vantler talk')
    s.wait_drawn(opened, 5, 'the panel opened for dictation')
    check(s.command(env, 'talk')[0] == 0, 'vantler talk (stop)')


def dictating_app(s, **extra):
    """Vantler hearing SAID at every dictation, with "old clip" on the clipboard."""
    env, _, _ = s.started(VANTLER_DEBUG_DICTATION=SAID, **extra)
    clipboard(s, 'old clip')
    wait_for(lambda: clipboard(s) == 'old clip', 5, 'the clipboard set by xclip')
    return env


def focused_entry(s):
    entry = s.start(['/usr/bin/python3', '-c', ENTRY_WINDOW])
    wait_for(lambda: 'ready' in entry.output(), 10, 'the entry window')
    s.xdotool('search', '--sync', '--name', '^entry$', 'windowactivate', '--sync')
    time.sleep(0.5)  # the field's focus event reaches Vantler
    return entry


def paste_into_entry_and_terminal(s):
    env = dictating_app(s)
    entry = focused_entry(s)
    dictate(s, env)
    wait_for(lambda: 'text ' + SAID in entry.output(), 5, 'the text pasted into the GTK entry')
    wait_for(lambda: clipboard(s) == 'old clip', 2, 'the old clipboard contents back')

    # A terminal gets Ctrl+Shift+V, which xterm is told to paste the clipboard with, as the
    # terminals people use do.
    out = os.path.join(s.tmp, 'typed')
    s.start(['xterm', '-title', 'term', '-xrm',
             'XTerm*VT100.translations: #override Ctrl Shift <Key>V: insert-selection(CLIPBOARD)',
             '-e', 'sh', '-c', f'IFS= read -r line; printf %s "$line" > {out}'])
    s.xdotool('search', '--sync', '--name', '^term$', 'windowactivate', '--sync')
    dictate(s, env)
    time.sleep(0.5)
    s.xdotool('key', 'Return')  # the focus went back to xterm
    wait_for(lambda: os.path.exists(out) and open(out).read() == SAID, 5,
             'the text pasted into xterm')
    wait_for(lambda: clipboard(s) == 'old clip', 2, 'the old clipboard contents back')


def no_field_leaves_the_text_on_the_clipboard(s):
    env = dictating_app(s)
    dictate(s, env)
    wait_for(lambda: clipboard(s) == SAID, 5, 'the dictated text on the clipboard')
    s.wait_drawn(opened, 2, 'the panel showing that it was copied', 'keys-copied')
    time.sleep(1)
    check(clipboard(s) == SAID, 'the dictated text left the clipboard')


def remote_desktop(s, *args):
    portal = s.start(['/usr/bin/python3', os.path.join(os.path.dirname(__file__),
                                                       'remote_desktop.py'), *args])
    wait_for(lambda: 'ready' in portal.output() or not portal.running(), 10, 'the portal')
    check(portal.running(), 'the portal: ' + portal.output('.err')[-500:])
    return portal


# As through XWayland under GNOME: an X display, but a Wayland session, where XTest would not
# reach Wayland apps.
XWAYLAND = {'WAYLAND_DISPLAY': 'wayland-gone', 'VANTLER_TRACE': '1'}
CTRL_V = ['key 0xffe3 1', 'key 0x76 1', 'clipboard ' + SAID, 'key 0x76 0', 'key 0xffe3 0']


def paste_through_the_portal(s):
    portal = remote_desktop(s)
    env = dictating_app(s, **XWAYLAND)
    entry = focused_entry(s)
    dictate(s, env)
    wait_for(lambda: portal.output().count('key ') == 4, 5, 'Ctrl+V through the portal')
    lines = portal.output().splitlines()
    check(lines[1:] == ['select - 1 2', 'dialog'] + CTRL_V, 'the portal saw: ' + str(lines))
    wait_for(lambda: clipboard(s) == 'old clip', 2, 'the old clipboard contents back')
    # The session stays open: the next paste asks nothing.
    dictate(s, env)
    wait_for(lambda: portal.output().count('key ') == 8, 5, 'the second Ctrl+V')
    check(portal.output().count('select') == 1, 'the portal saw: ' + portal.output())

    # A later run restores the permission with the token kept in the defaults.
    check(s.command(env, 'quit')[0] == 0, 'vantler quit')
    entry.stop()  # the pill is recognised on an empty screen
    s.vantler(env)
    s.wait_drawn(top_pill, 20, 'the pill again')
    focused_entry(s)
    dictate(s, env)
    wait_for(lambda: portal.output().count('key ') == 12, 5, 'Ctrl+V in the second run')
    lines = portal.output().splitlines()
    check(lines[-7:] == ['select token-1 1 2', 'restored'] + CTRL_V,
          'the portal saw: ' + str(lines))
    with open(os.path.join(env['XDG_CONFIG_HOME'], 'vantler/defaults.json')) as f:
        check(json.load(f).get('pasteRestoreToken') == 'token-2', 'the newest token kept')
    check('talk copied' not in log(env, 'hover.log'), 'a notice of copying')


def portal_refused_leaves_the_text_on_the_clipboard(s):
    portal = remote_desktop(s, 'refuse')
    env = dictating_app(s, **XWAYLAND)
    focused_entry(s)
    dictate(s, env)
    wait_for(lambda: 'talk copied' in log(env, 'hover.log'), 5, 'the notice of copying')
    check(clipboard(s) == SAID, 'the clipboard holds ' + clipboard(s))
    check('dialog' in portal.output() and 'key ' not in portal.output(),
          'the portal saw: ' + portal.output())


def taken_combination_reported(s):
    grab = s.start(['/usr/bin/python3', '-c', GRAB_CTRL_ALT_R])
    wait_for(lambda: 'grabbed' in grab.output(), 10, 'the other program grabbing Ctrl+Alt+R')
    env, _, _ = s.started(pill=False, VANTLER_DEBUG_OPEN='settings')
    s.wait_drawn(opened, 20, 'the settings open')
    st = settings(s, env)
    check('taken by another program' in st['openKey']['problem'] and
          st['talkKey']['problem'] == '', f'settings: {st}')
    s.drawn('keys-taken-settings')
    # The other combination is registered all the same.
    s.xdotool('key', 'ctrl+alt+space')
    wait_for(lambda: 'hot key: talk' in log(env), 5, 'the talk key pressed')


if __name__ == '__main__':
    main(X11, [hot_keys_and_alt_tap, taken_combination_reported, paste_into_entry_and_terminal,
              no_field_leaves_the_text_on_the_clipboard, paste_through_the_portal,
              portal_refused_leaves_the_text_on_the_clipboard], ('Xvfb', 'xdotool', 'xclip', 'xterm'))
