"""Shared pieces of the desktop tests: a private display with its session and accessibility
buses, temporary homes, the real `vantler` and `vantler-hook`, screenshots read back as pixels,
and a runner that reports each case."""
import json
import os
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import traceback

BACKGROUND = (42, 90, 160)  # the click window under the panel
W, H = 1600, 1000  # the screen of every desktop test
HERE = os.path.dirname(os.path.abspath(__file__))


class Failure(Exception):
    pass


class Skipped(Exception):
    """A case that cannot run here: a program it needs is missing."""


def skip(why):
    print('SKIP: ' + why)
    sys.exit(77)


def check(cond, what):
    if not cond:
        raise Failure(what)


def wait_for(probe, seconds, what, step=0.1):
    deadline = time.monotonic() + seconds
    while not (value := probe()):
        if time.monotonic() > deadline:
            raise Failure(f'{what}: not after {seconds} s')
        time.sleep(step)
    return value


def fixture(name):
    with open(os.path.join(HERE, '..', 'fixtures', name), 'rb') as f:
        return f.read()


class Image:
    """An RGB screenshot; boxes are (x0, y0, x1, y1), end exclusive."""

    def __init__(self, ppm):
        head = re.match(rb'P6\s+(\d+)\s+\d+\s+255\s', ppm)  # one blank before the pixels
        check(head, 'screenshot is not an 8-bit PPM')
        self.w, self.data = int(head[1]), bytearray(ppm[head.end():])

    def paint(self, box, colour):
        x0, x1 = max(box[0], 0), min(box[2], self.w)
        for y in range(max(box[1], 0), min(box[3], len(self.data) // 3 // self.w)):
            self.data[(y * self.w + x0) * 3:(y * self.w + x1) * 3] = bytes(colour) * (x1 - x0)

    def drawn(self, bg, box):
        """Bounding box of the pixels that are not the background colour, or None."""
        x0, y0, x1, y1 = box
        plain, found = bytes(bg) * (x1 - x0), None
        for y in range(y0, y1):
            row = self.data[(y * self.w + x0) * 3:(y * self.w + x1) * 3]
            if row != plain:
                xs = [i // 3 for i in range(0, len(row), 3) if row[i:i + 3] != plain[:3]]
                a, b = x0 + xs[0], x0 + xs[-1] + 1
                found = (min(found[0], a), found[1], max(found[2], b), y + 1) if found \
                    else (a, y, b, y + 1)
        return found

    def luminance(self, box):
        x0, y0, x1, y1 = box
        rows = [self.data[(y * self.w + x0) * 3:(y * self.w + x1) * 3] for y in range(y0, y1)]
        return sum(map(sum, rows)) / (3 * (x1 - x0) * (y1 - y0))


class Proc:
    """A started program in its own process group, stdout and stderr in log files."""

    def __init__(self, argv, shown, env, log, stdin=None, pass_fds=()):
        self.argv, self.log = shown, log
        self.p = subprocess.Popen(argv, env=env, stdout=open(log, 'wb'),
                                  stderr=open(log + '.err', 'wb'), start_new_session=True,
                                  stdin=subprocess.DEVNULL if stdin is None else subprocess.PIPE,
                                  pass_fds=pass_fds)
        if stdin is not None:
            try:
                self.p.stdin.write(stdin)
                self.p.stdin.close()
            except BrokenPipeError:  # it exited without reading: its exit status tells
                pass

    def running(self):
        return self.p.poll() is None

    def wait(self, seconds, what):
        try:
            return self.p.wait(seconds)
        except subprocess.TimeoutExpired:
            raise Failure(f'{what}: still running after {seconds} s')

    def output(self, suffix=''):
        with open(self.log + suffix, 'rb') as f:
            return f.read().decode(errors='replace')

    def stop(self):
        for sig in (signal.SIGTERM, signal.SIGKILL):
            if self.running():
                try:
                    os.killpg(self.p.pid, sig)
                    self.p.wait(3)
                except (subprocess.TimeoutExpired, ProcessLookupError):
                    pass


class Desktop:
    """A private session: temporary directory, buses, processes, the app under test. Display
    servers subclass it with `setup`, `grab` (a PPM screenshot) and `mouse`."""

    def __init__(self, build):
        self.build = os.path.abspath(build)
        self.tmp = tempfile.mkdtemp(prefix='vantler-desktop-')
        os.chmod(self.tmp, 0o755)
        self.shots = os.path.join(self.build, 'screenshots')
        os.makedirs(self.shots, exist_ok=True)
        self.env = {k: v for k, v in os.environ.items()
                    if k not in ('NO_AT_BRIDGE', 'GTK_A11Y', 'WAYLAND_DISPLAY', 'DISPLAY',
                                 'DBUS_SESSION_BUS_ADDRESS', 'XDG_RUNTIME_DIR', 'VANTLER_DEMO')}
        self.procs, self.base, self.failures, self.pointer = [], 0, 0, None

    def wrap(self, argv, env):
        """The command line that runs `argv` as the desktop's user."""
        return argv

    def start(self, argv, env=None, stdin=None, pass_fds=()):
        env = env or self.env
        log = os.path.join(self.tmp, f'{len(self.procs)}-{os.path.basename(argv[0])}.log')
        self.procs.append(Proc(self.wrap(argv, env), argv, env, log, stdin, pass_fds))
        return self.procs[-1]

    def read_line(self, argv, seconds, what):
        """Starts a program that reports readiness with one line on the pipe `argv(fd)`."""
        r, w = os.pipe()
        proc = self.start(argv(w), pass_fds=(w,))
        os.close(w)
        data, deadline = b'', time.monotonic() + seconds
        while b'\n' not in data and \
                select.select([r], [], [], max(0, deadline - time.monotonic()))[0]:
            data += os.read(r, 4096) or b'\n'
        os.close(r)
        check(data.strip(), f'{what} did not start: {proc.output(".err")[-500:]}')
        return data.decode().strip()

    def start_bus(self):
        self.env['DBUS_SESSION_BUS_ADDRESS'] = self.read_line(
            lambda w: ['dbus-daemon', '--session', '--nofork', f'--print-address={w}'],
            10, 'dbus-daemon')
        self.start(['/usr/libexec/at-spi-bus-launcher', '--launch-immediately'])

    def home(self, defaults=None):
        """A fresh home with `defaults` as preferences; the app's environment."""
        home = tempfile.mkdtemp(prefix='home', dir=self.tmp)
        os.makedirs(os.path.join(home, '.config/vantler'))
        os.makedirs(os.path.join(home, 'run'), 0o700)
        if defaults is not None:
            with open(os.path.join(home, '.config/vantler/defaults.json'), 'w') as f:
                json.dump(defaults, f)
        return dict(self.env, HOME=home, XDG_CONFIG_HOME=os.path.join(home, '.config'),
                    XDG_RUNTIME_DIR=os.path.join(home, 'run'))

    def vantler(self, env, *args):
        return self.start([os.path.join(self.build, 'vantler'), *args], env)

    def started(self, defaults=None, pill=True, **extra):
        """The app in a fresh home, onboarded, with `defaults` added to its preferences and
        `extra` to its environment: the environment, the app and (with `pill`) its pill."""
        env = dict(self.home(dict({'onboarded': True}, **(defaults or {}))), **extra)
        app = self.vantler(env)
        return env, app, pill and self.wait_drawn(top_pill, 20, 'the pill')

    def command(self, env, *args):
        """Runs a `vantler` command to its end: exit code, stdout + stderr."""
        proc = self.vantler(env, *args)
        code = proc.wait(10, 'vantler ' + ' '.join(args))
        return code, proc.output() + proc.output('.err')

    def hook(self, env, payload, agent='claude'):
        return self.start([os.path.join(self.build, 'vantler-hook'), agent], env, payload)

    def drawn(self, name=None):
        """What is drawn over the click window (bounding box), and the screenshot."""
        path = os.path.join(self.tmp, 'shot.ppm')
        self.grab(path)
        if name:
            subprocess.run(['convert', path, os.path.join(self.shots, name + '.png')],
                           check=True, timeout=20)
        with open(path, 'rb') as f:
            img = Image(f.read())
        if self.pointer:  # compositors that draw the pointer into screenshots
            x, y = self.pointer
            img.paint((x - 8, y - 8, x + 32, y + 32), BACKGROUND)
        return img.drawn(BACKGROUND, (0, 0, W, H - 1)), img

    def wait_drawn(self, shape, seconds, what, name=None):
        """Waits until what is drawn has `shape`; a screenshot named `name` then."""
        try:
            box = wait_for(lambda: shape(self.drawn()[0]), seconds, what, step=0.25)
        except Failure as e:
            self.failures += 1
            box = self.drawn(f'failed-{self.failures}')[0]
            raise Failure(f'{e} (drawn: {box}, screenshots/failed-{self.failures}.png)')
        return shape(self.drawn(name)[0]) or box if name else box

    def clicker(self):
        """A window under everything, filled with BACKGROUND, that logs the clicks it gets."""
        proc = self.start(['/usr/bin/python3', os.path.join(HERE, 'clicker.py')])
        wait_for(lambda: 'ready' in proc.output() or not proc.running(), 10, 'click window')
        check(proc.running(), 'click window: ' + proc.output('.err')[-500:])
        self.base = len(self.procs)

    def clicks(self):
        return [tuple(map(int, line.split()[1:])) for line in self.procs[self.base - 1].output()
                .splitlines() if line.startswith('click ')]

    def click_through(self, *points):
        """Clicks each point and waits for the window under the panel to receive them all."""
        seen = len(self.clicks())
        for x, y in points:
            self.click(x, y)
        wait_for(lambda: all(any(abs(cx - x) <= 2 and abs(cy - y) <= 2
                                 for cx, cy in self.clicks()[seen:]) for x, y in points), 5,
                 f'clicks at {points} reaching the window below (got {self.clicks()[seen:]})')

    def stop_all(self, keep=0):
        for proc in reversed(self.procs[keep:]):
            proc.stop()
        del self.procs[keep:]


def agent_in(s, env, terminal, session):
    """Starts `terminal` (its argv up to the command it runs) with a fake agent that reports
    `session`; returns the terminal once Vantler knows the session."""
    wait_for(lambda: s.command(env, 'state')[0] == 0, 15, 'Vantler listening')
    proc = s.start([*terminal, '/usr/bin/python3', os.path.join(HERE, 'fake_agent.py'), s.build,
                    session], env)
    wait_for(lambda: f'"claude:{session}"' in s.command(env, 'state')[1] or not proc.running(),
             15, f'the session {session} reported from {terminal[0]}')
    check(proc.running(), f'{terminal[0]} exited: ' + proc.output('.err')[-500:])
    return proc


def jump(s, env, session):
    code, out = s.command(env, 'jump', 'claude:' + session)
    check(code == 0, f'vantler jump failed: {out}')


def centre(box):
    return (box[0] + box[2]) // 2, (box[1] + box[3]) // 2


def pill(box):
    return box if box and box[3] - box[1] <= 80 and box[2] - box[0] <= 500 else None


def top_pill(box):
    return box if pill(box) and abs(centre(box)[0] - W // 2) <= 30 and box[1] <= 12 else None


def opened(box):
    return box if box and box[3] - box[1] >= 150 else None


def pill_click_through_and_hover(s, prefix):
    """The pill alone at the top centre; clicks beside and below it reach the window under the
    panel; hovering opens the panel and leaving closes it again."""
    env = s.home({'onboarded': True})
    app = s.vantler(env)
    box = s.wait_drawn(top_pill, 20, 'the pill at the top centre, nothing else drawn',
                       prefix + '-at-rest')
    s.click_through((box[0] - 150, 10), (W // 2, 300))
    s.mouse(W // 2, box[1] + 5)
    s.wait_drawn(opened, 5, 'the panel opened by hovering the pill', prefix + '-open-hover')
    s.mouse(W // 2, 900)
    s.wait_drawn(top_pill, 5, 'the panel collapsed after the pointer left')
    check(app.running(), 'vantler exited')


def drag_restart_place_kept(s, prefix):
    """The open panel dragged by its strip and dropped lower left becomes a pill there; the
    place is stored and kept across a restart."""
    env, app, box = s.started()
    s.mouse(W // 2, box[1] + 5)
    box = s.wait_drawn(opened, 5, 'the panel opened by hovering')
    x, y = box[0] + 120, box[1] + 20  # on the strip, beside its title
    s.mouse(x, y)
    s.button(True)
    for dx in (3, 6, 9):  # a few points along the strip first, as a hand would
        s.mouse(x + dx, y)
        time.sleep(0.05)
    for i in range(1, 21):
        s.mouse(x + (400 - x) * i // 20, y + (600 - y) * i // 20)
        time.sleep(0.02)
    s.button(False)
    s.mouse(W - 100, H - 100)

    def near_drop(b):
        return b if pill(b) and abs(centre(b)[0] - 400) <= 80 and abs(centre(b)[1] - 600) <= 80 \
            else None
    dropped = s.wait_drawn(near_drop, 5, 'the pill where it was dropped near (400, 600)',
                           prefix + '-dragged')
    with open(os.path.join(env['XDG_CONFIG_HOME'], 'vantler/defaults.json')) as f:
        check('placement.screen' in json.load(f), 'no placement stored after the drop')
    check(s.command(env, 'quit')[0] == 0, 'vantler quit failed')
    app.wait(5, 'vantler after quit')
    s.vantler(env)
    again = s.wait_drawn(near_drop, 20, 'the pill at the remembered place after a restart',
                         prefix + '-restarted-at-place')
    check(all(abs(a - b) <= 4 for a, b in zip(again, dropped)),
          f'the pill moved from {dropped} to {again} across a restart')


def accessible(name, roles=('push button',), seconds=10):
    """The first accessible object in any application with one of `roles` and a name that
    starts with `name`."""
    import pyatspi
    pyatspi.setTimeout(3000, 15000)

    def look():
        for app in pyatspi.Registry.getDesktop(0):
            try:
                if app and app.name != 'clicker' and (found := pyatspi.findDescendant(
                        app, lambda n: n and n.getRoleName() in roles
                        and (n.name or '').startswith(name))):
                    return found
            except Exception:  # an application that went away while it was walked
                pass
    return wait_for(look, seconds, f'accessible {"/".join(roles)} "{name}"', step=0.3)


def press(name, roles=('push button',)):
    check(accessible(name, roles).queryAction().doAction(0), f'"{name}" refused its action')


def extents(node):
    import pyatspi
    e = node.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
    return e.x, e.y, e.width, e.height


def main(desktop, cases, tools):
    """Sets up the desktop and runs each case (or those named after the build directory);
    exit status 1 if any failed, 77 when a tool the desktop needs is missing."""
    for tool in tools:
        if not shutil.which(tool):
            skip(f'{tool} is not installed')
    try:
        import gi  # noqa: F401
    except ImportError:  # pyenv and venv interpreters lack Debian's gi and pyatspi
        if sys.executable != '/usr/bin/python3' and os.path.exists('/usr/bin/python3'):
            os.execv('/usr/bin/python3', ['/usr/bin/python3'] + sys.argv)
        raise
    if len(sys.argv) < 2:
        sys.exit(f'usage: {sys.argv[0]} BUILD_DIR [case ...]')
    # A test driver's SIGTERM (ctest's timeout) still stops every program started here.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit('FAIL: stopped from outside'))
    session, failed = desktop(sys.argv[1]), []
    chosen = [c for c in cases if c.__name__ in sys.argv[2:]] or cases
    try:
        session.setup()
        for case in chosen:
            started = time.monotonic()
            try:
                case(session)
                print(f'ok   {case.__name__} ({time.monotonic() - started:.1f} s)', flush=True)
            except Skipped as e:
                print(f'skip {case.__name__}: {e}', flush=True)
            except Exception as e:
                failed.append(case.__name__)
                print(f'FAIL {case.__name__}: ' +
                      (str(e) if isinstance(e, Failure) else traceback.format_exc()), flush=True)
                for proc in session.procs[session.base:]:
                    if 'vantler' in proc.argv[0] and (log := proc.output() + proc.output('.err')):
                        print(f'  [{" ".join(proc.argv[1:]) or "app"}] ' +
                              log[-1500:].replace('\n', '\n  '))
            finally:
                session.stop_all(session.base)
    except Failure as e:
        logs = ''.join(f'\n  [{p.argv[0]}] {p.output(".err")[-300:]}' for p in session.procs)
        sys.exit(f'FAIL setting up the desktop: {e}{logs}')
    finally:
        signal.signal(signal.SIGTERM, signal.SIG_IGN)  # nothing interrupts the cleaning up
        session.stop_all()
        shutil.rmtree(session.tmp, ignore_errors=True)
    print(f'{len(chosen) - len(failed)} of {len(chosen)} passed' +
          (': failed ' + ', '.join(failed) if failed else ''))
    sys.exit(1 if failed else 0)
