// The local Vimeo, checked with Vimeo's own Node library: a client that nobody here wrote
// reads the account, pages through the videos, reads a video with its files and its text
// tracks. Plain fetches check what the library does not reach: byte ranges, downloads cut
// short, expired links, scopes and the rate limit.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdtemp, readFile, rm } from 'node:fs/promises';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { promisify } from 'node:util';

const toolsRequire = createRequire(new URL('../../../tools/package.json', import.meta.url));
const { Vimeo } = toolsRequire('@vimeo/vimeo');
const run = promisify(execFile);
const script = (name) => new URL(`../${name}`, import.meta.url).pathname;
const fixture = JSON.parse(await readFile(script('fixture.json'), 'utf8'));
const tokenWith = (...scopes) => fixture.tokens.find((token) => token.scopes.join() === scopes.join()).value;

let dir;
let api;
let token;

before(async () => {
  dir = await mkdtemp(path.join(os.tmpdir(), 'vorlen-vimeo-'));
  const { stdout } = await run(script('start'), [dir], { env: { ...process.env, VORLEN_VIMEO_OWNER: String(process.pid) } });
  const lines = Object.fromEntries(stdout.trim().split('\n').map((line) => [line.slice(0, line.indexOf('=')), line.slice(line.indexOf('=') + 1)]));
  ({ api, token } = lines);
});

after(async () => {
  await run(script('stop'), [dir]);
  await rm(dir, { recursive: true, force: true });
});

// Vimeo's library, pointed at the stand-in; the answer is { statusCode, body, headers }.
function sdkGet(pathAndQuery, accessToken = token) {
  const { hostname, port, protocol } = new URL(api);
  return new Vimeo('client-id', 'client-secret', accessToken).request({ method: 'GET', path: pathAndQuery, hostname, port, protocol });
}

const bearer = (accessToken = token) => ({ Authorization: `bearer ${accessToken}`, Accept: 'application/vnd.vimeo.*+json;version=3.4' });
const get = (pathAndQuery, accessToken) => fetch(`${api}${pathAndQuery}`, { headers: bearer(accessToken) });
const admin = (name, body = {}) => fetch(`${api}/_admin/${name}`, { method: 'POST', body: JSON.stringify(body) });

const withFiles = fixture.videos[0];

async function sourceDownload() {
  const { body } = await sdkGet(`/videos/${withFiles.id}?fields=download`);
  return body.download.find((entry) => entry.quality === 'source');
}

describe('an account read through the library', () => {
  test('the account, and every video in pages of a hundred', async () => {
    const { body: me, headers } = await sdkGet('/me?fields=uri,name,link,account');
    assert.deepEqual(me, { uri: `/users/${fixture.account.id}`, name: fixture.account.name, link: fixture.account.link, account: 'pro' });
    assert.match(headers['x-ratelimit-reset'], /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\+00:00$/);
    assert.ok(Number(headers['x-ratelimit-remaining']) < Number(headers['x-ratelimit-limit']));

    const ids = [];
    let next = '/me/videos?fields=uri,name,created_time&sort=date&direction=desc&per_page=100&page=1';
    let pages = 0;
    while (next) {
      const { body } = await sdkGet(next);
      assert.equal(body.total, fixture.generated.count + fixture.videos.length);
      assert.equal(body.per_page, 100);
      assert.equal(body.paging.first, '/me/videos?fields=uri%2Cname%2Ccreated_time&sort=date&direction=desc&per_page=100&page=1');
      assert.match(body.paging.last, /page=3$/);
      ids.push(...body.data.map((video) => video.uri.slice('/videos/'.length)));
      next = body.paging.next;
      pages += 1;
    }
    assert.equal(pages, 3);
    assert.equal(new Set(ids).size, fixture.generated.count + fixture.videos.length);
    assert.equal(ids[0], fixture.videos.at(-1).id, 'the newest video comes first');
  });

  test('a video with its download links, picture sizes and text tracks', async () => {
    const { body: video } = await sdkGet(`/videos/${withFiles.id}`);
    assert.equal(video.uri, `/videos/${withFiles.id}`);
    assert.equal(video.name, withFiles.name);
    assert.equal(video.duration, withFiles.duration);
    assert.equal(video.privacy.view, 'anybody');
    assert.equal(video.status, 'available');
    assert.equal(video.metadata.connections.texttracks.total, withFiles.texttracks.length);
    assert.deepEqual(video.files.map(({ quality, rendition, type, width, height }) => ({ quality, rendition, type, width, height })),
      [{ quality: 'sd', rendition: '180p', type: 'video/mp4', width: 320, height: 180 }]);
    assert.deepEqual(video.download.map((entry) => entry.quality), ['source', 'sd']);
    assert.ok(Date.parse(video.download[0].expires) > Date.now());

    const clip = await fetch(video.download[0].link);
    assert.equal(clip.status, 200);
    assert.equal(Number(clip.headers.get('content-length')), video.download[0].size);
    assert.equal((await clip.arrayBuffer()).byteLength, video.download[0].size);
    const picture = await fetch(video.pictures.sizes.at(-1).link);
    assert.equal(picture.headers.get('content-type'), 'image/jpeg');
    assert.deepEqual([...new Uint8Array(await picture.arrayBuffer()).subarray(0, 2)], [0xff, 0xd8]);

    const { body: tracks } = await sdkGet(`/videos/${withFiles.id}/texttracks?per_page=100`);
    assert.equal(tracks.total, withFiles.texttracks.length);
    assert.deepEqual(tracks.data.map(({ uri, active, type, language, name }) => ({ uri, active, type, language, name })),
      withFiles.texttracks.map(({ id, active, type, language, name }) => ({ uri: `/videos/${withFiles.id}/texttracks/${id}`, active, type, language, name })));
    const vtt = await (await fetch(tracks.data[0].link)).text();
    assert.match(vtt, /^WEBVTT\n\n1\n00:00:00.000 --> 00:00:01.000\nBoats leave the harbour.\n/);
  });

  test('a bad token is refused with Vimeo’s error body', async () => {
    await assert.rejects(sdkGet('/me', 'not-a-token'), (error) => {
      const body = JSON.parse(error.message);
      assert.equal(body.error_code, 8000);
      assert.equal(body.error, 'You must provide a valid authenticated access token.');
      assert.equal(typeof body.developer_message, 'string');
      return true;
    });
  });
});

describe('scopes', () => {
  const privateVideo = fixture.videos.find((video) => video.privacy === 'nobody');

  test('without private, private videos are neither listed nor found', async () => {
    const list = await (await get('/me/videos?per_page=100&fields=privacy.view', tokenWith('public'))).json();
    assert.ok(list.total > 0 && list.total < fixture.generated.count);
    assert.ok(list.data.every((video) => video.privacy.view === 'anybody'));
    const response = await get(`/videos/${privateVideo.id}`, tokenWith('public'));
    assert.equal(response.status, 404);
    assert.equal((await response.json()).error_code, 5000);
    assert.equal((await get(`/videos/${privateVideo.id}`)).status, 200);
  });

  test('without video_files there are no files and no download links', async () => {
    const video = await (await get(`/videos/${privateVideo.id}`, tokenWith('public', 'private'))).json();
    assert.equal(video.name, privateVideo.name);
    assert.ok(!('files' in video) && !('download' in video));
  });
});

describe('downloads', () => {
  test('byte ranges', async () => {
    const { link } = await sourceDownload();
    const whole = Buffer.from(await (await fetch(link)).arrayBuffer());
    const part = await fetch(link, { headers: { Range: 'bytes=100-199' } });
    assert.equal(part.status, 206);
    assert.equal(part.headers.get('content-range'), `bytes 100-199/${whole.length}`);
    assert.equal(part.headers.get('accept-ranges'), 'bytes');
    assert.deepEqual(Buffer.from(await part.arrayBuffer()), whole.subarray(100, 200));
    const tail = await fetch(link, { headers: { Range: `bytes=${whole.length - 10}-` } });
    assert.deepEqual(Buffer.from(await tail.arrayBuffer()), whole.subarray(whole.length - 10));
    const beyond = await fetch(link, { headers: { Range: `bytes=${whole.length}-` } });
    assert.equal(beyond.status, 416);
    assert.equal(beyond.headers.get('content-range'), `bytes */${whole.length}`);
  });

  test('a download cut short announces the whole length and ends after half of it', async () => {
    const { link, size } = await sourceDownload();
    assert.equal((await admin('cut-downloads', { count: 1 })).status, 200);
    const response = await fetch(link);
    assert.equal(response.status, 200);
    assert.equal(Number(response.headers.get('content-length')), size);
    let received = 0;
    await assert.rejects(async () => { for await (const chunk of response.body) received += chunk.length; });
    assert.equal(received, Math.floor(size / 2));
    assert.equal((await (await fetch(link)).arrayBuffer()).byteLength, size, 'only the next download is cut');
  });

  test('an expired link answers 410, and reading the video again gives a fresh one', async () => {
    const { link } = await sourceDownload();
    assert.equal((await admin('expire-links')).status, 200);
    assert.equal((await fetch(link)).status, 410);
    assert.equal((await fetch((await sourceDownload()).link)).status, 200);
  });
});

test('the rate limit switch answers 429 with a reset time, then lets requests through', async () => {
  assert.equal((await admin('rate-limit', { count: 2, resetSeconds: 30 })).status, 200);
  for (let attempt = 0; attempt < 2; attempt += 1) {
    const response = await get('/me');
    assert.equal(response.status, 429);
    const reset = Date.parse(response.headers.get('x-ratelimit-reset'));
    assert.ok(reset > Date.now() + 20000 && reset <= Date.now() + 31000);
    assert.equal(typeof (await response.json()).error, 'string');
  }
  assert.equal((await get('/me')).status, 200);
});
