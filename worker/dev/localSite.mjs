// Runs the page Worker bundle locally: in workerd through Miniflare, with its bucket
// binding filled from a folder of objects keyed by their path in the folder. Tests use
// startWorker; a local preview uses startLocalSite, which serves the same folder as
// the media host and the Worker as the page host on one loopback port.
import { createReadStream, readFileSync } from 'node:fs';
import { mkdtemp, readFile, readdir, rm, stat, symlink, writeFile } from 'node:fs/promises';
import os from 'node:os';
import http from 'node:http';
import path from 'node:path';
import { createHash, randomBytes } from 'node:crypto';
import { createRequire } from 'node:module';
import { fileURLToPath } from 'node:url';

// The npm tools of the project live in tools/, not beside the bundle.
export const toolsRequire = createRequire(new URL('../../tools/package.json', import.meta.url));
const { Miniflare } = toolsRequire('miniflare');

export const defaultBundleDir = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '..');

// The headers that a video folder's objects carry in the bucket, chosen by suffix.
export function objectHeadersFor(key) {
  const base = key.split('/').pop();
  const immutable = 'public, max-age=31536000, immutable';
  if (key.startsWith('_vorlen/') || base === 'video.json') return { contentType: 'application/json', cacheControl: 'no-cache' };
  if (base.endsWith('.m3u8')) return { contentType: 'application/vnd.apple.mpegurl', cacheControl: 'public, max-age=300' };
  if (base.endsWith('.mpd')) return { contentType: 'application/dash+xml', cacheControl: 'public, max-age=300' };
  if (base.endsWith('.vtt')) return { contentType: 'text/vtt; charset=utf-8', cacheControl: immutable };
  if (base === 'poster.jpg') return { contentType: 'image/jpeg', cacheControl: 'public, max-age=300, s-maxage=86400' };
  if (/\.jpe?g$/.test(base)) return { contentType: 'image/jpeg', cacheControl: immutable };
  if (base.endsWith('.css')) return { contentType: 'text/css; charset=utf-8', cacheControl: immutable };
  if (base.endsWith('.woff2')) return { contentType: 'font/woff2', cacheControl: immutable };
  if (base.endsWith('.html')) return { contentType: 'text/html; charset=utf-8', cacheControl: 'no-cache' };
  if (base.endsWith('.json')) return { contentType: 'application/json', cacheControl: 'no-cache' };
  if (/^a_|audio/.test(key.split('/').slice(-2, -1)[0] ?? '')) return { contentType: 'audio/mp4', cacheControl: immutable };
  return { contentType: 'video/mp4', cacheControl: immutable };
}

// The folder of a FolderBucket: each object's bytes at objects/<key>, and its headers
// in .meta/<SHA-256 of the key, hex>.json. Spread the result into startWorker or
// startLocalSite.
export function folderBucketLayout(root) {
  return {
    objectsDir: path.join(root, 'objects'),
    headersFor(key) {
      const fallback = objectHeadersFor(key);
      const name = `${createHash('sha256').update(key, 'utf8').digest('hex')}.json`;
      try {
        const meta = JSON.parse(readFileSync(path.join(root, '.meta', name), 'utf8'));
        return { contentType: meta.contentType || fallback.contentType, cacheControl: meta.cacheControl || fallback.cacheControl };
      } catch {
        return fallback;
      }
    },
  };
}

// Every visible file under dir, keyed by its relative path with "/" separators.
export async function listObjectFiles(dir) {
  const found = new Map();
  async function walk(relative) {
    let entries;
    try {
      entries = await readdir(path.join(dir, relative), { withFileTypes: true });
    } catch (error) {
      if (error.code === 'ENOENT') return;
      throw error;
    }
    for (const entry of entries) {
      if (entry.name.startsWith('.')) continue;
      const key = relative ? `${relative}/${entry.name}` : entry.name;
      if (entry.isDirectory()) await walk(key);
      else if (entry.isFile()) {
        const info = await stat(path.join(dir, key));
        found.set(key, { file: path.join(dir, key), stamp: `${info.ino}:${info.size}:${info.mtimeMs}:${info.ctimeMs}` });
      }
    }
  }
  await walk('');
  return found;
}

// Keeps an R2 binding equal to a folder: each sync puts what is new or changed and
// deletes what is gone, so that a change in the folder shows on the next request.
export class BucketMirror {
  constructor(bucket, dir, headersFor = objectHeadersFor) {
    this.bucket = bucket;
    this.dir = dir;
    this.headersFor = headersFor;
    this.known = new Map();
    this.running = null;
  }

  sync() {
    // Requests that arrive together share one pass.
    this.running ??= this.pass().finally(() => { this.running = null; });
    return this.running;
  }

  async pass() {
    const now = await listObjectFiles(this.dir);
    for (const [key, info] of now) {
      const before = this.known.get(key);
      if (before && before.stamp === info.stamp) continue;
      const headers = this.headersFor(key);
      const data = await readFile(info.file);
      // The binding takes a plain ArrayBuffer across Miniflare's proxy, not a Buffer view.
      const bytes = data.buffer.slice(data.byteOffset, data.byteOffset + data.byteLength);
      await this.bucket.put(key, bytes, {
        httpMetadata: { contentType: headers.contentType, cacheControl: headers.cacheControl },
      });
    }
    const gone = [...this.known.keys()].filter((key) => !now.has(key));
    if (gone.length) await this.bucket.delete(gone);
    this.known = now;
  }
}

// Miniflare takes the assets' header rules only from a "_headers" file among them,
// while the bundle keeps them in its manifest: it gets a directory of links to the
// bundle's assets beside that file.
async function assetsWithHeaders(bundleDir, headers) {
  const dir = await mkdtemp(path.join(os.tmpdir(), 'vorlen-assets-'));
  const assetsDir = path.join(bundleDir, 'assets');
  for (const entry of await readdir(assetsDir)) {
    await symlink(path.join(assetsDir, entry), path.join(dir, entry));
  }
  if (headers) await writeFile(path.join(dir, '_headers'), headers);
  return dir;
}

export async function readManifest(bundleDir = defaultBundleDir) {
  return JSON.parse(await readFile(path.join(bundleDir, 'manifest.json'), 'utf8'));
}

// Starts the bundle in workerd. With objectsDir the bucket starts as a copy of it.
// The edge cache is off unless asked for, so that each request sees the bucket.
export async function startWorker({ bundleDir = defaultBundleDir, objectsDir, headersFor = objectHeadersFor, cache = false } = {}) {
  const manifest = await readManifest(bundleDir);
  const assetsDir = await assetsWithHeaders(bundleDir, manifest.headers);
  const mf = new Miniflare({
    modules: true,
    scriptPath: path.join(bundleDir, manifest.main_module),
    modulesRoot: bundleDir,
    compatibilityDate: manifest.compatibility_date,
    cf: false,
    cache,
    r2Buckets: [manifest.bucket_binding],
    kvNamespaces: [manifest.sessions_binding],
    bindings: { [manifest.challenge_key_binding]: randomBytes(32).toString('hex') },
    assets: {
      directory: assetsDir,
      routerConfig: { has_user_worker: true },
    },
  });
  await mf.ready;
  const bucket = await mf.getR2Bucket(manifest.bucket_binding);
  const mirror = objectsDir ? new BucketMirror(bucket, objectsDir, headersFor) : null;
  if (mirror) await mirror.sync();
  return {
    mf,
    bucket,
    mirror,
    manifest,
    fetch: (url, init) => mf.dispatchFetch(url, { redirect: 'manual', ...init }),
    async close() {
      await mf.dispose();
      await rm(assetsDir, { recursive: true, force: true });
    },
  };
}

function parseRange(header, size) {
  const match = /^bytes=(\d*)-(\d*)$/.exec(header.trim());
  if (!match || (match[1] === '' && match[2] === '')) return null;
  if (match[1] === '') {
    const length = Math.min(Number(match[2]), size);
    return length > 0 ? { start: size - length, end: size - 1 } : 'unsatisfiable';
  }
  const start = Number(match[1]);
  const end = match[2] === '' ? size - 1 : Math.min(Number(match[2]), size - 1);
  return start < size && start <= end ? { start, end } : 'unsatisfiable';
}

// The media host of a local site: the folder's objects with byte ranges, CORS and
// their cache headers; records and the system folder are refused, as the site's
// firewall rule refuses them.
async function serveMedia(request, response, objectsDir, headersFor) {
  const corsHeaders = {
    'Access-Control-Allow-Origin': request.headers.origin ?? '*',
    'Access-Control-Expose-Headers': 'Content-Length, Content-Range, Accept-Ranges, ETag',
    Vary: 'Origin',
  };
  if (request.method === 'OPTIONS') {
    response.writeHead(204, {
      ...corsHeaders,
      'Access-Control-Allow-Methods': 'GET, HEAD',
      'Access-Control-Allow-Headers': request.headers['access-control-request-headers'] ?? 'Range',
      'Access-Control-Max-Age': '86400',
    });
    return response.end();
  }
  if (request.method !== 'GET' && request.method !== 'HEAD') {
    response.writeHead(405, { Allow: 'GET, HEAD' });
    return response.end();
  }
  let key;
  try {
    key = decodeURIComponent(new URL(request.url, 'http://media.localhost').pathname).replace(/^\/+/, '');
  } catch {
    response.writeHead(400);
    return response.end();
  }
  if (key.startsWith('_vorlen/') || key === 'video.json' || key.endsWith('/video.json')) {
    response.writeHead(403, { 'Content-Type': 'text/plain; charset=utf-8' });
    return response.end('Forbidden');
  }
  const parts = key.split('/');
  const file = path.join(objectsDir, ...parts);
  let info;
  try {
    if (parts.some((p) => p === '' || p === '.' || p === '..' || p.startsWith('.'))) throw new Error('hidden');
    info = await stat(file);
    if (!info.isFile()) throw new Error('not a file');
  } catch {
    response.writeHead(404, { ...corsHeaders, 'Content-Type': 'text/plain; charset=utf-8' });
    return response.end('Not found');
  }
  const headers = headersFor(key);
  const common = {
    ...corsHeaders,
    'Content-Type': headers.contentType,
    'Cache-Control': headers.cacheControl,
    'Accept-Ranges': 'bytes',
    ETag: `"${info.size.toString(16)}-${Math.floor(info.mtimeMs).toString(16)}"`,
    'Last-Modified': info.mtime.toUTCString(),
  };
  const range = request.headers.range ? parseRange(request.headers.range, info.size) : null;
  if (range === 'unsatisfiable') {
    response.writeHead(416, { ...common, 'Content-Range': `bytes */${info.size}` });
    return response.end();
  }
  const { start, end } = range ?? { start: 0, end: info.size - 1 };
  response.writeHead(range ? 206 : 200, {
    ...common,
    'Content-Length': String(Math.max(0, end - start + 1)),
    ...(range ? { 'Content-Range': `bytes ${start}-${end}/${info.size}` } : {}),
  });
  if (request.method === 'HEAD' || info.size === 0) return response.end();
  createReadStream(file, { start, end }).pipe(response);
}

async function servePage(request, response, worker, port) {
  await worker.mirror.sync();
  const headers = new Headers();
  for (const [name, value] of Object.entries(request.headers)) {
    if (name !== 'host' && typeof value === 'string') headers.set(name, value);
  }
  const answer = await worker.fetch(`http://localhost:${port}${request.url}`, { method: request.method, headers });
  const out = {};
  answer.headers.forEach((value, name) => { out[name] = value; });
  response.writeHead(answer.status, out);
  response.end(request.method === 'HEAD' ? undefined : Buffer.from(await answer.arrayBuffer()));
}

// Serves a local site on 127.0.0.1: Host media.localhost gets the folder's objects,
// every other host the page Worker. Browsers resolve *.localhost to loopback.
export async function startLocalSite({ objectsDir, port = 0, bundleDir = defaultBundleDir, headersFor = objectHeadersFor } = {}) {
  const worker = await startWorker({ bundleDir, objectsDir, headersFor });
  let boundPort = port;
  const server = http.createServer((request, response) => {
    const host = (request.headers.host ?? '').replace(/:\d+$/, '').toLowerCase();
    const handler = host === 'media.localhost'
      ? serveMedia(request, response, objectsDir, headersFor)
      : servePage(request, response, worker, boundPort);
    handler.catch((error) => {
      if (!response.headersSent) response.writeHead(500, { 'Content-Type': 'text/plain; charset=utf-8' });
      response.end(`The local site failed: ${error.message}`);
    });
  });
  await new Promise((resolve, reject) => {
    server.once('error', reject);
    server.listen(port, '127.0.0.1', resolve);
  });
  boundPort = server.address().port;
  return {
    port: boundPort,
    pageOrigin: `http://localhost:${boundPort}`,
    mediaOrigin: `http://media.localhost:${boundPort}`,
    worker,
    async close() {
      server.closeAllConnections();
      await new Promise((resolve) => server.close(resolve));
      await worker.close();
    },
  };
}
