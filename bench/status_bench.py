"""How soon `vantler status --follow --format waybar` prints a new line after a hook event, against
the real daemon and the real `vantler-hook`, and how many lines it prints while nothing changes.
Usage: status_bench.py BUILD_DIR [EVENTS]"""
import json
import os
import select
import shutil
import statistics
import subprocess
import sys
import tempfile
import time


def main():
    build = os.path.abspath(sys.argv[1])
    events = int(sys.argv[2]) if len(sys.argv) > 2 else 40
    home = tempfile.mkdtemp(prefix='vantler-status-bench-')
    env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, '.config'))
    env.pop('VANTLER_DEMO', None)
    daemon = subprocess.Popen([os.path.join(build, 'vantler'), 'daemon'], env=env,
                              stderr=subprocess.DEVNULL)
    follow = None
    try:
        sock = os.path.join(home, '.vantler/run/vantler.sock')
        for _ in range(500):
            if os.path.exists(sock):
                break
            time.sleep(0.01)
        follow = subprocess.Popen([os.path.join(build, 'vantler'), 'status', '--follow',
                                   '--format', 'waybar'], env=env, stdout=subprocess.PIPE)
        out = follow.stdout

        def next_line(seconds):
            ready = select.select([out], [], [], seconds)[0]
            return (json.loads(out.readline()), time.monotonic()) if ready else (None, None)

        next_line(5)  # the first snapshot
        from_start, from_exit = [], []
        for i in range(events):
            payload = json.dumps({'session_id': f's{i}', 'hook_event_name': 'SessionStart',
                                  'cwd': f'/w/p{i}'}).encode()
            started = time.monotonic()
            subprocess.run([os.path.join(build, 'vantler-hook'), 'claude'], input=payload,
                           env=env, check=True)
            exited = time.monotonic()
            line, seen = next_line(5)
            if line is None:
                sys.exit(f'no line after event {i}')
            from_start.append((seen - started) * 1000)
            from_exit.append((seen - exited) * 1000)
            time.sleep(0.2)  # past the subscription's spacing: each event its own line

        quiet, _ = next_line(3)

        def summary(ms):
            ms = sorted(ms)
            return (f'median {statistics.median(ms):.1f} ms, p95 {ms[int(len(ms) * 0.95)]:.1f} ms,'
                    f' max {ms[-1]:.1f} ms')

        print(f'hook started -> new status line ({events} events): {summary(from_start)}')
        print(f'hook exited  -> new status line: {summary(from_exit)}')
        print(f'lines printed in 3 s without changes: {0 if quiet is None else "1 or more"}')
    finally:
        for p in (follow, daemon):
            if p:
                p.terminate()
                p.wait(5)
        shutil.rmtree(home, ignore_errors=True)


if __name__ == '__main__':
    main()
