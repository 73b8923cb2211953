// The page's state: the last snapshot plus what only the page knows (the open
// view, drafts, keyboard mode, dictation). `reduce` is pure; `Store` keeps the
// current value and tells subscribers.
import { normalizeSnapshot, talk as readTalk, usage as readUsage } from './normalize';
import type { Snapshot, Talk, Usage } from './types';

export type View = 'list' | 'settings';

export interface UiState {
  snap: Snapshot | null;
  /** snapshot "now" minus the local clock when it arrived: local time + skew = native time */
  skew: number;
  usage: Usage | null;
  talk: Talk;
  keys: boolean;
  view: View;
  tour: number | null;
  hello: boolean;
  pointer: { x: number; y: number };
  /** the selection the user just made, shown until the next snapshot confirms it */
  picked: string | null;
  /** reply text per pending id */
  drafts: Record<string, string>;
}

export const initialState: UiState = {
  snap: null, skew: 0, usage: null, talk: { state: 'off', text: '', level: 0, hold: false },
  keys: false, view: 'list', tour: null, hello: false, pointer: { x: -1, y: -1 }, picked: null, drafts: {},
};

export type Action =
  | { type: 'state'; [k: string]: unknown }
  | { type: 'usage'; [k: string]: unknown }
  | { type: 'talk'; [k: string]: unknown }
  | { type: 'keys'; on?: unknown }
  | { type: 'pointer'; x?: unknown; y?: unknown }
  | { type: 'hello' | 'tour' | 'openSettings' | 'closeSettings' | 'tourNext' | 'tourBack' | 'tourEnd' | 'helloDone' }
  | { type: 'pick'; id: string | null }
  | { type: 'draft'; id: string; text: string };

export const TOUR_STEPS = 4;

/** The session the panel shows: the user's fresh pick, else the snapshot's choice. */
export function shownId(s: UiState): string | null {
  if (!s.snap) return null;
  const ids = s.snap.sessions.map((x) => x.id);
  if (s.picked && ids.includes(s.picked)) return s.picked;
  return s.snap.selected;
}

/** Where dictated text lands: the shown session's reply window, else the first queued one. */
export function replyTarget(s: UiState): string | null {
  const snap = s.snap;
  if (!snap) return null;
  const byId = (id: string | null) => snap.sessions.find((x) => x.id === id);
  const shown = byId(shownId(s));
  if (shown?.pending?.kind === 'reply') return shown.pending.id;
  for (const id of snap.queue) {
    const q = byId(id);
    if (q?.pending?.kind === 'reply') return q.pending.id;
  }
  return null;
}

export function reduce(s: UiState, a: Action, localNow = Date.now()): UiState {
  switch (a.type) {
    case 'state': {
      const snap = normalizeSnapshot(a);
      // Drop drafts of requests that are gone, and of finished turns that can no longer be typed to.
      const live = new Set(snap.sessions.map((x) => x.pending?.id ?? (x.canType ? x.id : '')).filter(Boolean));
      const drafts: Record<string, string> = {};
      for (const [k, v] of Object.entries(s.drafts)) if (live.has(k)) drafts[k] = v;
      // A panel that closed comes back to the session list.
      const view = snap.open ? s.view : 'list';
      return { ...s, snap, skew: snap.now - localNow, picked: null, drafts, view };
    }
    case 'usage':
      return { ...s, usage: readUsage(a) };
    case 'talk': {
      const t = readTalk(a);
      if (t.state === 'done') {
        const target = replyTarget(s);
        if (target) {
          const before = s.drafts[target] ?? '';
          const text = before && t.text ? `${before} ${t.text}` : before || t.text;
          return { ...s, talk: { ...t, state: 'off' }, drafts: { ...s.drafts, [target]: text } };
        }
      }
      return { ...s, talk: t };
    }
    case 'keys':
      return { ...s, keys: a.on === true };
    case 'pointer':
      return { ...s, pointer: { x: typeof a.x === 'number' ? a.x : -1, y: typeof a.y === 'number' ? a.y : -1 } };
    case 'hello':
      return { ...s, hello: true };
    case 'helloDone':
      return { ...s, hello: false };
    case 'tour':
      return { ...s, tour: 0, view: 'list' };
    case 'tourNext':
      return { ...s, tour: s.tour === null ? null : Math.min(TOUR_STEPS - 1, s.tour + 1) };
    case 'tourBack':
      return { ...s, tour: s.tour === null ? null : Math.max(0, s.tour - 1) };
    case 'tourEnd':
      return { ...s, tour: null };
    case 'openSettings':
      return { ...s, view: 'settings' };
    case 'closeSettings':
      return { ...s, view: 'list' };
    case 'pick':
      return { ...s, picked: a.id };
    case 'draft':
      return { ...s, drafts: { ...s.drafts, [a.id]: a.text } };
    default:
      return s;
  }
}

export class Store {
  state: UiState = initialState;
  private listeners = new Set<() => void>();

  dispatch(a: Action): void {
    const next = reduce(this.state, a);
    if (next === this.state) return;
    this.state = next;
    this.listeners.forEach((l) => l());
  }

  subscribe(l: () => void): () => void {
    this.listeners.add(l);
    return () => this.listeners.delete(l);
  }
}
