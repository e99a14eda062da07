// The deployed Workers of the account, each running in workerd through Miniflare as it
// was last uploaded: its modules, its static assets (from the upload session's manifest,
// with the "_headers" of the upload's metadata) and its bindings. An R2 binding reaches
// the bucket on the gateway (edgeR2.js inside workerd, S3 here), a KV namespace is
// Miniflare's own, kept under DIR/edge/kv, a secret or plain text is a text binding.
// A new upload of a script replaces its running Worker on the next request.
import { mkdir, readFile, rm, symlink, writeFile } from 'node:fs/promises';
import { createRequire } from 'node:module';
import path from 'node:path';
import { CONDITION_HEADERS, OBJECT_HEADERS, pickHeaders, STORED_HEADERS } from './rgw.mjs';

const toolsRequire = createRequire(new URL('../../tools/package.json', import.meta.url));
const { Miniflare, Response: MiniflareResponse } = toolsRequire('miniflare');

const ENTRY = '__edge_entry.mjs';
const R2_MODULE = '__edge_r2.js';

function moduleType(module) {
  const type = module.contentType ?? '';
  if (type.includes('+module') || module.name.endsWith('.mjs')) return 'ESModule';
  if (type === 'application/javascript' || type === 'text/javascript') return 'CommonJS';
  if (type === 'application/wasm') return 'CompiledWasm';
  if (type.startsWith('text/')) return 'Text';
  return module.name.endsWith('.js') ? 'ESModule' : 'Data';
}

// The generated main module: the uploaded one, called with its R2 bindings in place.
function entrySource(mainModule, bucketNames) {
  return `import * as uploaded from './${mainModule}';
import { LocalR2Bucket } from './${R2_MODULE}';
const buckets = ${JSON.stringify(bucketNames)};
function withBuckets(env) {
  const out = { ...env };
  for (const name of buckets) {
    out[name] = new LocalR2Bucket(env['__s3_' + name]);
    delete out['__s3_' + name];
  }
  return out;
}
export default {
  fetch(request, env, ctx) { return uploaded.default.fetch(request, withBuckets(env), ctx); },
};
`;
}

// The service that edgeR2.js calls: one bucket's objects over S3.
function s3Service(gateway, bucket) {
  return async (request) => {
    const url = new URL(request.url);
    const operation = url.pathname.slice(1);
    if (operation === 'list') {
      const options = Object.fromEntries(url.searchParams);
      return MiniflareResponse.json(await gateway.list(bucket, options));
    }
    const key = url.searchParams.get('key');
    const headers = pickHeaders(request.headers, [...CONDITION_HEADERS, ...STORED_HEADERS]);
    for (const [name, value] of request.headers) if (name.startsWith('x-amz-meta-')) headers[name] = value;
    const body = request.method === 'PUT' ? Buffer.from(await request.arrayBuffer()) : undefined;
    let answer = await gateway.object(request.method, bucket, key, headers, body);
    // A write answers the object as it now stands.
    if (request.method === 'PUT' && answer.status === 200) answer = await gateway.object('HEAD', bucket, key);
    const out = pickHeaders(answer.headers, OBJECT_HEADERS);
    for (const [name, value] of answer.headers) if (name.startsWith('x-amz-meta-')) out[name] = value;
    const empty = request.method !== 'GET' || answer.status === 304 || answer.status === 204;
    return new MiniflareResponse(empty ? null : answer.body, { status: answer.status, headers: out });
  };
}

export class EdgeWorkers {
  constructor({ store, gateway, dir }) {
    this.store = store;
    this.gateway = gateway;
    this.dir = dir;
    this.running = new Map();
  }

  // The running Worker of a script, started or replaced when its upload is newer.
  async worker(name) {
    const script = this.store.state.workers.scripts[name];
    if (!script) return null;
    const current = this.running.get(name);
    if (current?.tag === script.tag) return current.ready;
    const ready = this.start(name, script);
    this.running.set(name, { tag: script.tag, ready });
    // A Worker that did not start is tried again on the next request.
    ready.catch(() => { if (this.running.get(name)?.ready === ready) this.running.delete(name); });
    if (current) current.ready.then((old) => old.dispose()).catch(() => {});
    return ready;
  }

  async start(name, script) {
    const root = path.join(this.dir, 'scripts', `${name}-${script.tag}`);
    await rm(root, { recursive: true, force: true });
    await mkdir(root, { recursive: true });
    const buckets = script.bindings.filter((binding) => binding.type === 'r2_bucket');
    const modules = [
      { type: 'ESModule', path: path.join(root, ENTRY), contents: entrySource(script.main_module, buckets.map((binding) => binding.name)) },
      { type: 'ESModule', path: path.join(root, R2_MODULE), contents: await readFile(new URL('./edgeR2.js', import.meta.url), 'utf8') },
    ];
    for (const module of script.modules) {
      modules.push({ type: moduleType(module), path: path.join(root, module.name), contents: await readFile(this.store.blobPath(module.blob)) });
    }
    const bindings = {};
    const kvNamespaces = {};
    let assetsBinding;
    for (const binding of script.bindings) {
      if (binding.type === 'secret_text' || binding.type === 'plain_text') bindings[binding.name] = binding.text;
      else if (binding.type === 'kv_namespace') kvNamespaces[binding.name] = binding.namespace_id;
      else if (binding.type === 'assets') assetsBinding = binding.name;
    }
    const serviceBindings = Object.fromEntries(buckets.map((binding) => [`__s3_${binding.name}`, s3Service(this.gateway, binding.bucket_name)]));
    const mf = new Miniflare({
      host: '127.0.0.1',
      modules,
      modulesRoot: root,
      compatibilityDate: script.compatibility_date,
      compatibilityFlags: script.compatibility_flags,
      cf: false,
      cache: false,
      bindings,
      kvNamespaces,
      kvPersist: path.join(this.dir, 'kv'),
      serviceBindings,
      ...(script.assets ? { assets: await this.assetOptions(root, script.assets, assetsBinding) } : {}),
    });
    await mf.ready;
    return mf;
  }

  // A folder of the manifest's paths, each a link to its uploaded bytes, with "_headers".
  async assetOptions(root, assets, binding) {
    const directory = path.join(root, 'assets');
    for (const [file, entry] of Object.entries(assets.manifest)) {
      const stored = this.store.state.workers.assets[entry.hash];
      if (!stored) continue;
      const target = path.join(directory, file);
      await mkdir(path.dirname(target), { recursive: true });
      await symlink(this.store.blobPath(stored.blob), target);
    }
    await mkdir(directory, { recursive: true });
    if (assets.config._headers) await writeFile(path.join(directory, '_headers'), assets.config._headers);
    if (assets.config._redirects) await writeFile(path.join(directory, '_redirects'), assets.config._redirects);
    const assetConfig = Object.fromEntries(['html_handling', 'not_found_handling']
      .filter((name) => assets.config[name] !== undefined).map((name) => [name, assets.config[name]]));
    return { directory, ...(binding ? { binding } : {}), assetConfig, routerConfig: { has_user_worker: true } };
  }

  async dispatch(name, url, init) {
    const mf = await this.worker(name);
    return mf.dispatchFetch(url, { redirect: 'manual', ...init });
  }

  async close() {
    const all = [...this.running.values()];
    this.running.clear();
    await Promise.allSettled(all.map(async ({ ready }) => (await ready).dispose()));
  }
}
