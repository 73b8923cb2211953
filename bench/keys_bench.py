#!/usr/bin/python3
"""Hot key press to the panel opening, on a private Xvfb with openbox and xcompmgr: the open
combination typed through XTest from this process, timed from the moment the key events are
flushed to the X server to the panel's own trace line for the open decision and to the page's
report of the open panel's drawn rectangle (sent once it has laid the open panel out). Median
and worst of 20 presses.

Usage: bench/keys_bench.py BUILD_DIR [PRESSES]
"""
import ctypes
import os
import statistics
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'tests',
                                'desktop'))
from harness import main, opened, top_pill, wait_for  # noqa: E402
from x11_test import X11  # noqa: E402

PRESSES = int(sys.argv[2]) if len(sys.argv) > 2 else 20


class Keyboard:
    """Ctrl+Alt+R typed with XTest, without starting a program for it."""

    def __init__(self, display):
        self.x, self.t = ctypes.CDLL('libX11.so.6'), ctypes.CDLL('libXtst.so.6')
        self.x.XOpenDisplay.restype = ctypes.c_void_p
        self.x.XStringToKeysym.restype = ctypes.c_ulong
        self.x.XKeysymToKeycode.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
        self.t.XTestFakeKeyEvent.argtypes = [ctypes.c_void_p, ctypes.c_uint, ctypes.c_int,
                                             ctypes.c_ulong]
        self.x.XFlush.argtypes = [ctypes.c_void_p]
        self.d = self.x.XOpenDisplay(display.encode())
        self.codes = [self.x.XKeysymToKeycode(self.d, self.x.XStringToKeysym(k))
                      for k in (b'Control_L', b'Alt_L', b'r')]

    def press(self):
        for down in (1, 0):
            for code in (self.codes if down else reversed(self.codes)):
                self.t.XTestFakeKeyEvent(self.d, code, down, 0)
        self.x.XFlush(self.d)
        return time.monotonic()


def stamps(path, word, after):
    try:
        with open(path) as f:
            lines = f.read().splitlines()
    except FileNotFoundError:
        return []
    return [float(ln.split()[0]) for ln in lines
            if ln.split()[1:2] == [word] and float(ln.split()[0]) > after]


def hot_key_to_open(s):
    env = s.home({'onboarded': True})
    env['VANTLER_TRACE'] = '1'
    s.vantler(env)
    s.wait_drawn(top_pill, 20, 'the pill')
    trace = os.path.join(env['HOME'], '.vantler', 'hover.log')
    decided, laid_out = [], []
    keyboard = Keyboard(s.env['DISPLAY'])
    for _ in range(PRESSES):
        t0 = keyboard.press()
        opened_at = wait_for(lambda: stamps(trace, 'OPEN', t0), 5, 'OPEN')[0]
        rect = wait_for(lambda: stamps(trace, 'RECT', t0), 5, 'RECT of the open panel')[0]
        decided.append((opened_at - t0) * 1000)
        laid_out.append((rect - t0) * 1000)
        keyboard.press()
        wait_for(lambda: stamps(trace, 'CLOSE', t0), 5, 'CLOSE')
        time.sleep(0.6)  # the collapse animation and the window lowered again
    for name, xs in (('hot key -> panel open (controller)', decided),
                     ('hot key -> open panel laid out by the page', laid_out)):
        print(f'{name}: median {statistics.median(xs):.1f} ms, worst {max(xs):.1f} ms '
              f'({len(xs)} presses)', flush=True)


if __name__ == '__main__':
    sys.argv[2:] = []
    main(X11, [hot_key_to_open], ('Xvfb', 'xdotool'))
