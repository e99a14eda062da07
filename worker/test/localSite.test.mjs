import assert from 'node:assert/strict';
import http from 'node:http';
import { mkdir, mkdtemp, rm, writeFile } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { createHash } from 'node:crypto';
import { folderBucketLayout, startLocalSite } from '../dev/localSite.mjs';
import { videoRecord } from './helpers.mjs';

let root;
let dir;
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

async function writeObject(key, content) {
  const file = path.join(dir, ...key.split('/'));
  await mkdir(path.dirname(file), { recursive: true });
  await writeFile(file, content);
}

before(async () => {
  root = await mkdtemp(path.join(os.tmpdir(), 'vorlen-local-site-'));
  dir = path.join(root, 'objects');
  await writeObject('_vorlen/site.json', JSON.stringify({
    version: 1, media_host: 'media.localhost', page_host: 'localhost', template: 'dark',
    worker: { name: 'vorlen-pages', version: '1.0.0' },
  }));
  await writeObject('harbour/video.json', JSON.stringify(videoRecord()));
  await writeObject('harbour/master.m3u8', '#EXTM3U\n');
  await writeObject('harbour/v_360/chunk-1.mp4', Buffer.from([...Array(100).keys()]));
  await writeObject('harbour/.hidden', 'not an object');
  await writeObject('harbour/poster.jpg', 'jpeg');
  const metaName = `${createHash('sha256').update('harbour/poster.jpg').digest('hex')}.json`;
  await mkdir(path.join(root, '.meta'));
  await writeFile(path.join(root, '.meta', metaName), JSON.stringify({ key: 'harbour/poster.jpg', contentType: 'image/jpeg', cacheControl: 'public, max-age=7' }));
  site = await startLocalSite(folderBucketLayout(root));
});

after(async () => {
  await site.close();
  await rm(root, { recursive: true, force: true });
});

describe('media host', () => {
  test('serves objects whole and in byte ranges, with their headers and CORS', async () => {
    const whole = await request('media.localhost', '/harbour/v_360/chunk-1.mp4', { headers: { origin: 'http://localhost:1' } });
    assert.equal(whole.status, 200);
    assert.equal(whole.body.length, 100);
    assert.equal(whole.headers['content-type'], 'video/mp4');
    assert.equal(whole.headers['cache-control'], 'public, max-age=31536000, immutable');
    assert.equal(whole.headers['access-control-allow-origin'], 'http://localhost:1');
    assert.equal(whole.headers['accept-ranges'], 'bytes');

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

    const playlist = await request('media.localhost', '/harbour/master.m3u8');
    assert.equal(playlist.headers['content-type'], 'application/vnd.apple.mpegurl');
    assert.equal(playlist.headers['cache-control'], 'public, max-age=300');
    const poster = await request('media.localhost', '/harbour/poster.jpg');
    assert.equal(poster.headers['cache-control'], 'public, max-age=7', 'the headers recorded with the object win');

    const preflight = await request('media.localhost', '/harbour/master.m3u8', {
      method: 'OPTIONS', headers: { origin: 'http://localhost:1', 'access-control-request-headers': 'range' },
    });
    assert.equal(preflight.status, 204);
    assert.equal(preflight.headers['access-control-allow-headers'], 'range');
  });

  test('refuses records and the system folder, and finds no hidden or missing files', async () => {
    for (const key of ['/harbour/video.json', '/_vorlen/site.json', '/_vorlen/', '/%5Fvorlen/site.json']) {
      assert.equal((await request('media.localhost', key)).status, 403, key);
    }
    for (const key of ['/harbour/.hidden', '/harbour/', '/harbour/../_vorlen/site.json', '/nothing.mp4']) {
      assert.notEqual((await request('media.localhost', key)).status, 200, key);
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

    await writeObject('harbour/video.json', JSON.stringify(videoRecord({ title: 'Harbour at Dusk' })));
    assert.match((await request('localhost', '/harbour')).body.toString(), /Harbour at Dusk/);
    await writeObject('meadow/master.m3u8', '#EXTM3U\n');
    assert.equal((await request('localhost', '/meadow')).status, 200);
    await rm(path.join(dir, 'meadow'), { recursive: true });
    assert.equal((await request('localhost', '/meadow')).status, 404);
  });
});
