#!/usr/bin/env python3
"""The desktop app on X11: Xvfb with openbox and xcompmgr, the real `vantler` and
`vantler-hook`, driven with xdotool and the accessibility tree, checked on screenshots.
Usage: x11_test.py BUILD_DIR [case ...]"""
import json
import os
import random
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time

sys.dont_write_bytecode = True  # keep the source tree clean
from harness import (HERE, H, W, Desktop, Skipped, accessible, agent_in, centre, check,
                     drag_restart_place_kept, extents, fixture, jump, main, opened,
                     pill_click_through_and_hover, press, top_pill, wait_for)

PERMISSION_ALLOWED = {'hookSpecificOutput': {'hookEventName': 'PermissionRequest',
                                             'decision': {'behavior': 'allow'}}}


class X11(Desktop):
    def setup(self):
        # A display number of our own, away from the low numbers other sessions hard-code.
        free = [n for n in range(100, 200) if not os.path.exists(f'/tmp/.X{n}-lock')]
        display = self.read_line(lambda w: ['Xvfb', f':{random.choice(free)}', '-displayfd',
                                            str(w), '-screen', '0', f'{W}x{H}x24', '-nolisten',
                                            'tcp'], 15, 'Xvfb')
        self.env['DISPLAY'] = ':' + display
        self.start_bus()
        os.environ.update(DISPLAY=self.env['DISPLAY'],
                          DBUS_SESSION_BUS_ADDRESS=self.env['DBUS_SESSION_BUS_ADDRESS'])
        for attempt in range(3):  # openbox now and then exits silently as it starts
            wm = self.start(['openbox', '--sm-disable'])
            wait_for(lambda: not wm.running() or 'window id' in self.x(
                ['xprop', '-root', '_NET_SUPPORTING_WM_CHECK']), 20, 'openbox')
            if wm.running():
                break
        check(wm.running(), f'openbox exited with status {wm.p.returncode}')
        self.start(['xcompmgr'])
        probe = ("import gi; gi.require_version('Gdk', '3.0'); from gi.repository import Gdk; "
                 "print(Gdk.Screen.get_default().is_composited())")
        wait_for(lambda: 'True' in self.x(['/usr/bin/python3', '-c', probe]), 20, 'xcompmgr')
        self.clicker()
        self.mouse(100, 900)

    def x(self, argv):
        return subprocess.run(argv, env=self.env, capture_output=True, text=True,
                              timeout=10).stdout

    def xdotool(self, *args):
        subprocess.run(['xdotool', *map(str, args)], env=self.env, check=True, timeout=10)

    def mouse(self, x, y):
        self.xdotool('mousemove', x, y)

    def click(self, x, y):
        self.xdotool('mousemove', x, y, 'click', 1)

    def button(self, down):
        self.xdotool('mousedown' if down else 'mouseup', 1)

    def grab(self, path):
        subprocess.run(['import', '-window', 'root', '-depth', '8', path], env=self.env,
                       check=True, timeout=20)


def rest_hover_and_click_through(s):
    pill_click_through_and_hover(s, 'x11')


def peek_at(s, request, shot):
    """A request through the real `vantler-hook` makes the panel peek; returns the waiting
    hook and what is drawn."""
    env, _, _ = s.started({'autoOpen': True})
    hook = s.hook(env, fixture(request))
    box = s.wait_drawn(opened, 5, f'the panel peeking at {request}', shot)
    check(hook.running(), 'the hook did not wait for an answer: ' + hook.output())
    return hook, box


def answer(hook, what):
    check(hook.wait(5, f'the hook after {what}') == 0, 'the hook failed: ' + hook.output())
    return json.loads(hook.output() or 'null')


def peek_and_allow(s):
    hook, _ = peek_at(s, 'claude_permission.json', 'x11-peeking')
    press('Allow')
    out = answer(hook, 'Allow')
    check(out == PERMISSION_ALLOWED, f'hook printed {out}')
    s.wait_drawn(top_pill, 10, 'the peek ending by itself, the pointer away')


def questions_answered_in_panel(s):
    hook, box = peek_at(s, 'claude_question.json', 'x11-question')
    s.mouse(W // 2, box[1] + 40)  # looking at it: the panel stays open past the peek
    options = ('toggle button', 'push button')
    for choice in ('Postgres', 'staging', 'production'):
        press(choice, options)
    press('Send answers')
    out = answer(hook, 'Send answers')
    decision = out and out['hookSpecificOutput']['decision']
    check(decision and decision['behavior'] == 'allow' and decision['updatedInput']['answers'] ==
          {'Which session store should we use?': 'Postgres',
           'Which environments need the fix?': 'staging, production'}, f'hook printed {out}')


def reply_typed_in_panel(s):
    env, _, box = s.started({'replyWindow': 60})
    # Nobody looks at the panel: the finished turn is let go at once, not held for a reply.
    unseen = s.hook(env, fixture('claude_stop.json'))
    check(unseen.wait(2, 'the Stop hook with the panel closed') == 0, 'the Stop hook failed')
    check(not unseen.output().strip(), 'the Stop hook printed ' + unseen.output())
    # With the panel open by the user, the next finished turn waits for a reply.
    s.mouse(W // 2, box[1] + 5)
    s.wait_drawn(opened, 5, 'the panel opened by hovering')
    hook = s.hook(env, fixture('claude_stop.json'))
    field = accessible('Reply to', ('entry', 'text', 'section', 'paragraph'))
    x, y, w, h = extents(field)
    s.mouse(x + w // 2, y + h // 2)
    s.xdotool('click', 1)
    text = 'Also add a regression test'
    s.xdotool('type', '--delay', 20, text)
    s.drawn('x11-reply-typed')
    s.xdotool('key', 'Return')
    out = answer(hook, 'Enter')
    check(out and out['hookSpecificOutput']['additionalContext'].endswith('\n\n' + text),
          'hook printed ' + hook.output())


def drag_and_remembered_place(s):
    drag_restart_place_kept(s, 'x11')


def second_instance_takes_over(s):
    env, first, _ = s.started()
    hook = s.hook(env, fixture('claude_permission.json'))
    wait_for(lambda: '"pending"' in s.command(env, 'state')[1], 5, 'the request held')
    time.sleep(1)
    check(top_pill(s.drawn('x11-request-waiting')[0]), 'a request opened the panel, autoOpen off')
    second = s.vantler(env)
    first.wait(5, 'the first vantler after the second started')
    check(hook.wait(5, 'the hook held by the first instance') == 0, 'hook: ' + hook.output())
    check(hook.output() == '', 'the released hook printed ' + hook.output())
    s.wait_drawn(top_pill, 20, 'the pill of the second instance')
    check(second.running(), 'the second vantler exited: ' + second.output())


def commands_and_theme_following_the_desktop(s):
    """The theme "auto" follows the desktop portal's colour scheme while running; `vantler
    open`, `quit` and `toggle` reach the app."""
    portal = s.start(['/usr/bin/python3', os.path.join(HERE, 'portal.py'), '1'])
    wait_for(lambda: 'ready' in portal.output() or not portal.running(), 10, 'the portal')
    env, app, _ = s.started(pill=False)
    s.wait_drawn(top_pill, 20, 'the pill', 'x11-at-rest-dark')
    check(s.command(env, 'open')[0] == 0, 'vantler open failed')
    box = s.wait_drawn(opened, 5, 'the panel opened by `vantler open`', 'x11-open-dark')
    dark = s.drawn()[1].luminance(box)
    portal.p.send_signal(signal.SIGUSR1)  # the desktop turns light
    wait_for(lambda: s.drawn()[1].luminance(box) > dark + 40, 5, 'the panel turning light')
    time.sleep(1)  # the view painted afresh: no dark pixels left at the rounded corners
    s.drawn('x11-open-light')
    s.click_through((W // 2, 600))  # inside the panel's window, below what it paints
    s.wait_drawn(top_pill, 5, 'the panel closed by the click elsewhere', 'x11-at-rest-light')
    for expect, what in ((opened, 'opened'), (top_pill, 'closed')):
        check(s.command(env, 'toggle')[0] == 0, 'vantler toggle failed')
        s.wait_drawn(expect, 5, f'the panel {what} by `vantler toggle`')
    code, out = s.command(env, 'quit')
    check(code == 0, 'vantler quit: ' + out)
    check(app.wait(5, 'vantler after quit') == 0, 'vantler exited with an error')
    wait_for(lambda: s.drawn()[0] is None, 5, 'the screen empty after quit')


def onboarding_and_login_item(s):
    env = s.home()
    s.vantler(env)
    accessible('Get started')
    first = wait_for(lambda: (b := s.drawn()[0]) == s.drawn()[0] and b, 5, 'onboarding settled')
    s.drawn('x11-onboarding')
    entry = os.path.join(env['XDG_CONFIG_HOME'], 'autostart', 'vantler.desktop')
    switch = ('switch', 'toggle button', 'check box', 'push button')
    press('Open at login', switch)
    wait_for(lambda: os.path.exists(entry), 5, 'the autostart entry')
    with open(entry) as f:
        lines = f.read().splitlines()
    check(lines[0] == '[Desktop Entry]' and 'Type=Application' in lines, f'entry: {lines}')
    exe = [shlex.split(ln[5:])[0] for ln in lines if ln.startswith('Exec=')]
    check(exe and os.path.exists(exe[0]) and os.path.samefile(exe[0], s.build + '/vantler'),
          f'Exec= does not start this vantler: {lines}')
    press('Open at login', switch)
    wait_for(lambda: not os.path.exists(entry), 5, 'the autostart entry removed')
    press('Get started')
    s.wait_drawn(top_pill, 10, 'the pill after onboarding')
    with open(os.path.join(env['XDG_CONFIG_HOME'], 'vantler/defaults.json')) as f:
        check(json.load(f).get('onboarded') is True, 'onboarded not stored')
    check(first and abs(centre(first)[0] - W // 2) <= 30 and abs(centre(first)[1] - H // 2) <= 60
          and 380 <= first[2] - first[0] <= 560 and first[3] < H - 1,
          f'the onboarding window at {first} is not centred on the screen and within it')


def reply_dictated(s):
    """The talk button records from a microphone (a private PulseAudio server whose capture
    device is a pipe) and the transcription server's text lands in the reply field."""
    if not shutil.which('pulseaudio'):
        print('  (no pulseaudio: dictation not tried)')
        return
    run = os.path.join(s.tmp, 'pulse')
    os.makedirs(run, exist_ok=True)
    sock, pipe = os.path.join(run, 'pulse.sock'), os.path.join(run, 'mic')
    s.start(['pulseaudio', '--daemonize=no', '-n', '--exit-idle-time=-1', '--use-pid-file=no',
             '--disable-shm', '-F', '/dev/null',
             f'--load=module-native-protocol-unix auth-anonymous=1 socket={sock}',
             f'--load=module-pipe-source source_name=mic format=s16le channels=1 rate=16000 '
             f'file={pipe}'], dict(s.env, XDG_RUNTIME_DIR=run, HOME=run))
    wait_for(lambda: os.path.exists(sock) and os.path.exists(pipe), 10, 'pulseaudio')
    server = s.start(['/usr/bin/python3', os.path.join(os.path.dirname(os.path.abspath(
        __file__)), '..', 'voice', 'fake_model_server.py')])
    port = wait_for(lambda: server.output().strip(), 10, 'the fake transcription server')
    env, _, box = s.started({'replyWindow': 60, 'speechServer': f'http://127.0.0.1:{port}/ok'},
                            PULSE_SERVER='unix:' + sock)
    s.mouse(W // 2, box[1] + 5)
    s.wait_drawn(opened, 5, 'the panel opened by hovering')
    s.hook(env, fixture('claude_stop.json'))
    press('Dictate a reply')
    time.sleep(1.0)  # the recording stream is connected
    mic = os.open(pipe, os.O_WRONLY | os.O_NONBLOCK)
    os.set_blocking(mic, True)
    os.write(mic, b'\x00\x08' * 32000)  # two seconds of a low hum
    time.sleep(0.5)
    press('Dictate a reply')
    field = accessible('Reply to', ('entry', 'text', 'section', 'paragraph'))
    text = wait_for(lambda: re.fullmatch(r'\d+ samples', field.queryText().getText(0, -1)), 10,
                    'the dictated text in the reply field')
    s.drawn('x11-reply-dictated')
    os.close(mic)
    # Whole 1,024-frame buffers only: the last part-filled one is not sent.
    check(int(text[0].split()[0]) > 32000 - 1024, 'heard only ' + text[0])


def jump_raises_the_terminal(s):
    """An agent in xterm: its window becomes the active one (the daemon jumps). An agent in
    kitty, in a tab another has covered: kitty's remote control selects its tab and the window
    comes up (the desktop app jumps)."""
    env = s.home({'onboarded': True})
    daemon = s.vantler(env, 'daemon')
    active = lambda: s.x(['xdotool', 'getactivewindow']).strip()

    term = agent_in(s, env, ['xterm', '-e'], 'in-xterm')
    xterm = wait_for(lambda: s.x(['xdotool', 'search', '--pid', str(term.p.pid)]).split(), 10,
                     'the xterm window')[0]
    s.click(W - 50, H - 50)  # the window under everything takes the focus
    wait_for(lambda: active() not in ('', xterm), 5, 'the focus away from the xterm')
    jump(s, env, 'in-xterm')
    wait_for(lambda: active() == xterm, 5, 'the xterm window active after the jump')

    daemon.stop()
    s.vantler(env)
    listen = 'unix:' + os.path.join(s.tmp, 'kitty.sock')
    kitty = ['kitty', '@', '--to', listen]
    term = agent_in(s, env, ['kitty', '-o', 'allow_remote_control=yes', '--listen-on', listen],
                    'in-kitty')
    window = wait_for(lambda: s.x(['xdotool', 'search', '--pid', str(term.p.pid)]).split(), 10,
                      'the kitty window')[0]
    # kitty draws with the software renderer here: its answers can take a while under load.
    subprocess.run([*kitty, 'launch', '--type=tab', 'sleep', '600'], env=s.env, check=True,
                   capture_output=True, timeout=60)

    def agent_tab_focused():
        ls = subprocess.run([*kitty, 'ls'], env=s.env, capture_output=True, timeout=60).stdout
        tabs = [t for w in json.loads(ls) for t in w['tabs']]
        return next(t['is_focused'] for t in tabs for w in t['windows']
                    if 'fake_agent.py' in ' '.join(w['cmdline']))
    wait_for(lambda: not agent_tab_focused(), 5, 'the new tab in front of the agent')
    s.xdotool('windowactivate', xterm)
    wait_for(lambda: active() == xterm, 5, 'the xterm window active again')
    jump(s, env, 'in-kitty')
    wait_for(agent_tab_focused, 5, "the agent's kitty tab selected after the jump")
    wait_for(lambda: active() == window, 5, 'the kitty window active after the jump')


def jump_selects_the_gnome_terminal_tab(s):
    """An agent in the first of two GNOME Terminal tabs, behind another of its windows: its
    search provider selects the tab and the tab's window becomes the active one."""
    if not shutil.which('gnome-terminal'):
        raise Skipped('gnome-terminal is not installed')
    env = s.home({'onboarded': True})
    # Its search provider is off by default; the setting lives in the test's home.
    settings = os.path.join(env['XDG_CONFIG_HOME'], 'glib-2.0', 'settings')
    os.makedirs(settings)
    with open(os.path.join(settings, 'keyfile'), 'w') as f:
        f.write('[org/gnome/terminal/legacy]\nshell-integration-enabled=true\n')
    env['GSETTINGS_BACKEND'] = 'keyfile'
    s.vantler(env, 'daemon')
    server = s.start(['/usr/libexec/gnome-terminal-server'], env)
    owned = ['gdbus', 'call', '--session', '--dest', 'org.freedesktop.DBus', '--object-path',
             '/org/freedesktop/DBus', '--method', 'org.freedesktop.DBus.NameHasOwner',
             'org.gnome.Terminal']
    wait_for(lambda: 'true' in s.x(owned) or not server.running(), 10, 'GNOME Terminal on the bus')
    check(server.running(), 'gnome-terminal-server exited: ' + server.output('.err')[-500:])
    active = lambda: s.x(['xdotool', 'getactivewindow', 'getwindowname']).strip()
    s.start(['gnome-terminal', '--wait', '-t', 'elsewhere', '--', 'sleep', '600'], env)
    wait_for(lambda: active() == 'elsewhere', 10, 'the first GNOME Terminal window')
    agent_in(s, env, ['gnome-terminal', '--wait', '-t', 'agent', '--'], 'in-gnome-terminal')
    wait_for(lambda: active() == 'agent', 10, "the agent's window")
    s.xdotool('key', 'ctrl+shift+t')  # a second tab, with a shell that names it
    wait_for(lambda: active() not in ('', 'agent'), 10, 'a second tab in front of the agent')
    s.xdotool('search', '--name', '^elsewhere$', 'windowactivate')
    wait_for(lambda: active() == 'elsewhere', 5, 'the other window active again')
    jump(s, env, 'in-gnome-terminal')
    wait_for(lambda: active() == 'agent', 5, "the agent's tab in the active window after the jump")


def jump_selects_the_konsole_tab(s):
    """An agent in the first of two Konsole tabs, its window behind another: Konsole's D-Bus
    selects the tab and the window becomes the active one."""
    if not shutil.which('konsole'):
        raise Skipped('konsole is not installed')
    env = s.home({'onboarded': True})
    s.vantler(env, 'daemon')
    # Konsole's window is named after its current tab's program: the agent's is python3.
    active = lambda: s.x(['xdotool', 'getactivewindow', 'getwindowname']).strip()
    agent_in(s, env, ['konsole', '-e'], 'in-konsole')
    wait_for(lambda: 'python3' in active(), 20, "the agent's Konsole window")
    s.xdotool('key', 'ctrl+shift+t')  # a second tab, with a shell
    wait_for(lambda: 'bash' in active(), 10, 'a second tab in front of the agent')
    s.click(W - 50, H - 50)  # the window under everything takes the focus
    wait_for(lambda: 'Konsole' not in active(), 5, 'the focus away from Konsole')
    jump(s, env, 'in-konsole')
    wait_for(lambda: 'python3' in active(), 5, "the agent's tab active after the jump")


def no_display(s):
    env = s.home({'onboarded': True})
    del env['DISPLAY']
    code, out = s.command(env)
    lines = out.strip().splitlines()
    check(code != 0 and len(lines) == 1 and 'vantler daemon' in lines[0],
          f'without a display: exit {code}, output {out!r}')


if __name__ == '__main__':
    main(X11, [rest_hover_and_click_through, peek_and_allow, questions_answered_in_panel,
         reply_typed_in_panel, drag_and_remembered_place, second_instance_takes_over,
         commands_and_theme_following_the_desktop, onboarding_and_login_item,
         jump_raises_the_terminal, jump_selects_the_gnome_terminal_tab,
         jump_selects_the_konsole_tab, reply_dictated, no_display],
         ('Xvfb',))
