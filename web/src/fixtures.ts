// Demonstration snapshots with the exact shape the native side sends: several
// agents, every mood, each kind of request, tool lines and tallies. Used by the
// built-in feed when the page runs without a native side, and by the tests.

type Json = Record<string, unknown>;

export function demoSettings(over: Json = {}): Json {
  return {
    shape: 'auto', replyWindow: 15, hideAfter: 120, autoOpen: false, openAtLogin: true,
    autoUpdate: true, optionTap: true, optionTapReady: true, glass: false, theme: 'auto',
    hooksInstalled: true, cursorInstalled: false, cursorAvailable: true, version: '0.4.0',
    openKey: { code: 15, mods: 0x1800, label: 'Ctrl+Alt+R' }, talkKey: { code: 49, mods: 0x1800, label: 'Ctrl+Alt+Space' },
    integrations: [
      { id: 'gemini', label: 'Gemini CLI', available: true, installed: true },
      { id: 'droid', label: 'Droid', available: false, installed: false },
      { id: 'copilot', label: 'Copilot CLI', available: true, installed: false },
      { id: 'windsurf', label: 'Windsurf', available: false, installed: false },
      { id: 'opencode', label: 'OpenCode', available: true, installed: true },
    ],
    remotes: {
      hosts: [{ name: 'devbox', state: 'up since 16:02:11', hook: 'vantler-hook 0.4.0', busy: '' }],
      message: '',
    },
    ...over,
  };
}

export function demoGeo(over: Json = {}): Json {
  return {
    notchWidth: 0, strip: 32, shape: 'pill', stageWidth: 720, stageHeight: 640, away: false,
    anchor: 'top', dragging: false, dx: 0, edge: '', glass: false, glassAvailable: false, theme: 'dark',
    ...over,
  };
}

/** Every facility working, as on a desktop where everything was set up. */
export function demoCapabilities(): Json {
  const ready = { ready: true, reason: '' };
  return { voice: ready, hotKeys: ready, altTap: ready, tray: ready };
}

const MIN = 60_000;

/** Four sessions covering the moods; `with` adds a request to the first one. */
export function demoSessions(now: number): Json[] {
  return [
    {
      id: 'claude:7f3a', agent: 'claude', color: 0, title: 'Add retry to the upload queue', project: 'harbor',
      mood: 'working', activity: 'Editing src/upload/queue.ts', updated: now - 4000,
      tools: [
        { label: 'Read src/upload/queue.ts', running: false, failed: false },
        { label: 'Grep "retryPolicy"', running: false, failed: false },
        { label: 'Run npm test -- upload', running: false, failed: true },
        { label: 'Edit src/upload/queue.ts', running: true, failed: false },
      ],
      phase: 'writing', turnCalls: 14,
      tally: [
        { tool: 'Edit', detail: 'queue.ts', count: 5, kind: 'write' },
        { tool: 'Bash', detail: 'npm test -- upload', count: 3, kind: 'run' },
        { tool: 'Read', detail: 'queue.ts', count: 4, kind: 'research' },
        { tool: 'Grep', detail: 'retryPolicy', count: 2, kind: 'research' },
      ],
      branch: 'feat/upload-retry', host: 'GNOME Terminal', family: 'terminal', pose: 'write',
      stats: { cost: 1.84, model: 'Opus 4.5', context: 0.42, contextTokens: 84000, turnStarted: now - 3 * MIN - 12_000 },
      pr: { number: 482, title: 'Retry failed uploads', state: 'OPEN', checks: 'pending', url: 'https://example.invalid/harbor/pull/482' },
    },
    {
      id: 'codex:019a', agent: 'codex', color: 5, title: 'Why does the cache miss on cold start?', project: 'atlas-api',
      mood: 'working', activity: 'Thinking', updated: now - 2000,
      tools: [{ label: 'Search "warmCache"', running: true, failed: false }],
      phase: 'reasoning', turnCalls: 3,
      tally: [{ tool: 'shell', detail: 'rg warmCache', count: 3, kind: 'research' }],
      branch: 'main', host: 'kitty', family: 'codex', pose: 'think',
      stats: { cost: 0, model: 'gpt-5-codex', turnStarted: now - 48_000 },
    },
    {
      id: 'gemini:c41d', agent: 'gemini', color: 3, title: 'Write the migration for invoices', project: 'ledger',
      mood: 'done', activity: 'Finished', updated: now - 90_000,
      tools: [
        { label: 'Write migrations/0042_invoices.sql', running: false, failed: false },
        { label: 'Run make migrate', running: false, failed: false },
      ],
      phase: 'writing', turnCalls: 6,
      tally: [
        { tool: 'write_file', detail: '0042_invoices.sql', count: 2, kind: 'write' },
        { tool: 'run_shell_command', detail: 'make migrate', count: 4, kind: 'run' },
      ],
      branch: 'invoices', host: 'Konsole', family: 'terminal', pose: 'idle',
      stats: { cost: 0.31, model: 'gemini-2.5-pro', turnStarted: now - 6 * MIN, turnEnd: now - 90_000 },
      pr: { number: 77, title: 'Invoice tables', state: 'MERGED', checks: 'pass', url: 'https://example.invalid/ledger/pull/77' },
    },
    {
      id: 'cursor:a9e2', agent: 'cursor', color: 7, title: 'Tidy the settings screen', project: 'studio',
      mood: 'idle', activity: '', updated: now - 42 * MIN,
      tools: [], phase: '', turnCalls: 0, tally: [],
      family: 'cursor', pose: 'sleep', host: 'Cursor',
      stats: { cost: 0.12, model: 'claude-sonnet-4-5' },
    },
  ];
}

export function permissionPending(now: number): Json {
  return {
    id: 'p-perm-1', engaged: false, since: now - 6000, kind: 'permission',
    title: 'Run a shell command', tool: 'Bash',
    detail: 'rm -rf build/ && npm run build -- --mode production',
  };
}

export function questionsPending(now: number): Json {
  return {
    id: 'p-q-1', engaged: false, since: now - 3000, kind: 'questions',
    questions: [
      {
        header: 'Backoff', text: 'How should failed uploads back off?', multi: false,
        options: [
          { label: 'Exponential', detail: '1s, 2s, 4s … capped at 1 min' },
          { label: 'Fixed', detail: 'Every 5 seconds' },
          { label: 'None', detail: 'Fail at once' },
        ],
      },
      {
        header: 'Errors', text: 'Which errors should be retried?', multi: true,
        options: [
          { label: 'Timeouts', detail: '' },
          { label: '5xx responses', detail: '' },
          { label: 'Network resets', detail: '' },
        ],
      },
    ],
  };
}

export function replyPending(now: number, windowMs = 15_000, left = 11_000): Json {
  return {
    id: 'p-r-1', engaged: false, since: now - (windowMs - left), kind: 'reply',
    message: 'Done. The migration adds `invoices` and `invoice_lines`, and `make migrate` ran clean. Want me to backfill last month’s invoices too?',
    expires: now + left, window: windowMs,
  };
}

export function elsewherePending(now: number): Json {
  return { id: 'p-e-1', engaged: false, since: now - 20_000, kind: 'elsewhere', title: 'Approve the plan in Cursor' };
}

function withPending(s: Json, p: Json, mood: string, pose: string): Json {
  return { ...s, pending: p, mood, pose };
}

/** A full "state" message. `kinds` puts requests on the demo sessions. */
export function demoSnapshot(now: number, opts: {
  open?: boolean; requests?: ('permission' | 'questions' | 'reply' | 'elsewhere')[]; selected?: string | null;
  geo?: Json; settings?: Json; canUndo?: boolean;
} = {}): Json {
  let sessions = demoSessions(now);
  const queue: string[] = [];
  const kinds = opts.requests ?? [];
  const attach: Record<string, [number, (n: number) => Json, string, string]> = {
    permission: [0, permissionPending, 'waiting', 'alert'],
    questions: [1, questionsPending, 'waiting', 'listen'],
    reply: [2, replyPending, 'done', 'success'],
    elsewhere: [3, elsewherePending, 'waiting', 'alert'],
  };
  for (const k of kinds) {
    const [i, make, mood, pose] = attach[k];
    sessions[i] = withPending(sessions[i], make(now), mood, pose);
  }
  sessions = sessions.slice();
  const pendingOf = (s: Json) => s.pending as Json | undefined;
  sessions
    .filter((s) => pendingOf(s))
    .sort((a, b) => (pendingOf(a)!.since as number) - (pendingOf(b)!.since as number))
    .forEach((s) => queue.push(s.id as string));
  const selected = opts.selected !== undefined ? opts.selected : queue[0] ?? null;
  return {
    type: 'state', open: opts.open ?? false, sessions, selected, focus: 'claude:7f3a', queue,
    canUndo: opts.canUndo ?? false, settings: demoSettings(opts.settings), now, geo: demoGeo(opts.geo), capabilities: demoCapabilities(),
  };
}

/** `n` sessions with varied moods, tools and requests, for load tests. */
export function manySessions(n: number, now: number): Json {
  const base = demoSessions(now);
  const makers = [permissionPending, questionsPending, replyPending, elsewherePending];
  const sessions: Json[] = [];
  for (let i = 0; i < n; i++) {
    const s: Json = { ...base[i % base.length], id: `s:${i}`, color: i % 9, title: `Task number ${i} of the batch`, updated: now - i * 1000 };
    if (i % 7 === 3) {
      const p = makers[i % 4](now);
      s.pending = { ...p, id: `p${i}` };
      s.mood = p.kind === 'reply' ? 'done' : 'waiting';
    }
    sessions.push(s);
  }
  const queue = sessions.filter((s) => s.pending).map((s) => s.id as string);
  return {
    type: 'state', open: true, sessions, selected: sessions[0].id, focus: sessions[0].id, queue,
    canUndo: false, settings: demoSettings(), now, geo: demoGeo(), capabilities: demoCapabilities(),
  };
}

export const demoUsage = {
  today: 4.87,
  models: [
    { model: 'Opus 4.5', cost: 3.92, tokens: 1_284_000 },
    { model: 'Sonnet 4.5', cost: 0.88, tokens: 612_500 },
    { model: 'Haiku 4.5', cost: 0.07, tokens: 95_200 },
  ],
};
