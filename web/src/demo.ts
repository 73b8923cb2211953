// A stand-in for the native side, used when the page runs in a plain browser
// (`npm run dev`): it keeps demo sessions, answers the page's commands the way
// the hub does, and opens the panel on hover like the panel controller.
import { demoSnapshot, demoUsage } from './fixtures';
import type { Command } from './types';

type Json = Record<string, any>;

export class DemoFeed {
  state: Json;
  private cleared: Json[] = [];
  private holds = new Set<string>();
  private rect = { x: 0, y: 0, w: 0, h: 0 };
  private collapse: ReturnType<typeof setTimeout> | null = null;
  private talkTimers: ReturnType<typeof setTimeout>[] = [];

  constructor(private deliver: (m: Json) => void, now = Date.now()) {
    this.state = demoSnapshot(now, { requests: ['permission', 'questions', 'reply', 'elsewhere'], selected: null });
    this.state.selected = this.state.queue[0] ?? null;
  }

  push(): void {
    const s = this.state;
    s.now = Date.now();
    s.canUndo = this.cleared.length > 0;
    s.queue = s.sessions
      .filter((x: Json) => x.pending)
      .sort((a: Json, b: Json) => a.pending.since - b.pending.since)
      .map((x: Json) => x.id);
    if (!s.sessions.some((x: Json) => x.id === s.selected)) s.selected = s.queue[0] ?? s.focus ?? null;
    this.deliver(JSON.parse(JSON.stringify(s)));
  }

  private find(id: unknown): Json | undefined {
    return this.state.sessions.find((x: Json) => x.id === id);
  }

  private settle(s: Json, mood: string, pose: string, activity?: string): void {
    delete s.pending;
    s.mood = mood;
    s.pose = pose;
    if (activity !== undefined) s.activity = activity;
    s.updated = Date.now();
  }

  handle(c: Command): void {
    const s = this.find(c.id);
    switch (c.type) {
      case 'ready': break;
      case 'select': if (s) this.state.selected = s.id; break;
      case 'allow':
        if (s?.pending) this.settle(s, 'working', 'think');
        break;
      case 'deny':
        if (s?.pending) this.settle(s, 'working', 'think', 'Denied from the notch');
        break;
      case 'answer':
        if (s?.pending?.kind === 'questions') this.settle(s, 'working', 'think');
        break;
      case 'reply':
        if (s?.pending?.kind === 'reply') {
          this.settle(s, 'working', 'think', 'Thinking');
          s.title = String(c.text ?? '').slice(0, 60) || s.title;
          s.stats = { ...s.stats, turnStarted: Date.now() };
          delete s.stats.turnEnd;
          s.tools = [];
          s.tally = [];
        }
        break;
      case 'engage': if (s?.pending) s.pending.engaged = true; break;
      case 'release':
      case 'answerThere':
      case 'dismiss':
        if (s?.pending) {
          const k = s.pending.kind;
          this.settle(s, k === 'permission' || k === 'questions' ? 'waiting' : s.mood, s.pose);
        }
        break;
      case 'clear': {
        const done = this.state.sessions.filter((x: Json) => !x.pending && (x.mood === 'done' || x.mood === 'idle'));
        if (!done.length) return;
        this.cleared = done;
        this.state.sessions = this.state.sessions.filter((x: Json) => !done.includes(x));
        break;
      }
      case 'undo':
        this.state.sessions = [...this.state.sessions, ...this.cleared];
        this.cleared = [];
        break;
      case 'setting':
        if (typeof c.key === 'string') this.setting(c.key, c.value);
        break;
      case 'usage':
        this.deliver({ type: 'usage', ...demoUsage });
        return;
      case 'open': this.state.open = true; break;
      case 'hide': this.holds.clear(); this.state.open = false; this.deliver({ type: 'keys', on: false }); break;
      case 'hold':
        if (typeof c.key === 'string') c.on ? this.holds.add(c.key) : this.holds.delete(c.key);
        return;
      case 'rect':
        this.rect = { x: Number(c.x), y: Number(c.y), w: Number(c.w), h: Number(c.h) };
        return;
      case 'talk': this.talk(); return;
      case 'tourDone': this.holds.delete('tour'); return;
      default:
        return;
    }
    this.push();
  }

  private setting(key: string, value: unknown): void {
    const st = this.state.settings;
    if (key.startsWith('integration:')) {
      const i = st.integrations.find((x: Json) => x.id === key.slice(12));
      if (i) i.installed = i.available && value === true;
    } else if (key === 'cursorInstalled') {
      st.cursorInstalled = st.cursorAvailable && value === true;
    } else if (key === 'openKey' || key === 'talkKey') {
      st[key] = value;
    } else {
      st[key] = value;
      if (key === 'theme') this.state.geo.theme = value === 'auto' ? (matchMedia('(prefers-color-scheme: dark)').matches ? 'dark' : 'light') : value;
      if (key === 'shape') this.state.geo.shape = value === 'notch' ? 'notch' : 'pill';
    }
  }

  private talk(): void {
    this.talkTimers.forEach(clearTimeout);
    const words = 'yes please backfill last month too'.split(' ');
    words.forEach((_, i) => {
      this.talkTimers.push(setTimeout(() => this.deliver({
        type: 'talk', state: 'listening', text: words.slice(0, i + 1).join(' '), level: 0.3 + 0.6 * Math.random(), hold: false,
      }), 250 * (i + 1)));
    });
    const end = 250 * (words.length + 1);
    this.talkTimers.push(setTimeout(() => this.deliver({ type: 'talk', state: 'polishing', text: words.join(' '), level: 0, hold: false }), end));
    this.talkTimers.push(setTimeout(() => this.deliver({ type: 'talk', state: 'done', text: 'Yes, please backfill last month too.', level: 0, hold: false }), end + 700));
  }

  /** Hover: open when the pointer is over the drawn rectangle, close 0.1 s after it leaves. */
  pointer(x: number, y: number): void {
    const r = this.rect;
    const open = this.state.open;
    const [gx, gy] = open ? [20, 16] : [24, 8];
    const inside = x >= r.x - gx && x <= r.x + r.w + gx && y >= r.y - 8 && y <= r.y + r.h + gy;
    if (inside) {
      if (this.collapse) clearTimeout(this.collapse);
      this.collapse = null;
      if (!open) { this.state.open = true; this.push(); }
    } else if (open && !this.collapse && this.holds.size === 0) {
      this.collapse = setTimeout(() => {
        this.collapse = null;
        if (this.holds.size === 0) { this.state.open = false; this.push(); }
      }, 100);
    }
  }

  /** Expire reply windows that nobody engaged, like the hub's tick. */
  tick(): void {
    const now = Date.now();
    let changed = false;
    for (const s of this.state.sessions) {
      if (s.pending?.kind === 'reply' && !s.pending.engaged && s.pending.expires < now) {
        delete s.pending;
        changed = true;
      }
    }
    if (changed) this.push();
  }
}

export function startDemo(receive: (m: Json) => void): DemoFeed {
  const feed = new DemoFeed((m) => queueMicrotask(() => receive(m)));
  setInterval(() => feed.tick(), 1000);
  document.addEventListener('mousemove', (e) => feed.pointer(e.clientX, e.clientY));
  document.documentElement.addEventListener('mouseleave', () => feed.pointer(-1000, -1000));
  return feed;
}
