import { describe, expect, it, vi } from 'vitest';
import { DemoFeed } from '../src/demo';

type Msg = Record<string, any>;

function feed() {
  const got: Msg[] = [];
  const f = new DemoFeed((m) => got.push(m));
  const last = () => got.filter((m) => m.type === 'state').at(-1)!;
  const byId = (id: string) => last().sessions.find((s: Msg) => s.id === id);
  return { f, got, last, byId };
}

describe('demo feed', () => {
  it('starts with every kind of request queued oldest first', () => {
    const { f, last } = feed();
    f.handle({ type: 'ready' });
    expect(last().queue).toEqual(['cursor:a9e2', 'claude:7f3a', 'gemini:c41d', 'codex:019a']);
    expect(new Set(last().sessions.map((s: Msg) => s.mood))).toEqual(new Set(['waiting', 'done']));
  });

  it('settles requests the way the hub does', () => {
    const { f, byId } = feed();
    f.handle({ type: 'answer', id: 'claude:7f3a', answers: ['x'] }); // not a questions request
    f.handle({ type: 'deny', id: 'claude:7f3a' });
    expect(byId('claude:7f3a')).toMatchObject({ mood: 'working', activity: 'Denied from the notch' });
    expect(byId('claude:7f3a').pending).toBeUndefined();
    f.handle({ type: 'release', id: 'codex:019a' });
    expect(byId('codex:019a')).toMatchObject({ mood: 'waiting' });
    f.handle({ type: 'reply', id: 'gemini:c41d', text: 'go on' });
    expect(byId('gemini:c41d')).toMatchObject({ mood: 'working', title: 'go on', tools: [] });
  });

  it('clears finished sessions and puts them back on undo', () => {
    const { f, last } = feed();
    f.handle({ type: 'allow', id: 'cursor:a9e2' });
    f.handle({ type: 'release', id: 'gemini:c41d' });
    f.handle({ type: 'clear' });
    expect(last().sessions.map((s: Msg) => s.id)).not.toContain('gemini:c41d');
    expect(last().canUndo).toBe(true);
    f.handle({ type: 'undo' });
    expect(last().sessions.map((s: Msg) => s.id)).toContain('gemini:c41d');
    expect(last().canUndo).toBe(false);
  });

  it('opens on hover and collapses after leaving unless something holds it', () => {
    vi.useFakeTimers();
    const { f, last } = feed();
    f.handle({ type: 'rect', x: 300, y: 3, w: 120, h: 26 });
    f.pointer(360, 10);
    expect(last().open).toBe(true);
    f.handle({ type: 'hold', key: 'field', on: true });
    f.pointer(10, 600);
    vi.advanceTimersByTime(200);
    expect(last().open).toBe(true);
    f.handle({ type: 'hold', key: 'field', on: false });
    f.pointer(10, 601);
    vi.advanceTimersByTime(200);
    expect(last().open).toBe(false);
    vi.useRealTimers();
  });
});
