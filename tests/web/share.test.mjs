// The web file manager page in a real Chromium against `harbor serve`.
import { test, before, after } from 'node:test';
import assert from 'node:assert/strict';
import { spawn, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const harbor = process.env.HARBOR_BIN || path.resolve(here, '../../build/bin/harbor');
const chromiumPath = process.env.HARBOR_CHROMIUM || '/usr/bin/chromium';

const tricky = ["it's.txt", 'say "hi".txt', 'a<b>.txt', 'hash#1.txt', '100%.txt', 'two words.txt',
  '中文名.txt', '<img src=x onerror=window.__pwned=1>.txt'];

let home, root, env, server, base, browser, skipReason;

function waitForLine(stream) {
  return new Promise((resolve, reject) => {
    let text = '';
    const timer = setTimeout(() => reject(new Error('harbor serve printed nothing')), 15000);
    stream.on('data', (chunk) => {
      text += chunk;
      const nl = text.indexOf('\n');
      if (nl >= 0) { clearTimeout(timer); resolve(text.slice(0, nl)); }
    });
  });
}

before(async () => {
  home = fs.mkdtempSync(path.join(os.tmpdir(), 'harbor-web-'));
  root = path.join(home, 'Documents');
  fs.mkdirSync(path.join(root, 'sub'), { recursive: true });
  fs.mkdirSync(path.join(root, 'locked', 'inner'), { recursive: true });
  for (const name of tricky) fs.writeFileSync(path.join(root, name), 'content of ' + name);
  fs.writeFileSync(path.join(root, 'sub', 'inside.txt'), 'inside');
  fs.writeFileSync(path.join(root, 'locked', 'inner', 'secret.txt'), 'secret');
  env = { ...process.env, XDG_DATA_HOME: path.join(home, 'data'),
    XDG_CONFIG_HOME: path.join(home, 'config'), HARBOR_ROOT: root };
  execFileSync(harbor, ['lock', 'folder', path.join(root, 'locked'), 'right'], { env });
  server = spawn(harbor, ['serve', '--port', '0', '--no-webdav', '--bind', '127.0.0.1'],
    { env, stdio: ['ignore', 'pipe', 'inherit'] });
  const line = await waitForLine(server.stdout);
  base = line.replace(/^web /, '').replace(/\/$/, '');
  try {
    const { chromium } = await import('playwright-core');
    browser = await chromium.launch({ executablePath: chromiumPath, args: ['--no-sandbox'] });
  } catch (e) {
    skipReason = 'chromium cannot start here: ' + String(e.message || e).split('\n')[0];
    console.log('# SKIP ' + skipReason);
  }
});

after(async () => {
  if (browser) await browser.close();
  if (server) {
    server.kill('SIGTERM');
    await new Promise((r) => server.once('exit', r));
  }
  fs.rmSync(home, { recursive: true, force: true });
});

async function openPage(t, target = '/?type=child', viewport = { width: 1200, height: 800 }) {
  if (skipReason) { t.skip(skipReason); return null; }
  const context = await browser.newContext({ viewport, acceptDownloads: true });
  const page = await context.newPage();
  page.on('pageerror', (e) => { throw e; });
  await page.goto(base + target);
  await page.waitForSelector('#rows tr, #password[style*="block"]');
  t.after(() => context.close());
  return page;
}

const rowNames = (page) => page.$$eval('#rows td.name > a:not(.download)', (as) => as.map((a) => a.textContent));

test('names are shown as text and every link reaches its file', async (t) => {
  const page = await openPage(t);
  if (!page) return;
  const names = await rowNames(page);
  for (const name of tricky) assert.ok(names.includes(name), name);
  assert.equal(await page.evaluate(() => window.__pwned), undefined);
  assert.equal(await page.locator('#rows img').count(), 0);
  const guid = await page.evaluate(() => new URLSearchParams(location.search).get('guid') || '');
  for (const name of tricky) {
    const href = await page.locator('#rows td.name > a.file', { hasText: name }).first().getAttribute('href');
    assert.ok(!href.includes('+'), href);
    assert.match(href, /[?&]guid=/);
    const body = await page.evaluate(async (h) => (await fetch(h)).text(), href);
    assert.equal(body, 'content of ' + name);
  }
  void guid;
});

test('folders open, and the page works at phone width', async (t) => {
  const page = await openPage(t, '/?type=child', { width: 375, height: 700 });
  if (!page) return;
  await page.click('#rows a.dir:text-is("sub/")');
  await page.waitForURL(/\/sub\?/);
  await page.waitForSelector('#rows a.file');
  assert.deepEqual(await rowNames(page), ['inside.txt']);
  const wide = await page.evaluate(() => document.documentElement.scrollWidth);
  assert.ok(wide <= 376, 'no sideways scrolling at phone width: ' + wide);
});

test('both uploads, a name twice, a new folder, and delete', async (t) => {
  const page = await openPage(t, '/sub?type=child');
  if (!page) return;
  await page.setInputFiles('#ajaxFiles', { name: 'a.txt', mimeType: 'text/plain', buffer: Buffer.from('first') });
  await page.waitForSelector('#rows a.file:text-is("a.txt")');
  await page.setInputFiles('#formFiles', { name: 'a.txt', mimeType: 'text/plain', buffer: Buffer.from('second') });
  await page.waitForSelector('#rows a.file:text-is("a 2.txt")');
  await page.setInputFiles('#formFiles', { name: "odd 'name' #1.txt", mimeType: 'image/png', buffer: Buffer.from('third') });
  await page.waitForSelector(`#rows a.file:text-is("odd 'name' #1.txt")`);
  assert.equal(fs.readFileSync(path.join(root, 'sub', 'a.txt'), 'utf8'), 'first');
  assert.equal(fs.readFileSync(path.join(root, 'sub', 'a 2.txt'), 'utf8'), 'second');
  assert.equal(fs.readFileSync(path.join(root, 'sub', "odd 'name' #1.txt"), 'utf8'), 'third');

  page.once('dialog', (d) => d.accept('new + folder %'));
  await page.click('#newFolder');
  await page.waitForSelector('#rows a.dir:text-is("new + folder %/")');
  assert.ok(fs.statSync(path.join(root, 'sub', 'new + folder %')).isDirectory());

  await page.check('#rows input.pick[data-name="new + folder %"]');
  await page.check(`#rows input.pick[data-name="odd 'name' #1.txt"]`);
  page.once('dialog', (d) => d.accept());
  await page.click('#deleteButton');
  await page.waitForSelector('#rows a.dir:text-is("new + folder %/")', { state: 'detached' });
  assert.ok(!fs.existsSync(path.join(root, 'sub', 'new + folder %')));
  assert.ok(!fs.existsSync(path.join(root, 'sub', "odd 'name' #1.txt")));
  assert.ok(fs.existsSync(path.join(root, 'sub', 'a.txt')));
});

test('a locked folder asks for its password, wrong then right', async (t) => {
  const page = await openPage(t, '/locked/inner?type=child');
  if (!page) return;
  await page.waitForSelector('#password', { state: 'visible' });
  assert.equal(await page.locator('#rows tr').count(), 0);
  await page.fill('#passwordInput', 'wrong');
  await page.click('#passwordButton');
  await page.waitForTimeout(300);
  assert.ok(await page.locator('#password').isVisible());
  await page.fill('#passwordInput', 'right');
  await page.click('#passwordButton');
  await page.waitForSelector('#rows a.file:text-is("secret.txt")');
  assert.ok(!(await page.locator('#password').isVisible()));
});

test('zip of a selection downloads an archive that unzip lists', async (t) => {
  const page = await openPage(t);
  if (!page) return;
  await page.check('#rows input.pick[data-name="sub"]');
  await page.check(`#rows input.pick[data-name="it's.txt"]`);
  const [download] = await Promise.all([page.waitForEvent('download'), page.click('#zipButton')]);
  const saved = path.join(home, 'got.zip');
  await download.saveAs(saved);
  const listing = execFileSync('unzip', ['-l', saved], { encoding: 'utf8' });
  assert.match(listing, /it's\.txt/);
  assert.match(listing, /sub\/inside\.txt/);
});
