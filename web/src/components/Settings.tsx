// Every preference with its control, the agent connections, the two hot keys,
// today's usage and the application's own actions.
import { useEffect, useRef, useState } from 'preact/hooks';
import { post } from '../bridge';
import {
  DEFAULT_OPEN_KEY, DEFAULT_TALK_KEY, comboFromKey, comboLabel, comboText, formatCost, formatTokens, packCombo,
} from '../logic';
import type { Capabilities, Capability, Geo, ScreenChoice, Settings, Usage } from '../types';
import { fieldFocus } from './Requests';
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
  // Why the combination does nothing: taken by another program, or no global keys here.
  const problem = value && typeof value === 'object' ? (value as { problem?: unknown }).problem : null;

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
    <>
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
    {typeof problem === 'string' && problem && !active && <p class="setting-note is-unavailable">{problem}</p>}
    </>
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

/** Machines whose agents come through SSH: each with its tunnel's state, and one field to add
 * another. Adding logs in over ssh, so it takes a moment; the row says so meanwhile. */
export function RemoteHosts({ remotes }: { remotes: Settings['remotes'] }) {
  const [host, setHost] = useState('');
  const add = () => {
    const name = host.trim();
    if (!name) return;
    set('remote:add', name);
    setHost('');
  };
  return (
    <div class="remotes">
      {remotes.hosts.map((h) => (
        <div class="setting" key={h.name}>
          <span class="setting-text">
            <span class="setting-label">{h.name}</span>
            <span class="setting-note">
              {h.busy === 'adding' ? 'Installing the hook there…'
                : h.busy === 'removing' ? 'Disconnecting its agents…'
                : [h.state, h.hook].filter(Boolean).join(' · ')}
            </span>
          </span>
          <button type="button" class="btn btn-quiet" disabled={!!h.busy}
            aria-label={`Remove ${h.name}`} onClick={() => set('remote:remove', h.name)}>
            Remove
          </button>
        </div>
      ))}
      <div class="setting">
        <input class="setting-input remote-input" type="text" value={host} placeholder="ssh alias or user@host"
          spellcheck={false} autocomplete="off" aria-label="Host to add"
          onInput={(e) => setHost((e.target as HTMLInputElement).value)}
          onFocus={() => fieldFocus(true)} onBlur={() => fieldFocus(false)}
          onKeyDown={(e) => { if (e.key === 'Enter') add(); }} />
        <button type="button" class="btn" disabled={!host.trim()} onClick={add}>Add host</button>
      </div>
      {remotes.message && <p class="setting-note remote-message">{remotes.message}</p>}
      <p class="setting-note">Agents there reach this panel through an SSH tunnel; the host must accept your key without a password.</p>
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

/** A text setting, stored when the field is left or Enter is pressed. */
function TextField({ label, name, value, placeholder, secret }: {
  label: string; name: string; value: string; placeholder?: string; secret?: boolean;
}) {
  const [text, setText] = useState(value);
  useEffect(() => setText(value), [value]);
  const commit = () => {
    if (text.trim() !== value) set(name, text.trim() || null);
    if (secret) setText('');  // a key is sent once and never shown again
  };
  const field = {
    class: 'setting-input', value: text, placeholder, spellcheck: false, autocomplete: 'off',
    onInput: (e: Event) => setText((e.target as HTMLInputElement).value),
    onFocus: () => fieldFocus(true),
    onBlur: () => { commit(); fieldFocus(false); },
    onKeyDown: (e: KeyboardEvent) => { if (e.key === 'Enter') (e.target as HTMLInputElement).blur(); },
  };
  return (
    <label class="setting">
      <span class="setting-label">{label}</span>
      {secret ? <input type="password" {...field} /> : <input type="text" {...field} />}
    </label>
  );
}

/** Where dictated speech is turned into text, and who punctuates it. */
function Voice({ st }: { st: Settings }) {
  return (
    <>
      <TextField label="Speech server" name="speechServer" value={st.speechServer} placeholder="http://127.0.0.1:8080" />
      {!st.speechServer && (
        <p class="setting-note">
          Run a local whisper.cpp server: <code>whisper-server -m ggml-base.en.bin --inference-path /v1/audio/transcriptions</code>.<br />
          Then put its address here, http://127.0.0.1:8080 by default.
        </p>
      )}
      {st.speechServer && <TextField label="Model" name="speechModel" value={st.speechModel} placeholder="whisper-1" />}
      {st.speechServer && (
        <TextField label="API key" name="speechKey" value="" secret
          placeholder={st.speechKeySet ? 'Kept in the keyring' : 'Optional'} />
      )}
      {!st.speechServer && st.speechOfflineInstalled && (
        <Switch label="Offline speech" checked={st.speechOffline} onChange={(v) => set('speechOffline', v)}
          note="pocketsphinx: works without a server, but often mishears" />
      )}
      <TextField label="Punctuation server" name="punctuationServer" value={st.punctuationServer}
        placeholder="Optional: a llama.cpp or Ollama address" />
      {st.punctuationServer && (
        <TextField label="Punctuation model" name="punctuationModel" value={st.punctuationModel} placeholder="default" />
      )}
    </>
  );
}

const UPDATE_WORDS: Record<string, string> = {
  off: 'Update checks are off in this build; your package manager brings new versions.',
  waiting: 'Checking for updates once no request waits…',
  checking: 'Checking for updates…',
  current: 'Vantler is up to date.',
};

function UpdateLine({ update }: { update: Settings['update'] }) {
  if (update.state === 'newer')
    return <p class="setting-note">Vantler {update.version} is available.{update.link && <> <a href={update.link}>See the release</a></>}</p>;
  if (update.state === 'failed') return <p class="setting-note">Could not check for updates: {update.error}</p>;
  const words = UPDATE_WORDS[update.state];
  return words ? <p class="setting-note">{words}</p> : null;
}

/** One line saying why a facility does nothing in this session. */
function Unavailable({ what }: { what: Capability }) {
  return !what.ready && what.reason ? <p class="setting-note is-unavailable">{what.reason}</p> : null;
}

/** Which display the panel hangs from, offered with more than one display attached. */
function DisplayChoice({ value, screens }: { value: string; screens: ScreenChoice[] }) {
  if (screens.length < 2) return null;
  const options: [string, string][] = [['auto', 'Automatic'], ...screens.map((s): [string, string] => [s.key, s.name])];
  if (!options.some(([k]) => k === value)) options.push([value, 'Not connected']);
  return <Segmented label="Display" value={value} options={options} onChange={(v) => set('screen', v)} />;
}

export function SettingsView({ st, geo, caps, screens, usage, onBack }: {
  st: Settings; geo: Geo; caps: Capabilities; screens: ScreenChoice[]; usage: Usage | null; onBack: () => void;
}) {
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
      <DisplayChoice value={st.screen} screens={screens} />
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
      <Switch label="Notify me when the panel is out of sight" checked={st.notifyAnswers}
        onChange={(v) => set('notifyAnswers', v)} note="Answer requests from a desktop notification" />

      <h3 class="group">Keyboard</h3>
      <HotKeyField label="Open the panel" name="openKey" value={st.openKey} fallback={DEFAULT_OPEN_KEY} />
      <HotKeyField label="Dictate" name="talkKey" value={st.talkKey} fallback={DEFAULT_TALK_KEY} />
      <Unavailable what={caps.hotKeys} />
      <Switch label="Alt gestures" checked={st.optionTap}
        onChange={(v) => { set('optionTap', v); post({ type: 'optionTapChanged' }); }}
        note={caps.altTap.ready ? 'Double-tap Alt to open, hold it to dictate' : caps.altTap.reason || 'Not available in this session'} />

      <h3 class="group">Voice</h3>
      <Unavailable what={caps.voice} />
      <Voice st={st} />

      <h3 class="group">Agents</h3>
      <Agents st={st} />

      <h3 class="group">Remote hosts</h3>
      <RemoteHosts remotes={st.remotes} />

      <h3 class="group">Today</h3>
      <UsageView usage={usage} />

      <h3 class="group">Vantler {st.version}</h3>
      <Unavailable what={caps.tray} />
      <div class="about">
        <button type="button" class="btn" onClick={() => { post({ type: 'copyDiagnostics' }); setCopied(true); }}>
          {copied ? 'Copied' : 'Copy diagnostics'}
        </button>
        <button type="button" class="btn" onClick={() => post({ type: 'checkUpdates' })}>Check for updates</button>
        {geo.away && <button type="button" class="btn" onClick={() => post({ type: 'resetPosition' })}>Back to the top</button>}
        <button type="button" class="btn btn-deny" onClick={() => post({ type: 'quit' })}>Quit</button>
      </div>
      <UpdateLine update={st.update} />
    </div>
  );
}

