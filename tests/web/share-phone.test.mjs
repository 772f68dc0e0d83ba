// A phone on the same network opens the desktop's sharing screen by its QR
// code: the code the screen shows is decoded, and a phone-sized Chromium
// opens that address and sees the document root.
import { test, before, after } from 'node:test';
import assert from 'node:assert/strict';
import { spawn, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const shot = process.env.HARBOR_SHARE_SHOT || path.resolve(here, '../../build/bin/harbor_gui_share_shot');
const chromiumPath = process.env.HARBOR_CHROMIUM || '/usr/bin/chromium';
const pictures = process.env.HARBOR_SHOT_DIR || path.resolve(here, '../../build/screenshots');

let home, root, app, address, skipReason;

function firstLine(stream) {
  return new Promise((resolve, reject) => {
    let text = '';
    const timer = setTimeout(() => reject(new Error('the sharing screen printed no address')), 30000);
    stream.on('data', (chunk) => {
      text += chunk;
      const nl = text.indexOf('\n');
      if (nl >= 0) { clearTimeout(timer); resolve(text.slice(0, nl).trim()); }
    });
  });
}

function hasProgram(name) {
  try { execFileSync('sh', ['-c', `command -v ${name}`]); return true; } catch { return false; }
}

before(async () => {
  if (!fs.existsSync(shot)) { skipReason = 'build harbor_gui_share_shot first'; return; }
  home = fs.mkdtempSync(path.join(os.tmpdir(), 'harbor-phone-'));
  root = path.join(home, 'Documents');
  fs.mkdirSync(path.join(root, 'Projects'), { recursive: true });
  fs.writeFileSync(path.join(root, 'notes.txt'), 'notes');
  fs.writeFileSync(path.join(root, 'index.html'), '<p>page</p>');
  const env = { ...process.env, QT_QPA_PLATFORM: 'offscreen', XDG_DATA_HOME: path.join(home, 'data'),
    XDG_CONFIG_HOME: path.join(home, 'config') };
  app = spawn(shot, ['serve', path.join(home, 'code.png'), root], { env, stdio: ['ignore', 'pipe', 'inherit'] });
  address = await firstLine(app.stdout);
});

after(async () => {
  if (app && app.exitCode === null) {
    app.kill('SIGTERM');
    await new Promise((r) => app.once('exit', r));
  }
  if (home) fs.rmSync(home, { recursive: true, force: true });
});

test('the QR code on the sharing screen holds the address it lists', (t) => {
  if (skipReason) return t.skip(skipReason);
  if (!hasProgram('zbarimg')) return t.skip('zbarimg (zbar-tools) is not installed');
  const decoded = execFileSync('zbarimg', ['--raw', '-q', path.join(home, 'code.png')]).toString().trim();
  assert.equal(decoded, address);
  assert.match(address, /^http:\/\/[0-9.]+:\d+$/);
});

test('a phone-sized browser opening the address lists the document root', async (t) => {
  if (skipReason) return t.skip(skipReason);
  let browser;
  const { chromium, devices } = await import('playwright-core');
  try {
    browser = await chromium.launch({ executablePath: chromiumPath, args: ['--no-sandbox'] });
  } catch (e) {
    return t.skip('chromium cannot start here: ' + String(e.message || e).split('\n')[0]);
  }
  t.after(() => browser.close());
  const phone = devices['Pixel 7'];
  const context = await browser.newContext({ ...phone });
  const page = await context.newPage();
  await page.goto(address + '/');
  await page.waitForSelector('#rows tr');
  const names = await page.$$eval('#rows td.name > a:not(.download)', (as) => as.map((a) => a.textContent));
  for (const name of ['Projects/', 'index.html', 'notes.txt']) assert.ok(names.includes(name), `${name} in ${names}`);
  // The page fits the phone: nothing scrolls sideways.
  const overflow = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
  assert.ok(overflow <= 1, `the page is ${overflow}px wider than the phone`);
  fs.mkdirSync(pictures, { recursive: true });
  await page.screenshot({ path: path.join(pictures, 'share-phone.png') });
});
