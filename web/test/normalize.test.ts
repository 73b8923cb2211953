import { describe, expect, it } from 'vitest';
import { demoSnapshot } from '../src/fixtures';
import { normalizeSnapshot } from '../src/normalize';

const NOW = 1_800_000_000_000;

describe('normalizeSnapshot', () => {
  it('reads an empty or malformed message as an empty state with defaults', () => {
    const s = normalizeSnapshot({ type: 'state', sessions: 'nope', queue: [1, 'a'], selected: 3, settings: { hideAfter: '10' } });
    expect(s.sessions).toEqual([]);
    expect(s.queue).toEqual(['a']);
    expect(s.selected).toBeNull();
    expect(s.settings.hideAfter).toBe(120);
    expect(s.settings.replyWindow).toBe(15);
    expect(s.geo).toMatchObject({ shape: 'pill', anchor: 'top', stageWidth: 720, stageHeight: 640, strip: 32 });
    expect(s.capabilities.tray).toEqual({ ready: false, reason: '' });
  });

  it('keeps every field of the demo sessions and each request kind', () => {
    const raw = demoSnapshot(NOW, { requests: ['permission', 'questions', 'reply', 'elsewhere'] });
    const s = normalizeSnapshot(raw);
    expect(s.sessions.map((x) => x.pending?.kind)).toEqual(['permission', 'questions', 'reply', 'elsewhere']);
    const [claude, codex, gemini] = s.sessions;
    expect(claude.stats).toEqual({ cost: 1.84, model: 'Opus 4.5', context: 0.42, contextTokens: 84000, turnStarted: NOW - 192_000 });
    expect(claude.tools[2]).toEqual({ label: 'Run npm test -- upload', running: false, failed: true });
    expect(claude.pr?.number).toBe(482);
    expect(codex.pending).toMatchObject({ kind: 'questions', questions: [{ multi: false }, { multi: true }] });
    expect(gemini.pending).toMatchObject({ kind: 'reply', window: 15_000, expires: NOW + 11_000 });
    expect(s.queue).toEqual(['cursor:a9e2', 'claude:7f3a', 'gemini:c41d', 'codex:019a']);
  });

  it('drops unknown moods, poses and request kinds, and cuts the tally to four', () => {
    const s = normalizeSnapshot({
      sessions: [{ id: 'x', mood: 'angry', pose: 'dance', machine: 'devbox', pending: { kind: 'later' }, tally: [1, 2, 3, 4, 5, 6].map((n) => ({ tool: `t${n}`, count: n })) }],
    });
    expect(s.sessions[0]).toMatchObject({ mood: 'idle', pose: 'idle', project: '~', machine: 'devbox' });
    expect(s.sessions[0].pending).toBeUndefined();
    expect(s.sessions[0].tally.map((t) => t.tool)).toEqual(['t1', 't2', 't3', 't4']);
  });

  it('takes the first-run window geometry from the top level', () => {
    const s = normalizeSnapshot({ sessions: [], stageWidth: 460, stageHeight: 560, theme: 'dark', shape: 'pill', strip: 30 });
    expect(s.geo).toMatchObject({ stageWidth: 460, stageHeight: 560, theme: 'dark', strip: 30 });
  });

  it('reads flash and pull-request news only when present', () => {
    expect(normalizeSnapshot({}).flash).toBeUndefined();
    const s = normalizeSnapshot({ flash: 'a', prNews: { id: 'a', kind: 'merged' } });
    expect(s.flash).toBe('a');
    expect(s.prNews).toEqual({ id: 'a', kind: 'merged' });
  });
});
