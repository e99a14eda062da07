// Runs the page Worker bundle locally: in workerd through Miniflare, with its bucket
// binding filled from a folder bucket's folder (folderBucket.mjs), each object with
// the headers of its record. Tests use startWorker; a local preview uses
// startLocalSite, which serves the same folder as the media host and the Worker as
// the page host on one loopback port.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import { mkdtemp, readdir, readFile, rm, symlink, writeFile } from 'node:fs/promises';
import os from 'node:os';
import http from 'node:http';
import path from 'node:path';
import { randomBytes } from 'node:crypto';
import { pipeline, Readable } from 'node:stream';
import { createRequire } from 'node:module';
import { fileURLToPath } from 'node:url';
import { layoutOf, listStoredObjects, openStoredObject, writeObject } from './folderBucket.mjs';

// The npm tools of a checkout live in its tools/, not beside the bundle. An installation
// keeps the ones the preview needs in <prefix>/lib/vorlen/node_modules, since the bundle
// lies in <prefix>/share/vorlen/worker.
const checkoutTools = new URL('../../tools/package.json', import.meta.url);
const installedModules = new URL('../../../../lib/vorlen/node_modules/', import.meta.url);
export const toolsRequire = createRequire(existsSync(checkoutTools) || !existsSync(installedModules)
  ? checkoutTools
  : new URL('../package.json', installedModules));
const { Miniflare } = toolsRequire('miniflare');

const viewersFolder = '_vorlen/viewers/';

export const defaultBundleDir = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '..');

// Runs `change` while holding the folder bucket's lock as its application takes it
// for a change (flock, exclusive), so that neither sees the other's half-done work.
async function withFolderLock(root, change) {
  const holder = spawn('flock', ['--exclusive', path.join(root, '.lock'), 'sh', '-c', 'echo locked; exec cat'],
    { stdio: ['pipe', 'pipe', 'inherit'] });
  const [started] = await Promise.race([once(holder.stdout, 'data'), once(holder, 'exit').then(() => [null])]);
  if (started === null) throw new Error('could not lock the local site\'s folder');
  try {
    return await change();
  } finally {
    holder.stdin.end();
    await once(holder, 'exit');
  }
}

// Keeps an R2 binding equal to a folder bucket: each sync puts what is new or changed,
// with the headers of its record, and deletes what is gone, so that a change in the
// folder shows on the next request. What the Worker writes itself (a viewer's file
// when an invite is redeemed) goes back into the folder.
export class BucketMirror {
  constructor(bucket, root) {
    this.bucket = bucket;
    this.root = root;
    this.known = new Map();
    this.etags = new Map();
    this.running = null;
  }

  sync() {
    // Requests that arrive together share one pass.
    this.running ??= this.pass().finally(() => { this.running = null; });
    return this.running;
  }

  async pass() {
    const now = await listStoredObjects(this.root);
    for (const [key, stamp] of now) {
      if (this.known.get(key) === stamp) continue;
      const stored = await openStoredObject(this.root, key);
      if (!stored) {
        now.delete(key);
        continue;
      }
      const data = await stored.handle.readFile().finally(() => stored.handle.close());
      // The binding takes a plain ArrayBuffer across Miniflare's proxy, not a Buffer view.
      const bytes = data.buffer.slice(data.byteOffset, data.byteOffset + data.byteLength);
      this.etags.set(key, (await this.bucket.put(key, bytes, { httpMetadata: stored.headers })).etag);
    }
    const gone = [...this.known.keys()].filter((key) => !now.has(key));
    if (gone.length) await this.bucket.delete(gone);
    for (const key of gone) this.etags.delete(key);
    this.known = now;
  }

  // Writes into the folder each object under `prefix` that the Worker changed, unless
  // the folder's copy changed too since the last sync: then the folder's wins, as a
  // conditional write in the bucket would have it, and the next sync puts it back.
  async writeBack(prefix) {
    await this.running;
    const changed = (await this.bucket.list({ prefix })).objects
      .filter((object) => this.etags.has(object.key) && this.etags.get(object.key) !== object.etag);
    if (changed.length === 0) return;
    await withFolderLock(this.root, async () => {
      for (const { key } of changed) {
        const recordFile = path.join(this.root, layoutOf(key).record);
        const record = await readFile(recordFile, 'utf8').catch(() => null);
        if (record === null || record !== this.known.get(key)) continue;
        const object = await this.bucket.get(key);
        await writeObject(this.root, key, await object.arrayBuffer(), object.httpMetadata);
        this.known.set(key, await readFile(recordFile, 'utf8'));
        this.etags.set(key, object.etag);
      }
    });
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

// Starts the bundle in workerd, on loopback only. With root (a folder bucket's folder)
// the bucket starts as a copy of it. The edge cache is off unless asked for, so that
// each request sees the bucket.
export async function startWorker({ bundleDir = defaultBundleDir, root, cache = false } = {}) {
  const manifest = await readManifest(bundleDir);
  const assetsDir = await assetsWithHeaders(bundleDir, manifest.headers);
  const mf = new Miniflare({
    host: '127.0.0.1',
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
  const mirror = root ? new BucketMirror(bucket, root) : null;
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

// The media host of a local site: the folder bucket's objects with byte ranges, the
// headers of their records, and CORS for the site's own pages; records and the system
// folder are refused, as the site's firewall rule refuses them.
async function serveMedia(request, response, root, pageOrigin) {
  const ownPage = request.headers.origin === pageOrigin;
  const common = {
    ...(ownPage ? {
      'Access-Control-Allow-Origin': pageOrigin,
      'Access-Control-Expose-Headers': 'Content-Length, Content-Range, Accept-Ranges, ETag',
    } : {}),
    Vary: 'Origin',
  };
  if (request.method === 'OPTIONS') {
    response.writeHead(ownPage ? 204 : 403, ownPage ? {
      ...common,
      'Access-Control-Allow-Methods': 'GET, HEAD',
      'Access-Control-Allow-Headers': request.headers['access-control-request-headers'] ?? 'Range',
      'Access-Control-Max-Age': '86400',
    } : common);
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
  const stored = await openStoredObject(root, key);
  if (!stored) {
    response.writeHead(404, { ...common, 'Content-Type': 'text/plain; charset=utf-8' });
    return response.end('Not found');
  }
  const { handle, info } = stored;
  const headers = {
    ...common,
    'Content-Type': stored.headers.contentType,
    'Cache-Control': stored.headers.cacheControl,
    'Accept-Ranges': 'bytes',
    ...(stored.etag ? { ETag: stored.etag } : {}),
    'Last-Modified': info.mtime.toUTCString(),
  };
  const range = request.headers.range ? parseRange(request.headers.range, info.size) : null;
  if (range === 'unsatisfiable') {
    await handle.close();
    response.writeHead(416, { ...headers, 'Content-Range': `bytes */${info.size}` });
    return response.end();
  }
  const { start, end } = range ?? { start: 0, end: info.size - 1 };
  response.writeHead(range ? 206 : 200, {
    ...headers,
    'Content-Length': String(Math.max(0, end - start + 1)),
    ...(range ? { 'Content-Range': `bytes ${start}-${end}/${info.size}` } : {}),
  });
  if (request.method === 'HEAD' || info.size === 0) {
    await handle.close();
    return response.end();
  }
  pipeline(handle.createReadStream({ start, end }), response, () => {});
}

async function servePage(request, response, worker, port) {
  await worker.mirror.sync();
  const headers = new Headers();
  for (const [name, value] of Object.entries(request.headers)) {
    if (name !== 'host' && typeof value === 'string') headers.set(name, value);
  }
  const body = request.method === 'POST' ? await new Response(Readable.toWeb(request)).arrayBuffer() : undefined;
  const answer = await worker.fetch(`http://localhost:${port}${request.url}`, { method: request.method, headers, body });
  // A viewer who made a passkey shows in the application's list of the site's viewers.
  if (request.method === 'POST') await worker.mirror.writeBack(viewersFolder);
  const out = {};
  answer.headers.forEach((value, name) => { out[name] = value; });
  response.writeHead(answer.status, out);
  response.end(request.method === 'HEAD' ? undefined : Buffer.from(await answer.arrayBuffer()));
}

// Serves a local site on 127.0.0.1: Host media.localhost gets the folder bucket's
// objects, every other host the page Worker. Browsers resolve *.localhost to loopback.
export async function startLocalSite({ root, port = 0, bundleDir = defaultBundleDir } = {}) {
  const worker = await startWorker({ bundleDir, root });
  let boundPort = port;
  const server = http.createServer((request, response) => {
    const host = (request.headers.host ?? '').replace(/:\d+$/, '').toLowerCase();
    const handler = host === 'media.localhost'
      ? serveMedia(request, response, root, `http://localhost:${boundPort}`)
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
