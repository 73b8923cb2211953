// The session list: one row per visible session, the selected one opened into
// its detail with its request card.
import { memo } from 'preact/compat';
import { post } from '../bridge';
import { agentLabel, formatAgo, formatCost, formatTokens, turnTime } from '../logic';
import { slotColor } from '../theme';
import type { Mood, PullRequest, Session, Talk } from '../types';
import { ElsewhereCard, PermissionCard, QuestionsCard, ReplyCard, TypeCard } from './Requests';
import { AgentMark, Icon } from './ui';

const MOOD_TEXT: Record<Mood, string> = { working: 'Working', waiting: 'Needs you', done: 'Done', idle: 'Idle' };

export function MoodTag({ s }: { s: Session }) {
  const text = s.pending?.kind === 'reply' ? 'Can reply' : MOOD_TEXT[s.mood];
  return <span class={`mood mood-${s.mood}`}><span class="dot" aria-hidden="true" />{text}</span>;
}

const NEWS: Record<string, string> = {
  opened: 'opened', merged: 'merged', closed: 'closed', checksPassed: 'checks passed', checksFailed: 'checks failed',
};

function PrBadge({ pr, news }: { pr: PullRequest; news?: string }) {
  const state = pr.state.toLowerCase() || 'open';
  const label = `Pull request #${pr.number}${pr.title ? `: ${pr.title}` : ''}, ${state}${pr.checks ? `, checks ${pr.checks}` : ''}`;
  return (
    <span class={`pr pr-${state} ${news ? 'is-news' : ''}`} title={label} aria-label={label}>
      #{pr.number}
      {pr.checks && <span class={`checks checks-${pr.checks.toLowerCase()}`} aria-hidden="true" />}
      {news && <span class="pr-news">{NEWS[news] ?? news}</span>}
    </span>
  );
}

function ContextMeter({ fraction, tokens }: { fraction: number; tokens?: number }) {
  const pct = Math.round(fraction * 100);
  return (
    <span class={`context ${fraction >= 0.8 ? 'is-high' : ''}`} title={`Context ${pct}% used${tokens ? `, ${formatTokens(tokens)} tokens` : ''}`}>
      <span class="bar" aria-hidden="true"><span style={{ width: `${Math.min(100, pct)}%` }} /></span>
      {pct}%
    </span>
  );
}

function subline(s: Session): string {
  const project = s.machine ? `${s.project} on ${s.machine}` : s.project;
  return [project, s.branch, s.host].filter(Boolean).join(' · ');
}

function latest(s: Session): { text: string; failed: boolean } {
  const last = s.tools[s.tools.length - 1];
  if (s.mood === 'working' && last?.running) return { text: last.label, failed: false };
  if (last?.failed && s.mood === 'working') return { text: `Failed: ${last.label}`, failed: true };
  return { text: s.activity || (last ? last.label : ''), failed: false };
}

export interface RowProps {
  s: Session;
  selected: boolean;
  now: number;
  flash: boolean;
  news?: string;
  keyed: boolean;
  draft: string;
  talk: Talk;
  onPick: (id: string) => void;
  onDraft: (id: string, text: string) => void;
}

function Row({ s, selected, now, flash, news, keyed, draft, talk, onPick, onDraft }: RowProps) {
  const t = turnTime(s, now);
  const when = t ? t.text : s.updated ? formatAgo(now - s.updated) : '';
  const line = latest(s);
  const p = s.pending;
  // While the agent asks something, the card gets the room; tool history waits.
  const asks = p?.kind === 'permission' || p?.kind === 'questions';
  return (
    <li
      class={`row mood-${s.mood} ${selected ? 'is-selected' : ''} ${flash ? 'is-flash' : ''} ${keyed && selected ? 'is-keyed' : ''}`}
      style={{ '--slot': slotColor(s.color) }}
      data-id={s.id}
    >
      <button type="button" class="row-main" aria-expanded={selected} aria-current={selected ? 'true' : undefined} onClick={() => onPick(s.id)}>
        <span class="slot" aria-hidden="true" />
        <AgentMark agent={s.agent} />
        <span class="row-text">
          <span class="row-title">{s.title || s.project}</span>
          <span class="row-sub">{subline(s)}</span>
          {!selected && line.text && <span class={`row-activity ${line.failed ? 'is-failed' : ''}`}>{line.text}</span>}
        </span>
        <span class="row-side">
          <MoodTag s={s} />
          <span class="row-facts">
            {!selected && s.pr && <PrBadge pr={s.pr} news={news} />}
            {when && <span class={`when ${t?.live ? 'is-live' : ''}`}>{when}</span>}
          </span>
        </span>
      </button>
      {selected && (
        <div class="detail">
          {p?.kind === 'permission' && <PermissionCard s={s} p={p} />}
          {p?.kind === 'questions' && <QuestionsCard s={s} p={p} />}
          {p?.kind === 'reply' && (
            <ReplyCard s={s} p={p} now={now} draft={draft} talk={talk} onDraft={(text) => onDraft(p.id, text)} />
          )}
          {p?.kind === 'elsewhere' && <ElsewhereCard s={s} p={p} />}
          {!p && s.canType && <TypeCard s={s} draft={draft} onDraft={(text) => onDraft(s.id, text)} />}
          {(s.activity || s.phase) && (
            <p class="activity">
              {s.mood === 'working' && <span class="spinner" aria-hidden="true" />}
              <span>{s.activity || 'Between turns'}</span>
              {s.phase && <span class="chip phase">{s.phase}</span>}
              {s.turnCalls > 0 && <span class="calls">{s.turnCalls} call{s.turnCalls === 1 ? '' : 's'} this turn</span>}
            </p>
          )}
          {s.tools.length > 0 && !asks && (
            <ol class="tools" aria-label="Recent tools">
              {s.tools.map((tl, i) => (
                <li key={i} class={tl.running ? 'is-running' : tl.failed ? 'is-failed' : 'is-ok'}>
                  <span class="tool-state" aria-label={tl.running ? 'running' : tl.failed ? 'failed' : 'done'} />
                  <span class="tool-label">{tl.label}</span>
                </li>
              ))}
            </ol>
          )}
          {s.tally.length > 0 && !asks && (
            <ul class="tally" aria-label="Tools used">
              {s.tally.map((x) => (
                <li key={x.tool} title={x.detail}><b>{x.tool}</b> ×{x.count}</li>
              ))}
            </ul>
          )}
          <div class="meta">
            <span class="meta-agent">{s.stats.model || agentLabel(s.agent)}</span>
            {s.stats.cost > 0 && <span class="cost">{formatCost(s.stats.cost)}</span>}
            {s.stats.context !== undefined && <ContextMeter fraction={s.stats.context} tokens={s.stats.contextTokens} />}
            {s.pr && <PrBadge pr={s.pr} news={news} />}
            <button type="button" class="btn btn-small" onClick={() => post({ type: 'jump', id: s.id })}>
              <Icon.jump /> Open terminal
            </button>
          </div>
        </div>
      )}
    </li>
  );
}

// Rows re-render only when their own session or display inputs change. The
// snapshot is rebuilt whole on every push, so sessions are compared by value.
const same = (a: RowProps, b: RowProps) =>
  a.selected === b.selected && a.now === b.now && a.flash === b.flash && a.news === b.news &&
  a.keyed === b.keyed && a.draft === b.draft && (a.selected ? a.talk === b.talk : true) &&
  JSON.stringify(a.s) === JSON.stringify(b.s);

export const SessionRow = memo(Row, same);
