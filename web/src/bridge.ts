// The page's two channels to native code: messages arrive through
// `window.__vantler.receive(message)`, commands leave through the script
// message handler "vantler". Without a native side the built-in demo feed
// answers instead, so the page runs alone in a plain browser.
import type { Command } from './types';

interface Handler { postMessage(m: unknown): void }
declare global {
  interface Window {
    __vantler?: { receive(message: unknown): void };
    webkit?: { messageHandlers?: { vantler?: Handler } };
  }
}

let fallback: ((c: Command) => void) | null = null;

export function nativeHandler(): Handler | undefined {
  return window.webkit?.messageHandlers?.vantler;
}

/** Route commands somewhere else when no native side is present (the demo feed). */
export function setFallback(f: (c: Command) => void): void {
  fallback = f;
}

export function post(c: Command): void {
  const h = nativeHandler();
  if (h) h.postMessage(c);
  else if (fallback) fallback(c);
}

export function listen(receive: (message: Record<string, unknown>) => void): void {
  window.__vantler = {
    receive(message: unknown) {
      if (message && typeof message === 'object' && typeof (message as { type?: unknown }).type === 'string') {
        receive(message as Record<string, unknown>);
      }
    },
  };
}
