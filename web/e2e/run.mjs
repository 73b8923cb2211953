// End-to-end tests: the built page in chromium, fed fixture snapshots through
// window.__vantler.receive, driven like a user, checked by the commands it posts.
// Screenshots of the main states go to web/screenshots/.
import assert from 'node:assert/strict';
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { WEB, launch, loadFixtures, openPage } from './lib.mjs';

const fx = await loadFixtures();
const SHOTS = join(WEB, 'screenshots');
mkdirSync(SHOTS, { recursive: true });

const NOW = Date.UTC(2026, 10, 22, 9, 30, 0);
const tests = [];
const test = (name, fn) => tests.push({ name, fn });

// ---------- helpers ----------
const BACKDROP = {
  dark: 'linear-gradient(160deg, #233446 0%, #3a2c4d 55%, #1c2733 100%)',
  light: 'linear-gradient(160deg, #dbe6f2 0%, #efe4da 60%, #e3ebf3 100%)',
};

async function page(ctx, opts = {}) {
  const p = await openPage(ctx, opts);
  p.push = (m) => p.evaluate((msg) => window.__vantler.receive(msg), m);
  p.posted = (type) => p.evaluate((t) => window.__posted.filter((c) => c.type === t), type);
  p.forget = () => p.evaluate(() => { window.__posted.length = 0; });
  p.waitPosted = async (type, pred = () => true) => {
    for (let i = 0; i < 50; i++) {
      const hit = (await p.posted(type)).find(pred);
      if (hit) return hit;
      await p.waitForTimeout(20);
    }
    throw new Error(`no "${type}" command posted; got ${JSON.stringify(await p.evaluate(() => window.__posted))}`);
  };
  p.shot = async (name, theme = 'dark') => {
    await p.evaluate((bg) => { document.documentElement.style.background = bg; }, BACKDROP[theme]);
    await p.waitForTimeout(350); // let the opening animation settle
    await p.screenshot({ path: join(SHOTS, `${name}.png`) });
  };
  return p;
}

const snap = (opts) => fx.demoSnapshot(NOW, opts);
const btn = (p, name) => p.getByRole('button', { name, exact: true });
const lastRect = async (p) => (await p.posted('rect')).at(-1);

// ---------- at rest ----------
test('at rest: a small pill at the top centre reports its rectangle', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap());
  const r = await p.waitPosted('rect');
  assert.ok(r.w < 200 && r.h <= 32, `small strip, got ${JSON.stringify(r)}`);
  assert.ok(Math.abs(r.x + r.w / 2 - 360) <= 1, 'centred in the 720-wide stage');
  assert.ok(r.y >= 0 && r.y < 8, 'hangs from the top');
  assert.equal(await p.locator('.shell .sessions').count(), 0, 'no session list at rest');
  await p.shot('rest');
});

test('at rest: a waiting request shows the attention mark and the alert pose', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ requests: ['permission', 'questions'] }));
  await p.locator('.attention').waitFor();
  assert.equal(await p.locator('.attention').textContent(), '2');
  assert.equal(await p.locator('.strip .mascot').getAttribute('class'), 'mascot pose-alert');
  await p.shot('rest-attention');
});

test('at rest: the strip steps once a second instead of animating every frame', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap());
  const moving = '.strip .spinner, .strip .attention, .strip .pose-think, .strip .pose-write, .strip .pose-alert';
  assert.ok(await p.locator(moving).count() > 0, 'something on the strip moves');
  const running = () => p.evaluate(() => document.getAnimations().filter((a) => a.playState === 'running').length);
  const beat = () => p.evaluate(() => document.documentElement.dataset.beat);
  assert.equal(await running(), 0, 'no animation runs on the closed strip');
  const first = await beat();
  assert.ok(first !== undefined, 'the beat runs');
  await p.waitForTimeout(1150);
  assert.notEqual(await beat(), first, 'the beat stepped');
  await p.push(snap({ open: true }));
  assert.ok((await running()) > 0, 'the open panel animates smoothly');
  assert.equal(await beat(), undefined, 'no beat while open');
});

test('at rest: the notch shape is wider than the notch and flush with the top', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ geo: { shape: 'notch', notchWidth: 190, strip: 32 } }));
  const r = await p.waitPosted('rect');
  assert.ok(r.w >= 190 + 80 && r.y === 0 && r.h === 32, JSON.stringify(r));
  await p.shot('rest-notch');
});

test('placed away with anchor bottom: the strip sits at the bottom and the panel grows up', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ geo: { away: true, anchor: 'bottom', edge: 'left' } }));
  let r = await lastRect(p);
  assert.equal(r.y + r.h, 634);
  assert.equal(r.x, 8, 'docked to the left edge');
  await p.push(snap({ open: true, geo: { away: true, anchor: 'bottom', edge: 'left' } }));
  await p.waitForTimeout(50);
  r = await lastRect(p);
  assert.equal(r.y + r.h, 634);
  assert.ok(r.h > 200, 'open panel extends upwards');
  const strip = await p.locator('.strip').boundingBox();
  assert.ok(strip.y > r.y + r.h - 60, 'the strip is the bottom edge');
});

test('strip: pressing and moving starts a drag, a right click asks for the menu', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap());
  const box = await p.locator('.strip').boundingBox();
  await p.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await p.mouse.down();
  // A flick: the first motion already lands far below the strip.
  await p.mouse.move(box.x + box.width / 2 + 10, box.y + box.height + 120, { steps: 1 });
  await p.waitPosted('dragStart');
  await p.mouse.up();
  assert.equal((await p.posted('dragStart')).length, 1, 'one drag per press');
  assert.equal(await p.evaluate(() => String(window.getSelection())), '', 'no text selected');
  await p.mouse.click(box.x + box.width / 2, box.y + box.height / 2, { button: 'right' });
  await p.waitPosted('menu');
});

// ---------- open panel ----------
test('open: four sessions in order with their facts, select and jump', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, selected: 'claude:7f3a' }));
  const ids = await p.locator('.row').evaluateAll((els) => els.map((e) => e.dataset.id));
  assert.deepEqual(ids, ['claude:7f3a', 'codex:019a', 'gemini:c41d', 'cursor:a9e2']);
  const r = await lastRect(p);
  assert.ok(r.w >= 440 && r.h > 250, `panel rectangle ${JSON.stringify(r)}`);
  const sel = p.locator('.row.is-selected');
  const text = await sel.textContent();
  for (const want of ['Add retry to the upload queue', 'harbor', 'feat/upload-retry', 'GNOME Terminal', 'Working',
    '3m 12s', 'Edit src/upload/queue.ts', '$1.84', '42%', '#482', 'Edit ×5', 'writing']) {
    assert.ok(text.includes(want), `selected row shows ${want}`);
  }
  assert.equal(await sel.locator('.tools .is-failed').count(), 1, 'the failed tool line is marked');
  assert.equal(await sel.locator('.tools .is-running').count(), 1, 'the running tool line is marked');
  assert.ok((await p.locator('.row[data-id="gemini:c41d"]').textContent()).includes('4m 30s'), 'finished turn: turnEnd − turnStarted');
  await p.shot('open-4');
  await p.locator('.row[data-id="codex:019a"] .row-main').click();
  await p.waitPosted('select', (c) => c.id === 'codex:019a');
  assert.equal(await p.locator('.row.is-selected').getAttribute('data-id'), 'codex:019a', 'selection shows at once');
  await btn(p, 'Open terminal').click();
  await p.waitPosted('jump', (c) => c.id === 'codex:019a');
  await p.waitPosted('usage');
});

test('open: the turn time counts up from the snapshot clock', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, selected: 'codex:019a' }));
  const when = p.locator('.row[data-id="codex:019a"] .when');
  assert.equal(await when.textContent(), '48s');
  await p.waitForTimeout(1100);
  assert.match(await when.textContent(), /^(49|50)s$/);
});

test('open: clear finished and undo', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true }));
  await btn(p, 'Clear finished').click();
  await p.waitPosted('clear');
  assert.equal(await btn(p, 'Undo').count(), 0);
  await p.push(snap({ open: true, canUndo: true }));
  await btn(p, 'Undo').click();
  await p.waitPosted('undo');
});

test('open: flash, pull-request news, glass, hello and openSettings messages', async (ctx) => {
  const p = await page(ctx);
  const s = snap({ open: true, selected: 'claude:7f3a', geo: { glass: true, glassAvailable: true } });
  Object.assign(s, { flash: 'codex:019a', prNews: { id: 'claude:7f3a', kind: 'checksPassed' } });
  await p.push(s);
  assert.equal(await p.locator('.row.is-flash').getAttribute('data-id'), 'codex:019a');
  assert.ok((await p.locator('.row.is-selected .pr').textContent()).includes('checks passed'));
  await p.waitPosted('glass');
  const glass = (await p.posted('glass')).at(-1);
  const { type, ...rect } = await lastRect(p);
  assert.deepEqual(glass.rects, [rect], 'glass follows the drawn rectangle');
  await p.push({ type: 'hello' });
  await p.locator('.shell.is-hello').waitFor();
  await p.push({ type: 'openSettings' });
  await p.locator('.settings').waitFor();
  await p.waitPosted('hold', (c) => c.key === 'settings' && c.on === true);
});

// ---------- requests ----------
test('permission: allow, deny, answer in terminal and dismiss post their commands', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, requests: ['permission'] }));
  const card = p.locator('.req-permission');
  assert.equal(await card.locator('.mono').textContent(), 'rm -rf build/ && npm run build -- --mode production');
  assert.equal(await card.locator('.mono').evaluate((e) => getComputedStyle(e).fontFamily.includes('mono')), true);
  await p.shot('permission');
  await btn(p, 'Allow').click();
  await btn(p, 'Deny').click();
  await btn(p, 'Answer in terminal').click();
  await card.getByRole('button', { name: 'Dismiss' }).click();
  for (const type of ['allow', 'deny', 'answerThere', 'dismiss']) {
    assert.equal((await p.waitPosted(type)).id, 'claude:7f3a', `${type} carries the session id`);
  }
});

test('questions: choices are sent in the agent order, several joined by ", "', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, requests: ['questions'] }));
  const card = p.locator('.req-questions');
  const send = card.getByRole('button', { name: 'Send answers' });
  assert.equal(await send.isDisabled(), true, 'nothing chosen yet');
  await card.getByRole('button', { name: /^Exponential/ }).click();
  await card.getByRole('button', { name: /^Fixed/ }).click(); // single choice: replaces Exponential
  await card.getByRole('button', { name: /^Network resets/ }).click();
  await card.getByRole('button', { name: /^Timeouts/ }).click();
  await card.getByRole('button', { name: /^5xx/ }).click();
  await card.getByRole('button', { name: /^5xx/ }).click(); // and off again
  assert.equal(await card.getByRole('button', { name: /^Fixed/ }).getAttribute('aria-pressed'), 'true');
  await p.locator('.row.is-selected').evaluate((e) => e.scrollIntoView());
  await p.shot('questions');
  await send.click();
  const a = await p.waitPosted('answer');
  // The command names the request it answers, so a click that crosses a newer one answers nothing.
  assert.deepEqual(a, { type: 'answer', id: 'codex:019a', request: 'p-q-1', answers: ['Fixed', 'Timeouts, Network resets'] });
});

test('questions: a single one-choice question answers on the first click', async (ctx) => {
  const p = await page(ctx);
  const s = snap({ open: true, requests: ['questions'] });
  s.sessions[1].pending.questions.length = 1;
  await p.push(s);
  await p.getByRole('button', { name: /^None/ }).click();
  assert.deepEqual((await p.waitPosted('answer')).answers, ['None']);
});

test('reply window: typing engages once, Enter replies, let go releases', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, requests: ['reply'] }));
  const card = p.locator('.req-reply');
  assert.ok((await card.textContent()).includes('backfill last month'), 'shows the agent’s last message');
  assert.equal(await card.locator('.countdown-text').textContent(), '11s to reply');
  const bar = await card.locator('[role=progressbar]').getAttribute('aria-valuenow');
  assert.ok(Number(bar) >= 70 && Number(bar) <= 74, `about 11/15 left, got ${bar}`);
  await p.shot('reply');
  const field = card.getByRole('textbox');
  await field.click();
  await p.waitPosted('focus', (c) => c.on === true);
  await p.waitPosted('hold', (c) => c.key === 'field' && c.on === true);
  await field.pressSequentially('Yes, backfill it');
  assert.equal((await p.posted('engage')).length, 1, 'engage is sent once');
  assert.equal((await p.posted('engage'))[0].id, 'gemini:c41d');
  await field.press('Enter');
  assert.deepEqual(await p.waitPosted('reply'), { type: 'reply', id: 'gemini:c41d', text: 'Yes, backfill it' });
  await btn(p, 'Let it go').click();
  await p.waitPosted('release', (c) => c.id === 'gemini:c41d');
});

test('elsewhere: sends the user to the agent’s window', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, requests: ['elsewhere'] }));
  assert.ok((await p.locator('.req-elsewhere').textContent()).includes('Approve the plan in Cursor'));
  await btn(p, 'Go to window').click();
  await p.waitPosted('jump', (c) => c.id === 'cursor:a9e2');
});

test('elsewhere: an agent that asks in its terminal offers no button that cannot work', async (ctx) => {
  const p = await page(ctx);
  const s = snap({ open: true, requests: ['elsewhere'] });
  const asking = s.sessions.find((x) => x.id === 'cursor:a9e2');
  Object.assign(asking, { id: 'kimi:k1', agent: 'kimi', family: 'desktop' });
  delete asking.host;
  s.queue = ['kimi:k1'];
  s.selected = 'kimi:k1';
  await p.push(s);
  assert.ok((await p.locator('.req-elsewhere').textContent()).includes('Answer in the terminal.'));
  assert.equal(await p.locator('.req-elsewhere button', { hasText: 'Go to window' }).count(), 0);
});

test('queue: the requests that need the user are listed and select their session', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, requests: ['permission', 'questions', 'reply', 'elsewhere'] }));
  const kinds = await p.locator('.queue-item .queue-kind').allTextContents();
  assert.deepEqual(kinds, ['In its window', 'Permission', 'Reply', 'Question'], 'oldest request first');
  await p.locator('.queue-item', { hasText: 'Permission' }).click();
  await p.waitPosted('select', (c) => c.id === 'claude:7f3a');
  await p.locator('.req-permission').waitFor();
});

// ---------- keyboard and dictation ----------
test('keyboard mode: arrows select, Enter allows, escape hides', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, requests: ['permission'], selected: 'codex:019a' }));
  await p.push({ type: 'keys', on: true });
  await p.keyboard.press('ArrowUp');
  await p.waitPosted('select', (c) => c.id === 'claude:7f3a');
  await p.keyboard.press('Enter');
  await p.waitPosted('allow', (c) => c.id === 'claude:7f3a');
  await p.keyboard.press('ArrowDown');
  await p.keyboard.press('ArrowDown');
  await p.waitPosted('select', (c) => c.id === 'gemini:c41d');
  await p.push({ type: 'escape' });
  await p.waitPosted('hide');
});

test('escape closes settings first, then the panel', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true }));
  await btn(p, 'Settings').click();
  await p.waitPosted('hold', (c) => c.key === 'settings' && c.on === true);
  await p.push({ type: 'escape' });
  await p.locator('.sessions').waitFor();
  assert.equal((await p.posted('hide')).length, 0);
  await p.waitPosted('hold', (c) => c.key === 'settings' && c.on === false);
  await p.push({ type: 'escape' });
  await p.waitPosted('hide');
});

test('dictation: live level, polishing, then the text lands in the reply field', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, requests: ['reply'] }));
  await p.push({ type: 'talk', state: 'listening', text: 'yes back', level: 0.8, hold: true });
  assert.equal(await p.locator('.talk .level span').count(), 5);
  assert.ok((await p.locator('.talk').textContent()).includes('yes back'));
  await p.push({ type: 'talk', state: 'polishing', text: 'yes backfill', level: 0, hold: true });
  await p.locator('.talk-polishing').waitFor();
  await p.push({ type: 'talk', state: 'done', text: 'Yes, backfill it.', level: 0, hold: false });
  assert.equal(await p.locator('.reply-input').inputValue(), 'Yes, backfill it.');
  await p.waitPosted('engage', (c) => c.id === 'gemini:c41d');
  await p.push({ type: 'talk', state: 'error', text: 'The microphone wouldn\u2019t start.' });
  assert.ok((await p.locator('.talk-error').textContent()).includes('microphone'));
  await p.push({ type: 'talk', state: 'off', text: '' });
  assert.equal(await p.locator('.talk').count(), 0);
});

// ---------- settings ----------
test('settings: every preference posts "setting" with its key and value', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true }));
  await btn(p, 'Settings').click();
  await p.push({ type: 'usage', ...fx.demoUsage });
  await p.locator('.usage-models li').first().waitFor();
  await p.shot('settings');
  const expect = async (click, key, value) => {
    await click();
    await p.waitPosted('setting', (c) => c.key === key && JSON.stringify(c.value) === JSON.stringify(value));
  };
  await expect(() => p.getByRole('switch', { name: 'Open when a session needs me' }).click(), 'autoOpen', true);
  await expect(() => p.getByRole('switch', { name: 'Open at login' }).click(), 'openAtLogin', false);
  await expect(() => p.getByRole('group', { name: 'Theme' }).getByRole('button', { name: 'Light' }).click(), 'theme', 'light');
  await expect(() => p.getByRole('group', { name: 'Shape' }).getByRole('button', { name: 'Notch' }).click(), 'shape', 'notch');
  await expect(() => p.getByRole('group', { name: 'Reply window' }).getByRole('button', { name: '30s' }).click(), 'replyWindow', 30);
  await expect(() => p.getByRole('group', { name: 'Hide idle sessions' }).getByRole('button', { name: 'Never' }).click(), 'hideAfter', 0);
  await expect(() => p.getByRole('switch', { name: 'Copilot CLI' }).click(), 'integration:copilot', true);
  await expect(() => p.getByRole('switch', { name: 'Claude Code' }).click(), 'hooksInstalled', false);
  await expect(() => p.getByRole('switch', { name: 'Cursor' }).click(), 'cursorInstalled', true);
  assert.equal(await p.getByRole('switch', { name: 'Droid' }).count(), 0, 'an agent that is not installed cannot be connected');
  assert.ok((await p.locator('.agents-missing').textContent()).includes('Droid, Windsurf'), 'it is named as missing');
  assert.equal(await p.getByRole('switch', { name: 'Glass' }).isDisabled(), true, 'no glass on this desktop');
  await p.getByRole('switch', { name: 'Alt gestures' }).click();
  await p.waitPosted('optionTapChanged');
  await expect(() => p.getByRole('switch', { name: 'Notify me when the panel is out of sight' }).click(), 'notifyAnswers', true);
  // Remote hosts: removed by their button, added from the field; a host being added says so.
  await expect(() => btn(p, 'Remove devbox').click(), 'remote:remove', 'devbox');
  await p.getByRole('textbox', { name: 'Host to add' }).fill(' me@build:2222 ');
  await expect(() => p.getByRole('textbox', { name: 'Host to add' }).press('Enter'), 'remote:add', 'me@build:2222');
  await p.push(snap({ open: true, settings: { remotes: { hosts: [
    { name: 'devbox', state: 'up since 16:02:11', hook: 'vantler-hook 0.4.0', busy: '' },
    { name: 'me@build:2222', state: '', hook: '', busy: 'adding' }], message: '' } } }));
  await p.locator('.remotes').scrollIntoViewIfNeeded();
  await p.shot('settings-remotes');
  assert.ok((await p.locator('.remotes').textContent()).includes('Installing the hook there…'));
  assert.equal(await btn(p, 'Remove me@build:2222').isDisabled(), true, 'a host being added cannot be removed yet');
  for (const [name, type] of [['Copy diagnostics', 'copyDiagnostics'], ['Check for updates', 'checkUpdates'], ['Quit', 'quit']]) {
    await btn(p, name).click();
    await p.waitPosted(type);
  }
  assert.ok((await p.locator('.settings').textContent()).includes('Vantler 0.4.0'));
  assert.ok((await p.locator('.usage').textContent()).includes('$4.87'));
  // A newer version found by the update check, with the link to its release.
  await p.push(snap({ open: true, settings: { update: { state: 'newer', version: '9.9.9', link: 'https://example.org/9.9.9' } } }));
  const release = p.getByRole('link', { name: 'See the release' });
  assert.equal(await release.getAttribute('href'), 'https://example.org/9.9.9');
  assert.ok((await p.locator('.settings').textContent()).includes('Vantler 9.9.9 is available.'));
});

test('settings: a hot key is recorded from the keyboard', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true }));
  await btn(p, 'Settings').click();
  const key = p.getByRole('button', { name: /^Open the panel: Ctrl\+Alt\+R/ });
  await key.click();
  await p.waitPosted('recordingKey', (c) => c.on === true);
  await p.keyboard.press('Shift'); // a lone modifier is not a combination
  await p.keyboard.press('Control+Alt+KeyK');
  const set = await p.waitPosted('setting', (c) => c.key === 'openKey');
  assert.equal(set.value, 0x1800 * 2 ** 32 + 40, 'Ctrl+Alt+K packed as mods·2³² + code');
  await p.waitPosted('recordingKey', (c) => c.on === false);
  assert.equal(await p.locator('.keycap').first().textContent(), 'Ctrl+Alt+K');
  await p.getByRole('button', { name: /^Dictate: Ctrl\+Alt\+Space/ }).click();
  await p.keyboard.press('Escape');
  await p.waitPosted('recordingKey', (c) => c.on === false);
  assert.equal((await p.posted('setting')).filter((c) => c.key === 'talkKey').length, 0, 'Escape cancels');
  assert.equal((await p.posted('hide')).length, 0, 'and does not close the panel');
});

test('mascot: the eight poses are distinct drawings, taken from the session that matters most', async (ctx) => {
  const p = await page(ctx);
  const drawings = new Set();
  for (const pose of ['sleep', 'idle', 'success', 'error', 'write', 'think', 'alert', 'listen']) {
    const s = snap();
    s.sessions[0].pose = pose; // the focus session leads when nothing waits
    await p.push(s);
    const svg = p.locator('.strip .mascot');
    assert.equal(await svg.getAttribute('class'), `mascot pose-${pose}`);
    drawings.add(await svg.innerHTML());
    await svg.evaluate((e) => {
      const big = e.cloneNode(true);
      big.setAttribute('width', '160');
      big.setAttribute('height', '160');
      const box = Object.assign(document.createElement('div'), { id: 'pose-sheet' });
      box.style.cssText = 'position:fixed;left:0;bottom:0;padding:16px;background:#17191e;color:#b2b8c3';
      box.append(big);
      document.getElementById('pose-sheet')?.remove();
      document.body.append(box);
    });
    await p.locator('#pose-sheet').screenshot({ path: join(SHOTS, `pose-${pose}.png`) });
  }
  assert.equal(drawings.size, 8);
});

// ---------- themes ----------
test('light theme: the panel follows geo.theme', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, selected: 'claude:7f3a', geo: { theme: 'light' } }));
  const bg = await p.locator('.shell').evaluate((e) => getComputedStyle(e).backgroundColor);
  assert.equal(bg, 'rgb(255, 255, 255)');
  await p.shot('open-light', 'light');
  await p.push(snap({ open: true, requests: ['permission'], geo: { theme: 'light' } }));
  await p.shot('permission-light', 'light');
  await p.push(snap({ open: true, requests: ['questions'], geo: { theme: 'light' } }));
  await p.shot('questions-light', 'light');
  await p.push(snap({ open: true, requests: ['reply'], geo: { theme: 'light' } }));
  await p.shot('reply-light', 'light');
  await btn(p, 'Settings').click();
  await p.shot('settings-light', 'light');
  await p.push(snap({ geo: { theme: 'light' }, requests: ['permission'] }));
  await p.shot('rest-light', 'light');
  await p.push(snap({ open: true, geo: { theme: 'dark' } }));
  assert.equal(await p.locator('.shell').evaluate((e) => getComputedStyle(e).backgroundColor), 'rgb(12, 13, 16)');
});

// ---------- walkthrough, onboarding, demo ----------
test('walkthrough: steps through and reports tourDone', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true }));
  await p.push({ type: 'tour' });
  for (let i = 0; i < 3; i++) await btn(p, 'Next').click();
  assert.ok((await p.locator('.tour').textContent()).includes('4 of 4'));
  await btn(p, 'Done').click();
  await p.waitPosted('tourDone');
  await p.locator('.sessions').waitFor();
});

test('onboarding page: ready, size, settings and onboardDone', async (ctx) => {
  const p = await page(ctx, { query: '?onboard' });
  const s = fx.demoSnapshot(NOW);
  delete s.geo;
  Object.assign(s, { notchWidth: 0, strip: 32, anchor: 'top', shape: 'pill', stageWidth: 460, stageHeight: 560, theme: 'dark' });
  await p.push(s);
  await p.getByRole('switch', { name: 'Gemini CLI' }).waitFor();
  const size = (await p.posted('size')).at(-1);
  assert.ok(size.h > 300 && size.h < 900, `reports its height, got ${size.h}`);
  assert.equal(size.h, await p.locator('.onboard').evaluate((e) => Math.ceil(e.getBoundingClientRect().height)));
  await p.getByRole('switch', { name: 'Gemini CLI' }).click();
  await p.waitPosted('setting', (c) => c.key === 'integration:gemini' && c.value === false);
  await p.setViewportSize({ width: 460, height: size.h });
  await p.shot('onboarding');
  await btn(p, 'Get started').click();
  await p.waitPosted('onboardDone');
});

test('without a native side the built-in demo feed drives the page', async (ctx) => {
  const p = await page(ctx, { native: false });
  await p.locator('.strip').waitFor();
  assert.equal(await p.locator('.attention').count(), 1, 'demo has requests waiting');
  await p.mouse.move(360, 14);
  await p.locator('.sessions').waitFor();
  assert.equal(await p.locator('.row').count(), 4);
  await p.locator('.req').first().waitFor();
  await p.locator('.queue-item', { hasText: 'Permission' }).click();
  await btn(p, 'Allow').click();
  await p.locator('.req-permission').waitFor({ state: 'detached' });
  await p.mouse.move(360, 630);
  await p.mouse.move(700, 630);
  await p.locator('.sessions').waitFor({ state: 'detached' });
  assert.deepEqual(p.errors, []);
});

// ---------- accessibility ----------
test('accessibility: every button has a name and keyboard focus is visible', async (ctx) => {
  const p = await page(ctx);
  await p.push(snap({ open: true, requests: ['permission', 'questions', 'reply'] }));
  const unnamed = await p.evaluate(() => [...document.querySelectorAll('button')]
    .filter((b) => !(b.getAttribute('aria-label') || b.textContent.trim())).map((b) => b.outerHTML));
  assert.deepEqual(unnamed, []);
  await p.keyboard.press('Tab');
  await p.keyboard.press('Tab');
  const outline = await p.evaluate(() => {
    const s = getComputedStyle(document.activeElement);
    return { tag: document.activeElement.tagName, style: s.outlineStyle, width: s.outlineWidth };
  });
  assert.equal(outline.tag, 'BUTTON');
  assert.equal(outline.style, 'solid');
  assert.equal(outline.width, '2px');
});

// ---------- run ----------
const only = process.argv[2];
const { context, close } = await launch();
let passed = 0;
let failed = 0;
for (const t of tests) {
  if (only && !t.name.includes(only)) continue;
  const start = Date.now();
  try {
    await t.fn(context);
    for (const pg of context.pages()) if (pg.errors?.length) throw new Error(`page errors: ${pg.errors.join('; ')}`);
    passed++;
    console.log(`  ok  ${t.name} (${Date.now() - start} ms)`);
  } catch (e) {
    failed++;
    console.log(`  FAIL ${t.name}\n       ${String(e.stack || e).split('\n').slice(0, 6).join('\n       ')}`);
  } finally {
    for (const pg of context.pages()) await pg.close();
  }
}
await close();
console.log(`${passed} passed, ${failed} failed`);
process.exit(failed ? 1 : 0);
