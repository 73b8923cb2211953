// Small shared pieces: agent marks, switches, segmented choices, icons.
import type { ComponentChildren } from 'preact';
import { AGENTS, agentLabel } from '../logic';

const AGENT_TINT: Record<string, [string, string]> = {
  claude: ['#d97757', '#fff'],
  codex: ['#1f2937', '#fff'],
  cursor: ['#111111', '#fff'],
  gemini: ['#3b6fe0', '#fff'],
  droid: ['#ea580c', '#fff'],
  opencode: ['#374151', '#fff'],
  copilot: ['#6d28d9', '#fff'],
  windsurf: ['#0e7490', '#fff'],
};

export function AgentMark({ agent, size = 22 }: { agent: string; size?: number }) {
  const [bg, fg] = AGENT_TINT[agent] ?? ['#4b5563', '#fff'];
  const mark = AGENTS[agent]?.mark ?? (agent.slice(0, 2) || '?');
  return (
    <span
      class="agent-mark"
      style={{ width: size, height: size, background: bg, color: fg, fontSize: size * 0.45 }}
      title={agentLabel(agent)}
      aria-label={agentLabel(agent)}
      role="img"
    >
      {mark}
    </span>
  );
}

export function Switch({ label, checked, disabled, note, onChange }: {
  label: string; checked: boolean; disabled?: boolean; note?: ComponentChildren; onChange: (v: boolean) => void;
}) {
  return (
    <div class={`setting ${disabled ? 'is-disabled' : ''}`}>
      <span class="setting-text">
        <span class="setting-label">{label}</span>
        {note && <span class="setting-note">{note}</span>}
      </span>
      <button
        type="button"
        role="switch"
        class="switch"
        aria-checked={checked}
        aria-label={label}
        disabled={disabled}
        onClick={() => onChange(!checked)}
      >
        <span class="knob" />
      </button>
    </div>
  );
}

export function Segmented<T extends string | number>({ label, value, options, onChange }: {
  label: string; value: T; options: [T, string][]; onChange: (v: T) => void;
}) {
  const known = options.some(([v]) => v === value);
  const all: [T, string][] = known ? options : [...options, [value, String(value)]];
  return (
    <div class="setting">
      <span class="setting-label">{label}</span>
      <div class="segmented" role="group" aria-label={label}>
        {all.map(([v, text]) => (
          <button type="button" key={String(v)} aria-pressed={v === value} onClick={() => v !== value && onChange(v)}>
            {text}
          </button>
        ))}
      </div>
    </div>
  );
}

export const Icon = {
  gear: () => (
    <svg viewBox="0 0 20 20" width="16" height="16" aria-hidden="true">
      <path
        fill="currentColor"
        d="M11.3 1.7l.4 2.1c.5.2 1 .5 1.4.8l2-.8 1.4 2.4-1.6 1.4a6 6 0 010 1.6l1.6 1.4-1.4 2.4-2-.8c-.4.3-.9.6-1.4.8l-.4 2.1H8.7l-.4-2.1c-.5-.2-1-.5-1.4-.8l-2 .8-1.4-2.4 1.6-1.4a6 6 0 010-1.6L3.5 6.2l1.4-2.4 2 .8c.4-.3.9-.6 1.4-.8l.4-2.1zM10 7a3 3 0 100 6 3 3 0 000-6z"
      />
    </svg>
  ),
  mic: () => (
    <svg viewBox="0 0 20 20" width="16" height="16" aria-hidden="true">
      <rect x="7" y="2" width="6" height="10" rx="3" fill="currentColor" />
      <path d="M4.5 9.5a5.5 5.5 0 0011 0M10 15v3" stroke="currentColor" stroke-width="1.7" fill="none" stroke-linecap="round" />
    </svg>
  ),
  close: () => (
    <svg viewBox="0 0 20 20" width="14" height="14" aria-hidden="true">
      <path d="M5 5l10 10M15 5L5 15" stroke="currentColor" stroke-width="2" stroke-linecap="round" />
    </svg>
  ),
  back: () => (
    <svg viewBox="0 0 20 20" width="16" height="16" aria-hidden="true">
      <path d="M12.5 4l-6 6 6 6" stroke="currentColor" stroke-width="2" fill="none" stroke-linecap="round" stroke-linejoin="round" />
    </svg>
  ),
  jump: () => (
    <svg viewBox="0 0 20 20" width="14" height="14" aria-hidden="true">
      <path d="M8 4H4v12h12v-4M11 3h6v6M17 3l-8 8" stroke="currentColor" stroke-width="1.8" fill="none" stroke-linecap="round" stroke-linejoin="round" />
    </svg>
  ),
  shield: () => (
    <svg viewBox="0 0 20 20" width="16" height="16" aria-hidden="true">
      <path d="M10 2l6.5 2.5v5c0 4-2.8 7-6.5 8.5C6.3 16.5 3.5 13.5 3.5 9.5v-5z" fill="currentColor" />
      <path d="M10 6v4.5M10 13v.5" stroke="var(--panel)" stroke-width="1.8" stroke-linecap="round" />
    </svg>
  ),
  ask: () => (
    <svg viewBox="0 0 20 20" width="16" height="16" aria-hidden="true">
      <circle cx="10" cy="10" r="8" fill="currentColor" />
      <path d="M7.6 7.6a2.5 2.5 0 114 2c-.9.6-1.6 1-1.6 2.1M10 14.3v.2" stroke="var(--panel)" stroke-width="1.8" fill="none" stroke-linecap="round" />
    </svg>
  ),
  reply: () => (
    <svg viewBox="0 0 20 20" width="16" height="16" aria-hidden="true">
      <path d="M8 5L3 10l5 5M3.5 10H12a5 5 0 015 5v1" stroke="currentColor" stroke-width="2" fill="none" stroke-linecap="round" stroke-linejoin="round" />
    </svg>
  ),
  window: () => (
    <svg viewBox="0 0 20 20" width="16" height="16" aria-hidden="true">
      <rect x="2.5" y="3.5" width="15" height="13" rx="2" stroke="currentColor" stroke-width="1.8" fill="none" />
      <path d="M2.5 7.5h15" stroke="currentColor" stroke-width="1.8" />
    </svg>
  ),
};
