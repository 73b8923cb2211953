import { describe, expect, it } from 'vitest';
import { demoSnapshot } from '../src/fixtures';
import {
  allAnswered, buildAnswers, comboFromKey, comboLabel, comboText, decision, formatCost, formatDuration,
  moveSelection, packCombo, replyLeft, requestCount, restSummary, toggleChoice, turnTime, unpackCombo,
} from '../src/logic';
import { normalizeSnapshot, pending, session } from '../src/normalize';
import type { PermissionPending, Question, ReplyPending } from '../src/types';

const NOW = 1_800_000_000_000;

describe('times and money', () => {
  it('formats durations at their boundaries', () => {
    expect([0, 59_999, 60_000, 125_000, 3_599_000, 3_600_000, 3_900_000].map(formatDuration))
      .toEqual(['0s', '59s', '1m 00s', '2m 05s', '59m 59s', '1h 00m', '1h 05m']);
  });

  it('counts a running turn from turnStarted and shows a finished one as its length', () => {
    const running = session({ mood: 'working', stats: { turnStarted: NOW - 75_000 } });
    const finished = session({ mood: 'done', stats: { turnStarted: NOW - 600_000, turnEnd: NOW - 540_000 } });
    const stale = session({ mood: 'done', stats: { turnStarted: NOW - 600_000 } });
    expect(turnTime(running, NOW)).toEqual({ text: '1m 15s', live: true });
    expect(turnTime(finished, NOW)).toEqual({ text: '1m 00s', live: false });
    expect(turnTime(stale, NOW)).toBeNull();
  });

  it('draws the reply countdown from expires and window, clamped', () => {
    const p = pending({ kind: 'reply', expires: NOW + 5000, window: 20_000 }) as ReplyPending;
    expect(replyLeft(p, NOW)).toEqual({ ms: 5000, fraction: 0.25 });
    expect(replyLeft(p, NOW + 9000)).toEqual({ ms: 0, fraction: 0 });
    expect(replyLeft({ ...p, window: 0 }, NOW).fraction).toBe(0);
  });

  it('formats cost', () => {
    expect([0, 0.004, 1.5, 1234.4].map(formatCost)).toEqual(['$0.00', '<$0.01', '$1.50', '$1,234']);
  });
});

describe('questions', () => {
  const qs: Question[] = [
    { header: '', text: 'one', multi: false, options: [{ label: 'A', detail: '' }, { label: 'B', detail: '' }] },
    { header: '', text: 'many', multi: true, options: ['X', 'Y', 'Z'].map((label) => ({ label, detail: '' })) },
  ];

  it('joins several choices in the agent order, not the click order', () => {
    let multi: number[] = [];
    for (const j of [2, 0, 1, 1]) multi = toggleChoice(multi, j, true);
    expect(multi).toEqual([2, 0]);
    expect(buildAnswers(qs, [toggleChoice([0], 1, false), multi])).toEqual(['B', 'X, Z']);
  });

  it('needs a choice for every question before sending', () => {
    expect(allAnswered(qs, [[0]])).toBe(false);
    expect(allAnswered(qs, [[0], [1]])).toBe(true);
    expect(buildAnswers(qs, [])).toEqual(['', '']);
  });
});

describe('selection and summary', () => {
  it('moves the keyboard selection and stops at both ends', () => {
    const ids = ['a', 'b', 'c'];
    expect(moveSelection(ids, 'b', 1)).toBe('c');
    expect(moveSelection(ids, 'c', 1)).toBe('c');
    expect(moveSelection(ids, 'a', -1)).toBe('a');
    expect(moveSelection(ids, null, -1)).toBe('c');
    expect(moveSelection([], 'a', 1)).toBeNull();
  });

  it('takes the pose of the first queued session and counts what needs the user', () => {
    const s = normalizeSnapshot(demoSnapshot(NOW, { requests: ['reply', 'permission'] }));
    const r = restSummary(s);
    expect(r.lead?.id).toBe('claude:7f3a');
    expect(r.pose).toBe('alert');
    expect(r.attention).toBe(1); // a reply window is an offer, not a demand
    expect(r.label).toBe('4 sessions, 1 working, 1 needs you');
    expect(restSummary(normalizeSnapshot({})).pose).toBe('sleep');
  });
});

describe('hot keys', () => {
  const key = (code: string, mods: Partial<Record<'ctrlKey' | 'altKey' | 'shiftKey' | 'metaKey', boolean>> = {}) =>
    ({ code, ctrlKey: false, altKey: false, shiftKey: false, metaKey: false, ...mods });

  it('labels combinations with the modifier symbols in order', () => {
    expect(comboLabel({ code: 15, mods: 0x1800 })).toBe('Ctrl+Alt+R');
    expect(comboLabel({ code: 47, mods: 0x300 })).toBe('Shift+Super+.');
    expect(comboLabel({ code: 999, mods: 0x100 })).toBe('Super+?');
  });

  it('records a key with a modifier, a function key alone, and nothing else', () => {
    expect(comboFromKey(key('KeyK', { ctrlKey: true, altKey: true }))).toEqual({ code: 40, mods: 0x1800 });
    expect(comboFromKey(key('F5'))).toEqual({ code: 96, mods: 0 });
    expect(comboFromKey(key('KeyK', { shiftKey: true }))).toBeNull();
    expect(comboFromKey(key('ControlLeft', { ctrlKey: true }))).toBeNull();
    expect(comboFromKey(key('Digit0', { metaKey: true }))).toEqual({ code: 29, mods: 0x100 });
  });

  it('packs mods in the high half and shows any stored form', () => {
    const c = { code: 17, mods: 0x1a00 };
    expect(packCombo(c)).toBe(0x1a00 * 2 ** 32 + 17);
    expect(unpackCombo(packCombo(c))).toEqual(c);
    const fallback = { code: 15, mods: 0x1800 };
    expect(comboText('Super+K', fallback)).toBe('Super+K');
    expect(comboText(packCombo(c), fallback)).toBe('Ctrl+Alt+Shift+T');
    expect(comboText({ code: 1, mods: 0x100 }, fallback)).toBe('Super+S');
    expect(comboText(null, fallback)).toBe('Ctrl+Alt+R');
  });
});

describe('requests of one session in turn', () => {
  it('shows the position while others wait and names the request it answers', () => {
    // Two subagents asked at once: the first is shown with one behind it, then the second alone.
    const first = session({ id: 'claude:a', pending: { kind: 'permission', id: 'claude:a:t1', waiting: 1, always: 'Always allow `npm test`' } });
    const p = first.pending as PermissionPending;
    expect(requestCount(p)).toBe('1 of 2');
    expect(p.always).toBe('Always allow `npm test`');
    expect(decision(first, p, 'allow', { always: true }))
      .toEqual({ type: 'allow', id: 'claude:a', request: 'claude:a:t1', always: true });

    const second = session({ id: 'claude:a', pending: { kind: 'permission', id: 'claude:a:t2', waiting: 0, always: '' } });
    const q = second.pending as PermissionPending;
    expect(requestCount(q)).toBeNull();
    expect(q.always).toBeUndefined();
    expect(decision(second, q, 'deny')).toEqual({ type: 'deny', id: 'claude:a', request: 'claude:a:t2' });
    expect(requestCount(pending({ kind: 'questions', waiting: -4 })!)).toBeNull();
  });
});
