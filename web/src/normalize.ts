// Incoming messages are loosely typed JSON: a missing or mistyped key reads as
// its default. These readers turn a raw "state" message into a `Snapshot`.
import type {
  Capabilities, Capability, Choice, Geo, Integration, Mood, Pending, PermissionPending, Pose, PullRequest, Question, RemoteRow, Session, Settings,
  Snapshot, Stats, Tally, ToolLine, Usage, Talk, TalkState,
} from './types';

type Raw = Record<string, unknown>;

const obj = (v: unknown): Raw => (v && typeof v === 'object' && !Array.isArray(v) ? (v as Raw) : {});
const arr = (v: unknown): unknown[] => (Array.isArray(v) ? v : []);
const str = (v: unknown, d = ''): string => (typeof v === 'string' ? v : d);
const num = (v: unknown, d = 0): number => (typeof v === 'number' && Number.isFinite(v) ? v : d);
const bool = (v: unknown, d = false): boolean => (typeof v === 'boolean' ? v : d);
const optNum = (v: unknown): number | undefined => (typeof v === 'number' && Number.isFinite(v) ? v : undefined);
const optStr = (v: unknown): string | undefined => (typeof v === 'string' && v !== '' ? v : undefined);

const MOODS: Mood[] = ['idle', 'done', 'working', 'waiting'];
const POSES: Pose[] = ['sleep', 'idle', 'success', 'error', 'write', 'think', 'alert', 'listen'];

function oneOf<T extends string>(v: unknown, all: readonly T[], d: T): T {
  return typeof v === 'string' && (all as readonly string[]).includes(v) ? (v as T) : d;
}

function stats(v: unknown): Stats {
  const r = obj(v);
  const s: Stats = { cost: num(r.cost) };
  const model = optStr(r.model);
  if (model) s.model = model;
  const context = optNum(r.context);
  if (context !== undefined) {
    s.context = context;
    s.contextTokens = num(r.contextTokens);
  }
  const started = optNum(r.turnStarted);
  if (started !== undefined) s.turnStarted = started;
  const end = optNum(r.turnEnd);
  if (end !== undefined) s.turnEnd = end;
  return s;
}

function question(v: unknown): Question {
  const r = obj(v);
  return {
    header: str(r.header),
    text: str(r.text),
    multi: bool(r.multi),
    options: arr(r.options).map((o): Choice => ({ label: str(obj(o).label), detail: str(obj(o).detail) })),
  };
}

export function pending(v: unknown): Pending | undefined {
  if (!v || typeof v !== 'object') return undefined;
  const r = obj(v);
  const base = { id: str(r.id), engaged: bool(r.engaged), since: num(r.since), waiting: Math.max(0, num(r.waiting)) };
  switch (r.kind) {
    case 'permission': {
      const p: PermissionPending = { ...base, kind: 'permission', title: str(r.title), detail: str(r.detail), tool: str(r.tool) };
      const always = optStr(r.always);
      if (always) p.always = always;
      return p;
    }
    case 'questions':
      return { ...base, kind: 'questions', questions: arr(r.questions).map(question) };
    case 'reply':
      return { ...base, kind: 'reply', message: str(r.message), expires: num(r.expires), window: num(r.window) };
    case 'elsewhere':
      return { ...base, kind: 'elsewhere', title: str(r.title) };
    default:
      return undefined;
  }
}

function pr(v: unknown): PullRequest | undefined {
  if (!v || typeof v !== 'object') return undefined;
  const r = obj(v);
  return { number: num(r.number), title: str(r.title), state: str(r.state), checks: str(r.checks), url: str(r.url) };
}

export function session(v: unknown): Session {
  const r = obj(v);
  const s: Session = {
    id: str(r.id),
    agent: str(r.agent),
    color: num(r.color),
    title: str(r.title),
    project: str(r.project, '~'),
    mood: oneOf(r.mood, MOODS, 'idle'),
    activity: str(r.activity),
    updated: num(r.updated),
    tools: arr(r.tools).map((t): ToolLine => ({
      label: str(obj(t).label), running: bool(obj(t).running), failed: bool(obj(t).failed),
    })),
    phase: str(r.phase),
    canType: bool(r.canType),
    turnCalls: num(r.turnCalls),
    tally: arr(r.tally).slice(0, 4).map((t): Tally => ({
      tool: str(obj(t).tool), detail: str(obj(t).detail), count: num(obj(t).count), kind: str(obj(t).kind),
    })),
    family: str(r.family),
    pose: oneOf(r.pose, POSES, 'idle'),
    stats: stats(r.stats),
  };
  const branch = optStr(r.branch);
  if (branch) s.branch = branch;
  const host = optStr(r.host);
  if (host) s.host = host;
  const machine = optStr(r.machine);
  if (machine) s.machine = machine;
  const p = pending(r.pending);
  if (p) s.pending = p;
  const pull = pr(r.pr);
  if (pull) s.pr = pull;
  return s;
}

export const DEFAULT_SETTINGS: Settings = {
  shape: 'auto', replyWindow: 15, hideAfter: 120, autoOpen: false, openAtLogin: false,
  autoUpdate: true, optionTap: true, optionTapReady: false, glass: false, theme: 'auto', screen: 'auto',
  hooksInstalled: false, cursorInstalled: false, cursorAvailable: false, version: '',
  openKey: null, talkKey: null, integrations: [], remotes: { hosts: [], message: '' }, notifyAnswers: false,
  update: { state: 'off', version: '', link: '', error: '' },
  speechServer: '', speechModel: '', speechKeySet: false, speechOffline: false, speechOfflineInstalled: false,
  punctuationServer: '', punctuationModel: '',
};

const UPDATE_STATES = ['off', 'idle', 'waiting', 'checking', 'current', 'newer', 'failed'] as const;

export function settings(v: unknown): Settings {
  const r = obj(v);
  const d = DEFAULT_SETTINGS;
  return {
    shape: str(r.shape, d.shape),
    replyWindow: num(r.replyWindow, d.replyWindow),
    hideAfter: num(r.hideAfter, d.hideAfter),
    autoOpen: bool(r.autoOpen, d.autoOpen),
    openAtLogin: bool(r.openAtLogin, d.openAtLogin),
    autoUpdate: bool(r.autoUpdate, d.autoUpdate),
    optionTap: bool(r.optionTap, d.optionTap),
    optionTapReady: bool(r.optionTapReady, d.optionTapReady),
    glass: bool(r.glass, d.glass),
    theme: str(r.theme, d.theme),
    screen: str(r.screen, d.screen),
    hooksInstalled: bool(r.hooksInstalled),
    cursorInstalled: bool(r.cursorInstalled),
    cursorAvailable: bool(r.cursorAvailable),
    version: str(r.version),
    openKey: r.openKey ?? null,
    talkKey: r.talkKey ?? null,
    integrations: arr(r.integrations).map((i): Integration => {
      const o = obj(i);
      return {
        id: str(o.id, str(o.key, str(o.name))),
        label: str(o.label),
        available: bool(o.available),
        installed: bool(o.installed),
      };
    }),
    remotes: (() => {
      const o = obj(r.remotes);
      return {
        hosts: arr(o.hosts).map((h): RemoteRow => {
          const x = obj(h);
          return { name: str(x.name), state: str(x.state), hook: str(x.hook), busy: str(x.busy) };
        }).filter((h) => h.name),
        message: str(o.message),
      };
    })(),
    notifyAnswers: bool(r.notifyAnswers),
    update: (() => {
      const u = obj(r.update);
      return { state: oneOf(u.state, UPDATE_STATES, 'off'), version: str(u.version), link: str(u.link), error: str(u.error) };
    })(),
    speechServer: str(r.speechServer),
    speechModel: str(r.speechModel),
    speechKeySet: bool(r.speechKeySet),
    speechOffline: bool(r.speechOffline),
    speechOfflineInstalled: bool(r.speechOfflineInstalled),
    punctuationServer: str(r.punctuationServer),
    punctuationModel: str(r.punctuationModel),
  };
}

export function geo(v: unknown): Geo {
  const r = obj(v);
  const theme = r.theme === 'light' || r.theme === 'dark' ? r.theme : '';
  return {
    notchWidth: num(r.notchWidth),
    strip: Math.max(24, num(r.strip, 32)),
    shape: r.shape === 'notch' ? 'notch' : 'pill',
    stageWidth: num(r.stageWidth, 720),
    stageHeight: num(r.stageHeight, 640),
    away: bool(r.away),
    anchor: r.anchor === 'bottom' ? 'bottom' : 'top',
    dragging: bool(r.dragging),
    dx: num(r.dx),
    edge: str(r.edge),
    glass: bool(r.glass),
    glassAvailable: bool(r.glassAvailable),
    theme,
  };
}

// A facility the native side does not mention is not offered, with nothing to explain.
function capability(v: unknown): Capability {
  const r = obj(v);
  return { ready: bool(r.ready), reason: str(r.reason) };
}

export function capabilities(v: unknown): Capabilities {
  const r = obj(v);
  return { voice: capability(r.voice), hotKeys: capability(r.hotKeys), altTap: capability(r.altTap), tray: capability(r.tray) };
}

const GEO_KEYS = ['notchWidth', 'strip', 'shape', 'stageWidth', 'stageHeight', 'anchor', 'theme'];

export function normalizeSnapshot(v: unknown): Snapshot {
  const r = obj(v);
  // The first-run window sends the geometry keys at the top level instead of under "geo".
  let g: Raw = obj(r.geo);
  if (!r.geo) {
    g = {};
    for (const k of GEO_KEYS) if (k in r) g[k] = r[k];
  }
  const sessions = arr(r.sessions).map(session);
  const flashId = optStr(r.flash);
  const news = obj(r.prNews);
  const snap: Snapshot = {
    open: bool(r.open),
    sessions,
    selected: typeof r.selected === 'string' ? r.selected : null,
    focus: typeof r.focus === 'string' ? r.focus : null,
    queue: arr(r.queue).filter((q): q is string => typeof q === 'string'),
    canUndo: bool(r.canUndo),
    settings: settings(r.settings),
    now: num(r.now, Date.now()),
    geo: geo(g),
    capabilities: capabilities(r.capabilities),
    screens: arr(r.screens).map((x) => ({ key: str(obj(x).key), name: str(obj(x).name) })).filter((x) => x.key),
    trace: bool(r.trace),
  };
  if (flashId) snap.flash = flashId;
  if (typeof news.id === 'string') snap.prNews = { id: news.id, kind: str(news.kind) };
  return snap;
}

export function usage(v: unknown): Usage {
  const r = obj(v);
  return {
    today: num(r.today),
    models: arr(r.models).map((m) => ({ model: str(obj(m).model), cost: num(obj(m).cost), tokens: num(obj(m).tokens) })),
  };
}

const TALK: TalkState[] = ['off', 'listening', 'polishing', 'done', 'copied', 'error'];
export function talk(v: unknown): Talk {
  const r = obj(v);
  return {
    state: oneOf(r.state, TALK, 'off'),
    text: str(r.text),
    level: Math.min(1, Math.max(0, num(r.level))),
    hold: bool(r.hold),
  };
}
