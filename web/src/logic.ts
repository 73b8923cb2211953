// Pure helpers behind what the panel shows: times, money, the resting strip's
// summary, answers to questions, keyboard selection and hot-key combinations.
import type { Command, Pending, Question, ReplyPending, Session, Snapshot, Pose } from './types';

export const AGENTS: Record<string, { label: string; mark: string }> = {
  claude: { label: 'Claude Code', mark: 'CC' },
  codex: { label: 'Codex', mark: 'Cx' },
  cursor: { label: 'Cursor', mark: 'Cu' },
  gemini: { label: 'Gemini CLI', mark: 'Gm' },
  droid: { label: 'Droid', mark: 'Dr' },
  opencode: { label: 'OpenCode', mark: 'OC' },
  copilot: { label: 'Copilot CLI', mark: 'Cp' },
  windsurf: { label: 'Windsurf', mark: 'Ws' },
  // The later agents share one monochrome look: a mark of two letters on grey.
  qwen: { label: 'Qwen Code', mark: 'Qw' },
  qoder: { label: 'Qoder', mark: 'Qd' },
  codebuddy: { label: 'CodeBuddy', mark: 'CB' },
  devin: { label: 'Devin CLI', mark: 'Dv' },
  augment: { label: 'Augment', mark: 'Au' },
  kimi: { label: 'Kimi Code', mark: 'Ki' },
  goose: { label: 'Goose', mark: 'Go' },
  cline: { label: 'Cline', mark: 'Cl' },
  kiro: { label: 'Kiro', mark: 'Kr' },
  vibe: { label: 'Mistral Vibe', mark: 'Vb' },
  crush: { label: 'Crush', mark: 'Cr' },
  junie: { label: 'Junie', mark: 'Jn' },
  aider: { label: 'Aider', mark: 'Ai' },
  amp: { label: 'Amp', mark: 'Am' },
  kilo: { label: 'Kilo Code', mark: 'KC' },
};

export function agentLabel(agent: string): string {
  return AGENTS[agent]?.label ?? (agent ? agent[0].toUpperCase() + agent.slice(1) : 'Agent');
}

/** "42s", "4m 05s", "1h 07m": compact, and stable in width while it ticks. */
export function formatDuration(ms: number): string {
  const s = Math.max(0, Math.floor(ms / 1000));
  if (s < 60) return `${s}s`;
  const m = Math.floor(s / 60);
  if (m < 60) return `${m}m ${String(s % 60).padStart(2, '0')}s`;
  const h = Math.floor(m / 60);
  return `${h}h ${String(m % 60).padStart(2, '0')}m`;
}

/** "just now", "5m ago", "3h ago", "2d ago". */
export function formatAgo(ms: number): string {
  const s = Math.max(0, Math.floor(ms / 1000));
  if (s < 45) return 'just now';
  const m = Math.round(s / 60);
  if (m < 60) return `${m}m ago`;
  const h = Math.floor(m / 60);
  if (h < 24) return `${h}h ago`;
  return `${Math.floor(h / 24)}d ago`;
}

/**
 * The turn time shown for a session: a running turn counts up from
 * "turnStarted"; a finished one shows "turnEnd" − "turnStarted".
 */
export function turnTime(s: Session, now: number): { text: string; live: boolean } | null {
  const start = s.stats.turnStarted;
  if (start === undefined) return null;
  if (s.stats.turnEnd !== undefined) return { text: formatDuration(s.stats.turnEnd - start), live: false };
  if (s.mood === 'working' || s.mood === 'waiting') return { text: formatDuration(now - start), live: true };
  return null;
}

export function formatCost(dollars: number): string {
  if (!(dollars > 0)) return '$0.00';
  if (dollars < 0.01) return '<$0.01';
  if (dollars < 100) return `$${dollars.toFixed(2)}`;
  return `$${Math.round(dollars).toLocaleString('en-US')}`;
}

export function formatTokens(n: number): string {
  if (n < 1000) return String(Math.round(n));
  if (n < 1_000_000) return `${n < 10_000 ? (n / 1000).toFixed(1) : Math.round(n / 1000)}k`;
  return `${(n / 1_000_000).toFixed(1)}M`;
}

/** Time left in a reply window and the fraction of the window that remains. */
export function replyLeft(p: ReplyPending, now: number): { ms: number; fraction: number } {
  const ms = Math.max(0, p.expires - now);
  const fraction = p.window > 0 ? Math.min(1, ms / p.window) : 0;
  return { ms, fraction };
}

export function findSession(snap: Snapshot, id: string | null): Session | undefined {
  if (!id) return undefined;
  return snap.sessions.find((s) => s.id === id);
}

/** What the resting strip shows: the pose of the session that matters most and a count. */
export function restSummary(snap: Snapshot): {
  pose: Pose; attention: number; working: number; total: number; label: string; lead?: Session;
} {
  const waiting = snap.queue.map((id) => findSession(snap, id)).filter((s): s is Session => !!s);
  const attention = waiting.filter((s) => s.pending && s.pending.kind !== 'reply').length;
  const working = snap.sessions.filter((s) => s.mood === 'working').length;
  const lead = waiting[0] ?? findSession(snap, snap.focus) ?? findSession(snap, snap.selected) ?? snap.sessions[0];
  const pose: Pose = lead ? lead.pose : 'sleep';
  const total = snap.sessions.length;
  const parts: string[] = [];
  parts.push(total === 0 ? 'No sessions' : `${total} session${total === 1 ? '' : 's'}`);
  if (working) parts.push(`${working} working`);
  if (attention) parts.push(`${attention} need${attention === 1 ? 's' : ''} you`);
  else if (waiting.length) parts.push(`${waiting.length} can take a reply`);
  return { pose, attention, working, total, label: parts.join(', '), lead };
}

/**
 * One answer string per question: the chosen options' labels in the agent's
 * order (not the order of clicks), several joined by ", ".
 */
export function buildAnswers(questions: Question[], chosen: number[][]): string[] {
  return questions.map((q, i) => {
    const picked = new Set(chosen[i] ?? []);
    return q.options.filter((_, j) => picked.has(j)).map((o) => o.label).join(', ');
  });
}

/** "1 of 3" while more requests of the session wait behind the shown one. */
export function requestCount(p: Pending): string | null {
  return p.waiting > 0 ? `1 of ${p.waiting + 1}` : null;
}

/**
 * A decision on the shown request. It names the request as well as the session,
 * so a click that crosses the arrival of the next request answers nothing.
 */
export function decision(s: Session, p: Pending, type: 'allow' | 'deny' | 'answer', extra: Record<string, unknown> = {}): Command {
  return { type, id: s.id, request: p.id, ...extra };
}

/** Toggle option `j` of a question: a single-choice question keeps only the last pick. */
export function toggleChoice(current: number[], j: number, multi: boolean): number[] {
  if (!multi) return [j];
  return current.includes(j) ? current.filter((x) => x !== j) : [...current, j];
}

export function allAnswered(questions: Question[], chosen: number[][]): boolean {
  return questions.every((q, i) => q.options.length === 0 || (chosen[i]?.length ?? 0) > 0);
}

/** Keyboard selection: move by `delta` among `ids`, clamped at both ends. */
export function moveSelection(ids: string[], current: string | null, delta: number): string | null {
  if (ids.length === 0) return null;
  const at = current ? ids.indexOf(current) : -1;
  if (at < 0) return delta >= 0 ? ids[0] : ids[ids.length - 1];
  return ids[Math.min(ids.length - 1, Math.max(0, at + delta))];
}

// Hot keys travel as a virtual key code and a modifier mask (command 0x100,
// shift 0x200, option 0x800, control 0x1000), packed as mods · 2³² + code.
export const MOD = { command: 0x100, shift: 0x200, option: 0x800, control: 0x1000 } as const;

const LETTERS = 'A0 B11 C8 D2 E14 F3 G5 H4 I34 J38 K40 L37 M46 N45 O31 P35 Q12 R15 S1 T17 U32 V9 W13 X7 Y16 Z6';
const DIGITS = [29, 18, 19, 20, 21, 23, 22, 26, 28, 25];
const FKEYS = [122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111];
const NAMED: [string, number, string][] = [
  ['Space', 49, 'Space'], ['Period', 47, '.'], ['Comma', 43, ','], ['Slash', 44, '/'],
  ['Semicolon', 41, ';'], ['Quote', 39, "'"], ['BracketLeft', 33, '['], ['BracketRight', 30, ']'],
  ['Backquote', 50, '`'], ['Minus', 27, '-'], ['Equal', 24, '='],
];

/** Key name (as in `KeyboardEvent.code`) → virtual key code and display label. */
export const KEY_CODES: Map<string, { code: number; label: string }> = (() => {
  const m = new Map<string, { code: number; label: string }>();
  for (const pair of LETTERS.split(' ')) m.set(`Key${pair[0]}`, { code: Number(pair.slice(1)), label: pair[0] });
  DIGITS.forEach((code, i) => m.set(`Digit${i}`, { code, label: String(i) }));
  FKEYS.forEach((code, i) => m.set(`F${i + 1}`, { code, label: `F${i + 1}` }));
  for (const [name, code, label] of NAMED) m.set(name, { code, label });
  return m;
})();

const LABEL_BY_CODE = new Map([...KEY_CODES.values()].map((v) => [v.code, v.label]));

export interface Combo { code: number; mods: number }

export function comboLabel(c: Combo): string {
  let s = '';
  if (c.mods & MOD.control) s += 'Ctrl+';
  if (c.mods & MOD.option) s += 'Alt+';
  if (c.mods & MOD.shift) s += 'Shift+';
  if (c.mods & MOD.command) s += 'Super+';
  return s + (LABEL_BY_CODE.get(c.code) ?? '?');
}

export const packCombo = (c: Combo): number => c.mods * 2 ** 32 + c.code;
export const unpackCombo = (v: number): Combo => ({ code: v % 2 ** 32, mods: Math.floor(v / 2 ** 32) });

/** How a stored hot key from "settings" is shown, whatever form the native side sends. */
export function comboText(v: unknown, fallback: Combo): string {
  if (typeof v === 'string' && v) return v;
  if (typeof v === 'number' && v > 0) return comboLabel(unpackCombo(v));
  if (v && typeof v === 'object') {
    const o = v as Record<string, unknown>;
    if (typeof o.label === 'string' && o.label) return o.label;
    if (typeof o.code === 'number' && typeof o.mods === 'number') return comboLabel({ code: o.code, mods: o.mods });
  }
  return comboLabel(fallback);
}

export const DEFAULT_OPEN_KEY: Combo = { code: 15, mods: 0x1800 };
export const DEFAULT_TALK_KEY: Combo = { code: 49, mods: 0x1800 };

/**
 * A combination recorded from a key press, or null while only modifiers are
 * down or the key cannot be a global hot key. A key needs Control, Alt or
 * Super with it, except the function keys.
 */
export function comboFromKey(e: {
  code: string; ctrlKey: boolean; altKey: boolean; shiftKey: boolean; metaKey: boolean;
}): Combo | null {
  const key = KEY_CODES.get(e.code);
  if (!key) return null;
  let mods = 0;
  if (e.ctrlKey) mods |= MOD.control;
  if (e.altKey) mods |= MOD.option;
  if (e.shiftKey) mods |= MOD.shift;
  if (e.metaKey) mods |= MOD.command;
  const fkey = /^F\d+$/.test(e.code);
  if (!fkey && !(mods & (MOD.control | MOD.option | MOD.command))) return null;
  return { code: key.code, mods };
}

export interface Rect { x: number; y: number; w: number; h: number }

export function sameRect(a: Rect | null, b: Rect | null): boolean {
  return !!a && !!b && a.x === b.x && a.y === b.y && a.w === b.w && a.h === b.h;
}
