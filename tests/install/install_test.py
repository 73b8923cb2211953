"""Vantler as installed: `cmake --install` of a build into a temporary prefix, or a .deb unpacked
with dpkg-deb. The installed `vantler` starts, finds its page and its hook program, the hooks
run the installed `vantler-hook` (refreshed after an upgrade), and the desktop files name the
installed executable.
Usage: install_test.py BUILD_DIR [--deb FILE] [case ...]"""
import glob
import gzip
import json
import os
import random
import shutil
import socket
import struct
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(HERE, '..', 'desktop'))
from harness import Desktop, check, fixture, main, wait_for  # noqa: E402

APP_ID = 'dev.vantler.Vantler'
DEB = sys.argv[sys.argv.index('--deb') + 1] if '--deb' in sys.argv else None


class Installed(Desktop):
    def setup(self):
        if DEB:
            subprocess.run(['dpkg-deb', '-x', DEB, os.path.join(self.tmp, 'root')], check=True)
            self.prefix = os.path.join(self.tmp, 'root', 'usr')
            self.installed_bin = '/usr/bin'  # what the package's files name
        else:
            self.prefix = os.path.join(self.tmp, 'prefix')
            subprocess.run(['cmake', '--install', self.build, '--prefix', self.prefix],
                           check=True, stdout=subprocess.DEVNULL)
            self.installed_bin = os.path.join(self.prefix, 'bin')
        free = [n for n in range(200, 300) if not os.path.exists(f'/tmp/.X{n}-lock')]
        self.env['DISPLAY'] = ':' + self.read_line(
            lambda w: ['Xvfb', f':{random.choice(free)}', '-displayfd', str(w), '-screen', '0',
                       '1280x800x24', '-nolisten', 'tcp'], 15, 'Xvfb')
        self.start_bus()
        self.base = len(self.procs)  # the display and buses outlive each case

    def path(self, *parts):
        return os.path.join(self.prefix, *parts)

    def vantler(self, env, *args):
        return self.start([self.path('bin', 'vantler'), *args], env)


def read(path, mode='rb'):
    with open(path, mode) as f:
        return f.read()


def png_size(path):
    head = read(path)[:24]
    check(head[:8] == b'\x89PNG\r\n\x1a\n', f'{path} is not a PNG')
    return struct.unpack('>II', head[16:24])


def run(argv):
    p = subprocess.run(argv, capture_output=True, text=True, timeout=60)
    return p.returncode, p.stdout + p.stderr


def files_in_their_places(s):
    for exe in ('bin/vantler', 'libexec/vantler/vantler-hook'):
        check(os.access(s.path(exe), os.X_OK), f'{exe} is not an installed executable')
    check(os.path.isfile(s.path('share/vantler/web/index.html')), 'the page is not installed')

    desktop = s.path('share/applications', APP_ID + '.desktop')
    entry = read(desktop, 'r')
    execs = [line.split('=', 1)[1] for line in entry.splitlines() if line.startswith('Exec=')]
    want = f'"{s.installed_bin}/vantler"'
    check(execs and all(e.startswith(want) for e in execs),
          f'the menu entry runs {execs}, not {want}')
    check(f'Icon={APP_ID}\n' in entry, 'the menu entry names another icon')
    if shutil.which('desktop-file-validate'):
        code, out = run(['desktop-file-validate', desktop])
        check(code == 0 and not out.strip(), f'desktop-file-validate: {out}')

    # Every icon of the source tree lands in the theme, whoever added it.
    icons = os.path.join(SOURCE, 'data', 'icons')
    for src in glob.glob(os.path.join(icons, '**', '*.*'), recursive=True):
        rel = os.path.relpath(src, icons)
        check(read(src) == read(s.path('share/icons', rel)), f'icon {rel} is not installed')
    for size in (48, 128) if glob.glob(os.path.join(s.build, 'icons', '*')) or DEB else ():
        png = s.path(f'share/icons/hicolor/{size}x{size}/apps/{APP_ID}.png')
        check(png_size(png) == (size, size), f'{png} is not {size}x{size}')

    man = glob.glob(s.path('share/man/man1/vantler.1*'))
    check(len(man) == 1, f'manual pages: {man}')
    page = gzip.decompress(read(man[0])) if man[0].endswith('.gz') else read(man[0])
    groff = subprocess.run(['groff', '-man', '-Tutf8', '-ww', '-z'], input=page,
                           capture_output=True, timeout=30)
    check(groff.returncode == 0 and not groff.stderr, f'groff: {groff.stderr.decode()}')
    # The manual covers every command of `vantler --help`.
    code, out = s.command(s.home(), '--help')
    commands = {line.split()[1] for line in out.splitlines()
                if line.startswith('  vantler ') and not line.split()[1].startswith(('-', '('))}
    text = page.decode()
    missing = [c for c in commands if f'.B {c}' not in text and f'.BR {c} ' not in text and
               f'.BI {c} ' not in text]
    check(code == 0 and commands and not missing, f'commands not in the manual: {missing}')

    if shutil.which('appstreamcli'):
        code, out = run(['appstreamcli', 'validate', '--no-net',
                         s.path('share/metainfo', APP_ID + '.metainfo.xml')])
        check(code == 0, f'appstreamcli: {out}')

    if DEB:
        code, depends = run(['dpkg-deb', '-f', DEB, 'Depends'])
        for lib in ('libwebkit2gtk-4.1-0', 'libgtk-3-0', 'libglib2.0-0', 'libicu72'):
            check(lib in depends, f'Depends lacks {lib}: {depends}')
        if shutil.which('apt-get'):
            code, out = run(['apt-get', 'install', '--simulate', os.path.abspath(DEB)])
            check(code == 0 and 'Inst vantler' in out, f'apt-get cannot install it: {out[-800:]}')


def control(env, command):
    """Sends a control command to the running instance; its answer."""
    with socket.socket(socket.AF_UNIX) as c:
        c.settimeout(5)
        c.connect(os.path.join(env['HOME'], '.vantler/run/vantler.sock'))
        c.sendall(json.dumps({'_command': command}).encode() + b'\n')
        return json.loads(c.makefile().readline())


def daemon(s, env):
    app = s.vantler(env, 'daemon')
    wait_for(lambda: os.path.exists(os.path.join(env['HOME'], '.vantler/run/vantler.sock'))
             or not app.running(), 10, 'the daemon listening')
    check(app.running(), 'the daemon stopped: ' + app.output('.err'))
    return app


def hooks_run_the_installed_program(s):
    env = s.home()
    home, copy = env['HOME'], os.path.join(env['HOME'], '.vantler/bin/vantler-hook')
    hook = s.path('libexec/vantler/vantler-hook')
    code, out = s.command(env, 'connect', 'claude')
    check(code == 0 and read(copy) == read(hook), f'connect: {out}; the copy is not the hook')

    app = daemon(s, env)
    event = fixture('claude_turn.jsonl').splitlines()[0]
    ran = s.start([copy, 'claude'], env, event)
    check(ran.wait(5, 'the hook') == 0, 'the hook failed')
    code, out = s.command(env, 'state')
    check(code == 0 and 'claude:4b1f2c9e' in out, f'the hook event is not in the state: {out}')
    # Open at login names the installed executable.
    check(control(env, {'type': 'setting', 'key': 'openAtLogin', 'value': True}).get('ok'),
          'openAtLogin refused')
    autostart = read(os.path.join(env['XDG_CONFIG_HOME'], 'autostart/vantler.desktop'), 'r')
    check(f'Exec="{s.path("bin", "vantler")}"\n' in autostart, f'autostart entry: {autostart}')
    app.stop()

    # An upgrade brings a new hook program; the next start puts it in place, also when only
    # another agent than Claude Code is connected.
    code, out = s.command(env, 'disconnect', 'claude')
    os.makedirs(os.path.join(home, '.gemini'))
    code2, out2 = s.command(env, 'connect', 'gemini')
    check(code == 0 and code2 == 0, f'reconnecting: {out} {out2}')
    upgraded = read(hook) + b'\0upgraded'
    with open(hook, 'wb') as f:
        f.write(upgraded)
    app = daemon(s, env)
    wait_for(lambda: read(copy) == upgraded, 10, 'the upgraded hook copied into place')
    ran = s.start([copy, 'gemini'], env, b'{"session_id":"g1","hook_event_name":"SessionStart",'
                  b'"cwd":"/w/api"}')
    check(ran.wait(5, 'the upgraded hook') == 0, 'the upgraded hook failed')
    wait_for(lambda: 'gemini:g1' in s.command(env, 'state')[1], 5, 'the gemini session')


def app_finds_its_page(s):
    env = s.home({'onboarded': True})
    app = s.vantler(env)
    want = 'page: ' + os.path.realpath(s.path('share/vantler/web'))
    wait_for(lambda: want in app.output('.err') or not app.running(), 20, want)
    check(want in app.output('.err'), 'the app: ' + app.output('.err')[-800:])


if __name__ == '__main__':
    if DEB:
        i = sys.argv.index('--deb')
        del sys.argv[i:i + 2]
    main(Installed, [files_in_their_places, hooks_run_the_installed_program, app_finds_its_page],
         ('Xvfb', 'dbus-daemon', 'groff'))
