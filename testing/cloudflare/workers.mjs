// Workers: the static assets' upload session, the asset upload, the script upload with its
// bindings, settings, deletion, the workers.dev route and Worker domains. Follows
// https://developers.cloudflare.com/workers/static-assets/direct-upload/ (a manifest of
// path → {hash, size} answers an upload JWT and "buckets" of the hashes not yet held; the
// files go base64 in multipart parts named by hash, with that JWT as bearer; the upload
// that completes the set answers 201 with the completion "jwt"),
// https://developers.cloudflare.com/workers/configuration/multipart-upload-metadata/ (a
// "metadata" JSON part with main_module, compatibility_date, bindings and assets {jwt,
// config}, beside the module parts), and
// https://developers.cloudflare.com/api/resources/workers/subresources/scripts/ with its
// settings and subdomain subresources and https://developers.cloudflare.com/api/resources/workers/subresources/domains/.
// Everything the edge needs to run a Worker stays in the state: modules and assets as
// blobs, bindings with their secret texts, the assets' headers, the Worker domains.
import { createHmac, timingSafeEqual } from 'node:crypto';
import { fail, invalidBody, jsonBody, requireText } from './api.mjs';
import { isoNow, newId, sha256Hex } from './state.mjs';

const HASH = /^[0-9a-f]{32}$/;
const BUCKET_SIZE = 10;

function scriptNotFound() {
  return fail(404, 10007, 'workers.api.error.script_not_found');
}

function scriptError(message) {
  return fail(400, 10021, message);
}

function sign(secret, payload) {
  const encoded = (value) => Buffer.from(JSON.stringify(value)).toString('base64url');
  const head = `${encoded({ alg: 'HS256', typ: 'JWT' })}.${encoded(payload)}`;
  return `${head}.${createHmac('sha256', secret).update(head).digest('base64url')}`;
}

function claims(secret, jwt) {
  const parts = String(jwt).split('.');
  if (parts.length !== 3) return null;
  const expected = Buffer.from(createHmac('sha256', secret).update(`${parts[0]}.${parts[1]}`).digest('base64url'));
  const given = Buffer.from(parts[2]);
  if (given.length !== expected.length || !timingSafeEqual(given, expected)) return null;
  try {
    return JSON.parse(Buffer.from(parts[1], 'base64url').toString('utf8'));
  } catch {
    return null;
  }
}

// The session that an upload JWT stands for, or null.
export function uploadSession(store, jwt) {
  const payload = claims(store.state.workers.secret, jwt);
  return payload?.kind === 'upload' ? store.state.workers.uploadSessions[payload.session] ?? null : null;
}

async function formOf(request) {
  const contentType = request.headers['content-type'] ?? '';
  if (!contentType.startsWith('multipart/form-data')) return null;
  try {
    return await new Request('http://127.0.0.1/', { method: 'POST', headers: { 'content-type': contentType }, body: request.body }).formData();
  } catch {
    return null;
  }
}

async function partBytes(value) {
  return typeof value === 'string' ? Buffer.from(value, 'utf8') : Buffer.from(await value.arrayBuffer());
}

export function routes({ store }) {
  const { state } = store;
  const workers = state.workers;
  const completion = (session) => sign(workers.secret, { kind: 'complete', session: session.id, iat: Date.now() });

  function scriptOf(request) {
    const script = workers.scripts[request.params.script];
    if (!script) throw scriptNotFound();
    return script;
  }

  function bindingsFrom(list) {
    if (list === undefined) return [];
    if (!Array.isArray(list)) throw scriptError('bindings must be a list');
    return list.map((binding) => {
      if (typeof binding?.type !== 'string' || typeof binding.name !== 'string') throw scriptError('a binding needs a type and a name');
      if (binding.type === 'r2_bucket' && !store.bucket(binding.bucket_name)) {
        throw scriptError(`R2 bucket '${binding.bucket_name}' not found for binding '${binding.name}'`);
      }
      if (binding.type === 'kv_namespace' && !state.kvNamespaces.some((namespace) => namespace.id === binding.namespace_id)) {
        throw scriptError(`KV namespace '${binding.namespace_id}' not found for binding '${binding.name}'`);
      }
      if (binding.type === 'secret_text' && typeof binding.text !== 'string') throw scriptError(`the secret '${binding.name}' has no text`);
      return binding;
    });
  }

  function assetsFrom(metadata) {
    if (!metadata.assets) return null;
    const payload = claims(workers.secret, metadata.assets.jwt);
    const session = payload?.kind === 'complete' ? workers.uploadSessions[payload.session] : null;
    if (!session) throw scriptError('the assets completion token is not valid');
    return { manifest: session.manifest, config: metadata.assets.config ?? {} };
  }

  function scriptView(name, script) {
    return {
      id: name,
      tag: script.tag,
      etag: script.etag,
      has_assets: Boolean(script.assets),
      has_modules: true,
      handlers: ['fetch'],
      compatibility_date: script.compatibility_date,
      compatibility_flags: script.compatibility_flags,
      created_on: script.created_on,
      modified_on: script.modified_on,
      usage_model: 'standard',
      startup_time_ms: 0,
    };
  }

  async function scriptFromForm(request, before) {
    const form = await formOf(request);
    const metadataPart = form?.get('metadata');
    let metadata;
    try {
      metadata = JSON.parse((await partBytes(metadataPart)).toString('utf8'));
    } catch {
      throw scriptError('could not read content for part metadata');
    }
    const mainModule = metadata.main_module;
    const modules = [];
    for (const [name, value] of form.entries()) {
      if (name === 'metadata' || typeof value === 'string') continue;
      const data = await partBytes(value);
      modules.push({ name: value.name || name, contentType: value.type, blob: store.putBlob(data), sha256: sha256Hex(data) });
    }
    if (typeof mainModule !== 'string' || !modules.some((module) => module.name === mainModule)) {
      throw scriptError(`No such module "${mainModule}".`);
    }
    return {
      tag: newId(),
      etag: sha256Hex(modules.map((module) => module.sha256).join('') + JSON.stringify(metadata.bindings ?? [])),
      created_on: before?.created_on ?? isoNow(),
      modified_on: isoNow(),
      main_module: mainModule,
      compatibility_date: metadata.compatibility_date ?? '2021-11-03',
      compatibility_flags: metadata.compatibility_flags ?? [],
      bindings: bindingsFrom(metadata.bindings),
      modules,
      assets: assetsFrom(metadata),
      subdomain: before?.subdomain ?? { enabled: true, previews_enabled: true },
    };
  }

  function deploymentView(script) {
    return {
      id: script.tag, source: 'api', strategy: 'percentage', author_email: '', created_on: script.modified_on,
      annotations: {}, versions: [{ version_id: script.tag, percentage: 100 }],
    };
  }

  function zoneForHostname(body) {
    const zone = body.zone_id ? store.zone(body.zone_id) : state.zones.find((candidate) => candidate.name === body.zone_name);
    const hostname = body.hostname.toLowerCase();
    if (!zone || !(hostname === zone.name || hostname.endsWith(`.${zone.name}`))) {
      throw invalidBody(`The hostname ${hostname} does not belong to the zone given.`);
    }
    return zone;
  }

  return {
    'POST accounts/:account/workers/scripts/:script/assets-upload-session': (request) => {
      const { manifest } = jsonBody(request);
      const entries = Object.entries(manifest ?? {});
      if (!manifest || typeof manifest !== 'object'
        || entries.some(([file, entry]) => !file.startsWith('/') || !HASH.test(entry?.hash ?? '') || !Number.isInteger(entry.size))) {
        throw invalidBody('manifest must map paths that begin with "/" to a 32-character hash and a size');
      }
      const missing = [...new Set(entries.map(([, entry]) => entry.hash))].filter((hash) => !workers.assets[hash]);
      const session = { id: newId(), script: request.params.script, manifest, pending: missing, created_on: isoNow() };
      workers.uploadSessions[session.id] = session;
      if (missing.length === 0) return { result: { jwt: completion(session), buckets: [] } };
      const buckets = [];
      for (let index = 0; index < missing.length; index += BUCKET_SIZE) buckets.push(missing.slice(index, index + BUCKET_SIZE));
      return { result: { jwt: sign(workers.secret, { kind: 'upload', session: session.id, iat: Date.now() }), buckets } };
    },

    'POST accounts/:account/workers/assets/upload': async (request) => {
      if (request.query.base64 !== 'true') throw invalidBody('base64 must be true');
      const form = await formOf(request);
      if (!form) throw invalidBody('the upload must be multipart/form-data');
      const { session } = request;
      for (const [hash, value] of form.entries()) {
        if (!session.manifest || !Object.values(session.manifest).some((entry) => entry.hash === hash)) {
          throw invalidBody(`the hash ${hash} is not part of this upload session`);
        }
        const data = Buffer.from((await partBytes(value)).toString('ascii'), 'base64');
        const type = typeof value === 'string' ? null : value.type || null;
        workers.assets[hash] = { blob: store.putBlob(data), size: data.length, contentType: type === 'application/null' ? null : type };
        session.pending = session.pending.filter((candidate) => candidate !== hash);
      }
      return session.pending.length === 0 ? { status: 201, result: { jwt: completion(session) } } : { status: 202, result: {} };
    },

    'PUT accounts/:account/workers/scripts/:script': async (request) => {
      const script = await scriptFromForm(request, workers.scripts[request.params.script]);
      workers.scripts[request.params.script] = script;
      return { result: scriptView(request.params.script, script) };
    },

    // A version is uploaded as a script is, and serves only once a deployment names it.
    'POST accounts/:account/workers/scripts/:script/versions': async (request) => {
      const version = await scriptFromForm(request, scriptOf(request));
      workers.versions[version.tag] = { script: request.params.script, version };
      return {
        result: {
          id: version.tag,
          number: Object.values(workers.versions).filter((entry) => entry.script === request.params.script).length,
          metadata: { created_on: version.modified_on, source: 'api' },
          resources: {
            script: { etag: version.etag, handlers: ['fetch'] },
            bindings: version.bindings.map(({ text, ...binding }) => binding),
          },
          startup_time_ms: 0,
        },
      };
    },

    'POST accounts/:account/workers/scripts/:script/deployments': (request) => {
      scriptOf(request);
      const body = jsonBody(request);
      const [only, ...others] = Array.isArray(body.versions) ? body.versions : [];
      const entry = workers.versions[only?.version_id];
      if (others.length > 0 || only?.percentage !== 100 || entry?.script !== request.params.script) {
        throw invalidBody('the local account deploys one version of this script at 100 percent');
      }
      workers.scripts[request.params.script] = entry.version;
      delete workers.versions[only.version_id];
      return { result: deploymentView(entry.version) };
    },

    // Settings that do not change the running Worker (logpush, tail consumers, tags).
    'PATCH accounts/:account/workers/scripts/:script/script-settings': (request) => {
      scriptOf(request);
      return { result: { logpush: false, tail_consumers: [], observability: { enabled: false }, tags: [] } };
    },

    // Not in the API reference (a "service" is the script with its environments), but
    // wrangler asks it before every deploy: a 10090 answer makes the script new to it.
    'GET accounts/:account/workers/services/:script': (request) => {
      const script = workers.scripts[request.params.script];
      if (!script) throw fail(404, 10090, 'workers.api.error.service_not_found');
      return {
        result: {
          id: request.params.script,
          default_environment: {
            environment: 'production',
            created_on: script.created_on,
            modified_on: script.modified_on,
            script: { ...scriptView(request.params.script, script), tags: [], last_deployed_from: 'api' },
          },
          created_on: script.created_on,
          modified_on: script.modified_on,
        },
      };
    },

    // The deployment that serves now: the last upload, whole.
    'GET accounts/:account/workers/scripts/:script/deployments': (request) => {
      return { result: { deployments: [deploymentView(scriptOf(request))] } };
    },

    'GET accounts/:account/workers/scripts/:script/settings': (request) => {
      const script = scriptOf(request);
      return {
        result: {
          bindings: script.bindings.map(({ text, ...binding }) => binding),
          compatibility_date: script.compatibility_date,
          compatibility_flags: script.compatibility_flags,
          logpush: false,
          placement: {},
          tags: [],
          tail_consumers: [],
          usage_model: 'standard',
        },
      };
    },

    'DELETE accounts/:account/workers/scripts/:script': (request) => {
      scriptOf(request);
      delete workers.scripts[request.params.script];
      workers.domains = workers.domains.filter((domain) => domain.service !== request.params.script);
      return { result: null };
    },

    'GET accounts/:account/workers/scripts/:script/subdomain': (request) => ({ result: scriptOf(request).subdomain }),

    'POST accounts/:account/workers/scripts/:script/subdomain': (request) => {
      const script = scriptOf(request);
      const body = jsonBody(request);
      if (typeof body.enabled !== 'boolean') throw invalidBody('enabled must be true or false');
      script.subdomain = { enabled: body.enabled, previews_enabled: body.previews_enabled ?? body.enabled };
      return { result: script.subdomain };
    },

    'GET accounts/:account/workers/subdomain': () => ({ result: { subdomain: workers.subdomain } }),

    'GET accounts/:account/workers/domains': (request) => {
      const { hostname, service, zone_id: zoneId } = request.query;
      return {
        result: workers.domains.filter((domain) => (!hostname || domain.hostname === hostname.toLowerCase())
          && (!service || domain.service === service) && (!zoneId || domain.zone_id === zoneId)),
      };
    },

    'PUT accounts/:account/workers/domains': (request) => {
      const body = jsonBody(request);
      requireText(body, 'hostname');
      const service = requireText(body, 'service');
      if (!workers.scripts[service]) throw scriptNotFound();
      const zone = zoneForHostname(body);
      const hostname = body.hostname.toLowerCase();
      const domain = {
        id: workers.domains.find((candidate) => candidate.hostname === hostname)?.id ?? newId(),
        hostname, service, environment: body.environment ?? 'production', zone_id: zone.id, zone_name: zone.name, cert_id: newId(),
      };
      workers.domains = [...workers.domains.filter((candidate) => candidate.hostname !== hostname), domain];
      return { result: domain };
    },

    'DELETE accounts/:account/workers/domains/:domain': (request) => {
      if (!workers.domains.some((domain) => domain.id === request.params.domain)) throw fail(404, 100117, 'Domain not found');
      workers.domains = workers.domains.filter((domain) => domain.id !== request.params.domain);
      return { result: null };
    },
  };
}
