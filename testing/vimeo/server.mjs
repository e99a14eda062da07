// A local Vimeo API (3.4) on loopback, read-only, from a fixture: the account, its videos
// with paging, one video with its files and download links, and its text tracks. Download
// links serve real clips made by ffmpeg into the state folder, with byte ranges.
//   node server.mjs DIR FIXTURE      (writes the port to DIR/server.port)
// Switches for tests, under /_admin/ (POST, JSON body):
//   rate-limit {count, resetSeconds}  the next `count` API requests answer 429
//   cut-downloads {count}             the next `count` downloads stop after half their bytes
//   set-video {id, ...facts}          changes a video: privacy, claimedSize, brokenTracks
//   expire-links                      every link given so far answers 410
import { execFileSync } from 'node:child_process';
import { randomBytes } from 'node:crypto';
import { existsSync, mkdirSync, readFileSync, statSync, writeFileSync, createReadStream } from 'node:fs';
import http from 'node:http';
import path from 'node:path';

const [dir, fixturePath] = process.argv.slice(2);
const fixture = JSON.parse(readFileSync(fixturePath, 'utf8'));
const mediaDir = path.join(dir, 'media');
const CLIP = { width: 320, height: 180 };
const PICTURE_SIZES = [{ width: 160, height: 90 }, { width: 320, height: 180 }];

function ffmpeg(args) {
  execFileSync('ffmpeg', ['-hide_banner', '-loglevel', 'error', '-y', ...args], { stdio: ['ignore', 'ignore', 'inherit'] });
}

function makeClip(file, seconds) {
  if (existsSync(file)) return;
  ffmpeg(['-f', 'lavfi', '-i', `testsrc2=size=${CLIP.width}x${CLIP.height}:rate=25:duration=${seconds}`,
    '-f', 'lavfi', '-i', `sine=frequency=440:sample_rate=48000:duration=${seconds}`,
    '-c:v', 'libx264', '-preset', 'veryfast', '-pix_fmt', 'yuv420p', '-c:a', 'aac', '-b:a', '64k',
    '-shortest', '-movflags', '+faststart', file]);
}

// One ffmpeg run per size gives every video its own frame of the test pattern.
function makePictures(count) {
  for (const { width, height } of PICTURE_SIZES) {
    const folder = path.join(mediaDir, `pictures-${width}`);
    if (existsSync(path.join(folder, `${count}.jpg`))) continue;
    mkdirSync(folder, { recursive: true });
    ffmpeg(['-f', 'lavfi', '-i', `testsrc2=size=${width}x${height}:rate=1`, '-frames:v', String(count), '-q:v', '6',
      path.join(folder, '%d.jpg')]);
  }
}

function generatedVideos({ count, firstId, firstCreated, daysApart, privacies, coldStorageEvery, notReadyEvery }) {
  return Array.from({ length: count }, (_, index) => ({
    id: String(firstId + index),
    name: `Archive reel ${index + 1}`,
    description: index % 3 === 0 ? null : `Reel ${index + 1} of the archive.`,
    duration: 30 + (index * 7) % 600,
    privacy: privacies[index % privacies.length],
    created_time: new Date(Date.parse(firstCreated) + index * daysApart * 86400000).toISOString().replace('.000Z', '+00:00'),
    coldStorage: (index + 1) % coldStorageEvery === 0,
    notReady: (index + 1) % notReadyEvery === 0,
    texttracks: [],
  }));
}

mkdirSync(mediaDir, { recursive: true });
const videos = [...generatedVideos(fixture.generated), ...fixture.videos.map((video) => ({ ...video, hasFile: true }))];
videos.forEach((video, index) => { video.picture = index + 1; });
for (const video of videos.filter((entry) => entry.hasFile)) {
  video.file = path.join(mediaDir, `${video.id}.mp4`);
  makeClip(video.file, video.duration);
  video.size = statSync(video.file).size;
}
makePictures(videos.length);

let origin;
const links = new Map(); // token -> { source (a file path or a text track), type, expires, expired }
const switches = { rateLimited: 0, resetSeconds: 0, cutDownloads: 0 };
const rateWindow = { start: Date.now(), used: 0 };
const requests = [];

const isoDate = (ms) => new Date(ms).toISOString().replace(/\.\d{3}Z$/, '+00:00');

function link(source, type, name, video = null) {
  const token = randomBytes(12).toString('hex');
  const expires = Date.now() + fixture.linkLifetimeSeconds * 1000;
  links.set(token, { source, type, expires, expired: false, video });
  return { url: `${origin}/_media/${token}/${encodeURIComponent(name)}`, expires: isoDate(expires) };
}

function rendition(video, quality, renditionName, publicName) {
  const { url, expires } = link(video.file, 'video/mp4', `${video.id}_${renditionName}.mp4`);
  return {
    quality, rendition: renditionName, type: 'video/mp4', width: CLIP.width, height: CLIP.height, link: url, expires,
    created_time: video.created_time, fps: 25, size: video.claimedSize ?? video.size, md5: null, public_name: publicName,
    size_short: `${(video.size / 1024).toFixed(1)} KB`,
  };
}

function pictures(video) {
  return {
    uri: `/videos/${video.id}/pictures/${video.picture}`, active: true, type: 'custom',
    base_link: `${origin}/_pictures/320/${video.picture}.jpg`,
    sizes: PICTURE_SIZES.map(({ width, height }) => ({
      width, height, link: `${origin}/_pictures/${width}/${video.picture}.jpg`,
      link_with_play_button: `${origin}/_pictures/${width}/${video.picture}.jpg`,
    })),
  };
}

function videoBody(video, scopes) {
  const body = {
    uri: `/videos/${video.id}`, name: video.name, description: video.description ?? null, type: 'video',
    link: `https://vimeo.com/${video.id}`, duration: video.duration, language: null,
    width: video.hasFile ? CLIP.width : 1920, height: video.hasFile ? CLIP.height : 1080,
    created_time: video.created_time, modified_time: video.created_time, release_time: video.created_time,
    privacy: {
      view: video.coldStorage ? 'disable' : video.privacy, embed: 'public', download: true, add: false, comments: 'anybody',
      ...(video.coldStorage ? { original_view: video.privacy } : {}),
    },
    pictures: pictures(video),
    status: video.notReady ? 'transcoding' : 'available',
    transcode: { status: video.notReady ? 'in_progress' : 'complete' },
    is_playable: !video.notReady,
    parent_folder: video.folder ? { uri: `/users/${fixture.account.id}/projects/${video.folder.id}`, name: video.folder.name } : null,
    user: { uri: `/users/${fixture.account.id}`, name: fixture.account.name, link: fixture.account.link },
    metadata: {
      connections: { texttracks: { uri: `/videos/${video.id}/texttracks`, options: ['GET'], total: video.texttracks.length } },
      is_cold_storage: Boolean(video.coldStorage),
    },
  };
  if (scopes.includes('video_files')) {
    body.files = video.hasFile && !video.notReady
      ? [rendition(video, 'sd', '180p', 'SD 180p')].map(({ expires, ...file }) => file) : [];
    body.download = video.hasFile && !video.notReady
      ? [rendition(video, 'source', 'source', 'Original'), rendition(video, 'sd', '180p', 'SD 180p')] : [];
  }
  return body;
}

function textTrackBody(video, track) {
  const { url, expires } = link(track, 'text/vtt', `${track.id}.vtt`, video);
  return {
    uri: `/videos/${video.id}/texttracks/${track.id}`, active: track.active, type: track.type, language: track.language,
    display_language: track.name, id: Number(track.id), link: url, link_expires_time: Math.floor(Date.parse(expires) / 1000),
    hls_link: null, name: track.name,
  };
}

const webVtt = (track) => `WEBVTT\n\n${track.cues.map((cue, index) => {
  const at = (second) => `00:00:${String(second).padStart(2, '0')}.000`;
  return `${index + 1}\n${at(index)} --> ${at(index + 1)}\n${cue}\n`;
}).join('\n')}`;

// Vimeo's `fields`: a comma list of dotted paths; lists are filtered element by element.
function pick(value, paths) {
  if (Array.isArray(value)) return value.map((entry) => pick(entry, paths));
  if (value === null || typeof value !== 'object') return value;
  const groups = new Map();
  for (const [head, ...rest] of paths.map((entry) => entry.split('.'))) {
    if (!(head in value)) continue;
    if (!groups.has(head)) groups.set(head, []);
    groups.get(head).push(rest.join('.'));
  }
  return Object.fromEntries([...groups].map(([key, rest]) => [key, rest.includes('') ? value[key] : pick(value[key], rest)]));
}

class ApiError extends Error {
  constructor(status, error, code, developerMessage = error) {
    super(error);
    Object.assign(this, { status, code, developerMessage });
  }
}

const notFound = () => new ApiError(404, 'The requested video couldn’t be found.', 5000);

function authorize(request) {
  const match = /^bearer (\S+)$/i.exec(request.headers.authorization ?? '');
  if (!match) throw new ApiError(401, 'You must provide a valid authenticated access token.', 8003);
  const token = fixture.tokens.find((entry) => entry.value === match[1]);
  if (!token) throw new ApiError(401, 'You must provide a valid authenticated access token.', 8000,
    'The authentication token is missing a user ID and must be provided when making this request.');
  return token.scopes;
}

const visible = (video, scopes) => scopes.includes('private') || video.privacy === 'anybody';

function findVideo(id, scopes) {
  const video = videos.find((entry) => entry.id === id);
  if (!video || !visible(video, scopes)) throw notFound();
  return video;
}

function pageOf(items, url, query) {
  const perPage = Number(query.get('per_page') ?? 25);
  const page = Number(query.get('page') ?? 1);
  if (!Number.isInteger(perPage) || perPage < 1 || perPage > 100) {
    throw new ApiError(400, 'The parameters passed to this API endpoint didn\'t pass Vimeo’s validation checks.', 2204,
      'per_page must be a whole number from 1 to 100.');
  }
  if (!Number.isInteger(page) || page < 1) throw new ApiError(400, 'Invalid page number.', 2286);
  const last = Math.max(1, Math.ceil(items.length / perPage));
  const at = (number) => {
    const next = new URLSearchParams(query);
    next.set('page', String(number));
    return `${url.pathname}?${next}`;
  };
  return {
    total: items.length, page, per_page: perPage,
    paging: { next: page < last ? at(page + 1) : null, previous: page > 1 ? at(page - 1) : null, first: at(1), last: at(last) },
    data: items.slice((page - 1) * perPage, page * perPage),
  };
}

function listVideos(scopes, url, query) {
  let list = videos.filter((video) => visible(video, scopes));
  if (query.get('filter') === 'cold_storage') list = list.filter((video) => video.coldStorage);
  const ascending = query.get('direction') === 'asc';
  list = [...list].sort((a, b) => (ascending ? 1 : -1) * (Date.parse(a.created_time) - Date.parse(b.created_time)));
  const page = pageOf(list, url, query);
  return { ...page, data: page.data.map((video) => videoBody(video, scopes)) };
}

function me() {
  const { id, name, link: profile, plan, created_time: created } = fixture.account;
  return {
    uri: `/users/${id}`, name, link: profile, account: plan, created_time: created, location: '', bio: null,
    metadata: { connections: { videos: { uri: `/users/${id}/videos`, options: ['GET'], total: videos.length } } },
  };
}

function answerApi(request, url) {
  const scopes = authorize(request);
  const query = url.searchParams;
  const user = `(?:me|users/${fixture.account.id})`;
  let match;
  if (request.method !== 'GET') throw new ApiError(405, 'This method is not allowed.', 2502);
  if (new RegExp(`^/${user}$`).test(url.pathname)) return me();
  if (new RegExp(`^/${user}/videos$`).test(url.pathname)) return listVideos(scopes, url, query);
  if ((match = /^\/videos\/(\d+)$/.exec(url.pathname))) return videoBody(findVideo(match[1], scopes), scopes);
  if ((match = /^\/videos\/(\d+)\/texttracks$/.exec(url.pathname))) {
    const video = findVideo(match[1], scopes);
    const page = pageOf(video.texttracks, url, query);
    return { ...page, data: page.data.map((track) => textTrackBody(video, track)) };
  }
  throw new ApiError(404, 'The requested page couldn’t be found.', 5000);
}

function rateLimitHeaders() {
  const { limit, windowSeconds } = fixture.rateLimit;
  if (Date.now() - rateWindow.start >= windowSeconds * 1000) Object.assign(rateWindow, { start: Date.now(), used: 0 });
  rateWindow.used += 1;
  const limited = switches.rateLimited > 0 || rateWindow.used > limit;
  const reset = switches.rateLimited > 0 ? Date.now() + switches.resetSeconds * 1000 : rateWindow.start + windowSeconds * 1000;
  if (switches.rateLimited > 0) switches.rateLimited -= 1;
  return {
    limited,
    headers: { 'X-RateLimit-Limit': String(limit), 'X-RateLimit-Remaining': String(Math.max(0, limit - rateWindow.used)),
      'X-RateLimit-Reset': isoDate(reset) },
  };
}

function sendJson(response, status, body, headers = {}) {
  const contentType = status < 400 ? 'application/vnd.vimeo.*+json' : 'application/vnd.vimeo.error+json';
  response.writeHead(status, { 'Content-Type': contentType, ...headers });
  response.end(JSON.stringify(body));
}

function handleApi(request, response, url) {
  const { limited, headers } = rateLimitHeaders();
  if (limited) {
    return sendJson(response, 429, { error: 'Too many API requests. Please wait a moment and try again.', link: null,
      developer_message: 'The rate limit of this app or user was exceeded.', error_code: 9000 }, headers);
  }
  try {
    const body = answerApi(request, url);
    const fields = url.searchParams.get('fields');
    const paths = fields ? fields.split(',').map((entry) => entry.trim()).filter(Boolean) : null;
    const filtered = !paths ? body : 'data' in body && 'paging' in body ? { ...body, data: pick(body.data, paths) } : pick(body, paths);
    sendJson(response, 200, filtered, headers);
  } catch (error) {
    if (!(error instanceof ApiError)) throw error;
    sendJson(response, error.status, { error: error.message, link: null, developer_message: error.developerMessage,
      error_code: error.code }, headers);
  }
}

// Single byte ranges, as a file server does: `a-b`, `a-` and `-n`.
function byteRange(header, size) {
  const match = /^bytes=(\d*)-(\d*)$/.exec(header ?? '');
  if (!match || (match[1] === '' && match[2] === '')) return null;
  const [start, end] = match[1] === ''
    ? [Math.max(0, size - Number(match[2])), size - 1]
    : [Number(match[1]), match[2] === '' ? size - 1 : Math.min(Number(match[2]), size - 1)];
  return start <= end && start < size ? { start, end } : 'unsatisfiable';
}

function serveBytes(request, response, bytesOrFile, type, cutShort) {
  const size = typeof bytesOrFile === 'string' ? statSync(bytesOrFile).size : bytesOrFile.length;
  const range = request.headers.range ? byteRange(request.headers.range, size) : null;
  if (range === 'unsatisfiable') {
    response.writeHead(416, { 'Content-Range': `bytes */${size}` });
    return response.end();
  }
  const { start, end } = range ?? { start: 0, end: size - 1 };
  response.writeHead(range ? 206 : 200, {
    'Content-Type': type, 'Content-Length': String(end - start + 1), 'Accept-Ranges': 'bytes',
    ...(range ? { 'Content-Range': `bytes ${start}-${end}/${size}` } : {}),
  });
  if (request.method === 'HEAD') return response.end();
  if (typeof bytesOrFile !== 'string') return response.end(bytesOrFile.subarray(start, end + 1));
  const last = cutShort ? start + Math.floor((end - start + 1) / 2) - 1 : end;
  const stream = createReadStream(bytesOrFile, { start, end: last });
  if (!cutShort) return stream.pipe(response);
  // The announced length stays; the connection closes once half of it is sent.
  stream.on('data', (chunk) => response.write(chunk));
  stream.on('end', () => response.socket?.end());
}

function handleMedia(request, response, url) {
  const [, kind, first, second] = url.pathname.split('/');
  if (kind === '_pictures') {
    const file = path.join(mediaDir, `pictures-${Number(first)}`, path.basename(second ?? ''));
    if (!existsSync(file)) return sendJson(response, 404, { error: 'No such picture.' });
    return serveBytes(request, response, file, 'image/jpeg', false);
  }
  const entry = links.get(first);
  if (!entry) return sendJson(response, 404, { error: 'No such file.' });
  if (entry.expired || Date.now() > entry.expires) {
    response.writeHead(410, { 'Content-Type': 'text/plain' });
    return response.end('This link has expired.\n');
  }
  if (entry.type === 'text/vtt') {
    const bytes = entry.video.brokenTracks ? Buffer.alloc(64) : Buffer.from(webVtt(entry.source));
    return serveBytes(request, response, bytes, 'text/vtt', false);
  }
  const cutShort = switches.cutDownloads > 0;
  if (cutShort) switches.cutDownloads -= 1;
  return serveBytes(request, response, entry.source, entry.type, cutShort);
}

async function handleAdmin(request, response, url) {
  let text = '';
  for await (const chunk of request) text += chunk;
  const body = text ? JSON.parse(text) : {};
  const name = url.pathname.slice('/_admin/'.length);
  if (request.method === 'GET' && name === 'requests') return sendJson(response, 200, requests);
  if (request.method !== 'POST') return sendJson(response, 405, { error: 'POST only' });
  if (name === 'rate-limit') Object.assign(switches, { rateLimited: body.count ?? 1, resetSeconds: body.resetSeconds ?? 60 });
  else if (name === 'cut-downloads') switches.cutDownloads = body.count ?? 1;
  else if (name === 'expire-links') for (const entry of links.values()) entry.expired = true;
  else if (name === 'set-video') {
    // Changes a video's facts: `privacy`, `claimedSize` (the byte count its downloads announce in
    // the API) or `brokenTracks` (its text track links serve bytes that are no text).
    const video = videos.find((entry) => entry.id === body.id);
    if (!video) return sendJson(response, 404, { error: `no video ${body.id}` });
    const { id, ...facts } = body;
    Object.assign(video, facts);
  }
  else return sendJson(response, 404, { error: `no switch ${name}` });
  sendJson(response, 200, switches);
}

const server = http.createServer((request, response) => {
  const url = new URL(request.url, origin);
  const route = url.pathname.startsWith('/_admin/') ? 'admin'
    : url.pathname.startsWith('/_media/') || url.pathname.startsWith('/_pictures/') ? 'media' : 'api';
  if (route !== 'admin') requests.push({ method: request.method, path: url.pathname, query: url.search, range: request.headers.range ?? null });
  Promise.resolve()
    .then(() => (route === 'admin' ? handleAdmin : route === 'media' ? handleMedia : handleApi)(request, response, url))
    .catch((error) => {
      console.error(error);
      if (!response.headersSent) sendJson(response, 500, { error: 'Something strange occurred.', error_code: 1000 });
      else response.destroy();
    });
});

server.listen(0, '127.0.0.1', () => {
  origin = `http://127.0.0.1:${server.address().port}`;
  writeFileSync(path.join(dir, 'server.port'), String(server.address().port));
  console.log(`listening on ${origin}`);
});
