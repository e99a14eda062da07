// Seeds and reads a bucket for the page tests, starts the browser for the page checks,
// and `vorlen preview` for the tests that take the road through the command line.
import { spawn } from 'node:child_process';
import { mkdtemp } from 'node:fs/promises';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import { startWorker, toolsRequire } from '../dev/localSite.mjs';

export const origin = 'https://watch.example.com';

export function siteSettings(overrides = {}) {
  return {
    version: 1,
    media_host: 'media.example.com',
    page_host: 'watch.example.com',
    template: 'light',
    worker: { name: 'vorlen-pages', version: '1.0.0' },
    home_page: { public: true, title: 'Dovrin Films', search: true, sort: 'newest', poster_size: 'medium' },
    embeds: { sites: 'none', origins: [] },
    ...overrides,
  };
}

export function videoRecord(overrides = {}) {
  return {
    version: 1,
    title: 'Harbour at Dawn',
    description: 'Boats leave the harbour.',
    visibility: 'public',
    poster: { name: 'poster-1a2b3c.jpg', width: 1280, height: 720 },
    duration: 95.4,
    width: 1920,
    height: 1080,
    created: '2026-01-15T09:30:00Z',
    updated: '2026-01-15T09:30:00Z',
    ...overrides,
  };
}

export async function startPages(options = {}) {
  const worker = await startWorker(options);
  const put = (key, value) => worker.bucket.put(key, typeof value === 'string' ? value : JSON.stringify(value));
  return {
    ...worker,
    put,
    async reset(site = siteSettings()) {
      const listed = await worker.bucket.list();
      if (listed.objects.length) await worker.bucket.delete(listed.objects.map((o) => o.key));
      if (site) await put('_vorlen/site.json', site);
    },
    // A playable folder: the record (unless null) and master.m3u8.
    async publish(key, record = videoRecord()) {
      if (record !== null) await put(`${key}/video.json`, record);
      await put(`${key}/master.m3u8`, '#EXTM3U\n');
    },
    async get(path, init) {
      const response = await worker.fetch(`${origin}${path}`, init);
      return { response, status: response.status, headers: response.headers, text: await response.text() };
    },
  };
}

// Debian's Chromium, headless, offline but for localhost and *.localhost, with its
// profile in `profile`.
export function launchChromium(profile) {
  const { chromium } = toolsRequire('playwright-core');
  return chromium.launch({
    executablePath: '/usr/bin/chromium',
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync',
      '--autoplay-policy=no-user-gesture-required',
      '--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE localhost, EXCLUDE *.localhost, EXCLUDE 127.0.0.1'],
    env: { ...process.env, XDG_CONFIG_HOME: profile, XDG_CACHE_HOME: profile },
  });
}

// Plays the page's video, muted, until it is past two seconds: the media really played.
export async function playsPastTwoSeconds(page) {
  await page.evaluate(() => { const v = document.getElementById('vorlen-video'); v.muted = true; return v.play(); });
  await page.waitForFunction(() => document.getElementById('vorlen-video').currentTime > 2, null, { timeout: 60000 });
}

// A home folder of its own for `vorlen`, as on a fresh computer.
export async function freshHome(prefix) {
  const home = await mkdtemp(path.join(os.tmpdir(), prefix));
  const env = { ...process.env, HOME: home, XDG_CONFIG_HOME: path.join(home, 'config'), XDG_DATA_HOME: path.join(home, 'data'),
    XDG_CACHE_HOME: path.join(home, 'cache'), TMPDIR: home };
  delete env.DBUS_SESSION_BUS_ADDRESS;
  return { home, env };
}

export function freePort() {
  return new Promise((resolve, reject) => {
    const server = net.createServer();
    server.once('error', reject);
    server.listen(0, '127.0.0.1', () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

// Starts `vorlen preview` on a free loopback port and resolves once it serves, with the
// page addresses that it printed; stop() ends it by its PID as Ctrl-C does.
export async function startPreview(vorlen, env) {
  const port = await freePort();
  const child = spawn(vorlen, ['preview', '--port', String(port)], { env, stdio: ['ignore', 'pipe', 'inherit'] });
  const pages = await new Promise((resolve, reject) => {
    let output = '';
    child.stdout.on('data', (chunk) => {
      output += chunk;
      // The serving line and the page addresses come in one write.
      if (/^Serving /m.test(output)) resolve([...output.matchAll(/^ {2}(http:\/\/localhost:\d+\/\S+)$/gm)].map((m) => m[1]));
    });
    child.once('exit', (code) => reject(new Error(`vorlen preview ended with ${code}: ${output}`)));
  });
  return {
    port,
    origin: `http://localhost:${port}`,
    pages,
    async stop() {
      if (child.exitCode !== null) return;
      const ended = new Promise((resolve) => child.once('exit', resolve));
      child.kill('SIGINT');
      await ended;
    },
  };
}
