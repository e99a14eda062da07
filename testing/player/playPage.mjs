// Opens a site's player page the way a viewer's browser does, through the local
// Cloudflare account's edge: headless Chromium resolves every name to the edge and
// trusts the edge's certificates by their public keys (only theirs), the page's own
// Shaka Player plays a few seconds and on past a seek, and the page is photographed
// in light and dark.
//
//   node playPage.mjs <page URL> <edge 127.0.0.1:PORT> <edge CA file> <chromium> <output folder>
//
// Prints one JSON object on standard output; the caller judges it:
//   { currentTime, afterSeek, duration, loadMode, textTracks, errors,
//     mediaHost, responses: { <host>: { <status>: count } }, mediaPartial, screenshots }
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { launchChromium, publicKeyHashes } from './chromium.mjs';

const [pageURL, edge, caFile, chromiumPath, outputFolder] = process.argv.slice(2);
if (!pageURL || !edge || !caFile || !chromiumPath || !outputFolder) {
  console.error('usage: node playPage.mjs <page URL> <edge address> <edge CA file> <chromium> <output folder>');
  process.exit(2);
}

function pageName(url) {
  const segments = new URL(url).pathname.split('/').filter(Boolean);
  return segments.at(-1) ?? 'home';
}

// Waits in the page for a condition; a guard against a player that stalls for
// good, not a measure of speed.
const waitLimit = 120000;

// The player has loaded its manifest and shows a first frame.
function loaded(page) {
  return page.waitForFunction(() => window.vorlenPlayer?.getLoadMode() === 2 /* MEDIA_SOURCE */
    && document.getElementById('vorlen-video').readyState >= 2 /* HAVE_CURRENT_DATA */, null, { timeout: waitLimit });
}

function play(page) {
  return page.evaluate(async (limit) => {
    const player = window.vorlenPlayer;
    const video = document.getElementById('vorlen-video');
    const errors = [];
    player.addEventListener('error', (event) => errors.push(String(event.detail?.code)));
    const giveUp = performance.now() + limit;
    const playUntil = async (seconds) => {
      while (video.currentTime < seconds && errors.length === 0 && !video.ended && performance.now() < giveUp) {
        await new Promise((resolve) => setTimeout(resolve, 100));
      }
      return video.currentTime;
    };
    video.muted = true;
    try {
      await video.play();
    } catch (error) {
      errors.push(String(error?.name ?? error));
    }
    const currentTime = await playUntil(2.5);
    // A seek past the first segments reads a later byte range of the media files.
    const seekTarget = Math.max(0, Math.min(video.duration - 1.5, 6));
    video.currentTime = seekTarget;
    const afterSeek = await playUntil(seekTarget + 0.5);
    return {
      currentTime,
      seekTarget,
      afterSeek,
      duration: video.duration,
      loadMode: player.getLoadMode(),
      textTracks: player.getTextTracks().map((track) => ({ language: track.language, kind: track.kind })),
      errors,
    };
  }, waitLimit);
}

const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'vorlen-page-'));
let browser;
try {
  fs.mkdirSync(outputFolder, { recursive: true });
  // Every name goes to the edge, which answers a name it does not serve with 403.
  browser = await launchChromium(chromiumPath, profile, `MAP * ${edge}, EXCLUDE localhost, EXCLUDE 127.0.0.1`,
    [`--ignore-certificate-errors-spki-list=${publicKeyHashes(caFile).join(',')}`]);

  const responses = {};
  const errors = [];
  const screenshots = [];
  let playback;
  let mediaHost = null;
  for (const colorScheme of ['light', 'dark']) {
    const context = await browser.newContext({ colorScheme, viewport: { width: 1280, height: 860 }, deviceScaleFactor: 1 });
    const page = await context.newPage();
    page.on('console', (message) => { if (message.type() === 'error') errors.push(message.text()); });
    page.on('pageerror', (error) => errors.push(error.message));
    page.on('requestfailed', (request) => errors.push(`${request.url()}: ${request.failure()?.errorText}`));
    page.on('response', (response) => {
      const { host } = new URL(response.url());
      responses[host] ??= {};
      responses[host][response.status()] = (responses[host][response.status()] ?? 0) + 1;
    });
    const answer = await page.goto(pageURL, { waitUntil: 'load' });
    if (!answer.ok()) throw new Error(`${pageURL} answered ${answer.status()}`);
    await page.waitForSelector('.shaka-controls-container', { timeout: waitLimit });
    await loaded(page);
    if (colorScheme === 'light') {
      const config = JSON.parse(await page.locator('#vorlen-player-config').textContent());
      mediaHost = new URL(config.hls).host;
      playback = await play(page);
    }
    const file = path.join(outputFolder, `${pageName(pageURL)}-${colorScheme}.png`);
    await page.screenshot({ path: file, fullPage: true });
    screenshots.push(file);
    await context.close();
  }
  const mediaPartial = responses[mediaHost]?.[206] ?? 0;
  process.stdout.write(JSON.stringify({ ...playback, errors: [...playback.errors, ...errors], mediaHost, responses, mediaPartial, screenshots }) + '\n');
} finally {
  if (browser) await browser.close();
  fs.rmSync(profile, { recursive: true, force: true });
}
