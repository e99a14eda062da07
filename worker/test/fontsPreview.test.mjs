// The pages' own fonts through the command line, on a fresh computer: `vorlen fonts add`
// hosts a DejaVu TrueType file that it converts, `vorlen fonts google` copies a family
// from the local Google Fonts, and after each the page that `vorlen preview` serves
// shows the font in headless Chromium: the face is loaded from the media host, the
// text is set in it, and the content policy refuses nothing. The page is photographed
// before and after each change, into VORLEN_SCREENSHOT_DIR/fonts-*.png.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdir, mkdtemp, readFile, rm } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { promisify } from 'node:util';
import { after, before, test } from 'node:test';
import { writeObject } from '../dev/folderBucket.mjs';
import { launchChromium, startPreview, videoRecord } from './helpers.mjs';

const run = promisify(execFile);
const vorlen = process.env.VORLEN_BINARY;
const screenshotDir = process.env.VORLEN_SCREENSHOT_DIR ?? path.join(os.tmpdir(), 'vorlen-worker-screenshots');
const googleFontsScript = (name) => new URL(`../../testing/googlefonts/${name}`, import.meta.url).pathname;

let home;
let env;
let googleFonts;
let googleFontsDir;
let preview;
let browser;

before(async () => {
  if (!vorlen) return;
  home = await mkdtemp(path.join(os.tmpdir(), 'vorlen-fonts-'));
  env = { ...process.env, HOME: home, XDG_CONFIG_HOME: path.join(home, 'config'), XDG_DATA_HOME: path.join(home, 'data'),
    XDG_CACHE_HOME: path.join(home, 'cache'), TMPDIR: home };
  delete env.DBUS_SESSION_BUS_ADDRESS;
  await mkdir(screenshotDir, { recursive: true });
  googleFontsDir = path.join(home, 'googlefonts');
  const { stdout } = await run(googleFontsScript('start'), [googleFontsDir],
    { env: { ...process.env, VORLEN_GOOGLE_FONTS_OWNER: String(process.pid) } });
  googleFonts = Object.fromEntries(stdout.trim().split('\n').map((line) => [line.slice(0, line.indexOf('=')), line.slice(line.indexOf('=') + 1)]));
  // A video of the local site, enough for its page: the record and a playlist.
  await run(vorlen, ['fonts'], { env });
  const site = path.join(home, 'data', 'vorlen', 'local-site');
  await writeObject(site, 'harbour/video.json', JSON.stringify(videoRecord({ poster: undefined,
    description: 'Boats leave the harbour at first light, one after another, with the tide.' })),
  { contentType: 'application/json', cacheControl: 'no-cache' });
  await writeObject(site, 'harbour/master.m3u8', '#EXTM3U\n', { contentType: 'application/vnd.apple.mpegurl', cacheControl: 'no-cache' });
  preview = await startPreview(vorlen, env);
  browser = await launchChromium(path.join(home, 'chromium'));
});

after(async () => {
  await browser?.close();
  await preview?.stop();
  if (googleFontsDir) await run(googleFontsScript('stop'), [googleFontsDir]);
  if (home) await rm(home, { recursive: true, force: true });
});

// Opens the page, waits for its fonts, and tells what Chromium made of them (whether
// `family` is ready, when one is given); the screenshot goes to fonts-<name>.png.
async function showPage(name, family = null) {
  const context = await browser.newContext({ viewport: { width: 1000, height: 700 }, deviceScaleFactor: 1 });
  const page = await context.newPage();
  await page.addInitScript(() => {
    window.vorlenViolations = [];
    document.addEventListener('securitypolicyviolation',
      (event) => window.vorlenViolations.push(`${event.violatedDirective} ${event.blockedURI}`));
  });
  // The page's playlist is a stub, so the player's own failures are no concern here:
  // only those of stylesheets and fonts are.
  const failures = [];
  const fontResponses = [];
  const isStyle = (url) => /\.(css|woff2)$/.test(new URL(url).pathname);
  page.on('requestfailed', (request) => {
    if (isStyle(request.url())) failures.push(`${request.url()}: ${request.failure()?.errorText}`);
  });
  page.on('response', (response) => {
    if (isStyle(response.url()) && response.status() >= 400) failures.push(`${response.status()} ${response.url()}`);
    if (/\.woff2$/.test(new URL(response.url()).pathname)) fontResponses.push(`${response.status()} ${new URL(response.url()).host}`);
  });
  await page.goto(`${preview.origin}/harbour`, { waitUntil: 'load' });
  const seen = await page.evaluate(async (expected) => {
    await document.fonts.ready;
    const family = (selector) => getComputedStyle(document.querySelector(selector)).fontFamily;
    return {
      // Only @font-face rules make entries of document.fonts: system fonts never show here.
      loaded: [...document.fonts].filter((face) => face.status === 'loaded')
        .map((face) => `${face.family.replace(/^"|"$/g, '')} ${face.style} ${face.weight}`).sort(),
      ready: expected === null || document.fonts.check(`16px "${expected}"`),
      title: family('.video-title'),
      text: family('body'),
      violations: window.vorlenViolations,
    };
  }, family);
  const file = path.join(screenshotDir, `fonts-${name}.png`);
  // The stub player is masked, so that only the text can tell the screenshots apart.
  await page.screenshot({ path: file, fullPage: true, mask: [page.locator('#vorlen-player')] });
  await context.close();
  return { ...seen, failures, fontResponses, screenshot: await readFile(file) };
}

test('a font from files and a Google Fonts family each show on the page', { skip: !vorlen && 'VORLEN_BINARY is not set' }, async () => {
  const plain = await showPage('before');
  assert.deepEqual(plain.loaded, []);
  assert.deepEqual(plain.violations, []);

  const added = await run(vorlen, ['fonts', 'add', '/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf'], { env });
  assert.match(added.stdout, /^The pages use “DejaVu Sans Mono”, hosted in _fonts\/dejavu-sans-mono-[0-9a-f]{8}\/\.$/m);
  const fromFiles = await showPage('files', 'DejaVu Sans Mono');
  assert.ok(fromFiles.ready);
  assert.deepEqual(fromFiles.loaded, ['DejaVu Sans Mono normal 400']);
  assert.match(fromFiles.title, /^"DejaVu Sans Mono", system-ui/);
  assert.match(fromFiles.text, /^"DejaVu Sans Mono", system-ui/);
  assert.deepEqual(fromFiles.fontResponses, [`200 media.localhost:${preview.port}`]);
  assert.deepEqual(fromFiles.violations, []);
  assert.deepEqual(fromFiles.failures, []);
  assert.notDeepEqual(fromFiles.screenshot, plain.screenshot);

  const googleEnv = { ...env, VORLEN_GOOGLE_FONTS: googleFonts.api, VORLEN_CONNECT_TO: googleFonts.connect_to,
    VORLEN_CA_FILE: googleFonts.ca };
  const copied = await run(vorlen, ['fonts', 'google', 'DejaVu Serif'], { env: googleEnv });
  assert.match(copied.stdout, /^Copied “DejaVu Serif” from Google Fonts: 6 faces, [\d.]+ kB, into _fonts\/dejavu-serif-[0-9a-f]{8}\/\.\n/);
  assert.match(copied.stdout, /^The pages use it for the text and the headings on their next load\.$/m);
  const fromGoogle = await showPage('google', 'DejaVu Serif');
  assert.ok(fromGoogle.ready);
  // The text is latin: the latin subsets of the regular face and of the bold title.
  assert.deepEqual(fromGoogle.loaded, ['DejaVu Serif normal 400', 'DejaVu Serif normal 700']);
  assert.match(fromGoogle.title, /^"DejaVu Serif", system-ui/);
  assert.ok(fromGoogle.fontResponses.every((line) => line === `200 media.localhost:${preview.port}`), fromGoogle.fontResponses.join());
  assert.deepEqual(fromGoogle.violations, []);
  assert.deepEqual(fromGoogle.failures, []);
  assert.notDeepEqual(fromGoogle.screenshot, fromFiles.screenshot);
  assert.notDeepEqual(fromGoogle.screenshot, plain.screenshot);
});
