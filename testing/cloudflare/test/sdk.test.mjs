// The local Cloudflare account, checked with Cloudflare's own TypeScript SDK: a client that
// nobody here wrote reads back what it made, in the shapes its types declare, and meets
// Cloudflare's errors as its own error classes. S3 checks go to the gateway signed with the
// token's derived credentials, where the gateway judges the signature.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { createHash } from 'node:crypto';
import { mkdtemp, readFile, rm } from 'node:fs/promises';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { promisify } from 'node:util';
import { sendS3 } from '../rgw.mjs';
import { control as controlOf, eventually, startAccount, stopAccount } from './localAccount.mjs';
import { bucketPages, collect } from './sdkValues.mjs';

const toolsRequire = createRequire(new URL('../../../tools/package.json', import.meta.url));
const sdk = toolsRequire('cloudflare');
const Cloudflare = sdk.default;
const run = promisify(execFile);

const HEX32 = /^[0-9a-f]{32}$/;
let dir;
let local;

const client = (token) => new Cloudflare({ apiToken: token, baseURL: local.api, maxRetries: 0 });

const control = (method, name, body) => controlOf(local, method, name, body);

// The SDK's error class for the answer, with Cloudflare's code in `.errors`.
async function refused(promise, ErrorClass, code) {
  await assert.rejects(promise, (error) => {
    assert.ok(error instanceof ErrorClass, `expected ${ErrorClass.name}, got ${error.constructor.name}: ${error.message}`);
    if (code !== undefined) assert.deepEqual(error.errors.map((entry) => entry.code), [code].flat());
    return true;
  });
}

function s3Credentials(token) {
  return { accessKeyId: token.id, secretAccessKey: createHash('sha256').update(token.value).digest('hex') };
}

before(async () => {
  dir = await mkdtemp(path.join(os.tmpdir(), 'vorlen-cloudflare-'));
  local = await startAccount(dir);
});

after(async () => {
  await stopAccount(dir);
  await rm(dir, { recursive: true, force: true });
});

describe('an account read through the SDK', () => {
  test('accounts, zones and DNS records come back in the declared shapes', async () => {
    const cf = client(local.token);
    const accounts = await collect(cf.accounts.list());
    assert.deepEqual(accounts.map(({ id, name }) => ({ id, name })), [{ id: local.account, name: 'Dovrin Films' }]);

    const zones = await collect(cf.zones.list({ account: { id: local.account } }));
    assert.deepEqual(zones.map((zone) => zone.name).sort(), Object.keys(local.zones).sort());
    for (const zone of zones) {
      assert.match(zone.id, HEX32);
      assert.equal(zone.account.id, local.account);
      assert.ok(['free', 'pro'].includes(zone.plan.legacy_id));
    }
    const [byName] = await collect(cf.zones.list({ name: 'media-dovrin.test' }));
    assert.equal(byName.id, local.zones['media-dovrin.test']);
    const zone = await cf.zones.get({ zone_id: local.zones['dovrin.test'] });
    assert.deepEqual([zone.name, zone.status, zone.plan.name], ['dovrin.test', 'active', 'Free Website']);

    const records = await collect(cf.dns.records.list({ zone_id: zone.id, name: { exact: 'dovrin.test' } }));
    assert.deepEqual(records.map((record) => record.type).sort(), ['A', 'TXT']);
    assert.ok(records.every((record) => record.name === 'dovrin.test' && HEX32.test(record.id) && record.content));
  });

  test('an unknown route, a missing token and an unknown token answer as Cloudflare does', async () => {
    await refused(client(local.token).get('/zones/dns_records'), sdk.BadRequestError, [7003, 7000]);
    const bare = await fetch(`${local.api}/zones`);
    assert.equal(bare.status, 400);
    assert.equal((await bare.json()).errors[0].code, 9106);
    await refused(client('not-a-token').zones.get({ zone_id: local.zones['dovrin.test'] }), sdk.AuthenticationError, 10000);
  });

  test('sdkValues prints what the SDK reads, for other clients to compare with', async () => {
    const { stdout } = await run('node', [new URL('sdkValues.mjs', import.meta.url).pathname, local.api, local.account],
      { env: { ...process.env, CLOUDFLARE_API_TOKEN: local.token } })
      .catch((error) => { throw new Error(`sdkValues failed: ${error.stderr}`); });
    const values = JSON.parse(stdout);
    assert.equal(values.accounts[0].id, local.account);
    assert.deepEqual(Object.keys(values.dnsRecords).sort(), Object.values(local.zones).sort());
    assert.equal(values.zone.id, values.zones[0].id);
    assert.ok(values.permissionGroups.some((group) => group.name === 'Cache Purge'));
    assert.equal(values.verify.status, 'active');
  });
});

describe('R2 through the SDK', () => {
  const account = () => ({ account_id: local.account });

  test('buckets are made, refused, paged by cursor and found', async () => {
    const cf = client(local.token);
    const made = await cf.r2.buckets.create({ ...account(), name: 'media-one', locationHint: 'weur' });
    assert.deepEqual([made.name, made.location], ['media-one', 'weur']);
    for (const name of ['media-three', 'media-two']) await cf.r2.buckets.create({ ...account(), name });
    await refused(cf.r2.buckets.create({ ...account(), name: 'media-one' }), sdk.ConflictError, 10004);
    await refused(cf.r2.buckets.create({ ...account(), name: 'Media_One' }), sdk.BadRequestError, 10005);

    const pages = await bucketPages(cf, local.account, 2);
    assert.deepEqual(pages.map((page) => page.map((bucket) => bucket.name)), [['media-one', 'media-three'], ['media-two']]);
    const listPage = async (cursor) => (await cf.r2.buckets.list({ ...account(), per_page: 2, cursor }).asResponse()).json();
    await control('PUT', 'quirks', { repeatingCursor: true });
    try {
      const { cursor } = (await listPage()).result_info;
      assert.equal((await listPage(cursor)).result_info.cursor, cursor);
    } finally {
      await control('PUT', 'quirks', { repeatingCursor: false });
    }

    assert.equal((await cf.r2.buckets.get('media-two', account())).name, 'media-two');
    await refused(cf.r2.buckets.get('media-none', account()), sdk.NotFoundError, 10006);
  });

  test('a CORS policy reaches the gateway and leaves it again', async () => {
    const cf = client(local.token);
    const preflight = () => fetch(`${local.r2}/media-one/video.m3u8`, {
      method: 'OPTIONS', headers: { origin: 'https://dovrin.test', 'access-control-request-method': 'GET' },
    });
    await refused(cf.r2.buckets.cors.get('media-one', account()), sdk.NotFoundError, 10059);
    const rules = [{ id: 'pages', allowed: { origins: ['https://dovrin.test'], methods: ['GET', 'HEAD'], headers: ['range'] }, exposeHeaders: ['ETag'], maxAgeSeconds: 3600 }];
    await cf.r2.buckets.cors.update('media-one', { ...account(), rules });
    assert.deepEqual((await cf.r2.buckets.cors.get('media-one', account())).rules, rules);
    const allowed = await preflight();
    assert.equal(allowed.headers.get('access-control-allow-origin'), 'https://dovrin.test');
    assert.equal(allowed.headers.get('access-control-max-age'), '3600');

    await cf.r2.buckets.cors.delete('media-one', account());
    await refused(cf.r2.buckets.cors.get('media-one', account()), sdk.NotFoundError, 10059);
    assert.equal((await preflight()).headers.get('access-control-allow-origin'), null);
  });

  test('a custom domain waits for its activation, changes and goes; the r2.dev domain switches', async () => {
    const cf = client(local.token);
    const domains = cf.r2.buckets.domains;
    const zoneId = local.zones['media-dovrin.test'];
    await control('PUT', 'domains', { activationSeconds: 3600 });
    const made = await domains.custom.create('media-one', { ...account(), domain: 'media.media-dovrin.test', zoneId, enabled: true, minTLS: '1.2' });
    assert.deepEqual(made, { domain: 'media.media-dovrin.test', enabled: true, zoneId, minTLS: '1.2' });
    await refused(domains.custom.create('media-two', { ...account(), domain: 'media.dovrin.test', zoneId, enabled: true }), sdk.BadRequestError);
    const pending = await domains.custom.get('media.media-dovrin.test', { ...account(), bucket_name: 'media-one' });
    assert.deepEqual(pending.status, { ownership: 'pending', ssl: 'pending' });

    await control('PUT', 'domains', { activationSeconds: 1 });
    await eventually(async () => (await domains.custom.get('media.media-dovrin.test', { ...account(), bucket_name: 'media-one' })).status.ssl === 'active', 'activation');
    const { domains: listed } = await domains.custom.list('media-one', account());
    assert.deepEqual(listed.map(({ domain, zoneName, status }) => ({ domain, zoneName, status })),
      [{ domain: 'media.media-dovrin.test', zoneName: 'media-dovrin.test', status: { ownership: 'active', ssl: 'active' } }]);
    assert.equal((await domains.custom.update('media.media-dovrin.test', { ...account(), bucket_name: 'media-one', enabled: false })).enabled, false);
    await domains.custom.delete('media.media-dovrin.test', { ...account(), bucket_name: 'media-one' });
    assert.deepEqual((await domains.custom.list('media-one', account())).domains, []);

    const managed = await domains.managed.list('media-one', account());
    assert.match(managed.domain, /^pub-[0-9a-f]{32}\.r2\.dev$/);
    assert.equal(managed.enabled, false);
    assert.equal((await domains.managed.update('media-one', { ...account(), enabled: true })).enabled, true);
    assert.deepEqual(await domains.managed.list('media-one', account()), { ...managed, enabled: true });
  });

  test('an account without R2 is told so on every R2 call', async () => {
    await control('PUT', 'r2', { enabled: false });
    try {
      await refused(client(local.token).r2.buckets.list(account()), sdk.PermissionDeniedError, 10042);
      await refused(client(local.token).r2.buckets.cors.get('media-one', account()), sdk.PermissionDeniedError, 10042);
    } finally {
      await control('PUT', 'r2', { enabled: true });
    }
  });
});

describe('zone rulesets through the SDK', () => {
  test('an entry point is made, its rules added, changed and deleted, up to the plan\'s limit', async () => {
    const cf = client(local.token);
    const zone_id = local.zones['dovrin.test'];
    const phase = 'http_request_firewall_custom';
    const rule = (n) => ({ action: 'block', expression: `(http.request.uri.path eq "/${n}")`, description: `rule ${n}`, enabled: true });
    await refused(cf.rulesets.phases.get(phase, { zone_id }), sdk.NotFoundError, 10003);

    const made = await cf.rulesets.create({ zone_id, name: 'default', kind: 'zone', phase, rules: [rule(1)] });
    assert.match(made.id, HEX32);
    assert.match(made.rules[0].id, HEX32);
    assert.equal((await cf.rulesets.phases.get(phase, { zone_id })).id, made.id);
    await refused(cf.rulesets.create({ zone_id, name: 'default', kind: 'zone', phase, rules: [] }), sdk.BadRequestError, 20217);

    const added = await cf.rulesets.rules.create(made.id, { zone_id, ...rule(2) });
    assert.deepEqual(added.rules.map((entry) => entry.description), ['rule 1', 'rule 2']);
    const second = added.rules[1].id;
    const edited = await cf.rulesets.rules.edit(second, { zone_id, ruleset_id: made.id, ...rule(2), description: 'changed' });
    assert.deepEqual(edited.rules.map((entry) => [entry.id, entry.description]), [[made.rules[0].id, 'rule 1'], [second, 'changed']]);
    const deleted = await cf.rulesets.rules.delete(second, { zone_id, ruleset_id: made.id });
    assert.deepEqual(deleted.rules.map((entry) => entry.id), [made.rules[0].id]);

    for (let n = 3; n <= 6; n += 1) await cf.rulesets.rules.create(made.id, { zone_id, ...rule(n) });
    await assert.rejects(cf.rulesets.rules.create(made.id, { zone_id, ...rule(7) }),
      (error) => error instanceof sdk.BadRequestError && /exceeded the maximum number of rules/.test(error.errors[0].message));
    assert.equal((await cf.rulesets.phases.get(phase, { zone_id })).rules.length, 5);
  });
});

describe('KV namespaces and page-number lists', () => {
  test('namespaces are made, refused by title, walked page by page and deleted', async () => {
    const cf = client(local.token);
    const account_id = local.account;
    const made = [];
    for (let n = 0; n < 7; n += 1) made.push(await cf.kv.namespaces.create({ account_id, title: `sessions-${n}` }));
    assert.ok(made.every((namespace) => HEX32.test(namespace.id)));
    await refused(cf.kv.namespaces.create({ account_id, title: 'sessions-0' }), sdk.BadRequestError, 10014);

    await control('DELETE', 'requests');
    const titles = (await collect(cf.kv.namespaces.list({ account_id, per_page: 5 }))).map((namespace) => namespace.title);
    assert.deepEqual(titles, made.map((namespace) => namespace.title));
    const pages = (await control('GET', 'requests')).map((record) => record.query.page);
    assert.deepEqual(pages, [undefined, '2', '3']);
    const first = await (await cf.kv.namespaces.list({ account_id, per_page: 5 }).asResponse()).json();
    assert.deepEqual(first.result_info, { page: 1, per_page: 5, count: 5, total_count: 7, total_pages: 2 });

    await cf.kv.namespaces.delete(made[0].id, { account_id });
    assert.ok(!(await collect(cf.kv.namespaces.list({ account_id }))).some((namespace) => namespace.id === made[0].id));

    await control('PUT', 'quirks', { endlessPaging: true });
    try {
      const body = await (await cf.kv.namespaces.list({ account_id, per_page: 5, page: 40 }).asResponse()).json();
      assert.deepEqual([body.result.length, body.result_info.total_pages], [5, 41]);
    } finally {
      await control('PUT', 'quirks', { endlessPaging: false });
    }
  });
});

describe('tokens through the SDK', () => {
  test('account and user tokens are verified only on their own path', async () => {
    await refused(client(local.token).user.tokens.verify(), sdk.AuthenticationError, 1000);
    const verified = await client(local.token).accounts.tokens.verify({ account_id: local.account });
    assert.match(verified.id, HEX32);
    assert.equal(verified.status, 'active');

    const user = await control('POST', 'user-tokens', {
      name: 'a person', policies: [{ effect: 'allow', resources: { [`com.cloudflare.api.account.${local.account}`]: '*' }, permission_groups: [{ id: 'c1fde68c7bcc44588cbb6ddbc16d6480' }] }],
    });
    assert.ok(!user.value.startsWith('cfat_'));
    assert.equal((await client(user.value).user.tokens.verify()).id, user.id);
    await refused(client(user.value).accounts.tokens.verify({ account_id: local.account }), sdk.AuthenticationError, 1000);
  });

  test('a bucket token reaches its bucket over S3 and the REST API, purges its zone and nothing else, until revoked', async () => {
    const cf = client(local.token);
    const account_id = local.account;
    const mediaZone = local.zones['media-dovrin.test'];
    const group = async (name) => {
      const [found] = await collect(cf.accounts.tokens.permissionGroups.list({ account_id, name }));
      assert.match(found.id, HEX32);
      return found;
    };
    const itemWrite = await group('Workers R2 Storage Bucket Item Write');
    assert.deepEqual(itemWrite.scopes, ['com.cloudflare.edge.r2.bucket']);
    const made = await cf.accounts.tokens.create({
      account_id,
      name: 'Vorlen – studio',
      policies: [
        { effect: 'allow', resources: { [`com.cloudflare.edge.r2.bucket.${account_id}_default_media-one`]: '*' },
          permission_groups: [{ id: itemWrite.id }, { id: (await group('Workers R2 Storage Bucket Item Read')).id }] },
        { effect: 'allow', resources: { [`com.cloudflare.api.account.zone.${mediaZone}`]: '*' }, permission_groups: [{ id: (await group('Cache Purge')).id }] },
      ],
    });
    assert.match(made.id, HEX32);
    assert.ok(made.value.startsWith('cfat_'));
    assert.deepEqual([made.name, made.status, made.policies.length], ['Vorlen – studio', 'active', 2]);
    assert.ok((await collect(cf.accounts.tokens.list({ account_id }))).some((token) => token.id === made.id && token.value === undefined));
    assert.equal((await cf.accounts.tokens.get(made.id, { account_id })).name, 'Vorlen – studio');

    const credentials = s3Credentials(made);
    const put = (bucket) => sendS3({ endpoint: local.r2, credentials, method: 'PUT', bucket, key: 'v1/site.json', body: Buffer.from('{"version":1}') });
    assert.equal((await put('media-one')).status, 200);
    const daily = client(made.value);
    const object = await daily.r2.buckets.objects.get('v1/site.json', { account_id, bucket_name: 'media-one' });
    assert.equal(await object.text(), '{"version":1}');
    await refused(daily.r2.buckets.objects.get('v1/none.json', { account_id, bucket_name: 'media-one' }), sdk.NotFoundError, 10007);
    await refused(daily.r2.buckets.objects.get('v1/site.json', { account_id, bucket_name: 'media-two' }), sdk.PermissionDeniedError, 10000);

    await daily.cache.purge({ zone_id: mediaZone, prefixes: ['media.media-dovrin.test/v1/'] });
    const { purges } = await control('GET', 'state');
    assert.deepEqual(purges.at(-1), { ...purges.at(-1), zoneId: mediaZone, kind: 'prefixes', values: ['media.media-dovrin.test/v1/'] });
    await refused(daily.cache.purge({ zone_id: local.zones['dovrin.test'], purge_everything: true }), sdk.PermissionDeniedError, 9109);
    await refused(daily.zones.get({ zone_id: mediaZone }), sdk.PermissionDeniedError, 9109);
    await refused(collect(daily.kv.namespaces.list({ account_id })), sdk.PermissionDeniedError, 10000);
    assert.deepEqual(await collect(daily.zones.list()), []);

    await cf.accounts.tokens.delete(made.id, { account_id });
    await refused(daily.accounts.tokens.verify({ account_id }), sdk.AuthenticationError, 1000);
    await eventually(async () => (await put('media-one')).status === 403, 'the revoked key to be refused');
  });
});

describe('a Worker deployed through the SDK', () => {
  test('assets, script, settings, workers.dev route and domain', async () => {
    const cf = client(local.token);
    const account_id = local.account;
    const files = { '/player.css': 'body { margin: 0 }', '/player.js': 'export const ready = true;' };
    const hashOf = (file, text) => createHash('sha256').update(Buffer.from(text).toString('base64') + path.extname(file).slice(1)).digest('hex').slice(0, 32);
    const manifest = Object.fromEntries(Object.entries(files).map(([file, text]) => [file, { hash: hashOf(file, text), size: text.length }]));
    const byHash = Object.fromEntries(Object.entries(files).map(([file, text]) => [hashOf(file, text), Buffer.from(text).toString('base64')]));

    const session = await cf.workers.scripts.assets.upload.create('pages', { account_id, manifest });
    assert.deepEqual(session.buckets.flat().sort(), Object.keys(byHash).sort());
    await refused(cf.workers.assets.upload.create({ account_id, base64: true, body: byHash }), sdk.AuthenticationError);
    const uploaded = await cf.workers.assets.upload.create({ account_id, base64: true, body: byHash }, { headers: { Authorization: `Bearer ${session.jwt}` } });
    assert.ok(uploaded.jwt);
    const again = await cf.workers.scripts.assets.upload.create('pages', { account_id, manifest });
    assert.deepEqual(again.buckets, []);

    const [kv] = await collect(cf.kv.namespaces.list({ account_id }));
    const metadata = {
      main_module: 'worker.js',
      compatibility_date: '2025-09-01',
      bindings: [
        { type: 'r2_bucket', name: 'BUCKET', bucket_name: 'media-one' },
        { type: 'kv_namespace', name: 'SESSIONS', namespace_id: kv.id },
        { type: 'secret_text', name: 'CHALLENGE_KEY', text: 'challenge-secret-text' },
      ],
      assets: { jwt: uploaded.jwt, config: { _headers: '/*\n  X-Frame-Options: DENY\n' } },
    };
    const module = new File(['export default { fetch() { return new Response("ok"); } };'], 'worker.js', { type: 'application/javascript+module' });
    // The SDK's own form writes the metadata as bracketed fields under a script content
    // type, which Cloudflare refuses; as a JSON part in a multipart form it goes through.
    await refused(cf.workers.scripts.update('pages', { account_id, metadata, files: [module] }), sdk.BadRequestError, 10021);
    const asJson = new File([JSON.stringify(metadata)], 'metadata.json', { type: 'application/json' });
    const deployed = await cf.workers.scripts.update('pages', { account_id, metadata: asJson, files: [module] }, { headers: { 'Content-Type': null } });
    assert.deepEqual([deployed.id, deployed.has_assets, typeof deployed.etag, typeof deployed.modified_on], ['pages', true, 'string', 'string']);

    const settings = await cf.workers.scripts.scriptAndVersionSettings.get('pages', { account_id });
    assert.equal(settings.compatibility_date, '2025-09-01');
    assert.deepEqual(settings.bindings.find((binding) => binding.type === 'secret_text'), { type: 'secret_text', name: 'CHALLENGE_KEY' });
    assert.ok(!JSON.stringify(await control('GET', 'state')).includes('challenge-secret-text'));
    const stored = JSON.parse(await readFile(path.join(dir, 'state.json'), 'utf8')).workers.scripts.pages;
    assert.equal(stored.bindings.find((binding) => binding.type === 'secret_text').text, 'challenge-secret-text');
    assert.equal(stored.assets.config._headers, metadata.assets.config._headers);
    await refused(cf.workers.scripts.scriptAndVersionSettings.get('none', { account_id }), sdk.NotFoundError, 10007);

    assert.deepEqual(await cf.workers.scripts.subdomain.get('pages', { account_id }), { enabled: true, previews_enabled: true });
    await cf.workers.scripts.subdomain.create('pages', { account_id, enabled: false, previews_enabled: false });
    assert.deepEqual(await cf.workers.scripts.subdomain.get('pages', { account_id }), { enabled: false, previews_enabled: false });

    const zone_id = local.zones['dovrin.test'];
    const attached = await cf.workers.domains.update({ account_id, hostname: 'watch.dovrin.test', service: 'pages', zone_id });
    assert.deepEqual([attached.hostname, attached.service, attached.zone_id, attached.zone_name], ['watch.dovrin.test', 'pages', zone_id, 'dovrin.test']);
    assert.deepEqual((await collect(cf.workers.domains.list({ account_id, hostname: 'watch.dovrin.test' }))).map((domain) => domain.id), [attached.id]);
    await cf.workers.domains.delete(attached.id, { account_id });
    assert.deepEqual(await collect(cf.workers.domains.list({ account_id, hostname: 'watch.dovrin.test' })), []);

    await cf.workers.scripts.delete('pages', { account_id, force: true });
    await refused(cf.workers.scripts.scriptAndVersionSettings.get('pages', { account_id }), sdk.NotFoundError, 10007);
  });
});

describe('faults and the record of requests', () => {
  test('scripted answers come in order, a faulted request changes nothing, and every one is recorded', async () => {
    const cf = client(local.token);
    const account_id = local.account;
    const zone_id = local.zones['dovrin.test'];
    await control('DELETE', 'requests');
    await control('PUT', 'faults', {
      script: [{ status: 429, retryAfter: '120' }, { status: 503 }, { status: 502, html: true }, { reset: true }, { status: 200, body: '{"success":true,"errors":[],"messages":[],"result":{"id":"x"}}' }],
    });
    await assert.rejects(cf.zones.get({ zone_id }), (error) => error instanceof sdk.RateLimitError && error.headers.get('retry-after') === '120');
    await refused(cf.kv.namespaces.create({ account_id, title: 'never-made' }), sdk.InternalServerError);
    await assert.rejects(cf.zones.get({ zone_id }), (error) => error.status === 502 && /Bad gateway/.test(error.message));
    await assert.rejects(cf.zones.get({ zone_id }), sdk.APIConnectionError);
    assert.deepEqual(await cf.zones.get({ zone_id }), { id: 'x' });
    assert.equal((await cf.zones.get({ zone_id })).name, 'dovrin.test');
    assert.ok(!(await collect(cf.kv.namespaces.list({ account_id }))).some((namespace) => namespace.title === 'never-made'));

    const records = await control('GET', 'requests');
    assert.deepEqual(records.slice(0, 6).map(({ method, path: where, status, fault }) => [method, where, status, fault]), [
      ['GET', `zones/${zone_id}`, 429, '429'],
      ['POST', `accounts/${account_id}/storage/kv/namespaces`, 503, '503'],
      ['GET', `zones/${zone_id}`, 502, '502'],
      ['GET', `zones/${zone_id}`, null, 'reset'],
      ['GET', `zones/${zone_id}`, 200, '200'],
      ['GET', `zones/${zone_id}`, 200, undefined],
    ]);

    await control('PUT', 'faults', { share: 1, kinds: ['429'], retryAfter: 1 });
    try {
      await assert.rejects(cf.zones.get({ zone_id }), (error) => error instanceof sdk.RateLimitError && error.headers.get('retry-after') === '1');
    } finally {
      await control('PUT', 'faults', { share: 0 });
    }
    assert.equal((await cf.zones.get({ zone_id })).id, zone_id);
  });
});

describe('a restart with the same folder', () => {
  test('keeps the account, its tokens and buckets, and puts the buckets back on the gateway', async () => {
    const before = local;
    local = await startAccount(dir);
    assert.ok(local.token === before.token, 'the setup token is the same after the restart');
    const names = (await client(local.token).r2.buckets.list({ account_id: local.account })).buckets.map((bucket) => bucket.name);
    assert.deepEqual(names, ['media-one', 'media-three', 'media-two']);
    const probe = await sendS3({ endpoint: local.r2, credentials: s3Credentials({ id: (await client(local.token).accounts.tokens.verify({ account_id: local.account })).id, value: local.token }), method: 'PUT', bucket: 'media-two', key: 'after-restart', body: Buffer.from('x') });
    assert.equal(probe.status, 200);
  });
});
