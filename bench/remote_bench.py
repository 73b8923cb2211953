#!/usr/bin/python3
"""Remote agents through an SSH tunnel, against a private sshd on localhost whose logins land
in a second temporary home (the host):

  - `vantler remote add` to the first event of the host shown in `vantler state` (median of 3);
  - one hook event, exec of vantler-hook to its exit, here and on the host through the tunnel
    (median and p99 of 200 each, alternating);
  - a permission request asked here and on the host, allowed here: the allow to the hook's exit
    (median of 20 each).

Usage: bench/remote_bench.py BUILD_DIR
"""
import json
import os
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

BUILD = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else 'build-bench')
if not os.path.exists('/usr/sbin/sshd'):
    print('skipped: openssh-server is not installed')
    sys.exit(0)

root = tempfile.mkdtemp(prefix='vantler-remote-bench-')
local, host = f'{root}/local', f'{root}/host'
ssh_dir, sshd_dir = f'{local}/.ssh', f'{root}/sshd'
for d in (ssh_dir, sshd_dir, f'{host}/.claude'):
    os.makedirs(d, mode=0o700)
procs = []


def keygen(path):
    subprocess.run(['ssh-keygen', '-q', '-t', 'ed25519', '-N', '', '-f', path], check=True)


keygen(f'{sshd_dir}/host_key')
keygen(f'{ssh_dir}/id')
shutil.copy(f'{ssh_dir}/id.pub', f'{sshd_dir}/authorized_keys')
with socket.socket() as s:
    s.bind(('127.0.0.1', 0))
    port = s.getsockname()[1]
with open(f'{sshd_dir}/config', 'w') as f:
    f.write(f'Port {port}\nListenAddress 127.0.0.1\nHostKey {sshd_dir}/host_key\n'
            f'PidFile {sshd_dir}/pid\nAuthorizedKeysFile {sshd_dir}/authorized_keys\n'
            'UsePAM no\nStrictModes no\nPermitRootLogin prohibit-password\n'
            f'PasswordAuthentication no\nSetEnv HOME={host}\n')
with open(f'{sshd_dir}/host_key.pub') as f:
    open(f'{ssh_dir}/known_hosts', 'w').write(f'[127.0.0.1]:{port} {f.read()}')
user = 'root' if os.getuid() == 0 else os.environ.get('USER', '')
open(f'{ssh_dir}/config', 'w').write(
    f'Host devbox\n  HostName 127.0.0.1\n  Port {port}\n  User {user}\n'
    f'  IdentityFile {ssh_dir}/id\n  IdentitiesOnly yes\n  UserKnownHostsFile {ssh_dir}/known_hosts\n')
open(f'{local}/ssh', 'w').write(f'#!/bin/sh\nexec ssh -F {ssh_dir}/config "$@"\n')
os.chmod(f'{local}/ssh', 0o755)
open(f'{host}/.claude/settings.json', 'w').write('{}\n')
if os.getuid() == 0:
    os.makedirs('/run/sshd', exist_ok=True)

env = dict(os.environ, HOME=local, XDG_CONFIG_HOME=f'{local}/.config', VANTLER_SSH=f'{local}/ssh')
env.pop('VANTLER_DEMO', None)
host_env = dict(os.environ, HOME=host)
vantler = f'{BUILD}/vantler'


def run(argv, **kw):
    return subprocess.run(argv, env=env, capture_output=True, text=True, **kw)


def event(n, name='PreToolUse'):
    return json.dumps({'session_id': f'b{n}', 'hook_event_name': name, 'cwd': '/srv/api',
                       'tool_name': 'Bash', 'tool_input': {'command': 'make'}}).encode()


def hook(hook_path, environment, payload):
    t = time.perf_counter()
    subprocess.run([hook_path, 'claude'], input=payload, env=environment, capture_output=True)
    return time.perf_counter() - t


def shown(session_id):
    out = run([vantler, 'state']).stdout
    return any(s['id'] == session_id for s in json.loads(out or '{}').get('sessions', []))


def percentile(values, p):
    values = sorted(values)
    return values[min(len(values) - 1, int(len(values) * p))]


try:
    procs.append(subprocess.Popen(['/usr/sbin/sshd', '-D', '-f', f'{sshd_dir}/config'],
                                  stderr=subprocess.DEVNULL))
    procs.append(subprocess.Popen([vantler, 'daemon'], env=env, stderr=subprocess.DEVNULL))
    time.sleep(1)

    first, adding = [], []
    for i in range(3):
        run([vantler, 'remote', 'remove', 'devbox'])
        start = time.perf_counter()
        run([vantler, 'remote', 'add', 'devbox'], check=True)
        adding.append(time.perf_counter() - start)
        while not shown(f'claude@devbox:first{i}'):
            hook(f'{host}/.vantler/bin/vantler-hook', host_env,
                 json.dumps({'session_id': f'first{i}', 'hook_event_name': 'SessionStart'}).encode())
            time.sleep(0.02)
        first.append(time.perf_counter() - start)
    print(f'remote add -> first event shown: median {statistics.median(first):.2f} s '
          f'({", ".join(f"{t:.2f}" for t in first)}), of which the add itself '
          f'{statistics.median(adding):.2f} s')

    here, there = [], []
    for n in range(200):
        here.append(hook(f'{BUILD}/vantler-hook', env, event(n)))
        there.append(hook(f'{host}/.vantler/bin/vantler-hook', host_env, event(n)))
    for label, times in (('here', here), ('through the tunnel', there)):
        print(f'one event {label}, exec to exit: median {statistics.median(times) * 1e3:.2f} ms, '
              f'p99 {percentile(times, 0.99) * 1e3:.2f} ms')

    # Answered through the socket as the panel would, so the command line's own start-up is
    # not counted.
    def allow(session_id):
        with socket.socket(socket.AF_UNIX) as c:
            c.connect(f'{local}/.vantler/run/vantler.sock')
            c.sendall(json.dumps({'_command': {'type': 'allow', 'id': session_id}}).encode() + b'\n')
            c.recv(4096)

    for label, hook_path, environment, prefix in (
            ('here', f'{BUILD}/vantler-hook', env, 'claude:'),
            ('on the host', f'{host}/.vantler/bin/vantler-hook', host_env, 'claude@devbox:')):
        answered = []
        for n in range(20):
            asking = subprocess.Popen([hook_path, 'claude'], env=environment,
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            asking.stdin.write(event(f'p{n}', 'PermissionRequest'))
            asking.stdin.close()
            while '"pending"' not in run([vantler, 'state']).stdout:
                time.sleep(0.01)
            start = time.perf_counter()
            allow(f'{prefix}bp{n}')
            asking.wait(10)
            answered.append(time.perf_counter() - start)
        print(f'permission asked {label}, allowed here -> hook exited: median '
              f'{statistics.median(answered) * 1e3:.1f} ms, max {max(answered) * 1e3:.1f} ms')
finally:
    for p in reversed(procs):
        p.send_signal(signal.SIGTERM)
        p.wait(10)
    shutil.rmtree(root, ignore_errors=True)
