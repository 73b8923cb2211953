#!/usr/bin/env python3
"""The desktop app on a Wayland compositor with layer-shell: headless sway, the real `vantler`
and `vantler-hook`, checked on grim screenshots. Headless sway has no input device, so wayvnc
supplies a virtual pointer, driven through its VNC socket (sway forwards no warp made with
`swaymsg seat - cursor` while a button is held, so a drag needs real pointer motion).
Usage: sway_test.py BUILD_DIR [case ...]"""
import json
import os
import pwd
import socket
import struct
import subprocess
import sys

sys.dont_write_bytecode = True  # keep the source tree clean
from harness import (H, W, Desktop, agent_in, check, drag_restart_place_kept, fixture, jump, main,
                     opened, pill_click_through_and_hover, skip, wait_for)

USER = 'vantlertest'  # sway refuses to run as root


class Vnc:
    """The RFB client side, just enough to move wayvnc's virtual pointer and press its left
    button: no security, no framebuffer."""

    def __init__(self, path):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(5)
        self.sock.connect(path)
        check(self.read(12).startswith(b'RFB 003.'), 'not a VNC server')
        self.sock.sendall(b'RFB 003.008\n')
        offered = self.read(self.read(1)[0])
        check(1 in offered, f'the VNC server asks for authentication ({list(offered)})')
        self.sock.sendall(b'\x01')
        check(struct.unpack('>I', self.read(4))[0] == 0, 'the VNC server refused us')
        self.sock.sendall(b'\x01')  # shared
        self.read(20)  # size and pixel format
        self.read(struct.unpack('>I', self.read(4))[0])  # desktop name
        self.mask, self.at = 0, (0, 0)

    def read(self, n):
        data = b''
        while len(data) < n:
            chunk = self.sock.recv(n - len(data))
            check(chunk, 'the VNC server closed the connection')
            data += chunk
        return data

    def pointer(self, at=None, down=None):
        self.at = at or self.at
        self.mask = self.mask if down is None else int(down)
        self.sock.sendall(struct.pack('>BBHH', 5, self.mask, *self.at))


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
        vnc = os.path.join(self.tmp, 'vnc')
        self.start(['wayvnc', '--unix-socket', vnc])
        wait_for(lambda: os.path.exists(vnc), 10, 'wayvnc')
        self.vnc = Vnc(vnc)
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
        self.vnc.pointer(at=(x, y))

    def click(self, x, y):
        self.mouse(x, y)
        self.button(True)
        self.button(False)

    def button(self, down):
        self.vnc.pointer(down=down)

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
    env, app, _ = s.started({'autoOpen': True})
    check(windows(s) == ['clicker'], f'vantler shows a normal window, not a layer: {windows(s)}')
    hook = s.hook(env, fixture('claude_permission.json'))
    s.wait_drawn(opened, 5, 'the panel peeking at a permission request', 'sway-peeking')
    check(s.command(env, 'quit')[0] == 0, 'vantler quit failed')
    app.wait(5, 'vantler after quit')
    check(hook.wait(5, 'the hook after quit') == 0 and hook.output() == '',
          'the released hook printed ' + hook.output())


def layer_drag_and_remembered_place(s):
    drag_restart_place_kept(s, 'sway')


def jump_focuses_the_terminal(s):
    env, _, _ = s.started(pill=False)
    agent_in(s, env, ['foot'], 'in-foot')
    wait_for(lambda: 'foot' in windows(s), 10, 'the foot window')
    s.swaymsg('[app_id=clicker] focus')
    wait_for(lambda: focused(s) == 'clicker', 5, 'the focus on the click window')
    jump(s, env, 'in-foot')
    wait_for(lambda: focused(s) == 'foot', 5, 'the foot window focused after the jump')


if __name__ == '__main__':
    main(Sway, [layer_surface_pill_click_through_and_hover, layer_peek_then_quit_releases,
                layer_drag_and_remembered_place, jump_focuses_the_terminal],
         ('sway', 'grim', 'wayvnc'))
