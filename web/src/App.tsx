import { useEffect, useLayoutEffect, useMemo, useState } from 'preact/hooks';
import { Notch } from './components/Notch';
import { Onboarding } from './components/Onboarding';
import type { Action, Store } from './store';
import { resolveTheme, themeVars, type ThemeName } from './theme';

const systemDark = () => typeof matchMedia === 'function' && matchMedia('(prefers-color-scheme: dark)').matches;

function useTheme(name: ThemeName) {
  useLayoutEffect(() => {
    const root = document.documentElement;
    for (const [k, v] of Object.entries(themeVars(name))) root.style.setProperty(k, v);
    root.dataset.theme = name;
  }, [name]);
}

export function App({ store, onboarding }: { store: Store; onboarding: boolean }) {
  const [state, setState] = useState(store.state);
  useLayoutEffect(() => {
    const off = store.subscribe(() => setState(store.state));
    setState(store.state); // anything that arrived before the subscription
    return off;
  }, [store]);
  const dispatch = useMemo(() => (a: Action) => store.dispatch(a), [store]);
  const snap = state.snap;
  const theme = onboarding
    ? resolveTheme(snap?.geo.theme ?? '', 'dark', true)
    : resolveTheme(snap?.geo.theme ?? '', snap?.settings.theme ?? 'auto', systemDark());
  useTheme(theme);
  if (onboarding) return <Onboarding state={state} />;
  if (!snap) return null;
  return <Notch state={state} dispatch={dispatch} />;
}
