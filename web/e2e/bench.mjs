// Pushes a 30-session snapshot 200 times into the built page and measures the
// time from `receive` to the rendered frame: the DOM committed and its style and
// layout computed (forced synchronously, as the page does itself to report its
// rectangle). Also reports the production bundle's gzipped size.
import { readdirSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { gzipSync } from 'node:zlib';
import { WEB, launch, loadFixtures, openPage } from './lib.mjs';

const RUNS = 200;
const WARMUP = 20;
const fx = await loadFixtures();
const { context, close } = await launch();
const page = await openPage(context);

const now = Date.now();
const messages = [];
for (let i = 0; i < RUNS + WARMUP; i++) {
  const m = fx.manySessions(30, now + i * 1000);
  // Vary what a real push varies: the clock, a tool line, the selection.
  m.sessions[i % 30].activity = `Step ${i}`;
  m.sessions[(i * 7) % 30].tools = [{ label: `Read file-${i}.ts`, running: true, failed: false }];
  m.selected = m.sessions[i % 5].id;
  messages.push(m);
}

const times = await page.evaluate(async (msgs) => {
  const out = [];
  const frame = () => new Promise((r) => requestAnimationFrame(() => setTimeout(r, 0)));
  for (const m of msgs) {
    await frame();
    const t0 = performance.now();
    window.__vantler.receive(m);
    await Promise.resolve(); // the render is queued as a microtask by receive
    document.body.getBoundingClientRect(); // style and layout of the new DOM
    out.push(performance.now() - t0);
    // The measured frame must already show this message.
    if (document.querySelector('.row.is-selected')?.dataset.id !== m.selected) throw new Error('render was not measured');
  }
  return out;
}, messages);

const rows = await page.locator('.row').count();
await close();
if (rows !== 30) throw new Error(`expected 30 rows rendered, found ${rows}`);

const sample = times.slice(WARMUP).sort((a, b) => a - b);
const pct = (p) => sample[Math.min(sample.length - 1, Math.floor(p * sample.length))];
const assets = join(WEB, 'dist', 'assets');
let gz = 0;
for (const f of readdirSync(assets)) if (/\.(js|css)$/.test(f)) gz += gzipSync(readFileSync(join(assets, f)), { level: 9 }).length;

const median = pct(0.5);
const kb = gz / 1024;
console.log(`receive→frame over ${RUNS} pushes of 30 sessions: median ${median.toFixed(2)} ms, p99 ${pct(0.99).toFixed(2)} ms (target < 4 ms)`);
console.log(`bundle (js+css, gzipped): ${kb.toFixed(1)} KB (budget 60 KB)`);
process.exit(median < 4 && kb < 60 ? 0 : 1);
