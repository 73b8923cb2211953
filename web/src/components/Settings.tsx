// Every preference with its control, the agent connections, the two hot keys,
// today's usage and the application's own actions.
import { useEffect, useRef, useState } from 'preact/hooks';
import { post } from '../bridge';
import {
  DEFAULT_OPEN_KEY, DEFAULT_TALK_KEY, comboFromKey, comboLabel, comboText, formatCost, formatTokens, packCombo,
} from '../logic';
import type { Geo, Settings, Usage } from '../types';
import { Icon, Segmented, Switch } from './ui';

export const set = (key: string, value: unknown) => post({ type: 'setting', key, value });

/** True while a hot key is being recorded, so Escape cancels the recording only. */
export const recording = { on: false };

function HotKeyField({ label, name, value, fallback }: {
  label: string; name: 'openKey' | 'talkKey'; value: unknown; fallback: typeof DEFAULT_OPEN_KEY;
}) {
  const [active, setActive] = useState(false);
  const [shown, setShown] = useState<string | null>(null);
  const listener = useRef<((e: KeyboardEvent) => void) | null>(null);
  useEffect(() => setShown(null), [JSON.stringify(value)]);

  const stop = () => {
    if (listener.current) window.removeEventListener('keydown', listener.current, true);
    listener.current = null;
    setActive(false);
    recording.on = false;
    post({ type: 'recordingKey', on: false });
  };
  // The key listener goes in at the click itself, so no key press is missed.
  const start = () => {
    const onKey = (e: KeyboardEvent) => {
      e.preventDefault();
      e.stopPropagation();
      if (e.key === 'Escape') return stop();
      const combo = comboFromKey(e);
      if (!combo) return;
      setShown(comboLabel(combo));
      set(name, packCombo(combo));
      stop();
    };
    listener.current = onKey;
    window.addEventListener('keydown', onKey, true);
    setActive(true);
    recording.on = true;
    post({ type: 'recordingKey', on: true });
  };
  useEffect(() => () => { if (listener.current) stop(); }, []);

  return (
    <div class="setting">
      <span class="setting-label">{label}</span>
      <button
        type="button"
        class={`keycap ${active ? 'is-recording' : ''}`}
        aria-label={`${label}: ${active ? 'press the new keys' : shown ?? comboText(value, fallback)}. Change`}
        onClick={() => (active ? stop() : start())}
      >
        {active ? 'Press keys…' : shown ?? comboText(value, fallback)}
      </button>
    </div>
  );
}

export function Agents({ st }: { st: Settings }) {
  return (
    <div class="agents">
      <Switch label="Claude Code" checked={st.hooksInstalled} onChange={(v) => set('hooksInstalled', v)}
        note={st.hooksInstalled ? 'Connected' : 'Not connected'} />
      <Switch label="Cursor" checked={st.cursorInstalled} disabled={!st.cursorAvailable && !st.cursorInstalled}
        onChange={(v) => set('cursorInstalled', v)}
        note={st.cursorAvailable ? (st.cursorInstalled ? 'Connected' : 'Not connected') : 'Not found on this computer'} />
      {st.integrations.filter((i) => i.available || i.installed).map((i) => (
        <Switch key={i.id} label={i.label || i.id} checked={i.installed}
          onChange={(v) => set(`integration:${i.id}`, v)}
          note={i.installed ? 'Connected' : 'Not connected'} />
      ))}
      {/* Agents that are not on this computer cannot be connected: named once, not as switches. */}
      {st.integrations.some((i) => !i.available && !i.installed) && (
        <p class="setting-note agents-missing">
          Not found on this computer: {st.integrations.filter((i) => !i.available && !i.installed).map((i) => i.label || i.id).join(', ')}.
        </p>
      )}
      <p class="setting-note">Codex is followed from its session logs; it needs no connection.</p>
    </div>
  );
}

export function UsageView({ usage }: { usage: Usage | null }) {
  if (!usage) return <p class="setting-note">Reading today’s transcripts…</p>;
  return (
    <div class="usage">
      <p class="usage-total"><span>Claude Code today</span><b>{formatCost(usage.today)}</b></p>
      {usage.models.length > 0 && (
        <ul class="usage-models">
          {usage.models.map((m) => (
            <li key={m.model}>
              <span>{m.model}</span>
              <span class="faint">{formatTokens(m.tokens)} tokens</span>
              <b>{formatCost(m.cost)}</b>
            </li>
          ))}
        </ul>
      )}
    </div>
  );
}

export function SettingsView({ st, geo, usage, onBack }: { st: Settings; geo: Geo; usage: Usage | null; onBack: () => void }) {
  const [copied, setCopied] = useState(false);
  return (
    <div class="settings" role="region" aria-label="Settings">
      <div class="view-head">
        <button type="button" class="icon-btn" aria-label="Back to sessions" onClick={onBack}><Icon.back /></button>
        <h2>Settings</h2>
      </div>

      <h3 class="group">Appearance</h3>
      <Segmented label="Theme" value={st.theme} options={[['auto', 'Auto'], ['light', 'Light'], ['dark', 'Dark']]} onChange={(v) => set('theme', v)} />
      <Segmented label="Shape" value={st.shape} options={[['auto', 'Auto'], ['notch', 'Notch'], ['pill', 'Pill']]} onChange={(v) => set('shape', v)} />
      <Switch label="Glass" checked={st.glass} disabled={!geo.glassAvailable} onChange={(v) => set('glass', v)}
        note={geo.glassAvailable ? undefined : 'Not available on this desktop'} />

      <h3 class="group">Behaviour</h3>
      <Switch label="Open when a session needs me" checked={st.autoOpen} onChange={(v) => set('autoOpen', v)} />
      <Segmented label="Reply window" value={st.replyWindow}
        options={[[0, 'Off'], [10, '10s'], [15, '15s'], [30, '30s'], [60, '1m']]} onChange={(v) => set('replyWindow', v)} />
      <Segmented label="Hide idle sessions" value={st.hideAfter}
        options={[[30, '30m'], [120, '2h'], [480, '8h'], [0, 'Never']]} onChange={(v) => set('hideAfter', v)} />
      <Switch label="Open at login" checked={st.openAtLogin} onChange={(v) => set('openAtLogin', v)} />
      <Switch label="Update automatically" checked={st.autoUpdate} onChange={(v) => set('autoUpdate', v)} />

      <h3 class="group">Keyboard</h3>
      <HotKeyField label="Open the panel" name="openKey" value={st.openKey} fallback={DEFAULT_OPEN_KEY} />
      <HotKeyField label="Dictate" name="talkKey" value={st.talkKey} fallback={DEFAULT_TALK_KEY} />
      <Switch label="Alt gestures" checked={st.optionTap}
        onChange={(v) => { set('optionTap', v); post({ type: 'optionTapChanged' }); }}
        note={st.optionTap && !st.optionTapReady ? 'Not available in this session' : 'Double-tap Alt to open, hold it to dictate'} />

      <h3 class="group">Agents</h3>
      <Agents st={st} />

      <h3 class="group">Today</h3>
      <UsageView usage={usage} />

      <h3 class="group">Vantler {st.version}</h3>
      <div class="about">
        <button type="button" class="btn" onClick={() => { post({ type: 'copyDiagnostics' }); setCopied(true); }}>
          {copied ? 'Copied' : 'Copy diagnostics'}
        </button>
        <button type="button" class="btn" onClick={() => post({ type: 'checkUpdates' })}>Check for updates</button>
        {geo.away && <button type="button" class="btn" onClick={() => post({ type: 'resetPosition' })}>Back to the top</button>}
        <button type="button" class="btn btn-deny" onClick={() => post({ type: 'quit' })}>Quit</button>
      </div>
    </div>
  );
}

