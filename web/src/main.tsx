import { render } from 'preact';
import { App } from './App';
import { listen, nativeHandler, post, setFallback } from './bridge';
import { escape } from './components/Notch';
import { startDemo } from './demo';
import { Store, type Action } from './store';
import './styles.css';

const store = new Store();
const onboarding = new URLSearchParams(location.search).has('onboard');
if (onboarding) document.body.classList.add('is-onboard');

function receive(m: Record<string, unknown>) {
  if (m.type === 'escape') escape(store.state, (a) => store.dispatch(a));
  else store.dispatch(m as Action);
}

listen(receive);
if (!nativeHandler()) {
  const feed = startDemo(receive);
  setFallback((c) => feed.handle(c));
}

window.addEventListener('error', (e) => post({ type: 'log', msg: `${e.message} at ${e.filename}:${e.lineno}` }));
window.addEventListener('unhandledrejection', (e) => post({ type: 'log', msg: String(e.reason) }));

render(<App store={store} onboarding={onboarding} />, document.getElementById('app')!);
post({ type: 'ready' });
