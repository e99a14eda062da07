// The pages in headless Chromium over a local site with a real clip: they load
// without console errors, have what a search engine and a screen reader need, play,
// and are photographed in light and dark for a person to look at.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdir, mkdtemp, readFile, rm } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { after, before, describe, test } from 'node:test';
import { startLocalSite } from '../dev/localSite.mjs';
import { writeObject } from '../dev/folderBucket.mjs';
import { launchChromium, playsPastTwoSeconds, videoRecord } from './helpers.mjs';

const run = promisify(execFile);
const screenshotDir = process.env.VORLEN_SCREENSHOT_DIR ?? path.join(os.tmpdir(), 'vorlen-worker-screenshots');
const immutable = 'public, max-age=31536000, immutable';
const json = { contentType: 'application/json', cacheControl: 'no-cache' };
const playlist = { contentType: 'application/vnd.apple.mpegurl', cacheControl: 'public, max-age=300' };

let root;
let site;
let browser;
let profile;

const packager = fileURLToPath(new URL('../../tools/bin/packager', import.meta.url));

// A clip packaged as the pipeline packages it: HLS and DASH over single media files
// that the player reads in byte ranges, stored with the headers a publish gives them.
async function makeClip(folder, source) {
  const work = await mkdtemp(path.join(os.tmpdir(), 'vorlen-clip-'));
  try {
    await run('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', `${source}=size=320x180:rate=25:duration=4`,
      '-f', 'lavfi', '-i', 'sine=frequency=440:sample_rate=48000:duration=4',
      '-c:v', 'libx264', '-preset', 'veryfast', '-pix_fmt', 'yuv420p', '-g', '25', '-sc_threshold', '0',
      '-c:a', 'aac', '-b:a', '64k', path.join(work, 'source.mp4')]);
    const input = path.join(work, 'source.mp4');
    await run(packager, [
      `in=${input},stream=video,output=video.mp4,playlist_name=video.m3u8`,
      `in=${input},stream=audio,output=audio.mp4,playlist_name=audio.m3u8,hls_group_id=audio,hls_name=Audio`,
      '--hls_master_playlist_output', 'master.m3u8', '--mpd_output', 'manifest.mpd', '--segment_duration', '1',
    ], { cwd: work });
    const files = {
      'video.mp4': { contentType: 'video/mp4', cacheControl: immutable },
      'audio.mp4': { contentType: 'audio/mp4', cacheControl: immutable },
      'video.m3u8': playlist,
      'audio.m3u8': playlist,
      'master.m3u8': playlist,
      'manifest.mpd': { contentType: 'application/dash+xml', cacheControl: 'public, max-age=300' },
    };
    for (const [name, headers] of Object.entries(files)) {
      await writeObject(root, `${folder}/${name}`, await readFile(path.join(work, name)), headers);
    }
  } finally {
    await rm(work, { recursive: true, force: true });
  }
}

async function makePoster(key, source) {
  const { stdout } = await run('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', `${source}=size=1280x720:rate=1`,
    '-frames:v', '1', '-q:v', '4', '-f', 'mjpeg', 'pipe:1'], { encoding: 'buffer', maxBuffer: 16 * 1024 * 1024 });
  await writeObject(root, key, stdout, { contentType: 'image/jpeg', cacheControl: immutable });
}

async function setTemplate(template) {
  await writeObject(root, '_vorlen/site.json', JSON.stringify({
    version: 1, media_host: 'media.localhost', page_host: 'localhost', template,
    worker: { name: 'vorlen-pages', version: '1.0.0' },
    home_page: { public: true, title: 'Northlight Studio', search: true, sort: 'newest', poster_size: 'medium' },
    embeds: { sites: 'any', origins: [] },
  }), json);
}

before(async () => {
  root = await mkdtemp(path.join(os.tmpdir(), 'vorlen-browser-'));
  profile = await mkdtemp(path.join(os.tmpdir(), 'vorlen-chromium-'));
  await mkdir(screenshotDir, { recursive: true });
  await Promise.all([
    makeClip('harbour-at-dawn', 'testsrc2'),
    makePoster('harbour-at-dawn/poster-9f3a1c.jpg', 'testsrc2'),
    makePoster('meadow-walk/poster-1b7d2e.jpg', 'smptehdbars'),
    makePoster('city-lights/poster-4c8e0f.jpg', 'mandelbrot'),
  ]);
  await setTemplate('auto');
  await writeObject(root, 'harbour-at-dawn/video.json', JSON.stringify(videoRecord({
    title: 'Harbour at Dawn',
    description: 'The fishing boats leave before sunrise. Filmed on the **north pier** over one *quiet* morning.\n\nMusic and sound: [Northlight Studio](https://northlight.example). Full credits at https://northlight.example/credits.',
    poster: { name: 'poster-9f3a1c.jpg', width: 1280, height: 720 },
    width: 320, height: 180, duration: 4,
  })), json);
  const entry = (folder, title, poster, duration, created) => ({ folder, title, poster, duration, created, visibility: 'public', width: 1280, height: 720 });
  await writeObject(root, '_vorlen/catalog.json', JSON.stringify({
    version: 1,
    videos: [
      entry('city-lights', 'City Lights After Rain', 'poster-4c8e0f.jpg', 312, '2026-02-11T20:00:00Z'),
      entry('harbour-at-dawn', 'Harbour at Dawn', 'poster-9f3a1c.jpg', 4, '2026-03-02T06:10:00Z'),
      entry('meadow-walk', 'A Walk Through the Meadow', 'poster-1b7d2e.jpg', 1504, '2026-01-20T14:00:00Z'),
      { folder: 'hidden-x7k2m9qa', title: 'Unlisted Cut', visibility: 'unlisted' },
    ],
  }), json);
  site = await startLocalSite({ root });
  browser = await launchChromium(profile);
});

after(async () => {
  await browser?.close();
  await site?.close();
  await rm(root, { recursive: true, force: true });
  await rm(profile, { recursive: true, force: true });
});

// Opens a page and collects what the console reports as errors.
async function open(target, { colorScheme = 'light', viewport = { width: 1280, height: 860 } } = {}) {
  const context = await browser.newContext({ colorScheme, viewport, deviceScaleFactor: 1 });
  const page = await context.newPage();
  const errors = [];
  page.on('console', (message) => { if (message.type() === 'error') errors.push(message.text()); });
  page.on('pageerror', (error) => errors.push(error.message));
  const response = await page.goto(`${site.pageOrigin}${target}`, { waitUntil: 'load' });
  return { context, page, errors, response };
}

async function pageBasics(page) {
  return page.evaluate(() => ({
    lang: document.documentElement.lang,
    title: document.title,
    description: document.querySelector('meta[name="description"]')?.content ?? '',
    unlabelled: [...document.querySelectorAll('button, input, select, a[href]')]
      .filter((e) => e.getClientRects().length > 0)
      .filter((e) => !(e.getAttribute('aria-label') || e.textContent.trim() || e.labels?.length || e.title))
      .map((e) => e.outerHTML.slice(0, 80)),
  }));
}

describe('pages in a browser', () => {
  test('the player page has its basics, labelled controls, and plays', async () => {
    for (const colorScheme of ['light', 'dark']) {
      const { context, page, errors } = await open('/harbour-at-dawn', { colorScheme });
      const partial = [];
      page.on('response', (response) => { if (response.status() === 206) partial.push(response.url()); });
      await page.waitForSelector('.shaka-controls-container');
      await page.waitForFunction(() => window.vorlenPlayer?.getLoadMode() === 2 /* MEDIA_SOURCE */);
      const basics = await pageBasics(page);
      assert.equal(basics.lang, 'en');
      assert.equal(basics.title, 'Harbour at Dawn – Northlight Studio');
      assert.match(basics.description, /^The fishing boats leave before sunrise\./);
      assert.deepEqual(basics.unlabelled, []);
      await page.screenshot({ path: path.join(screenshotDir, `player-${colorScheme}.png`), fullPage: true });
      if (colorScheme === 'light') {
        await playsPastTwoSeconds(page);
        assert.ok(partial.some((url) => url.endsWith('/harbour-at-dawn/video.mp4')), 'the media host answered ranges');
      }
      assert.deepEqual(errors, []);
      await context.close();
    }
  });

  test('the player takes the site\'s options on the next load', async () => {
    const controls = (page) => page.evaluate(() => {
      const panel = document.querySelector('.shaka-controls-button-panel');
      const style = (selector) => getComputedStyle(document.querySelector(selector));
      return {
        fullscreen: panel.querySelectorAll('.shaka-fullscreen-button').length,
        play: panel.querySelectorAll('.shaka-play-button').length,
        color: style('.shaka-controls-button-panel .shaka-play-button').color,
        menu: style('.shaka-overflow-menu').backgroundColor,
        played: document.getElementById('vorlen-video').ui.getConfiguration().seekBarColors.played,
      };
    });
    const before = await open('/harbour-at-dawn');
    await before.page.waitForSelector('.shaka-controls-button-panel .shaka-play-button');
    assert.deepEqual(await controls(before.page), {
      fullscreen: 1, play: 1, color: 'rgb(255, 255, 255)', menu: 'rgba(28, 28, 28, 0.9)', played: 'rgb(255, 255, 255)',
    });
    await before.context.close();

    await writeObject(root, '_vorlen/player.json', JSON.stringify({
      version: 1,
      ui: {
        controlPanelElements: ['play_pause', 'mute_volume', 'time_and_duration', 'spacer', 'overflow_menu'],
        seekBarColors: { played: 'rgb(0, 128, 255)' },
        // An option of a later player release than the bundled one is left out without an error.
        seekButtonDistance: 15,
      },
      colors: { controls: 'rgb(255, 204, 0)', menu_background: '#102030', fade: 'red;}</style><script>alert(1)</script>' },
    }), json);
    try {
      const { context, page, errors } = await open('/harbour-at-dawn');
      await page.waitForSelector('.shaka-controls-button-panel .shaka-play-button');
      assert.deepEqual(await controls(page), {
        fullscreen: 0, play: 1, color: 'rgb(255, 204, 0)', menu: 'rgb(16, 32, 48)', played: 'rgb(0, 128, 255)',
      });
      assert.equal(await page.locator('script:not([src]):not([type])').count(), 0, 'a colour cannot open a script');
      await page.screenshot({ path: path.join(screenshotDir, 'player-options.png') });
      assert.deepEqual(errors, []);
      await context.close();
    } finally {
      await rm(path.join(root, 'objects', '_vorlen', 'player.json'), { force: true });
    }
  });

  test('the embed fills its frame', async () => {
    const { context, page, errors } = await open('/harbour-at-dawn/embed', { viewport: { width: 640, height: 360 } });
    await page.waitForSelector('.shaka-controls-container');
    const box = await page.locator('#vorlen-player').boundingBox();
    assert.deepEqual([box.x, box.y, box.width, box.height], [0, 0, 640, 360]);
    await page.screenshot({ path: path.join(screenshotDir, 'embed.png') });
    assert.deepEqual(errors, []);
    await context.close();
  });

  test('the home page and the not-found page, in light and dark', async () => {
    for (const [template, colorScheme] of [['light', 'light'], ['dark', 'light'], ['auto', 'dark']]) {
      await setTemplate(template);
      const { context, page, errors } = await open('/', { colorScheme });
      await page.waitForFunction(() => [...document.images].every((i) => i.complete && i.naturalWidth > 0));
      const basics = await pageBasics(page);
      assert.equal(basics.lang, 'en');
      assert.equal(basics.title, 'Northlight Studio');
      assert.notEqual(basics.description, '');
      assert.deepEqual(basics.unlabelled, []);
      assert.equal(await page.locator('.card').count(), 3);
      const background = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
      assert.equal(background === 'rgb(15, 16, 18)', template === 'dark' || colorScheme === 'dark', `${template} ${colorScheme}`);
      await page.screenshot({ path: path.join(screenshotDir, `home-${template}-${colorScheme}.png`), fullPage: true });

      await page.fill('#search-input', 'meadow');
      await Promise.all([page.waitForURL(/\?q=meadow/), page.press('#search-input', 'Enter')]);
      assert.equal(await page.locator('.card').count(), 1);
      if (template === 'light') await page.screenshot({ path: path.join(screenshotDir, 'home-search-light.png') });
      assert.deepEqual(errors, []);
      await context.close();
    }
    await setTemplate('dark');
    const { context, page, response } = await open('/no-such-video');
    assert.equal(response.status(), 404);
    await page.screenshot({ path: path.join(screenshotDir, 'not-found-dark.png') });
    await context.close();
    await setTemplate('auto');
  });
});
