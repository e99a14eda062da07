import assert from 'node:assert/strict';
import http from 'node:http';
import { readFileSync } from 'node:fs';
import { mkdir, mkdtemp, readdir, readFile, readlink, rm, symlink, writeFile } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { startLocalSite, startWorker } from '../dev/localSite.mjs';
import { writeObject } from '../dev/folderBucket.mjs';
import { videoRecord } from './helpers.mjs';

const immutable = { contentType: 'video/mp4', cacheControl: 'public, max-age=31536000, immutable' };
const json = { contentType: 'application/json', cacheControl: 'no-cache' };
const headerCases = JSON.parse(readFileSync(new URL('../../testing/contract/object-headers.json', import.meta.url), 'utf8'));

let root;
let outside;
let site;

function request(host, target, { method = 'GET', headers = {} } = {}) {
  return new Promise((resolve, reject) => {
    const req = http.request({ host: '127.0.0.1', port: site.port, path: target, method, headers: { host: `${host}:${site.port}`, ...headers } }, (res) => {
      const chunks = [];
      res.on('data', (c) => chunks.push(c));
      res.on('end', () => resolve({ status: res.statusCode, headers: res.headers, body: Buffer.concat(chunks) }));
    });
    req.on('error', reject);
    req.end();
  });
}

// Puts bytes where a folder bucket keeps them, and then a link in their place.
async function linkInPlaceOf(key, target) {
  await writeObject(root, key, 'placeholder', immutable);
  const file = path.join(root, 'objects', ...key.split('/'));
  await rm(file);
  await symlink(target, file);
}

before(async () => {
  root = await mkdtemp(path.join(os.tmpdir(), 'vorlen-local-site-'));
  outside = await mkdtemp(path.join(os.tmpdir(), 'vorlen-outside-'));
  await writeObject(root, '_vorlen/site.json', JSON.stringify({
    version: 1, media_host: 'media.localhost', page_host: 'localhost', template: 'dark',
    worker: { name: 'vorlen-pages', version: '1.0.0' },
  }), json);
  await writeObject(root, 'harbour/video.json', JSON.stringify(videoRecord()), json);
  await writeObject(root, 'harbour/master.m3u8', '#EXTM3U\n', { contentType: 'application/vnd.apple.mpegurl', cacheControl: 'public, max-age=300' });
  await writeObject(root, 'harbour/v_360/chunk-1.mp4', Buffer.from([...Array(100).keys()]), immutable);
  await writeObject(root, 'harbour/poster.jpg', 'jpeg', { contentType: 'image/jpeg', cacheControl: 'public, max-age=7' });
  for (const { path: name, contentType, cacheControl } of headerCases) {
    await writeObject(root, `table/${name}`, 'x', { contentType, cacheControl });
  }
  await mkdir(path.join(root, 'objects/harbour'), { recursive: true });
  await writeFile(path.join(root, 'objects/harbour/unrecorded.mp4'), 'no record');
  await writeFile(path.join(outside, 'secret.txt'), 'outside the site');
  await linkInPlaceOf('harbour/leak.mp4', path.join(outside, 'secret.txt'));
  await linkInPlaceOf('harbour/inside.mp4', 'v_360/chunk-1.mp4');
  await writeObject(root, 'linked/secret.txt', 'placeholder', immutable);
  await rm(path.join(root, 'objects/linked'), { recursive: true });
  await symlink(outside, path.join(root, 'objects/linked'));
  site = await startLocalSite({ root });
});

after(async () => {
  await site.close();
  await rm(root, { recursive: true, force: true });
  await rm(outside, { recursive: true, force: true });
});

describe('media host', () => {
  test('serves objects whole and in byte ranges, with the headers of their records', async () => {
    const whole = await request('media.localhost', '/harbour/v_360/chunk-1.mp4');
    assert.equal(whole.status, 200);
    assert.equal(whole.body.length, 100);
    assert.equal(whole.headers['content-type'], 'video/mp4');
    assert.equal(whole.headers['cache-control'], 'public, max-age=31536000, immutable');
    assert.equal(whole.headers['accept-ranges'], 'bytes');
    assert.match(whole.headers.etag, /^"[0-9a-f]{32}"$/);

    const part = await request('media.localhost', '/harbour/v_360/chunk-1.mp4', { headers: { range: 'bytes=10-19' } });
    assert.equal(part.status, 206);
    assert.equal(part.headers['content-range'], 'bytes 10-19/100');
    assert.deepEqual([...part.body], [10, 11, 12, 13, 14, 15, 16, 17, 18, 19]);
    const tail = await request('media.localhost', '/harbour/v_360/chunk-1.mp4', { headers: { range: 'bytes=-5' } });
    assert.deepEqual([...tail.body], [95, 96, 97, 98, 99]);
    const open = await request('media.localhost', '/harbour/v_360/chunk-1.mp4', { headers: { range: 'bytes=98-' } });
    assert.equal(open.headers['content-range'], 'bytes 98-99/100');
    const beyond = await request('media.localhost', '/harbour/v_360/chunk-1.mp4', { headers: { range: 'bytes=100-' } });
    assert.equal(beyond.status, 416);
    assert.equal(beyond.headers['content-range'], 'bytes */100');

    assert.equal((await request('media.localhost', '/harbour/poster.jpg')).headers['cache-control'], 'public, max-age=7');
    for (const { path: name, contentType, cacheControl } of headerCases) {
      const served = await request('media.localhost', `/table/${encodeURI(name)}`);
      if (name === 'video.json' || name.endsWith('/video.json')) {
        assert.equal(served.status, 403, name);
        continue;
      }
      assert.equal(served.status, 200, name);
      assert.deepEqual([served.headers['content-type'], served.headers['cache-control']], [contentType, cacheControl], name);
    }
  });

  test('answers CORS for the site\'s own pages only', async () => {
    const own = await request('media.localhost', '/harbour/master.m3u8', { headers: { origin: site.pageOrigin } });
    assert.equal(own.headers['access-control-allow-origin'], site.pageOrigin);
    assert.equal(own.headers.vary, 'Origin');
    const preflight = await request('media.localhost', '/harbour/master.m3u8', {
      method: 'OPTIONS', headers: { origin: site.pageOrigin, 'access-control-request-headers': 'range' },
    });
    assert.equal(preflight.status, 204);
    assert.equal(preflight.headers['access-control-allow-origin'], site.pageOrigin);
    assert.equal(preflight.headers['access-control-allow-headers'], 'range');

    for (const origin of ['https://elsewhere.example', 'http://localhost:1', `http://127.0.0.1:${site.port}`, 'null']) {
      const other = await request('media.localhost', '/harbour/master.m3u8', { headers: { origin } });
      assert.equal(other.status, 200, origin);
      assert.equal(other.headers['access-control-allow-origin'], undefined, origin);
      const otherPreflight = await request('media.localhost', '/harbour/master.m3u8', {
        method: 'OPTIONS', headers: { origin, 'access-control-request-headers': 'range' },
      });
      assert.equal(otherPreflight.status, 403, origin);
      assert.equal(otherPreflight.headers['access-control-allow-origin'], undefined, origin);
    }
  });

  test('refuses records and the system folder, and finds no object without its record', async () => {
    for (const key of ['/harbour/video.json', '/_vorlen/site.json', '/_vorlen/', '/%5Fvorlen/site.json', '/harbour/../_vorlen/site.json']) {
      assert.equal((await request('media.localhost', key)).status, 403, key);
    }
    for (const key of ['/harbour/unrecorded.mp4', '/harbour/', '/nothing.mp4', '/harbour//master.m3u8']) {
      assert.equal((await request('media.localhost', key)).status, 404, key);
    }
  });

  test('follows no symbolic link, so nothing outside the site\'s folder is served', async () => {
    for (const key of ['/harbour/leak.mp4', '/linked/secret.txt', '/harbour/inside.mp4']) {
      const answer = await request('media.localhost', key);
      assert.equal(answer.status, 404, key);
      assert.doesNotMatch(answer.body.toString(), /outside the site/, key);
    }
  });
});

describe('page host', () => {
  test('runs the Worker over the folder and follows the folder as it changes', async () => {
    const page = await request('localhost', '/harbour');
    assert.equal(page.status, 200);
    const html = page.body.toString();
    assert.match(html, /Harbour at Dawn/);
    assert.match(html, /data-theme="dark"/);
    assert.match(html, new RegExp(`"hls":"http://media\\.localhost:${site.port}/harbour/master\\.m3u8"`));
    assert.equal((await request('localhost', '/_assets/site.css')).status, 200);

    await writeObject(root, 'harbour/video.json', JSON.stringify(videoRecord({ title: 'Harbour at Dusk' })), json);
    assert.match((await request('localhost', '/harbour')).body.toString(), /Harbour at Dusk/);
    await writeObject(root, 'meadow/master.m3u8', '#EXTM3U\n', immutable);
    assert.equal((await request('localhost', '/meadow')).status, 200);
    await rm(path.join(root, 'objects/meadow'), { recursive: true });
    assert.equal((await request('localhost', '/meadow')).status, 404);
  });

  test('gives the Worker each object with the headers of its record, and nothing without one or behind a link', async () => {
    await site.worker.mirror.sync();
    const { bucket } = site.worker;
    for (const { path: name, contentType, cacheControl } of headerCases) {
      const object = await bucket.head(`table/${name}`);
      assert.deepEqual([object?.httpMetadata.contentType, object?.httpMetadata.cacheControl], [contentType, cacheControl], name);
    }
    for (const key of ['harbour/unrecorded.mp4', 'harbour/leak.mp4', 'harbour/inside.mp4', 'linked/secret.txt']) {
      assert.equal(await bucket.head(key), null, key);
    }
  });
});

// Where a process and all its descendants listen, as "tcp 127.0.0.1:PORT", read from
// /proc: the sockets that their file descriptors hold, looked up in the kernel's tables
// of listening TCP and bound UDP sockets.
async function listeningAddresses(pid) {
  const parents = new Map();
  for (const entry of await readdir('/proc')) {
    if (!/^\d+$/.test(entry)) continue;
    const stat = await readFile(`/proc/${entry}/stat`, 'utf8').catch(() => null);
    if (stat) parents.set(Number(entry), Number(stat.slice(stat.lastIndexOf(')') + 2).split(' ')[1]));
  }
  const family = new Set([pid]);
  for (let size = 0; size !== family.size;) {
    size = family.size;
    for (const [child, parent] of parents) if (family.has(parent)) family.add(child);
  }
  const sockets = new Set();
  for (const member of family) {
    for (const fd of await readdir(`/proc/${member}/fd`).catch(() => [])) {
      const target = await readlink(`/proc/${member}/fd/${fd}`).catch(() => '');
      const inode = /^socket:\[(\d+)\]$/.exec(target)?.[1];
      if (inode) sockets.add(inode);
    }
  }
  const addresses = [];
  for (const [table, listening] of [['tcp', '0A'], ['tcp6', '0A'], ['udp', '07'], ['udp6', '07']]) {
    for (const line of (await readFile(`/proc/net/${table}`, 'utf8')).trim().split('\n').slice(1)) {
      const [, local, , state, , , , , , inode] = line.trim().split(/\s+/);
      if (state !== listening || !sockets.has(inode)) continue;
      const [host, port] = local.split(':');
      const address = table.endsWith('6') ? host : [3, 2, 1, 0].map((i) => parseInt(host.slice(2 * i, 2 * i + 2), 16)).join('.');
      addresses.push(`${table} ${address}:${parseInt(port, 16)}`);
    }
  }
  return addresses;
}

test('nothing of the local site listens beyond loopback', async () => {
  const addresses = await listeningAddresses(process.pid);
  assert.ok(addresses.length >= 2, `the site and workerd listen: ${addresses}`);
  for (const address of addresses) assert.match(address, /^(tcp|udp) 127\.0\.0\.1:\d+$/);
});

test('a viewer file that the Worker writes goes back into the folder, unless the folder changed it too', async () => {
  const folder = await mkdtemp(path.join(os.tmpdir(), 'vorlen-write-back-'));
  const worker = await startWorker({ root: folder }).catch(async (error) => { await rm(folder, { recursive: true }); throw error; });
  try {
    const key = (name) => `_vorlen/viewers/${name}.json`;
    for (const name of ['redeemed', 'renamed']) await writeObject(folder, key(name), '{"invite": 1}', json);
    await worker.mirror.sync();
    for (const name of ['redeemed', 'renamed']) {
      await worker.bucket.put(key(name), '{"passkey": 1}', { httpMetadata: json });
    }
    await writeObject(folder, key('renamed'), '{"invite": 2}', json);
    await worker.mirror.writeBack('_vorlen/viewers/');
    const file = (name) => readFile(path.join(folder, 'objects', key(name)), 'utf8');
    assert.equal(await file('redeemed'), '{"passkey": 1}');
    assert.equal(await file('renamed'), '{"invite": 2}', 'the application\'s change wins');
    await worker.mirror.sync();
    assert.equal(await (await worker.bucket.get(key('renamed'))).text(), '{"invite": 2}');
    assert.equal(await (await worker.bucket.get(key('redeemed'))).text(), '{"passkey": 1}');
  } finally {
    await worker.close();
    await rm(folder, { recursive: true, force: true });
  }
});
