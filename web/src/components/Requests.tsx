// Cards for what a session asks of the user: a permission, questions, a reply
// after its turn, or a prompt waiting in the agent's own window.
import { useEffect, useRef, useState } from 'preact/hooks';
import { post } from '../bridge';
import { allAnswered, buildAnswers, decision, formatDuration, replyLeft, requestCount, toggleChoice } from '../logic';
import type { ElsewherePending, Pending, PermissionPending, QuestionsPending, ReplyPending, Session, Talk } from '../types';
import { Icon } from './ui';

export function Dismiss({ id }: { id: string }) {
  return (
    <button type="button" class="icon-btn dismiss" aria-label="Dismiss" title="Dismiss" onClick={() => post({ type: 'dismiss', id })}>
      <Icon.close />
    </button>
  );
}

/** "1 of 3" while further requests of the same session wait behind this one. */
function Count({ p }: { p: Pending }) {
  const text = requestCount(p);
  return text ? <span class="chip req-count" aria-label={`Request ${text}`}>{text}</span> : null;
}

export function PermissionCard({ s, p }: { s: Session; p: PermissionPending }) {
  return (
    <section class="req req-permission" aria-label="Permission request">
      <header class="req-head">
        <span class="req-icon warn"><Icon.shield /></span>
        <h3 class="req-title">{p.title || 'Permission needed'}</h3>
        {p.tool && <span class="chip">{p.tool}</span>}
        <Count p={p} />
        <Dismiss id={s.id} />
      </header>
      {p.detail && <pre class="mono">{p.detail}</pre>}
      <div class="actions">
        <button type="button" class="btn btn-allow" data-default onClick={() => post(decision(s, p, 'allow'))}>Allow</button>
        {p.always && (
          <button type="button" class="btn btn-allow btn-always" onClick={() => post(decision(s, p, 'allow', { always: true }))}>
            {p.always}
          </button>
        )}
        <button type="button" class="btn btn-deny" onClick={() => post(decision(s, p, 'deny'))}>Deny</button>
        <button type="button" class="btn btn-quiet" onClick={() => post({ type: 'answerThere', id: s.id })}>
          Answer in terminal
        </button>
      </div>
    </section>
  );
}

export function QuestionsCard({ s, p }: { s: Session; p: QuestionsPending }) {
  const [chosen, setChosen] = useState<number[][]>([]);
  useEffect(() => setChosen([]), [p.id]);
  const single = p.questions.length === 1 && !p.questions[0].multi;
  const send = (c: number[][]) => post(decision(s, p, 'answer', { answers: buildAnswers(p.questions, c) }));
  const pick = (i: number, j: number) => {
    const next = p.questions.map((q, k) => (k === i ? toggleChoice(chosen[k] ?? [], j, q.multi) : chosen[k] ?? []));
    if (single) send(next);
    else setChosen(next);
  };
  const ready = allAnswered(p.questions, chosen);
  return (
    <section class="req req-questions" aria-label="Questions">
      <header class="req-head">
        <span class="req-icon ask"><Icon.ask /></span>
        <h3 class="req-title">{p.questions.length > 1 ? `${p.questions.length} questions` : 'A question'}</h3>
        <Count p={p} />
        <Dismiss id={s.id} />
      </header>
      {p.questions.map((q, i) => (
        <fieldset class="question" key={i}>
          <legend>
            {q.header && <span class="chip">{q.header}</span>}
            <span class="q-text">{q.text}</span>
            {q.multi && <span class="q-hint">Choose any</span>}
          </legend>
          <div class="options">
            {q.options.map((o, j) => (
              <button
                type="button"
                key={j}
                class={`option ${q.multi ? 'multi' : ''}`}
                aria-pressed={(chosen[i] ?? []).includes(j)}
                onClick={() => pick(i, j)}
              >
                <span class="tick" aria-hidden="true" />
                <span class="option-text">
                  <span class="option-label">{o.label}</span>
                  {o.detail && <span class="option-detail">{o.detail}</span>}
                </span>
              </button>
            ))}
          </div>
        </fieldset>
      ))}
      <div class="actions">
        {!single && (
          <button type="button" class="btn btn-allow" data-default disabled={!ready} onClick={() => send(chosen)}>
            Send {p.questions.length > 1 ? 'answers' : 'answer'}
          </button>
        )}
        <button type="button" class="btn btn-quiet" onClick={() => post({ type: 'answerThere', id: s.id })}>
          Answer in terminal
        </button>
      </div>
    </section>
  );
}

/** Claims keyboard focus and a hold while a text field in the panel is in use. */
export function fieldFocus(on: boolean): void {
  post({ type: 'focus', on });
  post({ type: 'hold', key: 'field', on });
}

export function ReplyCard({ s, p, now, draft, onDraft, talk }: {
  s: Session; p: ReplyPending; now: number; draft: string; onDraft: (t: string) => void; talk: Talk;
}) {
  const engaged = useRef(p.engaged);
  const input = useRef<HTMLTextAreaElement>(null);
  useEffect(() => { engaged.current = p.engaged; }, [p.id]);
  const left = replyLeft(p, now);
  const engage = () => {
    if (!engaged.current) {
      engaged.current = true;
      post({ type: 'engage', id: s.id });
    }
  };
  // Dictated text lands in the draft: the window must stay open for it.
  useEffect(() => { if (draft) engage(); }, [draft !== '']);
  const send = () => {
    const text = draft.trim();
    if (!text) return;
    post({ type: 'reply', id: s.id, text });
    onDraft('');
  };
  const listening = talk.state === 'listening' || talk.state === 'polishing';
  return (
    <section class="req req-reply" aria-label="Reply window">
      <header class="req-head">
        <span class="req-icon reply"><Icon.reply /></span>
        <h3 class="req-title">Turn finished</h3>
        <span class="countdown-text" aria-live="off">
          {p.engaged || engaged.current ? 'Open while you type' : `${formatDuration(left.ms)} to reply`}
        </span>
        <button type="button" class="btn btn-quiet btn-small" onClick={() => { post({ type: 'release', id: s.id }); onDraft(''); }}>
          Let it go
        </button>
      </header>
      {!(p.engaged || engaged.current) && (
        <div class="countdown" role="progressbar" aria-label="Time left to reply" aria-valuemin={0} aria-valuemax={100} aria-valuenow={Math.round(left.fraction * 100)}>
          <span
            key={`${p.id}:${p.expires}`}
            style={{ transform: `scaleX(${left.fraction})`, animationDuration: `${left.ms}ms` }}
          />
        </div>
      )}
      {p.message && <p class="last-message">{p.message}</p>}
      <div class="reply-box">
        <textarea
          ref={input}
          class="reply-input"
          rows={1}
          placeholder={listening ? 'Listening…' : 'Reply to continue…'}
          aria-label={`Reply to ${s.title}`}
          value={draft}
          onFocus={() => fieldFocus(true)}
          onBlur={() => fieldFocus(false)}
          onInput={(e) => {
            engage();
            onDraft((e.target as HTMLTextAreaElement).value);
          }}
          onKeyDown={(e) => {
            if (e.key === 'Enter' && !e.shiftKey && !e.isComposing) {
              e.preventDefault();
              send();
            }
          }}
        />
        <button type="button" class={`icon-btn mic ${listening ? 'is-on' : ''}`} aria-label="Dictate a reply" title="Dictate" onClick={() => post({ type: 'talk' })}>
          <Icon.mic />
        </button>
        <button type="button" class="btn btn-allow btn-send" disabled={!draft.trim()} onClick={send}>Send</button>
      </div>
    </section>
  );
}

/** Where the user answers a prompt Vantler cannot answer: the agents whose hooks can only
 * object ask in their terminal. The jump is offered only when Vantler knows the window. */
function elsewhereNote(s: Session): string {
  if (s.family === 'terminal' || !s.host) return 'Answer in the terminal.';
  return `Answer it in ${s.host}.`;
}

export function ElsewhereCard({ s, p }: { s: Session; p: ElsewherePending }) {
  return (
    <section class="req req-elsewhere" aria-label="Waiting in its window">
      <header class="req-head">
        <span class="req-icon warn"><Icon.window /></span>
        <h3 class="req-title">{p.title || 'Waiting for you in its window'}</h3>
        <Dismiss id={s.id} />
      </header>
      <p class="req-note">{elsewhereNote(s)}</p>
      {s.host && (
        <div class="actions">
          <button type="button" class="btn btn-allow" data-default onClick={() => post({ type: 'jump', id: s.id })}>
            <Icon.jump /> Go to window
          </button>
        </div>
      )}
    </section>
  );
}

// A finished turn whose hook was let go: the reply is typed at the agent's prompt in its terminal.
export function TypeCard({ s, draft, onDraft }: { s: Session; draft: string; onDraft: (t: string) => void }) {
  const send = () => {
    const text = draft.trim();
    if (!text) return;
    post({ type: 'reply', id: s.id, text });
    onDraft('');
  };
  return (
    <section class="req req-reply" aria-label="Reply in the terminal">
      <div class="reply-box">
        <textarea
          class="reply-input"
          rows={1}
          placeholder="Reply in its terminal…"
          aria-label={`Reply to ${s.title}`}
          value={draft}
          onFocus={() => fieldFocus(true)}
          onBlur={() => fieldFocus(false)}
          onInput={(e) => onDraft((e.target as HTMLTextAreaElement).value)}
          onKeyDown={(e) => {
            if (e.key === 'Enter' && !e.shiftKey && !e.isComposing) {
              e.preventDefault();
              send();
            }
          }}
        />
        <button type="button" class="btn btn-allow btn-send" disabled={!draft.trim()} onClick={send}>Send</button>
      </div>
    </section>
  );
}
