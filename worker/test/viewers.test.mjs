// The viewers of a private site: the checks of invites, challenges, passkeys and
// signatures one by one, then the whole exchange over HTTP with a software
// authenticator, and what the edge cache may keep.
import assert from 'node:assert/strict';
import { createHash, KeyObject, randomBytes, sign } from 'node:crypto';
import { after, before, beforeEach, describe, test } from 'node:test';
import {
  assertionValid, challengeValid, inviteState, localPath, makeChallenge, rawSignature, registeredPasskey, viewerFrom,
} from '../src/worker.js';
import { origin, siteSettings, startPages, videoRecord } from './helpers.mjs';

const rpId = 'watch.example.com';
const key = 'a challenge key';
const viewerId = '0123456789abcdef0123456789abcdef';
const b64 = (bytes) => Buffer.from(bytes).toString('base64url');
const sha256 = (data) => createHash('sha256').update(data).digest();

// A passkey kept in memory, answering as a platform authenticator does.
async function softwarePasskey() {
  const pair = await crypto.subtle.generateKey({ name: 'ECDSA', namedCurve: 'P-256' }, true, ['sign', 'verify']);
  return {
    id: randomBytes(16),
    spki: Buffer.from(await crypto.subtle.exportKey('spki', pair.publicKey)),
    privateKey: KeyObject.from(pair.privateKey),
  };
}

function authenticatorData({ site = rpId, flags = 0x05, credential = null } = {}) {
  const parts = [sha256(site), Buffer.from([flags]), Buffer.alloc(4)];
  if (credential) {
    const length = Buffer.alloc(2);
    length.writeUInt16BE(credential.length);
    parts.push(Buffer.alloc(16), length, credential, Buffer.from([0xa0]));
  }
  return Buffer.concat(parts);
}

function clientData(type, challenge, from = origin) {
  return Buffer.from(JSON.stringify({ type, challenge, origin: from, crossOrigin: false }));
}

function registration(passkey, challenge, { from, site, flags } = {}) {
  return {
    id: b64(passkey.id),
    clientDataJSON: b64(clientData('webauthn.create', challenge, from)),
    authenticatorData: b64(authenticatorData({ site, flags: flags ?? 0x45, credential: passkey.id })),
    publicKey: b64(passkey.spki),
    publicKeyAlgorithm: -7,
    transports: ['internal'],
  };
}

function assertion(passkey, challenge, { from, site, signed, user = viewerId } = {}) {
  const data = authenticatorData({ site });
  const client = clientData('webauthn.get', challenge, from);
  const message = signed ?? Buffer.concat([data, sha256(client)]);
  return {
    id: b64(passkey.id),
    clientDataJSON: b64(client),
    authenticatorData: b64(data),
    signature: b64(sign('sha256', message, { key: passkey.privateKey, dsaEncoding: 'der' })),
    userHandle: b64(Buffer.from(user, 'hex')),
  };
}

function inviteFile(secret, { expires = '2099-01-01T00:00:00Z', name = 'Ana Lima', hash } = {}) {
  return JSON.stringify({
    version: 1, name, created: '2026-11-01T10:00:00Z',
    invite: { hash: hash ?? createHash('sha256').update(secret).digest('hex'), expires },
  }, null, 2);
}

describe('passkey checks', () => {
  const now = Date.parse('2026-11-24T12:00:00Z');

  test('a challenge holds only for its purpose, its viewer, its key and five minutes', async () => {
    const challenge = await makeChallenge(key, 'register', viewerId, now);
    assert.equal(await challengeValid(key, challenge, 'register', viewerId, now + 299_000), true);
    assert.equal(await challengeValid(key, challenge, 'signin', viewerId, now), false, 'another purpose');
    assert.equal(await challengeValid(key, challenge, 'register', 'f'.repeat(32), now), false, 'another viewer');
    assert.equal(await challengeValid('another key', challenge, 'register', viewerId, now), false, 'another key');
    assert.equal(await challengeValid(key, challenge, 'register', viewerId, now + 301_000), false, 'expired');
    const [purpose, viewer, end, nonce, mac] = Buffer.from(challenge, 'base64url').toString().split('.');
    const extended = b64(Buffer.from([purpose, viewer, Number(end) + 3600, nonce, mac].join('.')));
    assert.equal(await challengeValid(key, extended, 'register', viewerId, now + 301_000), false, 'a changed end breaks the MAC');
    assert.equal(await challengeValid(key, 'not base64!', 'register', viewerId, now), false);
  });

  test('a passkey is taken only from this site\'s page, for this site\'s name, with the person present', async () => {
    const passkey = await softwarePasskey();
    const challenge = await makeChallenge(key, 'register', viewerId, now);
    const check = { viewerId, origin, rpId, key, now };
    assert.deepEqual(await registeredPasskey(registration(passkey, challenge), check),
      { id: b64(passkey.id), publicKey: b64(passkey.spki), transports: ['internal'] });
    assert.equal(await registeredPasskey(registration(passkey, challenge, { from: 'https://watch.example.com.evil.example' }), check), null);
    assert.equal(await registeredPasskey(registration(passkey, challenge, { site: 'evil.example' }), check), null);
    assert.equal(await registeredPasskey(registration(passkey, challenge, { flags: 0x44 }), check), null, 'no user present');
    const signInChallenge = await makeChallenge(key, 'signin', '', now);
    assert.equal(await registeredPasskey(registration(passkey, signInChallenge), check), null);
    const otherViewer = await makeChallenge(key, 'register', 'f'.repeat(32), now);
    assert.equal(await registeredPasskey(registration(passkey, otherViewer), check), null);
    const asSignIn = { ...registration(passkey, challenge), clientDataJSON: b64(clientData('webauthn.get', challenge)) };
    assert.equal(await registeredPasskey(asSignIn, check), null, 'a sign-in is no registration');
    const otherCredential = { ...registration(passkey, challenge), id: b64(randomBytes(16)) };
    assert.equal(await registeredPasskey(otherCredential, check), null, 'the authenticator data names another credential');
  });

  test('a sign-in needs the viewer\'s own passkey signing this very exchange', async () => {
    const passkey = await softwarePasskey();
    const other = await softwarePasskey();
    const viewer = { passkey: { id: b64(passkey.id), publicKey: b64(passkey.spki) } };
    const challenge = await makeChallenge(key, 'signin', '', now);
    const check = { origin, rpId, key, now };
    assert.equal(await assertionValid(assertion(passkey, challenge), viewer, check), true);
    assert.equal(await assertionValid(assertion(passkey, challenge, { signed: Buffer.from('other data') }), viewer, check), false);
    assert.equal(await assertionValid({ ...assertion(other, challenge), id: b64(passkey.id) }, viewer, check), false, 'another key signed');
    assert.equal(await assertionValid(assertion(other, challenge), viewer, check), false, 'another credential');
    assert.equal(await assertionValid(assertion(passkey, challenge, { from: 'http://watch.example.com' }), viewer, check), false);
    assert.equal(await assertionValid(assertion(passkey, challenge, { site: 'example.com' }), viewer, check), false);
    const registering = await makeChallenge(key, 'register', viewerId, now);
    assert.equal(await assertionValid(assertion(passkey, registering), viewer, check), false);
    assert.equal(await assertionValid(assertion(passkey, challenge), viewer, { ...check, now: now + 600_000 }), false);
  });

  test('DER signatures become r and s of 32 bytes each, and malformed ones are refused', () => {
    const short = Buffer.from([0x30, 0x08, 0x02, 0x02, 0x00, 0x81, 0x02, 0x02, 0x01, 0x02]);
    const raw = rawSignature(short);
    assert.equal(raw.length, 64);
    assert.deepEqual([...raw.subarray(30, 32), ...raw.subarray(62, 64)], [0x00, 0x81, 0x01, 0x02]);
    assert.equal(rawSignature(Buffer.from([0x30, 0x09, ...short.subarray(2), 0x00])), null, 'trailing bytes');
    assert.equal(rawSignature(Buffer.from([0x31, ...short.subarray(1)])), null);
  });

  test('an invite opens only with its secret, once, before it expires, and only with a lowercase hash', async () => {
    const secret = b64(randomBytes(32));
    const invited = viewerFrom(inviteFile(secret));
    assert.equal(await inviteState(invited, secret, now), 'valid');
    assert.equal(await inviteState(invited, b64(randomBytes(32)), now), 'unknown');
    assert.equal(await inviteState(invited, `${secret}x`, now), 'unknown');
    assert.equal(await inviteState(null, secret, now), 'unknown');
    assert.equal(await inviteState(viewerFrom(inviteFile(secret, { expires: '2026-11-24T11:59:59Z' })), secret, now), 'expired');
    const used = viewerFrom(JSON.stringify({ version: 1, name: 'Ana', created: '2026-11-01T10:00:00Z',
      passkey: { id: 'abc', publicKey: 'def', transports: [], created: '2026-11-02T10:00:00Z' } }));
    assert.equal(await inviteState(used, secret, now), 'used');
    const upper = createHash('sha256').update(secret).digest('hex').toUpperCase();
    assert.equal(viewerFrom(inviteFile(secret, { hash: upper })), null);
    assert.equal(viewerFrom(JSON.stringify({ ...JSON.parse(inviteFile(secret)), passkey: used.file.passkey })), null, 'both');
    assert.equal(viewerFrom(inviteFile(secret, { name: '  ' })), null);
  });

  test('after signing in, only a path of this host is followed', () => {
    for (const next of ['/harbour', '/watch/harbour?t=5', '/']) assert.equal(localPath(next, '/home'), next);
    for (const next of ['//evil.example/', '/\\evil.example', 'https://evil.example/', 'harbour', '/a b', null, '/\u0000']) {
      assert.equal(localPath(next, '/home'), '/home', String(next));
    }
  });
});

describe('over HTTP', () => {
  let pages;
  const secret = b64(randomBytes(32));
  const personal = 'private, no-store';

  before(async () => { pages = await startPages(); });
  after(async () => { await pages.close(); });
  beforeEach(async () => {
    await pages.reset(siteSettings({ private: true }));
    await pages.publish('harbour');
    await pages.publish('hidden-x7k2m9qa', videoRecord({ title: 'Unlisted Cut', visibility: 'unlisted' }));
    await pages.put('_vorlen/catalog.json', { version: 1, videos: [
      { folder: 'harbour', title: 'Harbour at Dawn', visibility: 'public' },
      { folder: 'hidden-x7k2m9qa', title: 'Unlisted Cut', visibility: 'unlisted' },
    ] });
    await pages.put(`_vorlen/viewers/${viewerId}.json`, inviteFile(secret));
  });

  const post = (path, body, headers = {}) => pages.get(path, {
    method: 'POST', body: JSON.stringify(body), headers: { Origin: origin, 'Content-Type': 'application/json', ...headers },
  });
  const cookieOf = (response) => response.headers.get('set-cookie').split(';')[0];

  async function redeem(passkey) {
    const asked = await post(`/_invite/${viewerId}.${secret}/options`, {});
    if (asked.status !== 200) return asked;
    const options = JSON.parse(asked.text);
    assert.equal(options.rp.id, rpId);
    assert.equal(options.user.id, b64(Buffer.from(viewerId, 'hex')));
    assert.equal(options.authenticatorSelection.residentKey, 'required');
    return post(`/_invite/${viewerId}.${secret}`, registration(passkey, options.challenge));
  }

  async function signIn(passkey, user = viewerId) {
    const { challenge } = JSON.parse((await post('/_signin/options', {})).text);
    return post('/_signin?next=%2Fharbour', assertion(passkey, challenge, { user }));
  }

  test('an invite page shows a hostile name as text, and each dead link has its own page', async () => {
    await pages.put(`_vorlen/viewers/${viewerId}.json`, inviteFile(secret, { name: '<script>alert("x")</script> O\'Neil' }));
    const page = await pages.get(`/_invite/${viewerId}.${secret}`);
    assert.equal(page.status, 200);
    assert.equal(page.headers.get('cache-control'), personal);
    assert.match(page.text, /Welcome, &lt;script&gt;alert\(&quot;x&quot;\)&lt;\/script&gt; O&#39;Neil/);
    assert.doesNotMatch(page.text, /<script>alert/);
    assert.match(page.headers.get('content-security-policy'), /script-src 'self';/);

    assert.equal((await pages.get(`/_invite/${viewerId}.${b64(randomBytes(32))}`)).status, 404);
    assert.equal((await pages.get(`/_invite/${'f'.repeat(32)}.${secret}`)).status, 404);
    await pages.put(`_vorlen/viewers/${viewerId}.json`, inviteFile(secret, { expires: '2026-01-01T00:00:00Z' }));
    const expired = await pages.get(`/_invite/${viewerId}.${secret}`);
    assert.equal(expired.status, 410);
    assert.match(expired.text, /This invite has expired/);
    assert.equal((await post(`/_invite/${viewerId}.${secret}/options`, {})).status, 410);
  });

  test('a viewer makes a passkey once, signs out and in, and loses the session when removed', async () => {
    const passkey = await softwarePasskey();
    assert.equal((await redeem(passkey)).status, 200);
    const file = JSON.parse((await (await pages.bucket.get(`_vorlen/viewers/${viewerId}.json`)).text()));
    assert.deepEqual(Object.keys(file), ['created', 'name', 'passkey', 'version']);
    assert.equal(file.passkey.id, b64(passkey.id));
    assert.equal((await redeem(await softwarePasskey())).status, 410, 'the invite is used');

    const anonymous = await pages.get('/harbour');
    assert.equal(anonymous.status, 302);
    assert.equal(anonymous.headers.get('location'), `${origin}/_signin?next=%2Fharbour`);
    assert.equal(anonymous.headers.get('cache-control'), personal);

    const signedIn = await signIn(passkey);
    assert.equal(signedIn.status, 200);
    assert.deepEqual(JSON.parse(signedIn.text), { next: '/harbour' });
    assert.match(signedIn.headers.get('set-cookie'), /; Path=\/; Max-Age=2592000; HttpOnly; SameSite=Lax; Secure$/);
    const session = { Cookie: cookieOf(signedIn) };
    const home = await pages.get('/', { headers: session });
    assert.equal(home.status, 200);
    assert.match(home.text, /Unlisted Cut/);
    assert.match(home.text, /Signed in as Ana Lima/);

    const out = await post('/_signout', {}, session);
    assert.equal(out.status, 303);
    assert.equal(out.headers.get('location'), `${origin}/_signin`);
    assert.equal((await pages.get('/', { headers: session })).status, 302, 'the session is gone');

    const again = { Cookie: cookieOf(await signIn(passkey)) };
    assert.equal((await pages.get('/hidden-x7k2m9qa', { headers: again })).status, 200);
    await pages.bucket.delete(`_vorlen/viewers/${viewerId}.json`);
    assert.equal((await pages.get('/hidden-x7k2m9qa', { headers: again })).status, 302, 'removing the viewer ends the session');
    const refused = await signIn(passkey);
    assert.equal(refused.status, 401);
    assert.equal(JSON.parse(refused.text).error, JSON.parse((await signIn(passkey, 'f'.repeat(32))).text).error,
      'no such viewer and a bad signature read the same');
  });

  test('a passkey step from another site\'s page is refused', async () => {
    const answer = await post(`/_invite/${viewerId}.${secret}/options`, {}, { Origin: 'https://evil.example' });
    assert.equal(answer.status, 403);
  });

  test('a page asked for with a session is neither kept nor taken from the cache, nor a cached page given to a private site', async () => {
    const cached = await startPages({ cache: true });
    try {
      await cached.reset();
      await cached.publish('harbour');
      assert.equal((await cached.get('/harbour')).status, 200);
      await cached.put('_vorlen/site.json', siteSettings({ private: true }));
      assert.equal((await cached.get('/harbour')).status, 302, 'the kept public page is not shown');

      await cached.put('_vorlen/site.json', siteSettings());
      const withSession = await cached.get('/harbour?from=viewer', { headers: { Cookie: `vorlen_session=${b64(randomBytes(32))}` } });
      assert.equal(withSession.headers.get('cache-control'), personal);
      await cached.put('harbour/video.json', videoRecord({ title: 'Renamed' }));
      assert.match((await cached.get('/harbour?from=viewer')).text, /Renamed/, 'the page with a session was not kept');
      assert.match((await cached.get('/harbour')).text, /Harbour at Dawn/, 'public pages are still kept');
    } finally {
      await cached.close();
    }
  });
});
