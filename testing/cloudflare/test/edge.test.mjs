// The local account's edge, checked with clients that nobody here wrote: wrangler deploys
// a Worker with static assets, Cloudflare's SDK attaches its domain, writes rules and
// sets up a bucket's custom domain, and Node's HTTPS client reaches them through the edge,
// trusting only the edge's own authority.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { createHash, randomBytes } from 'node:crypto';
import { cp, mkdtemp, readdir, readFile, rm } from 'node:fs/promises';
import https from 'node:https';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { promisify } from 'node:util';
import { sendS3 } from '../rgw.mjs';
import { matches, parseExpression, UnsupportedExpression } from '../rules.mjs';
import { control as controlOf, startAccount, stopAccount } from './localAccount.mjs';

const toolsRequire = createRequire(new URL('../../../tools/package.json', import.meta.url));
const sdk = toolsRequire('cloudflare');
const run = promisify(execFile);
const workerDir = new URL('../../../worker/', import.meta.url).pathname;

let dir;
let local;
let cf;
let ca;
const control = (method, name, body) => controlOf(local, method, name, body);

// One request to the edge over HTTPS, for `host`, trusting only the edge's authority.
function edge(host, requestPath, { method = 'GET', headers = {} } = {}) {
  const [address, port] = local.edge.split(':');
  return new Promise((resolve, reject) => {
    const request = https.request({
      host: address, port: Number(port), servername: host, ca, method, path: requestPath, headers: { host, ...headers },
    }, (response) => {
      const chunks = [];
      response.on('data', (chunk) => chunks.push(chunk));
      response.on('end', () => resolve({ status: response.statusCode, headers: response.headers, body: Buffer.concat(chunks) }));
      response.on('error', reject);
    });
    request.on('error', reject);
    request.end();
  });
}

async function setupS3Credentials() {
  const state = await control('GET', 'state');
  const setup = state.tokens.find((token) => token.setup);
  return { accessKeyId: setup.id, secretAccessKey: createHash('sha256').update(local.token).digest('hex') };
}

async function putObject(bucket, key, body, headers = {}) {
  const answer = await sendS3({ endpoint: local.r2, credentials: await setupS3Credentials(), method: 'PUT', bucket, key, headers, body: Buffer.from(body) });
  assert.equal(answer.status, 200, `put ${key}`);
}

async function api(method, apiPath, { body, token = local.token } = {}) {
  const response = await fetch(`${local.api}/${apiPath}`, { method, headers: { authorization: `Bearer ${token}` }, body });
  const answer = await response.json();
  assert.ok(answer.success, `${method} ${apiPath}: ${JSON.stringify(answer.errors)}`);
  return answer.result;
}

async function filesUnder(root) {
  const found = [];
  for (const entry of await readdir(root, { withFileTypes: true, recursive: true })) {
    if (entry.isFile()) found.push(path.join(entry.parentPath ?? entry.path, entry.name));
  }
  return found;
}

// A script upload as the API documents it: an asset upload session for the files under
// assetsRoot (if any), their upload by hash, then one multipart PUT of the modules and
// the metadata.
async function uploadScript(name, { modules, mainModule, bindings = [], assetsRoot, headers, compatibilityDate = '2026-04-20' }) {
  const accountPath = `accounts/${local.account}/workers`;
  let assets;
  if (assetsRoot) {
    const files = await filesUnder(assetsRoot);
    const manifest = {};
    const contents = {};
    for (const file of files) {
      const data = await readFile(file);
      const hash = createHash('sha256').update(data).digest('hex').slice(0, 32);
      manifest[`/${path.relative(assetsRoot, file)}`] = { hash, size: data.length };
      contents[hash] = data;
    }
    const session = await api('POST', `${accountPath}/scripts/${name}/assets-upload-session`, { body: JSON.stringify({ manifest }) });
    let { jwt } = session;
    for (const bucket of session.buckets) {
      const form = new FormData();
      for (const hash of bucket) form.append(hash, new Blob([contents[hash].toString('base64')], { type: 'application/octet-stream' }), hash);
      jwt = (await api('POST', `${accountPath}/assets/upload?base64=true`, { body: form, token: session.jwt })).jwt ?? jwt;
    }
    assets = { jwt, config: headers ? { _headers: headers } : {} };
  }
  const form = new FormData();
  const metadata = { main_module: mainModule, compatibility_date: compatibilityDate, bindings, ...(assets ? { assets } : {}) };
  form.append('metadata', new Blob([JSON.stringify(metadata)], { type: 'application/json' }), 'metadata.json');
  for (const [moduleName, source] of Object.entries(modules)) {
    form.append(moduleName, new Blob([source], { type: 'application/javascript+module' }), moduleName);
  }
  return api('PUT', `${accountPath}/scripts/${name}`, { body: form });
}

const zoneOf = (name) => local.zones[name];

before(async () => {
  dir = await mkdtemp(path.join(os.tmpdir(), 'vorlen-edge-'));
  local = await startAccount(dir);
  ca = await readFile(local.ca);
  cf = new sdk.default({ apiToken: local.token, baseURL: local.api, maxRetries: 0 });
  await control('PUT', 'domains', { activationSeconds: 0 });
});

after(async () => {
  await stopAccount(dir);
  await rm(dir, { recursive: true, force: true });
});

describe('the rules language subset', () => {
  test('expressions match the request fields, and anything else is refused', () => {
    const fields = { 'http.host': 'media.dovrin.test', 'http.request.uri.path': '/_vorlen/site.json' };
    const cases = [
      ['http.host eq "media.dovrin.test"', true],
      ['http.host in {"watch.dovrin.test" "media.dovrin.test"}', true],
      ['http.host in {"watch.dovrin.test"}', false],
      ['starts_with(http.request.uri.path, "/_vorlen/")', true],
      ['ends_with(http.request.uri.path, ".m3u8")', false],
      ['http.request.uri.path eq "/_vorlen/site.json" and not http.host eq "watch.dovrin.test"', true],
      ['http.host eq "x" or http.host eq "y" and http.host eq "media.dovrin.test"', false],
      ['(http.host eq "x" or http.host eq "media.dovrin.test") and ends_with(http.request.uri.path, ".json")', true],
      ['not (starts_with(http.request.uri.path, "/_vorlen/"))', false],
    ];
    for (const [expression, expected] of cases) assert.equal(matches(parseExpression(expression), fields), expected, expression);
    for (const refused of ['http.request.uri.query contains "a"', 'ip.src eq 192.0.2.1', 'http.host == "a"', 'http.host eq "a" and',
      'lower(http.host) eq "a"', '(http.host eq "a"', 'http.host in {"a" 1}']) {
      assert.throws(() => parseExpression(refused), UnsupportedExpression, refused);
    }
  });
});

describe('a Worker deployed by wrangler', () => {
  test('its Worker domain and workers.dev name answer through the edge, with its assets, and an upload replaces it', async (t) => {
    const project = await mkdtemp(path.join(os.tmpdir(), 'vorlen-wrangler-'));
    const deploy = (...args) => run(path.join(workerDir, '..', 'tools', 'node_modules', '.bin', 'wrangler'), ['deploy', ...args], {
      cwd: project,
      env: {
        ...process.env,
        CLOUDFLARE_API_BASE_URL: local.api,
        CLOUDFLARE_API_TOKEN: local.token,
        CLOUDFLARE_ACCOUNT_ID: local.account,
        WRANGLER_SEND_METRICS: 'false',
        WRANGLER_SEND_ERROR_REPORTS: 'false',
        CLOUDFLARE_CF_FETCH_ENABLED: 'false',
        WRANGLER_HIDE_BANNER: 'true',
        XDG_CONFIG_HOME: path.join(project, '.config'),
      },
    }).catch((error) => assert.fail(`wrangler deploy failed: ${error.stdout}\n${error.stderr}`));
    t.after(() => rm(project, { recursive: true, force: true }));
    await cp(new URL('hello-worker', import.meta.url).pathname, project, { recursive: true });
    await deploy();
    await cf.workers.domains.update({ account_id: local.account, hostname: 'hello.dovrin.test', service: 'hello-edge', zone_id: zoneOf('dovrin.test') });

    const page = await edge('hello.dovrin.test', '/');
    assert.equal(page.status, 200);
    assert.deepEqual(JSON.parse(page.body), { greeting: 'hello', host: 'hello.dovrin.test', proto: 'https', ip: '127.0.0.1', asset: 200 });
    const asset = await edge('hello.dovrin.test', '/hello.txt');
    assert.deepEqual([asset.status, asset.body.toString(), asset.headers['x-asset-rule']], [200, 'Hello from a static asset.\n', 'hello']);
    // A second deploy goes through a new version and its deployment.
    await deploy('--var', 'GREETING:again');
    assert.equal(JSON.parse((await edge('hello.dovrin.test', '/')).body).greeting, 'again');

    const { subdomain } = await api('GET', `accounts/${local.account}/workers/subdomain`);
    const devHost = `hello-edge.${subdomain}.workers.dev`;
    assert.equal((await edge(devHost, '/')).status, 200);
    await cf.workers.scripts.subdomain.create('hello-edge', { account_id: local.account, enabled: false });
    const off = await edge(devHost, '/');
    assert.deepEqual([off.status, off.body.toString().split('\n')[0]], [403, 'error code: 1001']);
    assert.equal((await edge('nothing.dovrin.test', '/')).status, 403);

    await uploadScript('hello-edge', {
      mainModule: 'second.js',
      modules: { 'second.js': 'export default { fetch: (request, env) => new Response(`second ${env.GREETING}`) };' },
      bindings: [{ type: 'plain_text', name: 'GREETING', text: 'deployment' }],
    });
    assert.equal((await edge('hello.dovrin.test', '/')).body.toString(), 'second deployment');
  });
});

describe('a bucket on its custom domain', () => {
  const object = randomBytes(1000);
  const host = 'media.dovrin.test';
  const origin = 'https://watch.dovrin.test';

  before(async () => {
    const account_id = local.account;
    await cf.r2.buckets.create({ account_id, name: 'edge-media' });
    await putObject('edge-media', 'clips/a.bin', object, { 'content-type': 'video/mp4', 'cache-control': 'public, max-age=60' });
    await putObject('edge-media', '_vorlen/site.json', '{}', { 'content-type': 'application/json' });
    await cf.r2.buckets.cors.update('edge-media', {
      account_id,
      rules: [{ allowed: { origins: [origin], methods: ['GET', 'HEAD'], headers: ['range'] }, exposeHeaders: ['Content-Range'], maxAgeSeconds: 600 }],
    });
    await cf.r2.buckets.domains.custom.create('edge-media', { account_id, domain: host, zoneId: zoneOf('dovrin.test'), enabled: true });
  });

  test('objects answer ranges with their own headers, HEAD, 404 and the bucket\'s CORS policy', async () => {
    const part = await edge(host, '/clips/a.bin', { headers: { range: 'bytes=10-19', origin } });
    assert.equal(part.status, 206);
    assert.deepEqual(part.body, object.subarray(10, 20));
    assert.equal(part.headers['content-range'], 'bytes 10-19/1000');
    assert.equal(part.headers['content-length'], '10');
    assert.deepEqual([part.headers['content-type'], part.headers['cache-control']], ['video/mp4', 'public, max-age=60']);
    assert.ok(part.headers.etag && part.headers['last-modified']);
    assert.deepEqual([part.headers['access-control-allow-origin'], part.headers['access-control-expose-headers']], [origin, 'Content-Range']);

    const head = await edge(host, '/clips/a.bin', { method: 'HEAD' });
    assert.deepEqual([head.status, head.headers['content-length'], head.body.length], [200, '1000', 0]);
    assert.equal((await edge(host, '/clips/missing.bin')).status, 404);

    const preflight = (from, requested) => edge(host, '/clips/a.bin', {
      method: 'OPTIONS', headers: { origin: from, 'access-control-request-method': 'GET', 'access-control-request-headers': requested },
    });
    const allowed = await preflight(origin, 'range');
    assert.equal(allowed.status, 204);
    assert.deepEqual([allowed.headers['access-control-allow-origin'], allowed.headers['access-control-max-age']], [origin, '600']);
    assert.equal((await preflight('https://elsewhere.test', 'range')).status, 403);
    assert.equal((await preflight(origin, 'x-other')).status, 403);
  });

  test('a WAF rule blocks before the bucket, a cache rule is named, and an expression outside the subset is refused', async () => {
    const zone_id = zoneOf('dovrin.test');
    assert.equal((await edge(host, '/_vorlen/site.json')).status, 200);
    const firewall = await cf.rulesets.create({
      zone_id, name: 'default', kind: 'zone', phase: 'http_request_firewall_custom',
      rules: [{ action: 'block', expression: 'starts_with(http.request.uri.path, "/_vorlen/")', description: 'system folder' }],
    });
    const cache = await cf.rulesets.create({
      zone_id, name: 'default', kind: 'zone', phase: 'http_request_cache_settings',
      rules: [{
        action: 'set_cache_settings', action_parameters: { cache: true },
        expression: `http.host in {"${host}"} and ends_with(http.request.uri.path, ".bin")`,
      }],
    });
    await control('DELETE', 'edge-requests');
    assert.equal((await edge(host, '/_vorlen/site.json')).status, 403);
    const media = await edge(host, '/clips/a.bin', { headers: { range: 'bytes=0-0' } });
    assert.deepEqual([media.status, media.headers['x-local-cache-rule']], [206, cache.rules[0].id]);
    assert.deepEqual(await control('GET', 'edge-requests'), [
      { host, method: 'GET', path: '/_vorlen/site.json', status: 403, rule: firewall.rules[0].id },
      { host, method: 'GET', path: '/clips/a.bin', status: 206, rule: cache.rules[0].id },
    ]);

    const unsupported = { action: 'block', expression: 'http.request.uri.query contains "debug"' };
    for (const write of [
      () => cf.rulesets.rules.create(firewall.id, { zone_id, ...unsupported }),
      () => cf.rulesets.rules.edit(firewall.rules[0].id, { zone_id, ruleset_id: firewall.id, ...unsupported }),
    ]) {
      await assert.rejects(write(), (error) => error instanceof sdk.BadRequestError && error.errors[0].code === 20100
        && /not supported by the local account/.test(error.errors[0].message));
    }
    assert.equal((await cf.rulesets.phases.get('http_request_firewall_custom', { zone_id })).rules[0].expression,
      'starts_with(http.request.uri.path, "/_vorlen/")');
  });
});

describe('Workers with bindings', () => {
  test('the page Worker bundle answers its home page and assets from its bucket, session store and secret', async () => {
    const account_id = local.account;
    const manifest = JSON.parse(await readFile(path.join(workerDir, 'manifest.json'), 'utf8'));
    await cf.r2.buckets.create({ account_id, name: 'edge-site' });
    const sessions = await cf.kv.namespaces.create({ account_id, title: 'edge-sessions' });
    await putObject('edge-site', '_vorlen/site.json', JSON.stringify({
      version: 1,
      media_host: 'media.media-dovrin.test',
      page_host: 'watch.media-dovrin.test',
      template: 'light',
      worker: { name: 'vorlen-pages', version: manifest.version },
      home_page: { public: true, title: 'Films of the Harbour', search: true, sort: 'newest', poster_size: 'medium' },
      embeds: { sites: 'none', origins: [] },
    }), { 'content-type': 'application/json' });
    await uploadScript('vorlen-pages', {
      mainModule: manifest.main_module,
      modules: { [manifest.main_module]: await readFile(path.join(workerDir, manifest.main_module), 'utf8') },
      compatibilityDate: manifest.compatibility_date,
      bindings: [
        { type: 'r2_bucket', name: manifest.bucket_binding, bucket_name: 'edge-site' },
        { type: 'kv_namespace', name: manifest.sessions_binding, namespace_id: sessions.id },
        { type: 'secret_text', name: manifest.challenge_key_binding, text: randomBytes(32).toString('hex') },
      ],
      assetsRoot: path.join(workerDir, 'assets'),
      headers: manifest.headers,
    });
    await cf.workers.domains.update({ account_id, hostname: 'watch.media-dovrin.test', service: 'vorlen-pages', zone_id: zoneOf('media-dovrin.test') });

    const home = await edge('watch.media-dovrin.test', '/');
    assert.equal(home.status, 200, home.body.toString());
    assert.match(home.headers['content-type'], /^text\/html/);
    assert.match(home.body.toString(), /Films of the Harbour/);
    const style = await edge('watch.media-dovrin.test', '/_assets/site.css');
    assert.deepEqual([style.status, style.headers['cache-control']], [200, 'public, max-age=3600']);
    assert.deepEqual(style.body, await readFile(path.join(workerDir, 'assets', '_assets', 'site.css')));
  });

  test('an R2 binding reads and writes the bucket on the gateway, with ranges, conditions and lists', async () => {
    const account_id = local.account;
    await cf.r2.buckets.create({ account_id, name: 'edge-probe' });
    await putObject('edge-probe', 'seed/one.txt', '0123456789', { 'content-type': 'text/plain' });
    const probe = `export default { async fetch(request, env) {
      const bucket = env.STORE;
      const out = {};
      const whole = await bucket.get('seed/one.txt');
      out.whole = [await whole.text(), whole.httpMetadata.contentType, whole.size];
      const part = await bucket.get('seed/one.txt', { range: { offset: 2, length: 3 } });
      out.part = [await part.text(), part.range];
      const unchanged = await bucket.get('seed/one.txt', { onlyIf: new Headers({ 'if-none-match': whole.httpEtag }) });
      out.unchanged = [unchanged !== null, 'body' in unchanged];
      const written = await bucket.put('made/two.txt', 'written', { httpMetadata: { contentType: 'text/x-made' }, customMetadata: { by: 'probe' } });
      const head = await bucket.head('made/two.txt');
      out.written = [written.size, head.httpMetadata.contentType, head.customMetadata.by, head.etag === written.etag];
      const listed = await bucket.list({ delimiter: '/' });
      out.listed = [listed.objects.length, listed.delimitedPrefixes.sort(), listed.truncated];
      await bucket.put('made/three.txt', 'brief');
      await bucket.delete(['made/three.txt']);
      out.gone = [await bucket.get('made/three.txt'), await bucket.head('made/three.txt')];
      return Response.json(out);
    } };`;
    await uploadScript('r2-probe', { mainModule: 'probe.js', modules: { 'probe.js': probe }, bindings: [{ type: 'r2_bucket', name: 'STORE', bucket_name: 'edge-probe' }] });
    await cf.workers.domains.update({ account_id, hostname: 'probe.dovrin.test', service: 'r2-probe', zone_id: zoneOf('dovrin.test') });

    const answer = await edge('probe.dovrin.test', '/');
    assert.equal(answer.status, 200, answer.body.toString());
    assert.deepEqual(JSON.parse(answer.body), {
      whole: ['0123456789', 'text/plain', 10],
      part: ['234', { offset: 2, length: 3 }],
      unchanged: [true, false],
      written: [7, 'text/x-made', 'probe', true],
      listed: [0, ['made/', 'seed/'], false],
      gone: [null, null],
    });
    const fromGateway = await sendS3({ endpoint: local.r2, credentials: await setupS3Credentials(), method: 'GET', bucket: 'edge-probe', key: 'made/two.txt' });
    assert.deepEqual([fromGateway.status, fromGateway.body.toString(), fromGateway.headers.get('content-type')], [200, 'written', 'text/x-made']);
  });
});
