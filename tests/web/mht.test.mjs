// Pages saved by a real Chromium as web archives, unpacked by `harbor mht
// extract`, then shown offline: every image must decode from the unpacked
// files and text in legacy charsets must read as it did online.
import { test, before, after } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const harbor = process.env.HARBOR_BIN || path.resolve(here, '../../build/bin/harbor');
const chromiumPath = process.env.HARBOR_CHROMIUM || '/usr/bin/chromium';
const site = path.resolve(here, '../data/mht/site');

const types = { '.html': 'text/html', '.css': 'text/css', '.png': 'image/png' };

let home, env, server, port, browser, skipReason;

before(async () => {
  home = fs.mkdtempSync(path.join(os.tmpdir(), 'harbor-mht-'));
  env = { ...process.env, XDG_DATA_HOME: path.join(home, 'data'),
    XDG_CONFIG_HOME: path.join(home, 'config'), HARBOR_ROOT: path.join(home, 'Documents') };
  server = http.createServer((req, res) => {
    const url = new URL(req.url, 'http://x');
    const rel = decodeURIComponent(url.pathname).replace(/^\/site\//, '');
    const file = path.join(site, rel);
    if (!file.startsWith(site + path.sep) || !fs.existsSync(file)) {
      res.writeHead(404).end();
      return;
    }
    let body = fs.readFileSync(file);
    // The page names the other host by this run's port.
    if (rel === 'index.html') body = Buffer.from(body.toString('utf8').replace('PORT', String(port)));
    res.writeHead(200, { 'Content-Type': types[path.extname(file)] || 'application/octet-stream' });
    res.end(body);
  });
  await new Promise((r) => server.listen(0, '127.0.0.1', r));
  port = server.address().port;
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
  if (server) await new Promise((r) => server.close(r));
  if (!process.env.HARBOR_KEEP) fs.rmSync(home, { recursive: true, force: true });
});

// Loads the page online and saves it the way the browser saves web archives.
async function capture(name) {
  const context = await browser.newContext();
  const page = await context.newPage();
  await page.goto(`http://127.0.0.1:${port}/site/${name}`, { waitUntil: 'load' });
  const session = await context.newCDPSession(page);
  const { data } = await session.send('Page.captureSnapshot', { format: 'mhtml' });
  await context.close();
  const file = path.join(home, name.replace(/\.html$/, '.mhtml'));
  fs.writeFileSync(file, data);
  return file;
}

function extract(file) {
  const dest = path.join(home, 'out');
  const out = execFileSync(harbor, ['mht', 'extract', file, dest, '--json'], { env });
  const result = JSON.parse(out.toString());
  result.rootPath = path.join(dest, result.root);
  return result;
}

// Opens the unpacked root with the network cut off; answers the page, the
// URLs that tried to reach the network, and the images of every frame.
async function showOffline(t, rootPath) {
  const context = await browser.newContext({ offline: true });
  t.after(() => context.close());
  const page = await context.newPage();
  const online = [];
  await context.route(/^https?:/, (route) => {
    online.push(route.request().url());
    return route.abort();
  });
  await page.goto(pathToFileURL(rootPath).href, { waitUntil: 'load' });
  const images = [];
  for (const frame of page.frames()) {
    const found = await frame.$$eval('img', (imgs) => Promise.all(imgs.map(async (img) => {
      let decoded = true;
      try { await img.decode(); } catch { decoded = false; }
      return { id: img.id, src: img.src, decoded, width: img.naturalWidth };
    })));
    images.push(...found);
  }
  return { page, online, images };
}

function assertAllDecoded(images) {
  assert.ok(images.length > 0);
  for (const img of images) {
    assert.ok(img.decoded && img.width > 0, `image ${img.id || img.src} did not decode`);
    assert.match(img.src, /^file:/);
  }
}

test('a saved page with style sheets, frames and two hosts renders offline', async (t) => {
  if (skipReason) return t.skip(skipReason);
  const result = extract(await capture('index.html'));
  const paths = result.files.map((f) => f.path);
  // Two different images of the same name both survive.
  const pngs = result.files.filter((f) => f.type === 'image/png');
  assert.equal(pngs.length, 5, JSON.stringify(paths));
  assert.equal(new Set(pngs.map((f) => f.path)).size, 5);
  for (const f of result.files) assert.ok(fs.existsSync(path.join(home, 'out', f.path)), f.path);

  const { page, online, images } = await showOffline(t, result.rootPath);
  assert.deepEqual(online, []);
  assertAllDecoded(images);
  assert.deepEqual(images.map((i) => i.id).sort(), ['blue', 'local', 'purple', 'red']);
  const sizes = Object.fromEntries(images.map((i) => [i.id, i.width]));
  assert.deepEqual(sizes, { red: 4, blue: 5, local: 3, purple: 6 });

  // The style sheet applied and its background image decodes from disk.
  const bg = await page.$eval('#bg', (el) => getComputedStyle(el).backgroundImage);
  const url = bg.replace(/^url\("?/, '').replace(/"?\)$/, '');
  assert.match(url, /^file:/);
  const ok = await page.evaluate(async (u) => {
    const img = new Image();
    img.src = u;
    try { await img.decode(); return img.naturalWidth; } catch { return 0; }
  }, url);
  assert.equal(ok, 2);
  const html = fs.readFileSync(result.rootPath, 'utf8');
  assert.doesNotMatch(html, /<base\b/i);
  assert.match(html, /Plain text naming img\/a\.png stays as it is\./);
});

for (const [name, expected] of [['cp1251.html', 'Привет, мир'], ['sjis.html', 'こんにちは世界']]) {
  test(`a ${name.replace('.html', '')} page reads the same offline`, async (t) => {
    if (skipReason) return t.skip(skipReason);
    const result = extract(await capture(name));
    const { page, online, images } = await showOffline(t, result.rootPath);
    assert.deepEqual(online, []);
    assertAllDecoded(images);
    assert.equal(await page.$eval('#t', (el) => el.textContent), expected);
  });
}
