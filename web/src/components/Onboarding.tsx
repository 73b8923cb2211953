// The first-run page, loaded with "?onboard" in a window of its own.
import { useEffect, useLayoutEffect, useRef } from 'preact/hooks';
import { post } from '../bridge';
import { DEFAULT_OPEN_KEY, DEFAULT_TALK_KEY, comboText } from '../logic';
import type { UiState } from '../store';
import { Mascot } from './Mascot';
import { Agents, set } from './Settings';
import { Switch } from './ui';

export function Onboarding({ state }: { state: UiState }) {
  const ref = useRef<HTMLDivElement>(null);
  const lastH = useRef(0);
  const st = state.snap?.settings;

  // The window follows the page's height.
  const report = () => {
    const h = Math.ceil(ref.current?.getBoundingClientRect().height ?? 0);
    if (h > 0 && h !== lastH.current) {
      lastH.current = h;
      post({ type: 'size', h });
    }
  };
  useLayoutEffect(report);
  useEffect(() => {
    if (!ref.current || typeof ResizeObserver === 'undefined') return;
    const ro = new ResizeObserver(report);
    ro.observe(ref.current);
    return () => ro.disconnect();
  }, []);

  return (
    <div class="onboard" ref={ref}>
      <div class="onboard-hero">
        <Mascot pose="success" size={72} />
        <h1>Welcome to Vantler</h1>
        <p class="muted">Your coding agents, at the top of the screen. See what each one is doing, answer their questions and reply when they finish, without leaving what you are working on.</p>
      </div>
      {st ? (
        <>
          <h3 class="group">Connect your agents</h3>
          <Agents st={st} />
          <h3 class="group">Make it yours</h3>
          <Switch label="Open at login" checked={st.openAtLogin} onChange={(v) => set('openAtLogin', v)} />
          <Switch label="Alt gestures" checked={st.optionTap} onChange={(v) => set('optionTap', v)}
            note="Double-tap Alt to open, hold it to dictate" />
          <p class="keys-hint">
            <kbd>{comboText(st.openKey, DEFAULT_OPEN_KEY)}</kbd> opens the panel · <kbd>{comboText(st.talkKey, DEFAULT_TALK_KEY)}</kbd> starts dictation
          </p>
        </>
      ) : (
        <p class="muted">Loading…</p>
      )}
      <div class="actions onboard-actions">
        <button type="button" class="btn btn-allow btn-big" data-default onClick={() => post({ type: 'onboardDone' })}>
          Get started
        </button>
      </div>
    </div>
  );
}
