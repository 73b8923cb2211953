// Shared pieces of the browser tests and the benchmark: Debian's chromium
// through playwright-core, the built page from dist/, a recording stand-in for
// the native message handler, and the fixtures compiled from src/fixtures.ts.
import { mkdtempSync, rmSync, writeFileSync, existsSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';
import { buildSync } from 'esbuild';
import { chromium } from 'playwright-core';

export const WEB = resolve(dirname(fileURLToPath(import.meta.url)), '..');
export const DIST = join(WEB, 'dist', 'index.html');
export const CHROMIUM = process.env.CHROMIUM || '/usr/bin/chromium';

export async function loadFixtures() {
  const out = buildSync({ entryPoints: [join(WEB, 'src/fixtures.ts')], bundle: true, format: 'esm', write: false, platform: 'neutral' });
  const dir = mkdtempSync(join(tmpdir(), 'vantler-fx-'));
  const file = join(dir, 'fixtures.mjs');
  writeFileSync(file, out.outputFiles[0].text);
  const mod = await import(pathToFileURL(file).href);
  rmSync(dir, { recursive: true, force: true });
  return mod;
}

export async function launch() {
  if (!existsSync(DIST)) throw new Error('web/dist/index.html is missing: run npm run build first');
  if (!existsSync(CHROMIUM)) throw new Error(`${CHROMIUM} is missing: apt-get install chromium`);
  const profile = mkdtempSync(join(tmpdir(), 'vantler-chromium-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: CHROMIUM,
    headless: true,
    viewport: { width: 720, height: 640 },
    args: [
      '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync',
    ],
  });
  return {
    context,
    async close() {
      await context.close();
      rmSync(profile, { recursive: true, force: true });
    },
  };
}

// Stands in for WebKit's script message handler: every command is recorded.
const NATIVE = () => {
  window.__posted = [];
  window.webkit = { messageHandlers: { vantler: { postMessage: (m) => window.__posted.push(JSON.parse(JSON.stringify(m))) } } };
};

export async function openPage(context, { native = true, query = '' } = {}) {
  const page = await context.newPage();
  const errors = [];
  page.on('pageerror', (e) => errors.push(String(e)));
  if (native) await page.addInitScript(NATIVE);
  await page.goto(pathToFileURL(DIST).href + query);
  if (native) await page.waitForFunction(() => window.__posted.some((c) => c.type === 'ready'));
  page.errors = errors;
  return page;
}
