// The notch panel: the resting strip, and the panel that grows from it.
import { useCallback, useEffect, useLayoutEffect, useRef, useState } from 'preact/hooks';
import { post } from '../bridge';
import { findSession, formatCost, moveSelection, restSummary, sameRect, type Rect } from '../logic';
import { TOUR_STEPS, shownId, type Action, type UiState } from '../store';
import type { Geo, Session, Snapshot, Talk } from '../types';
import { Mascot } from './Mascot';
import { SessionRow } from './Sessions';
import { SettingsView, recording } from './Settings';
import { AgentMark, Icon } from './ui';

const PANEL_WIDTH = 480;
const MARGIN = 8;

/** The shell's box in page coordinates, before the browser lays it out. */
export function shellBox(geo: Geo, open: boolean, width: number): { left: number; top?: number; bottom?: number } {
  const w = Math.min(width, geo.stageWidth - 2 * MARGIN);
  let left: number;
  if (geo.edge === 'left') left = MARGIN;
  else if (geo.edge === 'right') left = geo.stageWidth - MARGIN - w;
  else left = Math.round(geo.stageWidth / 2 + geo.dx - w / 2);
  left = Math.max(MARGIN, Math.min(geo.stageWidth - MARGIN - w, left));
  if (geo.anchor === 'bottom') return { left, bottom: 6 };
  const floating = geo.away || geo.dragging;
  if (floating) return { left, top: 6 };
  return { left, top: geo.shape === 'pill' ? 3 : 0 };
}

function restWidth(geo: Geo): number {
  if (geo.shape === 'notch' && !geo.away && !geo.dragging) return Math.max(geo.notchWidth, 120) + 2 * 44;
  return 104;
}

function restHeight(geo: Geo): number {
  if (geo.away || geo.dragging || geo.anchor === 'bottom') return 34;
  if (geo.shape === 'notch') return geo.strip;
  return Math.max(22, geo.strip - 6);
}

function useClock(skew: number, live: boolean): number {
  const [now, setNow] = useState(() => Date.now() + skew);
  useEffect(() => {
    setNow(Date.now() + skew);
    if (!live) return;
    const t = setInterval(() => setNow(Date.now() + skew), 1000);
    return () => clearInterval(t);
  }, [skew, live]);
  return Math.floor(now / 1000) * 1000;
}

/** Poses whose mascot moves. */
const MOVING = new Set(['think', 'write', 'alert']);

/**
 * The closed strip's motion: instead of animating every frame it steps once a second, through
 * `data-beat` (0 … 3) on the root element, and only while something there moves and the page
 * is shown.
 */
function useBeat(active: boolean) {
  useEffect(() => {
    const root = document.documentElement;
    if (!active) {
      delete root.dataset.beat;
      return;
    }
    let n = 0;
    root.dataset.beat = '0';
    const t = setInterval(() => {
      if (document.hidden) return;
      n = (n + 1) % 4;
      root.dataset.beat = String(n);
    }, 1000);
    return () => clearInterval(t);
  }, [active]);
}

function TalkBar({ talk }: { talk: Talk }) {
  if (talk.state === 'off') return null;
  const text: Record<string, string> = {
    listening: talk.text || 'Listening…',
    polishing: talk.text || 'Polishing…',
    done: talk.text,
    copied: talk.text ? `Copied: ${talk.text}` : 'Copied to the clipboard',
    error: talk.text || 'Dictation stopped.',
  };
  return (
    <div class={`talk talk-${talk.state}`} role="status" aria-live="polite">
      {talk.state === 'listening' && (
        <span class="level" aria-hidden="true">
          {[0.55, 0.85, 1, 0.85, 0.55].map((k, i) => (
            <span key={i} style={{ transform: `scaleY(${0.18 + 0.82 * Math.min(1, talk.level * k * 1.4)})` }} />
          ))}
        </span>
      )}
      {talk.state === 'polishing' && <span class="spinner" aria-hidden="true" />}
      <span class="talk-text">{text[talk.state]}</span>
      {talk.state === 'listening' && (talk.hold
        ? <span class="faint">Release Alt to finish</span>
        : <button type="button" class="btn btn-small" onClick={() => post({ type: 'talk' })}>Stop</button>)}
    </div>
  );
}

const TOUR: [string, string][] = [
  ['Your agents, at a glance', 'The strip at the top shows how your sessions are doing. Point at it to open this panel.'],
  ['Answer without switching', 'Permissions and questions show up here. Allow, deny or pick an answer right in the panel.'],
  ['Reply when a turn ends', 'After an agent finishes you have a few seconds to send it your next message. Start typing and the window stays open.'],
  ['From the keyboard', 'Your open key summons the panel, arrows move, Enter allows or sends, Escape closes. Hold Alt to dictate.'],
];

function Tour({ step, dispatch }: { step: number; dispatch: (a: Action) => void }) {
  const [title, body] = TOUR[step];
  const last = step === TOUR_STEPS - 1;
  return (
    <div class="tour" role="dialog" aria-label="Walkthrough" aria-live="polite">
      <div class="tour-top">
        <Mascot pose={last ? 'success' : 'idle'} size={40} />
        <div>
          <p class="tour-step">{step + 1} of {TOUR_STEPS}</p>
          <h2>{title}</h2>
        </div>
      </div>
      <p>{body}</p>
      <div class="actions">
        {step > 0 && <button type="button" class="btn btn-quiet" onClick={() => dispatch({ type: 'tourBack' })}>Back</button>}
        <button
          type="button"
          class="btn btn-allow"
          data-default
          onClick={() => {
            if (!last) return dispatch({ type: 'tourNext' });
            dispatch({ type: 'tourEnd' });
            post({ type: 'tourDone' });
          }}
        >
          {last ? 'Done' : 'Next'}
        </button>
      </div>
    </div>
  );
}

function QueueBar({ snap, shown, onPick }: { snap: Snapshot; shown: string | null; onPick: (id: string) => void }) {
  const items = snap.queue.map((id) => findSession(snap, id)).filter((s): s is Session => !!s);
  if (items.length === 0) return null;
  const kind: Record<string, string> = { permission: 'Permission', questions: 'Question', reply: 'Reply', elsewhere: 'In its window' };
  return (
    <nav class="queue" aria-label="Needs you">
      <span class="queue-label">Needs you</span>
      {items.map((s) => (
        <button type="button" key={s.id} class={`queue-item ${s.id === shown ? 'is-current' : ''} kind-${s.pending?.kind}`}
          aria-current={s.id === shown ? 'true' : undefined} onClick={() => onPick(s.id)}>
          <AgentMark agent={s.agent} size={16} />
          <span class="queue-kind">{kind[s.pending?.kind ?? ''] ?? ''}</span>
          <span class="queue-title">{s.project}</span>
        </button>
      ))}
    </nav>
  );
}

const DRAG_SLOP = 4;

/** Where the mascot looks: toward the pointer while it is near, straight ahead otherwise. */
export function gazeAt(p: { x: number; y: number }, cx: number, cy: number): { x: number; y: number } | undefined {
  if (p.x < 0 || p.y < 0) return undefined;
  const dx = p.x - cx;
  const dy = p.y - cy;
  const d = Math.hypot(dx, dy);
  if (d < 4 || d > 400) return undefined;
  return { x: dx / d, y: dy / d };
}

export function Notch({ state, dispatch }: { state: UiState; dispatch: (a: Action) => void }) {
  const snap = state.snap!;
  const geo = snap.geo;
  const open = snap.open && !geo.dragging;
  const shellRef = useRef<HTMLDivElement>(null);
  const lastRect = useRef<Rect | null>(null);
  const shown = shownId(state);
  const live = open && snap.sessions.some((s) => s.mood === 'working' || s.pending?.kind === 'reply');
  const now = useClock(state.skew, live);
  const summary = restSummary(snap);
  useBeat(!open && (summary.working > 0 || summary.attention > 0 || MOVING.has(summary.pose)));

  const pick = useCallback((id: string) => {
    dispatch({ type: 'pick', id });
    post({ type: 'select', id });
  }, [dispatch]);
  const draft = useCallback((id: string, text: string) => dispatch({ type: 'draft', id, text }), [dispatch]);

  // Report the drawn rectangle whenever it changes: the native side hit-tests with it.
  const report = useCallback(() => {
    const el = shellRef.current;
    if (!el) return;
    const r: Rect = { x: el.offsetLeft, y: el.offsetTop, w: el.offsetWidth, h: el.offsetHeight };
    if (sameRect(lastRect.current, r)) return;
    lastRect.current = r;
    post({ type: 'rect', ...r });
    if (geo.glass && geo.glassAvailable) post({ type: 'glass', rects: [r], animate: true });
  }, [geo.glass, geo.glassAvailable]);
  useLayoutEffect(report);
  useEffect(() => {
    const el = shellRef.current;
    if (!el || typeof ResizeObserver === 'undefined') return;
    const ro = new ResizeObserver(report);
    ro.observe(el);
    return () => ro.disconnect();
  }, [report]);

  // While tracing, mark the first frame of each opening in the trace log (hover latency).
  useLayoutEffect(() => {
    if (open && snap.trace) requestAnimationFrame(() => post({ type: 'log', msg: 'FRAME open' }));
  }, [open]);
  // Ask for today's usage whenever the panel opens.
  useEffect(() => { if (open) post({ type: 'usage' }); }, [open]);
  // Hold the panel open while settings are shown (the hold is dropped natively on "checkUpdates").
  const settingsShown = state.view === 'settings' && open;
  const held = useRef(false);
  useEffect(() => {
    if (held.current === settingsShown) return;
    held.current = settingsShown;
    post({ type: 'hold', key: 'settings', on: settingsShown });
  }, [settingsShown]);
  useEffect(() => {
    if (!state.hello) return;
    const t = setTimeout(() => dispatch({ type: 'helloDone' }), 2400);
    return () => clearTimeout(t);
  }, [state.hello]);

  // Keyboard mode: arrows move the selection, Enter acts on the selected session.
  // The listener is installed once and reads the latest render through a ref.
  const latest = useRef({ state, snap, shown, open, pick });
  latest.current = { state, snap, shown, open, pick };
  useEffect(() => {
    const onKey = (e: KeyboardEvent) => {
      const { state, snap, shown, open, pick } = latest.current;
      if (recording.on) return;
      const target = e.target as HTMLElement | null;
      const typing = !!target && (target.tagName === 'TEXTAREA' || target.tagName === 'INPUT');
      if (e.key === 'Escape' && !window.webkit?.messageHandlers?.vantler) {
        e.preventDefault();
        return escape(state, dispatch);
      }
      if (!state.keys || !open || typing || state.view !== 'list') return;
      if (e.key === 'ArrowDown' || e.key === 'ArrowUp') {
        e.preventDefault();
        const next = moveSelection(snap.sessions.map((s) => s.id), shown, e.key === 'ArrowDown' ? 1 : -1);
        if (next && next !== shown) pick(next);
      } else if (e.key === 'Enter' && target?.tagName !== 'BUTTON') {
        const s = findSession(snap, shown);
        const p = s?.pending;
        if (!s || !p) return;
        e.preventDefault();
        if (p.kind === 'permission') post({ type: 'allow', id: s.id });
        else if (p.kind === 'reply') document.querySelector<HTMLTextAreaElement>('.is-selected .reply-input')?.focus();
        else if (p.kind === 'questions') document.querySelector<HTMLButtonElement>('.is-selected .option')?.focus();
        else post({ type: 'jump', id: s.id });
      }
    };
    window.addEventListener('keydown', onKey);
    return () => window.removeEventListener('keydown', onKey);
  }, [dispatch]);

  // Keep the selected row in view while moving with the keyboard.
  useEffect(() => {
    if (state.keys) document.querySelector('.row.is-selected')?.scrollIntoView({ block: 'nearest' });
  }, [shown, state.keys]);

  // Dragging starts once the pointer moves a few points with the button down on the strip.
  const press = useRef<{ x: number; y: number } | null>(null);
  const onDown = (e: PointerEvent) => {
    if (e.button !== 0 || (e.target as HTMLElement).closest('button')) return;
    press.current = { x: e.screenX, y: e.screenY };
    // A quick flick leaves the strip on its first motion: keep the moves coming to it.
    (e.currentTarget as HTMLElement).setPointerCapture?.(e.pointerId);
  };
  const onMove = (e: PointerEvent) => {
    const p = press.current;
    if (!p || (e.buttons & 1) === 0) { press.current = null; return; }
    if (Math.abs(e.screenX - p.x) + Math.abs(e.screenY - p.y) >= DRAG_SLOP) {
      press.current = null;
      post({ type: 'dragStart' });
    }
  };
  const onUp = () => {
    if (press.current && !open) post({ type: 'open' });
    press.current = null;
  };
  const stripHandlers = {
    onPointerDown: onDown,
    onPointerMove: onMove,
    onPointerUp: onUp,
    onContextMenu: (e: MouseEvent) => { e.preventDefault(); post({ type: 'menu' }); },
  };

  const width = open ? PANEL_WIDTH : state.talk.state !== 'off' ? 300 : restWidth(geo);
  const box = shellBox(geo, open, width);
  const notchShape = geo.shape === 'notch' && !geo.away && !geo.dragging && geo.anchor === 'top';
  const classes = [
    'shell',
    open ? 'is-open' : 'is-rest',
    notchShape ? 'shape-notch' : 'shape-pill',
    `anchor-${geo.anchor}`,
    geo.dragging ? 'is-dragging' : '',
    state.hello ? 'is-hello' : '',
    summary.attention ? 'has-attention' : '',
    snap.trace ? 'is-trace' : '',
  ].join(' ');
  const restH = restHeight(geo);
  const maxH = geo.stageHeight - 16;
  const lead = summary.lead;

  const strip = (
    <div class="strip" style={{ height: open ? Math.max(restH, 40) : restH }} {...stripHandlers}>
      <span class="strip-mascot">
        <Mascot pose={state.talk.state === 'listening' ? 'listen' : summary.pose} size={open ? 30 : Math.min(28, restH)}
          title={summary.label} look={gazeAt(state.pointer, box.left + 22, (box.top ?? 0) + restH / 2)} tight={!open} />
      </span>
      {notchShape && !open && <span class="strip-gap" style={{ width: Math.max(geo.notchWidth, 120) }} />}
      {open ? (
        <span class="strip-title">
          <b>{summary.attention ? `${summary.attention} need${summary.attention === 1 ? 's' : ''} you` : summary.total ? `${summary.total} session${summary.total === 1 ? '' : 's'}` : 'Vantler'}</b>
          <span class="faint">{summary.working ? `${summary.working} working` : lead ? lead.project : 'No agents running'}</span>
        </span>
      ) : (
        <span class="strip-count" aria-hidden="true">
          {summary.attention > 0 ? (
            <span class="attention">{summary.attention > 1 ? summary.attention : '!'}</span>
          ) : summary.working > 0 ? (
            <span class="count is-working"><span class="spinner" />{summary.working}</span>
          ) : summary.total > 0 ? (
            <span class="count">{summary.total}</span>
          ) : null}
        </span>
      )}
      {open && (
        <span class="strip-tools">
          {state.usage && state.usage.today > 0 && <span class="today" title="Claude Code today">{formatCost(state.usage.today)}</span>}
          <button type="button" class="icon-btn" aria-label="Dictate" title="Dictate" onClick={() => post({ type: 'talk' })}><Icon.mic /></button>
          <button type="button" class={`icon-btn ${state.view === 'settings' ? 'is-on' : ''}`} aria-label="Settings" title="Settings" aria-pressed={state.view === 'settings'}
            onClick={() => dispatch({ type: state.view === 'settings' ? 'closeSettings' : 'openSettings' })}>
            <Icon.gear />
          </button>
          <button type="button" class="icon-btn" aria-label="Close panel" title="Close" onClick={() => post({ type: 'hide' })}><Icon.close /></button>
        </span>
      )}
    </div>
  );

  return (
    <div
      ref={shellRef}
      class={classes}
      style={{ left: box.left, top: box.top, bottom: box.bottom, width: Math.min(width, geo.stageWidth - 16), maxHeight: maxH }}
      role="region"
      aria-label={`Vantler: ${summary.label}`}
    >
      {strip}
      {!open && state.talk.state !== 'off' && <TalkBar talk={state.talk} />}
      {open && (
        <div class="body">
          <TalkBar talk={state.talk} />
          {state.tour !== null ? (
            <Tour step={state.tour} dispatch={dispatch} />
          ) : state.view === 'settings' ? (
            <SettingsView st={snap.settings} geo={geo} caps={snap.capabilities} screens={snap.screens} usage={state.usage} onBack={() => dispatch({ type: 'closeSettings' })} />
          ) : (
            <>
              <QueueBar snap={snap} shown={shown} onPick={pick} />
              {snap.sessions.length === 0 ? (
                <div class="empty">
                  <Mascot pose="sleep" size={56} />
                  <p><b>No sessions yet</b></p>
                  <p class="faint">Start Claude Code, Codex, Cursor or another connected agent and it shows up here.</p>
                </div>
              ) : (
                <ul class="sessions" aria-label="Sessions">
                  {snap.sessions.map((s) => (
                    <SessionRow
                      key={s.id}
                      s={s}
                      selected={s.id === shown}
                      now={now}
                      flash={snap.flash === s.id}
                      news={snap.prNews?.id === s.id ? snap.prNews.kind : undefined}
                      keyed={state.keys}
                      draft={state.drafts[s.pending ? s.pending.id : s.id] ?? ''}
                      talk={state.talk}
                      onPick={pick}
                      onDraft={draft}
                    />
                  ))}
                </ul>
              )}
              <footer class="foot">
                <button type="button" class="btn btn-small" onClick={() => post({ type: 'clear' })}
                  disabled={!snap.sessions.some((s) => !s.pending && (s.mood === 'done' || s.mood === 'idle'))}>
                  Clear finished
                </button>
                {snap.canUndo && <button type="button" class="btn btn-small" onClick={() => post({ type: 'undo' })}>Undo</button>}
                <span class="foot-keys faint">{state.keys ? '↑↓ move · ⏎ allow or send · esc close' : ''}</span>
              </footer>
            </>
          )}
        </div>
      )}
    </div>
  );
}

/** Escape closes the innermost thing: a tour, settings, a text field, then the panel. */
export function escape(state: UiState, dispatch: (a: Action) => void): void {
  if (recording.on) return;
  if (state.tour !== null) {
    dispatch({ type: 'tourEnd' });
    post({ type: 'tourDone' });
    return;
  }
  if (state.view === 'settings') {
    dispatch({ type: 'closeSettings' });
    return;
  }
  const active = document.activeElement as HTMLElement | null;
  if (active && (active.tagName === 'TEXTAREA' || active.tagName === 'INPUT')) {
    active.blur();
    return;
  }
  post({ type: 'hide' });
}
