"""Shared pieces of the desktop tests: a private display with a session bus and the
accessibility bus, temporary homes, the real `vantler` and `vantler-hook`, screenshots read
back as pixels, and a small runner that reports each case."""
import json
import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import traceback

SKIP = 77
BACKGROUND = (42, 90, 160)
W, H = 1600, 1000  # the screen of every desktop test
HERE = os.path.dirname(os.path.abspath(__file__))
FIXTURES = os.path.join(HERE, '..', 'fixtures')


class Failure(Exception):
    pass


def need_system_python():
    """pyenv and venv interpreters lack Debian's gi and pyatspi: run again under the system one."""
    try:
        import gi  # noqa: F401
    except ImportError:
        if os.path.exists('/usr/bin/python3') and sys.executable != '/usr/bin/python3':
            os.execv('/usr/bin/python3', ['/usr/bin/python3'] + sys.argv)
        raise


def skip(why):
    print('SKIP: ' + why)
    sys.exit(SKIP)


def check(cond, what):
    if not cond:
        raise Failure(what)


def wait_for(probe, seconds, what, step=0.1):
    deadline = time.monotonic() + seconds
    while True:
        value = probe()
        if value:
            return value
        if time.monotonic() > deadline:
            raise Failure(f'{what}: not after {seconds} s')
        time.sleep(step)


def fixture(name):
    with open(os.path.join(FIXTURES, name), 'rb') as f:
        return f.read()


class Image:
    """An RGB screenshot; `box` arguments are (x0, y0, x1, y1), end exclusive."""

    def __init__(self, ppm):
        parts = ppm.split(maxsplit=4)
        check(parts[0] == b'P6' and parts[3] == b'255', 'screenshot is not an 8-bit PPM')
        self.w, self.h, self.data = int(parts[1]), int(parts[2]), bytearray(parts[4])

    def paint(self, box, colour):
        x0, y0, x1, y1 = max(box[0], 0), max(box[1], 0), min(box[2], self.w), min(box[3], self.h)
        for y in range(y0, y1):
            self.data[(y * self.w + x0) * 3:(y * self.w + x1) * 3] = bytes(colour) * (x1 - x0)

    def pixel(self, x, y):
        i = (y * self.w + x) * 3
        return tuple(self.data[i:i + 3])

    def drawn(self, bg, box=None):
        """Bounding box and count of the pixels that are not the background colour."""
        x0, y0, x1, y1 = box or (0, 0, self.w, self.h)
        plain = bytes(bg) * (x1 - x0)
        found, n = None, 0
        for y in range(y0, y1):
            row = self.data[(y * self.w + x0) * 3:(y * self.w + x1) * 3]
            if row == plain:
                continue
            xs = [x0 + i // 3 for i in range(0, len(row), 3) if row[i:i + 3] != plain[:3]]
            n += len(xs)
            a, b = xs[0], xs[-1] + 1
            found = (a, y, b, y + 1) if not found else (
                min(found[0], a), found[1], max(found[2], b), y + 1)
        return found, n

    def luminance(self, box):
        x0, y0, x1, y1 = box
        total = sum(sum(self.pixel(x, y)) for y in range(y0, y1, 2) for x in range(x0, x1, 2))
        return total / (3 * len(range(y0, y1, 2)) * len(range(x0, x1, 2)))


class Proc:
    """A started program in its own process group, its output in a log file."""

    def __init__(self, argv, env, log, stdin=None, pass_fds=()):
        self.argv, self.log = argv, log
        self.out = open(log, 'wb')
        self.p = subprocess.Popen(argv, env=env, stdout=self.out, stderr=subprocess.STDOUT,
                                  stdin=subprocess.PIPE if stdin is not None else subprocess.DEVNULL,
                                  start_new_session=True, pass_fds=pass_fds)
        if stdin is not None:
            try:
                self.p.stdin.write(stdin)
                self.p.stdin.close()
            except BrokenPipeError:  # it exited without reading: its exit status tells
                pass

    def running(self):
        return self.p.poll() is None

    def wait(self, seconds, what=None):
        try:
            return self.p.wait(seconds)
        except subprocess.TimeoutExpired:
            raise Failure(f'{what or self.argv[0]} still running after {seconds} s')

    def output(self):
        self.out.flush()
        with open(self.log, 'rb') as f:
            return f.read().decode(errors='replace')

    def stop(self):
        if self.running():
            try:
                os.killpg(self.p.pid, signal.SIGTERM)
                self.p.wait(3)
            except (subprocess.TimeoutExpired, ProcessLookupError):
                try:
                    os.killpg(self.p.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
                self.p.wait(3)
        self.out.close()


class Desktop:
    """Base of a private session: temporary directory, bus, processes, the app under test."""

    def __init__(self, build):
        self.build = os.path.abspath(build)
        self.tmp = tempfile.mkdtemp(prefix='vantler-desktop-')
        os.chmod(self.tmp, 0o755)
        self.shots = os.path.join(self.build, 'screenshots')
        os.makedirs(self.shots, exist_ok=True)
        self.env = {k: v for k, v in os.environ.items()
                    if k not in ('NO_AT_BRIDGE', 'GTK_A11Y', 'WAYLAND_DISPLAY', 'DISPLAY',
                                 'DBUS_SESSION_BUS_ADDRESS', 'XDG_RUNTIME_DIR', 'VANTLER_DEMO')}
        self.procs = []
        self.homes = 0
        self.base = 0
        self.failures = 0
        self.pointer = None

    def wrap(self, argv, env):
        """The command line that runs `argv` as the desktop's user."""
        return argv

    def start(self, argv, env=None, name=None, stdin=None):
        name = name or os.path.basename(argv[0])
        env = env or self.env
        proc = Proc(self.wrap(argv, env), env,
                    os.path.join(self.tmp, f'{name}-{len(self.procs)}.log'), stdin)
        proc.argv = argv
        self.procs.append(proc)
        return proc

    def read_line(self, proc_argv, seconds, what):
        """Starts a program that reports readiness with one line on a pipe."""
        r, w = os.pipe()
        proc = Proc(self.wrap(proc_argv(w), self.env), self.env,
                    os.path.join(self.tmp, f'{what}.log'), pass_fds=(w,))
        self.procs.append(proc)
        os.close(w)
        data, deadline = b'', time.monotonic() + seconds
        while b'\n' not in data and \
                select.select([r], [], [], max(0, deadline - time.monotonic()))[0]:
            chunk = os.read(r, 4096)
            if not chunk:
                break
            data += chunk
        os.close(r)
        line = data.decode().strip()
        check(line, f'{what} did not start: {proc.output()[-500:]}')
        return line

    def start_bus(self):
        self.env['DBUS_SESSION_BUS_ADDRESS'] = self.read_line(
            lambda w: ['dbus-daemon', '--session', '--nofork', f'--print-address={w}'],
            10, 'dbus-daemon')
        self.start(['/usr/libexec/at-spi-bus-launcher', '--launch-immediately'])

    def home(self, defaults=None):
        """A fresh home with its own config and runtime directories; the app's environment."""
        self.homes += 1
        home = os.path.join(self.tmp, f'home{self.homes}')
        for d in ('.config/vantler', 'run'):
            os.makedirs(os.path.join(home, d), exist_ok=True)
        os.chmod(os.path.join(home, 'run'), 0o700)
        if defaults is not None:
            with open(os.path.join(home, '.config/vantler/defaults.json'), 'w') as f:
                json.dump(defaults, f)
        env = dict(self.env, HOME=home, XDG_CONFIG_HOME=os.path.join(home, '.config'),
                   XDG_RUNTIME_DIR=os.path.join(home, 'run'))
        return env

    def vantler(self, env, *args):
        return self.start([os.path.join(self.build, 'vantler'), *args], env, 'vantler')

    def command(self, env, *args, seconds=10):
        """Runs a `vantler` command to its end; returns (exit code, output)."""
        proc = self.vantler(env, *args)
        code = proc.wait(seconds, 'vantler ' + ' '.join(args))
        return code, proc.output()

    def hook(self, env, payload, agent='claude'):
        return self.start([os.path.join(self.build, 'vantler-hook'), agent], env, 'hook', payload)

    def shot(self, name=None):
        path = os.path.join(self.tmp, 'shot.ppm')
        self.grab(path)
        if name:
            self.save(name, path)
        with open(path, 'rb') as f:
            return Image(f.read())

    def drawn(self, name=None):
        """What is drawn over the click window: its bounding box, and the screenshot."""
        img = self.shot(name)
        if self.pointer:  # a compositor that draws the pointer into its screenshots
            x, y = self.pointer
            img.paint((x - 8, y - 8, x + 32, y + 32), BACKGROUND)
        return img.drawn(BACKGROUND, (0, 0, W, H - 1))[0], img

    def wait_drawn(self, shape, seconds, what, name=None):
        try:
            box = wait_for(lambda: shape(self.drawn()[0]), seconds, what, step=0.25)
        except Failure as e:
            self.failures += 1
            box, _ = self.drawn(f'failed-{self.failures}')
            raise Failure(f'{e} (drawn: {box}, screenshots/failed-{self.failures}.png)')
        if name:
            box = shape(self.drawn(name)[0]) or box
        return box

    def save(self, name, image_path):
        dest = os.path.join(self.shots, name + '.png')
        subprocess.run(['convert', image_path, dest], check=True, timeout=20)
        return dest

    def stop_all(self, keep=0):
        for proc in reversed(self.procs[keep:]):
            proc.stop()
        del self.procs[keep:]

    def clicker(self):
        """A window filling the screen in BACKGROUND that logs the clicks it receives."""
        proc = self.start(['/usr/bin/python3', os.path.join(HERE, 'clicker.py')], name='clicker')
        wait_for(lambda: 'ready' in proc.output() or not proc.running(), 10, 'click window')
        check(proc.running(), 'click window: ' + proc.output()[-500:])
        self.base = len(self.procs)
        return proc

    def clicks(self):
        return [tuple(map(int, line.split()[1:])) for line in self.procs[self.base - 1].output()
                .splitlines() if line.startswith('click ')]

    def close(self):
        self.stop_all()
        shutil.rmtree(self.tmp, ignore_errors=True)


def centre(box):
    return (box[0] + box[2]) // 2, (box[1] + box[3]) // 2


def pill(box):
    return box if box and box[3] - box[1] <= 80 and box[2] - box[0] <= 500 else None


def top_pill(box):
    return box if pill(box) and abs(centre(box)[0] - W // 2) <= 30 and box[1] <= 12 else None


def opened(box):
    return box if box and box[3] - box[1] >= 150 else None


def accessible(name, roles=('push button',), seconds=10):
    """The first accessible object with one of `roles` whose name starts with `name`, in any
    application."""
    import pyatspi
    pyatspi.setTimeout(3000, 15000)

    def look():
        for app in pyatspi.Registry.getDesktop(0):
            if app is None or app.name == 'clicker':
                continue
            try:
                found = pyatspi.findDescendant(
                    app, lambda n: n is not None and n.getRoleName() in roles
                    and (n.name or '').startswith(name))
            except Exception:  # an application that went away while walked
                found = None
            if found:
                return found
        return None
    return wait_for(look, seconds, f'accessible {"/".join(roles)} "{name}"', step=0.3)


def press(name, roles=('push button',), seconds=10):
    node = accessible(name, roles, seconds)
    check(node.queryAction().doAction(0), f'"{name}" refused its action')
    return node


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
    need_system_python()
    if len(sys.argv) < 2:
        sys.exit(f'usage: {sys.argv[0]} BUILD_DIR [case ...]')
    session = desktop(sys.argv[1])
    chosen = sys.argv[2:] or [c.__name__ for c in cases]
    failed = []
    try:
        session.setup()
        for case in (c for c in cases if c.__name__ in chosen):
            started = time.monotonic()
            try:
                case(session)
                print(f'ok   {case.__name__} ({time.monotonic() - started:.1f} s)', flush=True)
            except Exception as e:
                failed.append(case.__name__)
                print(f'FAIL {case.__name__}: ' +
                      (str(e) if isinstance(e, Failure) else traceback.format_exc()), flush=True)
                for proc in session.procs[session.base:]:
                    if 'vantler' in proc.argv[0] and proc.output():
                        print(f'  [{" ".join(proc.argv[1:]) or "app"}] ' +
                              proc.output()[-1500:].replace('\n', '\n  '))
            finally:
                session.stop_all(session.base)
    except Failure as e:
        sys.exit(f'FAIL setting up the desktop: {e}')
    finally:
        session.close()
    print(f'{len(chosen) - len(failed)} of {len(chosen)} passed' +
          (': failed ' + ', '.join(failed) if failed else ''))
    sys.exit(1 if failed else 0)
