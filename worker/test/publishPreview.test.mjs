// The whole road on a fresh computer: `vorlen publish` puts a clip on the local
// site, `vorlen preview` serves it, and the page that preview prints plays in
// headless Chromium; the page and the embed are photographed in light and dark.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdir, mkdtemp, rm } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { promisify } from 'node:util';
import { after, before, test } from 'node:test';
import { launchChromium, startPreview } from './helpers.mjs';

const run = promisify(execFile);
const vorlen = process.env.VORLEN_BINARY;
const screenshotDir = process.env.VORLEN_SCREENSHOT_DIR ?? path.join(os.tmpdir(), 'vorlen-worker-screenshots');

let home;
let env;
let preview;
let browser;

before(async () => {
  home = await mkdtemp(path.join(os.tmpdir(), 'vorlen-road-'));
  env = { ...process.env, HOME: home, XDG_CONFIG_HOME: path.join(home, 'config'), XDG_DATA_HOME: path.join(home, 'data'),
    XDG_CACHE_HOME: path.join(home, 'cache'), TMPDIR: home };
  delete env.DBUS_SESSION_BUS_ADDRESS;
  await mkdir(screenshotDir, { recursive: true });
  const clip = path.join(home, 'Evening Tide.mp4');
  await run('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', 'testsrc2=size=640x360:rate=25:duration=8',
    '-f', 'lavfi', '-i', 'sine=frequency=330:sample_rate=48000:duration=8', '-c:v', 'libx264', '-pix_fmt', 'yuv420p',
    '-c:a', 'aac', '-shortest', clip]);
  await run(vorlen, ['publish', clip, '--description', 'A quiet tide, with a **bold** word.'], { env });
  browser = await launchChromium(path.join(home, 'chromium'));
});

after(async () => {
  await browser?.close();
  await preview?.stop();
  await rm(home, { recursive: true, force: true });
});

test('a published video plays at the address that preview prints', { skip: !vorlen && 'VORLEN_BINARY is not set' }, async () => {
  preview = await startPreview(vorlen, env);
  const { pages } = preview;
  assert.equal(pages.length, 1);
  assert.match(pages[0], /\/evening-tide$/);
  for (const colorScheme of ['light', 'dark']) {
    const context = await browser.newContext({ colorScheme, viewport: { width: 1280, height: 860 } });
    const page = await context.newPage();
    const errors = [];
    page.on('console', (message) => { if (message.type() === 'error') errors.push(message.text()); });
    page.on('pageerror', (error) => errors.push(error.message));
    await page.goto(pages[0], { waitUntil: 'load' });
    await page.waitForSelector('.shaka-controls-container');
    assert.match(await page.title(), /^Evening Tide/);
    await page.screenshot({ path: path.join(screenshotDir, `published-${colorScheme}.png`), fullPage: true });
    if (colorScheme === 'light') {
      await page.evaluate(() => { const v = document.getElementById('vorlen-video'); v.muted = true; return v.play(); });
      await page.waitForFunction(() => document.getElementById('vorlen-video').currentTime > 2, null, { timeout: 60000 });
    }
    await page.goto(`${pages[0]}/embed`, { waitUntil: 'load' });
    await page.waitForSelector('.shaka-controls-container');
    await page.screenshot({ path: path.join(screenshotDir, `published-embed-${colorScheme}.png`) });
    assert.deepEqual(errors, []);
    await context.close();
  }
});
