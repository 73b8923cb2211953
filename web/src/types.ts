// Shapes of the messages the native side pushes into the page and of the
// commands the page posts back. Every incoming object goes through
// `normalizeSnapshot` first, so components can rely on these types.

export type Mood = 'idle' | 'done' | 'working' | 'waiting';
export type Pose = 'sleep' | 'idle' | 'success' | 'error' | 'write' | 'think' | 'alert' | 'listen';
export type AgentId =
  | 'claude' | 'codex' | 'cursor' | 'gemini' | 'droid' | 'opencode' | 'copilot' | 'windsurf'
  | 'qwen' | 'qoder' | 'codebuddy' | 'devin' | 'augment' | 'kimi' | 'goose' | 'cline' | 'kiro'
  | 'vibe' | 'crush' | 'junie' | 'aider' | 'amp' | 'kilo';

export interface ToolLine { label: string; running: boolean; failed: boolean }
export interface Tally { tool: string; detail: string; count: number; kind: string }

export interface Stats {
  cost: number;
  model?: string;
  context?: number;
  contextTokens?: number;
  turnStarted?: number;
  turnEnd?: number;
}

export interface Choice { label: string; detail: string }
export interface Question { header: string; text: string; multi: boolean; options: Choice[] }

/** `waiting`: how many more requests of the same session are queued behind this one
 * (parallel subagents share a session); they are shown in turn once this one is settled. */
interface PendingBase { id: string; engaged: boolean; since: number; waiting: number }
/** `always`: the label of an "always allow" choice, when the agent offers a standing rule. */
export interface PermissionPending extends PendingBase {
  kind: 'permission'; title: string; detail: string; tool: string; always?: string;
}
export interface QuestionsPending extends PendingBase { kind: 'questions'; questions: Question[] }
export interface ReplyPending extends PendingBase { kind: 'reply'; message: string; expires: number; window: number }
export interface ElsewherePending extends PendingBase { kind: 'elsewhere'; title: string }
export type Pending = PermissionPending | QuestionsPending | ReplyPending | ElsewherePending;

export interface PullRequest { number: number; title: string; state: string; checks: string; url: string }

export interface Session {
  id: string;
  agent: string;
  color: number;
  title: string;
  project: string;
  // The other machine the agent runs on (through an SSH tunnel); absent for this one.
  machine?: string;
  mood: Mood;
  activity: string;
  updated: number;
  tools: ToolLine[];
  phase: string;
  turnCalls: number;
  tally: Tally[];
  branch?: string;
  host?: string;
  family: string;
  pose: Pose;
  stats: Stats;
  pending?: Pending;
  // A finished turn no longer held: a reply is typed into the agent's terminal.
  canType: boolean;
  pr?: PullRequest;
}

export interface Integration { id: string; label: string; available: boolean; installed: boolean }

/** A machine whose agents reach Vantler through an SSH tunnel (or a container). */
export interface RemoteRow { name: string; state: string; hook: string; busy: string }
export interface Remotes { hosts: RemoteRow[]; message: string }

export interface Settings {
  shape: string;
  replyWindow: number;
  hideAfter: number;
  autoOpen: boolean;
  openAtLogin: boolean;
  autoUpdate: boolean;
  optionTap: boolean;
  optionTapReady: boolean;
  glass: boolean;
  theme: string;
  /** "auto" or the key of the display the panel hangs from. */
  screen: string;
  hooksInstalled: boolean;
  cursorInstalled: boolean;
  cursorAvailable: boolean;
  version: string;
  openKey: unknown;
  talkKey: unknown;
  integrations: Integration[];
  remotes: Remotes;
  notifyAnswers: boolean;
  update: UpdateStatus;
  /** Dictation: a transcription server, its model and whether its key is in the secret store. */
  speechServer: string;
  speechModel: string;
  speechKeySet: boolean;
  /** pocketsphinx, offline, when no server is set. */
  speechOffline: boolean;
  speechOfflineInstalled: boolean;
  /** An optional chat server that punctuates dictated text. */
  punctuationServer: string;
  punctuationModel: string;
}

export interface UpdateStatus {
  state: 'off' | 'idle' | 'waiting' | 'checking' | 'current' | 'newer' | 'failed';
  version: string;
  link: string;
  error: string;
}

export interface Geo {
  notchWidth: number;
  strip: number;
  shape: 'notch' | 'pill';
  stageWidth: number;
  stageHeight: number;
  away: boolean;
  anchor: 'top' | 'bottom';
  dragging: boolean;
  dx: number;
  edge: string;
  glass: boolean;
  glassAvailable: boolean;
  theme: 'light' | 'dark' | '';
}

/** Whether a desktop facility works in this session; `reason` says why not, in one line. */
export interface Capability { ready: boolean; reason: string }
export interface Capabilities { voice: Capability; hotKeys: Capability; altTap: Capability; tray: Capability }

export interface ScreenChoice { key: string; name: string }

export interface Snapshot {
  open: boolean;
  sessions: Session[];
  selected: string | null;
  focus: string | null;
  queue: string[];
  canUndo: boolean;
  settings: Settings;
  now: number;
  flash?: string;
  prNews?: { id: string; kind: string };
  geo: Geo;
  capabilities: Capabilities;
  screens: ScreenChoice[];
  trace: boolean;
}

export interface Usage { today: number; models: { model: string; cost: number; tokens: number }[] }

export type TalkState = 'off' | 'listening' | 'polishing' | 'done' | 'copied' | 'error';
export interface Talk { state: TalkState; text: string; level: number; hold: boolean }

/** A command posted to the native side (see `post` in bridge.ts). */
export type Command = { type: string } & Record<string, unknown>;
