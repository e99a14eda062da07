// Watches a video's page as a viewer does while commands change the video. Headless
// Chromium opens the page, its own Shaka Player plays muted, and the commands run
// one after another (each with bash -c). At the end of each, the report holds the
// player's errors so far (Shaka Player's and the video element's) and how far
// playback went on afterwards. While a command runs, a thread samples the site's
// objects folder as fast as it can and counts the samples in which no master.m3u8
// of the video was there: neither in its folder nor in a folder that appeared
// during the run (a new link).
//
//   node playThroughChanges.mjs <chromium> <page URL> <objects folder> <video folder> [--to-end] [command]...
//
// With --to-end the player then plays on to the end of the video. Prints one JSON
// object on standard output; the caller judges it:
//   { steps: [{ command, status, output, currentTime, errors, advancedTo }],
//     samples, unplayableSamples, end: { currentTime, ended, videoSize, variantSize, textTracks, errors },
//     failedRequests: [{ url, status, step }] }
// A failed request's step is 0 before the first command, then the command's number;
// after the last command, one more.
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { Worker, isMainThread, parentPort, workerData } from 'node:worker_threads';
import { launchChromium } from './chromium.mjs';

// Waits for a condition in the page; a guard against a player that stalls for
// good, not a measure of speed.
const waitLimit = 120000;

// The sampler's thread. The old folder is looked at before the new ones: a new
// folder's master.m3u8 is written before the old one goes, so in this order a
// sample can miss both only if there was a moment without either.
function sampleUntilStopped({ objects, folder, before, stop }, tell) {
  const stopped = new Int32Array(stop);
  const existing = new Set(before);
  const hasMaster = (name) => fs.existsSync(path.join(objects, name, 'master.m3u8'));
  let samples = 0;
  let unplayable = 0;
  tell('sampling');
  while (Atomics.load(stopped, 0) === 0) {
    samples += 1;
    if (hasMaster(folder)) continue;
    if (!fs.readdirSync(objects).some((name) => !existing.has(name) && hasMaster(name))) unplayable += 1;
  }
  tell({ samples, unplayable });
}

// Starts sampling, with the folders of now as the ones that are not new, and
// resolves once it samples; stop() resolves with the counts.
async function startSampler(objects, folder) {
  const stop = new SharedArrayBuffer(4);
  const sampler = new Worker(new URL(import.meta.url), { workerData: { objects, folder, before: fs.readdirSync(objects), stop } });
  const nextMessage = () => new Promise((resolve, reject) => {
    sampler.once('message', resolve);
    sampler.once('error', reject);
  });
  await nextMessage();
  const counts = nextMessage();
  return {
    stop() {
      Atomics.store(new Int32Array(stop), 0, 1);
      return counts;
    },
  };
}

function runCommand(command) {
  return new Promise((resolve, reject) => {
    const child = spawn('bash', ['-c', command], { stdio: ['ignore', 'pipe', 'inherit'] });
    let output = '';
    child.stdout.on('data', (data) => { output += data; });
    child.once('error', reject);
    child.once('close', (status) => resolve({ status, output: output.trim() }));
  });
}

// Plays the page's video from the start, muted, once the player has loaded its
// manifest, and from then on keeps what goes wrong in window.vorlenWatch.
async function startWatching(page) {
  await page.waitForFunction(() => window.vorlenPlayer?.getLoadMode() === 2 /* MEDIA_SOURCE */
    && document.getElementById('vorlen-video').readyState >= 2 /* HAVE_CURRENT_DATA */, null, { timeout: waitLimit });
  await page.evaluate(async () => {
    const video = document.getElementById('vorlen-video');
    const errors = [];
    window.vorlenWatch = { errors };
    // After the page's own listener: an error that the page recovers from is marked handled.
    window.vorlenPlayer.addEventListener('error', (event) => {
      if (!event.detail?.handled) errors.push(`player ${event.detail?.code} ${JSON.stringify(event.detail?.data?.slice(0, 2))}`);
    });
    video.addEventListener('error', () => errors.push(`video ${video.error?.code} ${video.error?.message}`));
    video.muted = true;
    await video.play();
  });
}

function playbackState(page) {
  return page.evaluate(() => {
    const video = document.getElementById('vorlen-video');
    const active = window.vorlenPlayer.getVariantTracks().find((track) => track.active);
    return {
      currentTime: video.currentTime,
      ended: video.ended,
      videoSize: [video.videoWidth, video.videoHeight],
      variantSize: active ? [active.width, active.height] : null,
      textTracks: window.vorlenPlayer.getTextTracks().map((track) => track.language),
      errors: [...window.vorlenWatch.errors],
    };
  });
}

// Waits until playback passes `seconds` or ends; stops early on an error.
async function playUntil(page, seconds) {
  await page.waitForFunction((target) => {
    const video = document.getElementById('vorlen-video');
    return video.currentTime >= target || video.ended || window.vorlenWatch.errors.length > 0;
  }, seconds, { timeout: waitLimit, polling: 100 }).catch(() => {});
  return playbackState(page);
}

async function main() {
  const [chromiumPath, pageURL, objects, folder, ...rest] = process.argv.slice(2);
  if (!chromiumPath || !pageURL || !objects || !folder) {
    console.error('usage: node playThroughChanges.mjs <chromium> <page URL> <objects folder> <video folder> [--to-end] [command]...');
    process.exit(2);
  }
  const toEnd = rest[0] === '--to-end';
  const commands = toEnd ? rest.slice(1) : rest;

  const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'vorlen-changes-'));
  let browser;
  try {
    browser = await launchChromium(chromiumPath, profile,
      'MAP * ~NOTFOUND, EXCLUDE localhost, EXCLUDE *.localhost, EXCLUDE 127.0.0.1');
    const page = await browser.newPage();
    const failedRequests = [];
    let step = 0;
    page.on('response', (response) => {
      if (response.status() >= 400) failedRequests.push({ url: response.url(), status: response.status(), step });
    });
    const answer = await page.goto(pageURL, { waitUntil: 'load' });
    if (!answer.ok()) throw new Error(`${pageURL} answered ${answer.status()}`);
    await startWatching(page);
    await playUntil(page, 1);

    const steps = [];
    let samples = 0;
    let unplayableSamples = 0;
    for (const command of commands) {
      step += 1;
      const sampler = await startSampler(objects, folder);
      const { status, output } = await runCommand(command);
      const atEnd = await playbackState(page);
      const counts = await sampler.stop();
      samples += counts.samples;
      unplayableSamples += counts.unplayable;
      const after = await playUntil(page, atEnd.currentTime + 1);
      steps.push({ command, status, output, currentTime: atEnd.currentTime, errors: atEnd.errors, advancedTo: after.currentTime });
      if (status !== 0) break;
    }
    step += 1;
    const end = toEnd ? await playUntil(page, Infinity) : await playUntil(page, (await playbackState(page)).currentTime + 1);
    process.stdout.write(`${JSON.stringify({ steps, samples, unplayableSamples, end, failedRequests })}\n`);
  } finally {
    if (browser) await browser.close();
    fs.rmSync(profile, { recursive: true, force: true });
  }
}

if (isMainThread) {
  await main();
} else {
  sampleUntilStopped(workerData, (message) => parentPort.postMessage(message));
}
