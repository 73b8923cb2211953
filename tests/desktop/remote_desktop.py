"""The desktop portal's RemoteDesktop interface, as much of it as Vantler's paste uses, on the
session bus. Prints what it is asked: `select <restore token>`, then `dialog` when Start would
ask the user (no valid token) or `restored`, and `key <keysym> <state>` for each key with
`clipboard <text>` (read with xclip) when V goes down. With the argument `refuse` the user
declines the dialog (response 1); otherwise each Start hands out a new token."""
import subprocess
import sys

from gi.repository import Gio, GLib

ROOT, IFACE = '/org/freedesktop/portal/desktop', 'org.freedesktop.portal.RemoteDesktop'
node = Gio.DBusNodeInfo.new_for_xml(f'''<node><interface name="{IFACE}">
  <method name="CreateSession"><arg type="a{{sv}}" direction="in"/>
    <arg type="o" direction="out"/></method>
  <method name="SelectDevices"><arg type="o" direction="in"/><arg type="a{{sv}}" direction="in"/>
    <arg type="o" direction="out"/></method>
  <method name="Start"><arg type="o" direction="in"/><arg type="s" direction="in"/>
    <arg type="a{{sv}}" direction="in"/><arg type="o" direction="out"/></method>
  <method name="NotifyKeyboardKeysym"><arg type="o" direction="in"/>
    <arg type="a{{sv}}" direction="in"/><arg type="i" direction="in"/>
    <arg type="u" direction="in"/></method>
</interface></node>''')
refuse = sys.argv[1:] == ['refuse']
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
state = {'valid': set(), 'selected': '', 'issued': 0}


def say(*words):
    print(*words, flush=True)


def respond(sender, token, code, results):
    path = f'{ROOT}/request/{sender[1:].replace(".", "_")}/{token}'
    GLib.timeout_add(20, lambda: bus.emit_signal(
        sender, path, 'org.freedesktop.portal.Request', 'Response',
        GLib.Variant('(ua{sv})', (code, results))) and False)
    return GLib.Variant('(o)', (path,))


def call(_conn, sender, _path, _iface, method, params, invocation):
    args = params.unpack()
    if method == 'CreateSession':
        session = f'{ROOT}/session/{sender[1:].replace(".", "_")}/' + args[0]['session_handle_token']
        invocation.return_value(respond(sender, args[0]['handle_token'], 0,
                                        {'session_handle': GLib.Variant('s', session)}))
    elif method == 'SelectDevices':
        options = args[1]
        state['selected'] = options.get('restore_token', '')
        say('select', state['selected'] or '-', options['types'], options['persist_mode'])
        invocation.return_value(respond(sender, options['handle_token'], 0, {}))
    elif method == 'Start':
        if state['selected'] in state['valid']:
            say('restored')
        else:
            say('dialog')
            if refuse:
                return invocation.return_value(respond(sender, args[2]['handle_token'], 1, {}))
        state['valid'].discard(state['selected'])
        state['issued'] += 1
        token = f'token-{state["issued"]}'
        state['valid'].add(token)
        invocation.return_value(respond(sender, args[2]['handle_token'], 0, {
            'devices': GLib.Variant('u', 1), 'restore_token': GLib.Variant('s', token)}))
    else:
        keysym, pressed = args[2], args[3]
        say('key', hex(keysym), pressed)
        if keysym == 0x76 and pressed:
            say('clipboard', subprocess.run(['xclip', '-o', '-selection', 'clipboard'],
                                            capture_output=True, text=True, timeout=5).stdout)
        invocation.return_value(None)


bus.register_object(ROOT, node.interfaces[0], call)
Gio.bus_own_name_on_connection(bus, 'org.freedesktop.portal.Desktop', Gio.BusNameOwnerFlags.NONE,
                               lambda *_: say('ready'), None)
GLib.MainLoop().run()
