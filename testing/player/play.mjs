// Plays a built video folder the way a viewer's browser does: serves the folder
// from a loopback HTTP server that answers Range requests with 206, plays
// master.m3u8 and manifest.mpd in Shaka Player inside headless Chromium, and
// decodes the byte-range HLS with ffmpeg over the same server.
//
//   node play.mjs <folder> <ffmpeg> [<chromium>]
//
// Prints one JSON object on standard output; the caller judges it.
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { launchChromium, toolsRequire } from './chromium.mjs';

const shakaScript = toolsRequire.resolve('shaka-player/dist/shaka-player.compiled.js');

const [folder, ffmpeg, chromiumPath = '/usr/bin/chromium'] = process.argv.slice(2);
if (!folder || !ffmpeg) {
  console.error('usage: node play.mjs <folder> <ffmpeg>');
  process.exit(2);
}
const root = path.resolve(folder);

const page = `<!doctype html><html><head><meta charset="utf-8">
<script src="/player/shaka.js"></script></head>
<body><video width="320" height="180"></video></body></html>`;

// Answers for a part of a file (206) and for whole files, per playback.
const stats = { ranged: 0, whole: 0 };

function contentType(file) {
  if (file.endsWith('.m3u8')) return 'application/vnd.apple.mpegurl';
  if (file.endsWith('.mpd')) return 'application/dash+xml';
  if (file.endsWith('.vtt')) return 'text/vtt; charset=utf-8';
  if (file.endsWith('.js')) return 'text/javascript';
  return 'video/mp4';
}

function serveFile(request, response, file) {
  let size;
  try {
    size = fs.statSync(file).size;
  } catch {
    response.writeHead(404).end();
    return;
  }
  const headers = { 'content-type': contentType(file), 'accept-ranges': 'bytes' };
  const range = /^bytes=(\d*)-(\d*)$/.exec(request.headers.range ?? '');
  if (!range || (range[1] === '' && range[2] === '')) {
    stats.whole += 1;
    response.writeHead(200, { ...headers, 'content-length': size });
    fs.createReadStream(file).pipe(response);
    return;
  }
  let start;
  let end;
  if (range[1] === '') {
    start = Math.max(0, size - Number(range[2]));
    end = size - 1;
  } else {
    start = Number(range[1]);
    end = range[2] === '' ? size - 1 : Math.min(Number(range[2]), size - 1);
  }
  if (start > end || start >= size) {
    response.writeHead(416, { 'content-range': `bytes */${size}` }).end();
    return;
  }
  // Only a part of a file proves byte ranges; "bytes=0-" is what ffmpeg asks for anyway.
  if (start > 0 || end < size - 1) stats.ranged += 1;
  else stats.whole += 1;
  response.writeHead(206, { ...headers, 'content-length': end - start + 1, 'content-range': `bytes ${start}-${end}/${size}` });
  fs.createReadStream(file, { start, end }).pipe(response);
}

const server = http.createServer((request, response) => {
  const url = new URL(request.url, 'http://127.0.0.1');
  if (url.pathname === '/player/') {
    response.writeHead(200, { 'content-type': 'text/html' }).end(page);
    return;
  }
  if (url.pathname === '/player/shaka.js') {
    serveFile(request, response, shakaScript);
    return;
  }
  const file = path.resolve(root, '.' + decodeURIComponent(url.pathname));
  if (!file.startsWith(root + path.sep)) {
    response.writeHead(403).end();
    return;
  }
  serveFile(request, response, file);
});

async function play(browser, base, manifest) {
  const tab = await browser.newPage();
  try {
    await tab.goto(`${base}/player/`);
    stats.ranged = 0;
    stats.whole = 0;
    const result = await tab.evaluate(async (url) => {
      shaka.polyfill.installAll();
      const video = document.querySelector('video');
      video.muted = true;
      const player = new shaka.Player();
      await player.attach(video);
      const errors = [];
      player.addEventListener('error', (event) => errors.push(String(event.detail?.code)));
      let firstText;
      try {
        await player.load(url);
        // Shows the first subtitle track, so that its cues must load and parse.
        [firstText] = player.getTextTracks();
        if (firstText) player.selectTextTrack(firstText);
        await video.play();
      } catch (error) {
        errors.push(String(error?.code ?? error));
      }
      // A guard against a player that stalls for good, not a measure of speed.
      const giveUp = performance.now() + 180000;
      const playUntil = async (seconds) => {
        while (video.currentTime < seconds && errors.length === 0 && !video.ended && performance.now() < giveUp) {
          await new Promise((resolve) => setTimeout(resolve, 100));
        }
        return video.currentTime;
      };
      const currentTime = await playUntil(2.5);
      // The shown track's cues come from a request of their own, which a loaded
      // machine may answer only after the seek below has cleared what was buffered:
      // count them once they are there, before the seek.
      const cueCount = () => Array.from(video.textTracks).reduce((count, track) => count + (track.cues?.length ?? 0), 0);
      if (firstText) {
        while (cueCount() === 0 && errors.length === 0 && performance.now() < giveUp) {
          await new Promise((resolve) => setTimeout(resolve, 100));
        }
      }
      const textCues = cueCount();
      // A seek into the second segment reads from a later chunk file.
      video.currentTime = 7;
      const afterSeek = await playUntil(7.5);
      const active = player.getVariantTracks().find((track) => track.active) ?? {};
      const outcome = {
        currentTime,
        afterSeek,
        audioBytes: video.webkitAudioDecodedByteCount ?? 0,
        videoBytes: video.webkitVideoDecodedByteCount ?? 0,
        videoCodec: active.videoCodec ?? null,
        audioCodec: active.audioCodec ?? null,
        height: active.height ?? null,
        variants: player.getVariantTracks().length,
        textTracks: player.getTextTracks().map((track) => ({ language: track.language, label: track.label, kind: track.kind })),
        textCues,
        errors,
      };
      await player.destroy();
      return outcome;
    }, `${base}/${manifest}`);
    return { ...result, ranged: stats.ranged, whole: stats.whole };
  } finally {
    await tab.close();
  }
}

function decodeWithFFmpeg(base) {
  stats.ranged = 0;
  stats.whole = 0;
  return new Promise((resolve) => {
    const child = spawn(ffmpeg, ['-v', 'error', '-nostdin', '-i', `${base}/master.m3u8`, '-map', '0', '-f', 'null', '-'],
      { stdio: ['ignore', 'ignore', 'pipe'] });
    let stderr = '';
    child.stderr.on('data', (data) => { stderr += data; });
    child.on('close', (code, signal) => resolve({ code, signal, stderr, ranged: stats.ranged, whole: stats.whole }));
  });
}

const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'vorlen-player-'));
let browser;
try {
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const base = `http://127.0.0.1:${server.address().port}`;
  browser = await launchChromium(chromiumPath, profile, 'MAP * ~NOTFOUND, EXCLUDE localhost, EXCLUDE 127.0.0.1');
  const hls = await play(browser, base, 'master.m3u8');
  const dash = await play(browser, base, 'manifest.mpd');
  const ffmpegResult = await decodeWithFFmpeg(base);
  process.stdout.write(JSON.stringify({ hls, dash, ffmpeg: ffmpegResult }) + '\n');
} finally {
  if (browser) await browser.close();
  server.close();
  fs.rmSync(profile, { recursive: true, force: true });
}
