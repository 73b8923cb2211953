#!/usr/bin/env python3
"""The desktop app on a Wayland compositor with layer-shell: headless sway, the real `vantler`
and `vantler-hook`, checked on grim screenshots. Headless sway has no input device, so wayvnc
supplies a virtual pointer and `swaymsg seat - cursor` drives it.
Usage: sway_test.py BUILD_DIR [case ...]"""
import json
import os
import pwd
import subprocess
import sys

sys.dont_write_bytecode = True  # keep the source tree clean
from harness import (H, W, Desktop, agent_in, check, fixture, jump, main, opened,
                     pill_click_through_and_hover, skip, top_pill, wait_for)

USER = 'vantlertest'  # sway refuses to run as root


class Sway(Desktop):
    def setup(self):
        self.user = None
        if os.geteuid() == 0:
            if subprocess.run(['id', USER], capture_output=True).returncode != 0 and \
                    subprocess.run(['useradd', '-M', '-s', '/usr/sbin/nologin', USER]).returncode:
                skip(f'cannot create the user {USER} to run sway as')
            self.user = pwd.getpwnam(USER)
            for path in (self.build, HERE_FILE):
                if subprocess.run(['runuser', '-u', USER, '--', 'test', '-r', path]).returncode:
                    skip(f'{path} is not readable by {USER}')
        config = os.path.join(self.tmp, 'sway.conf')
        with open(config, 'w') as f:
            f.write(f'xwayland disable\noutput HEADLESS-1 resolution {W}x{H}\n'
                    'default_border none\n')
        run_dir = os.path.join(self.tmp, 'run')
        os.makedirs(run_dir, mode=0o700)
        self.own(self.tmp)
        self.env.update(HOME=self.tmp, XDG_RUNTIME_DIR=run_dir, NO_AT_BRIDGE='1',
                        WLR_BACKENDS='headless', WLR_LIBINPUT_NO_DEVICES='1',
                        WLR_RENDERER='pixman', GDK_BACKEND='wayland')
        sway = self.start(['sway', '-c', config])
        socket = wait_for(lambda: [n for n in os.listdir(run_dir) if n.startswith('sway-ipc')]
                          or not sway.running(), 10, 'sway')
        check(sway.running(), 'sway exited: ' + sway.output('.err')[-800:])
        self.env.update(SWAYSOCK=os.path.join(run_dir, socket[0]),
                        WAYLAND_DISPLAY=os.path.join(run_dir, 'wayland-1'))
        self.start_bus()
        self.start(['wayvnc', '--unix-socket', os.path.join(self.tmp, 'vnc')])
        wait_for(lambda: '"pointer"' in self.swaymsg('-t', 'get_inputs'), 10, 'a pointer')
        self.clicker()
        self.mouse(100, 900)

    def own(self, path):
        if self.user:
            subprocess.run(['chown', '-R', f'{self.user.pw_uid}:{self.user.pw_gid}', path],
                           check=True)

    def wrap(self, argv, env):
        if not self.user:
            return argv
        return ['runuser', '-u', USER, '--', 'env', *(f'{k}={v}' for k, v in env.items()), *argv]

    def home(self, defaults=None):
        env = super().home(defaults)
        self.own(env['HOME'])
        return env

    def swaymsg(self, *args):
        return subprocess.run(self.wrap(['swaymsg', *args], self.env), capture_output=True,
                              text=True, timeout=10).stdout

    def mouse(self, x, y):
        self.pointer = (x, y)
        self.swaymsg('seat', '-', 'cursor', 'set', str(x), str(y))

    def click(self, x, y):
        self.mouse(x, y)
        self.swaymsg('seat', '-', 'cursor', 'press', 'button1')
        self.swaymsg('seat', '-', 'cursor', 'release', 'button1')

    def grab(self, path):
        subprocess.run(self.wrap(['grim', '-t', 'ppm', path], self.env), check=True, timeout=20)


HERE_FILE = os.path.abspath(__file__)


def views(s):
    def walk(node):
        yield from (n for c in node.get('nodes', []) + node.get('floating_nodes', [])
                    for n in [c, *walk(c)])
    return [n for n in walk(json.loads(s.swaymsg('-t', 'get_tree')))
            if n.get('type') in ('con', 'floating_con') and n.get('pid')]


def windows(s):
    return [n.get('app_id') or n.get('name') for n in views(s)]


def focused(s):
    return next((n.get('app_id') for n in views(s) if n.get('focused')), None)


def layer_surface_pill_click_through_and_hover(s):
    pill_click_through_and_hover(s, 'sway')


def layer_peek_then_quit_releases(s):
    env = s.home({'onboarded': True, 'autoOpen': True})
    app = s.vantler(env)
    s.wait_drawn(top_pill, 20, 'the pill')
    check(windows(s) == ['clicker'], f'vantler shows a normal window, not a layer: {windows(s)}')
    hook = s.hook(env, fixture('claude_permission.json'))
    s.wait_drawn(opened, 5, 'the panel peeking at a permission request', 'sway-peeking')
    check(s.command(env, 'quit')[0] == 0, 'vantler quit failed')
    app.wait(5, 'vantler after quit')
    check(hook.wait(5, 'the hook after quit') == 0 and hook.output() == '',
          'the released hook printed ' + hook.output())


def jump_focuses_the_terminal(s):
    env = s.home({'onboarded': True})
    s.vantler(env)
    agent_in(s, env, ['foot'], 'in-foot')
    wait_for(lambda: 'foot' in windows(s), 10, 'the foot window')
    s.swaymsg('[app_id=clicker] focus')
    wait_for(lambda: focused(s) == 'clicker', 5, 'the focus on the click window')
    jump(s, env, 'in-foot')
    wait_for(lambda: focused(s) == 'foot', 5, 'the foot window focused after the jump')


if __name__ == '__main__':
    main(Sway, [layer_surface_pill_click_through_and_hover, layer_peek_then_quit_releases,
                jump_focuses_the_terminal],
         ('sway', 'grim', 'wayvnc'))
