import { describe, expect, it } from 'vitest';
import { demoSnapshot } from '../src/fixtures';
import { initialState, reduce, replyTarget, type UiState } from '../src/store';

const NOW = 1_800_000_000_000;
const withState = (opts: Parameters<typeof demoSnapshot>[1], s: UiState = initialState) =>
  reduce(s, demoSnapshot(NOW, opts) as never, NOW - 2500);

describe('reduce', () => {
  it('keeps the native clock skew and forgets a pick once a snapshot arrives', () => {
    let s = reduce(initialState, { type: 'pick', id: 'codex:019a' });
    s = withState({ open: true }, s);
    expect(s.skew).toBe(2500);
    expect(s.picked).toBeNull();
  });

  it('drops drafts of requests that went away and returns to the list when closed', () => {
    let s = withState({ open: true, requests: ['reply'] });
    s = reduce(s, { type: 'draft', id: 'p-r-1', text: 'half' });
    s = reduce(s, { type: 'openSettings' });
    expect(withState({ open: true, requests: ['reply'] }, s)).toMatchObject({ drafts: { 'p-r-1': 'half' }, view: 'settings' });
    expect(withState({ open: false }, s)).toMatchObject({ drafts: {}, view: 'list' });
  });

  it('keeps the draft of a finished turn only while it can be typed to', () => {
    const snap = (canType: boolean) => ({ type: 'state', open: true, sessions: [{ id: 'claude:x', canType }] }) as never;
    const s = reduce(reduce(initialState, snap(true)), { type: 'draft', id: 'claude:x', text: 'go on' });
    expect(reduce(s, snap(true)).drafts).toEqual({ 'claude:x': 'go on' });
    expect(reduce(s, snap(false)).drafts).toEqual({});
  });

  it('puts finished dictation into the reply window that is shown, after any typed text', () => {
    let s = withState({ open: true, requests: ['reply', 'permission'], selected: 'claude:7f3a' });
    expect(replyTarget(s)).toBe('p-r-1'); // the shown session asks a permission: first queued reply
    s = reduce(s, { type: 'draft', id: 'p-r-1', text: 'Yes,' });
    s = reduce(s, { type: 'talk', state: 'done', text: 'backfill it.' });
    expect(s.drafts['p-r-1']).toBe('Yes, backfill it.');
    expect(s.talk.state).toBe('off');
  });

  it('keeps a dictation result on show when no reply window can take it', () => {
    const s = reduce(withState({ open: true }), { type: 'talk', state: 'done', text: 'hello', level: 3 });
    expect(s.talk).toEqual({ state: 'done', text: 'hello', level: 1, hold: false });
  });

  it('steps the walkthrough within its bounds', () => {
    let s = reduce(withState({ open: true }), { type: 'tour' });
    for (let i = 0; i < 6; i++) s = reduce(s, { type: 'tourNext' });
    expect(s.tour).toBe(3);
    s = reduce(reduce(s, { type: 'tourEnd' }), { type: 'tourBack' });
    expect(s.tour).toBeNull();
  });
});
