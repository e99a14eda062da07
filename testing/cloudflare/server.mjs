// A local Cloudflare account on loopback: the REST API under /client/v4 and a control
// surface under /__local/, on one port. Every API request passes one router, one
// authorization check and one envelope writer, and is recorded. Follows
// https://developers.cloudflare.com/fundamentals/api/how-to/make-api-calls/ (bearer tokens,
// the envelope) and Cloudflare's answers for an unknown route (HTTP 400, codes 7003
// "Could not route to /…, perhaps your object identifier is invalid?" and 7000 "No route
// for that URI") and for missing credentials (HTTP 400, code 9106).
//   node server.mjs DIR FIXTURE   (the gateway comes from VORLEN_CF_RGW_* variables)
import http from 'node:http';
import https from 'node:https';
import { writeFileSync } from 'node:fs';
import path from 'node:path';
import { ApiError, fail, readBody } from './api.mjs';
import { certificateNames, Edge, makeCertificates } from './edge.mjs';
import { EdgeWorkers } from './edgeWorkers.mjs';
import { ENDPOINT_PERMISSIONS, reachesR2, tokenAllows } from './permissions.mjs';
import { Gateway } from './rgw.mjs';
import { Store } from './state.mjs';
import { routes as accountRoutes } from './zones.mjs';
import { routes as kvRoutes } from './kv.mjs';
import { routes as r2Routes } from './r2.mjs';
import { routes as tokenRoutes, addUserToken } from './tokens.mjs';
import { routes as workerRoutes, uploadSession } from './workers.mjs';

const API_PREFIX = '/client/v4/';
const CONTROL_PREFIX = '/__local/';
const HEX32 = /^[0-9a-f]{32}$/;

function envelope(status, { result = null, resultInfo, errors = [], messages = [] }) {
  const body = { success: status < 300 && errors.length === 0, errors, messages, result };
  if (resultInfo) body.result_info = resultInfo;
  return body;
}

function writeJson(response, status, body, headers = {}) {
  const data = Buffer.from(JSON.stringify(body), 'utf8');
  response.writeHead(status, { 'content-type': 'application/json', 'content-length': data.length, ...headers });
  response.end(data);
}

// Patterns are "accounts/:account/r2/buckets/:bucket/objects/*key": ":name" is one segment
// (":account" and ":zone" must be 32 hexadecimal characters, as Cloudflare's identifiers
// are), "*name" the rest of the path.
function compile(key, handler) {
  const [method, pattern] = key.split(' ');
  const parts = pattern.split('/');
  return { key, method, parts, handler, literals: parts.filter((part) => !/^[:*]/.test(part)).length };
}

function match(route, method, segments) {
  if (route.method !== method) return null;
  const params = {};
  for (let index = 0; index < route.parts.length; index += 1) {
    const part = route.parts[index];
    if (part.startsWith('*')) {
      if (index >= segments.length) return null;
      params[part.slice(1)] = segments.slice(index).join('/');
      return params;
    }
    const segment = segments[index];
    if (segment === undefined) return null;
    if (part.startsWith(':')) {
      const name = part.slice(1);
      if ((name === 'account' || name === 'zone') && !HEX32.test(segment)) return null;
      params[name] = segment;
    } else if (part !== segment) {
      return null;
    }
  }
  return segments.length === route.parts.length ? params : null;
}

const REFUSED = { zone: [9109, 'Unauthorized to access requested resource'] };

class Account {
  constructor(store, gateway) {
    this.store = store;
    this.gateway = gateway;
    this.records = [];
    this.faults = { share: 0, kinds: [], retryAfter: 1 };
    this.script = [];
    this.writeQueue = Promise.resolve();
    const context = { store, gateway };
    const handlers = {
      ...accountRoutes(context), ...kvRoutes(context), ...r2Routes(context), ...tokenRoutes(context), ...workerRoutes(context),
    };
    for (const key of Object.keys(handlers)) {
      if (!ENDPOINT_PERMISSIONS[key]) throw new Error(`no permission is listed for ${key}`);
    }
    for (const key of Object.keys(ENDPOINT_PERMISSIONS)) {
      if (!handlers[key]) throw new Error(`no handler answers ${key}`);
    }
    this.routes = Object.entries(handlers).map(([key, handler]) => compile(key, handler));
  }

  // Buckets, their CORS policies and the tokens' S3 keys live on the gateway, which starts
  // empty: a restart puts them back (objects are lost with the gateway).
  async reconcile() {
    const scratch = `local-warm-up-${process.pid}`;
    await this.gateway.createBucket(scratch);
    await this.gateway.deleteBucket(scratch);
    for (const bucket of this.store.state.buckets) {
      await this.gateway.createBucket(bucket.name);
      if (bucket.cors) await this.gateway.putCors(bucket.name, bucket.cors);
    }
    for (const token of this.store.state.tokens) {
      if (token.status === 'active' && reachesR2(token)) await this.gateway.addTokenKey(token);
    }
  }

  nextFault() {
    if (this.script.length > 0) return this.script.shift();
    const { share, kinds, retryAfter } = this.faults;
    if (!(share > 0) || kinds.length === 0 || Math.random() >= share) return null;
    const kind = kinds[Math.floor(Math.random() * kinds.length)];
    return kind === 'reset' ? { reset: true } : { status: Number(kind), retryAfter: kind === '429' ? retryAfter : undefined };
  }

  // A faulted request is answered before it is looked at, so it changes nothing.
  answerFault(fault, response) {
    if (fault.reset) {
      response.socket.resetAndDestroy();
      return null;
    }
    const headers = fault.retryAfter !== undefined ? { 'retry-after': String(fault.retryAfter) } : {};
    if (fault.body !== undefined) {
      response.writeHead(fault.status, { 'content-type': 'application/json', ...headers });
      response.end(fault.body);
    } else if (fault.html) {
      response.writeHead(fault.status, { 'content-type': 'text/html; charset=UTF-8', ...headers });
      response.end(`<!DOCTYPE html>\n<html><head><title>${fault.status} Bad Gateway | Cloudflare</title></head>`
        + `<body><h1>Error ${fault.status}</h1><p>Bad gateway. The web server reported a bad gateway error.</p></body></html>\n`);
    } else {
      const [code, message] = fault.status === 429
        ? [971, 'Please wait and consider throttling your request speed']
        : [10001, fault.status === 503 ? 'Service temporarily unavailable.' : 'Internal server error.'];
      writeJson(response, fault.status, envelope(fault.status, { errors: [{ code, message }] }), headers);
    }
    return fault.status;
  }

  resolveRoute(method, rawPath) {
    const rawSegments = rawPath.split('/');
    let segments;
    try {
      segments = rawSegments.map((segment) => decodeURIComponent(segment));
    } catch {
      segments = null;
    }
    if (segments && !segments.includes('')) {
      // "tokens/verify" is a literal path, not the token "verify": literal parts win.
      const found = this.routes.map((route) => ({ route, params: match(route, method, segments) }))
        .filter(({ params }) => params)
        .sort((a, b) => b.route.literals - a.route.literals);
      if (found.length > 0) return found[0];
    }
    throw new ApiError(400, [
      { code: 7003, message: `Could not route to /${rawPath}, perhaps your object identifier is invalid?` },
      { code: 7000, message: 'No route for that URI' },
    ]);
  }

  target(need, request) {
    const { account } = this.store.state;
    const zone = need.zone ?? request.params.zone;
    return {
      on: need.on,
      account: need.on === 'zone' ? (this.store.zone(zone) ? account.id : undefined) : (request.params.account ?? account.id),
      zone,
      bucket: request.params.bucket,
    };
  }

  allows(token, need, request) {
    return tokenAllows(token, need, this.target(need, request));
  }

  authorize(request, route) {
    const header = request.headers.authorization;
    if (!header) throw fail(400, 9106, 'Missing X-Auth-Key, X-Auth-Email or Authorization headers');
    const bearer = /^Bearer\s+(\S+)\s*$/.exec(header);
    if (!bearer) {
      throw new ApiError(400, [{ code: 6003, message: 'Invalid request headers', error_chain: [{ code: 6111, message: 'Invalid format for Authorization header' }] }]);
    }
    const need = ENDPOINT_PERMISSIONS[route.key];
    if (need === 'session') {
      request.session = uploadSession(this.store, bearer[1]);
      if (!request.session) throw fail(401, 10000, 'Authentication error');
      return;
    }
    const { state } = this.store;
    const token = state.tokens.find((candidate) => candidate.value === bearer[1] && candidate.status === 'active');
    const verifying = route.key.endsWith('tokens/verify');
    if (!token) throw verifying ? fail(401, 1000, 'Invalid API Token') : fail(401, 10000, 'Authentication error');
    request.token = token;
    if (verifying) {
      const fits = route.key.startsWith('GET user/') ? token.kind === 'user' : token.kind === 'account' && request.params.account === state.account.id;
      if (!fits) throw fail(401, 1000, 'Invalid API Token');
      return;
    }
    if (request.params.account && request.params.account !== state.account.id) throw fail(403, 10000, 'Authentication error');
    if (need === 'token') return;
    const needs = typeof need === 'function' ? need(request, this.store) : need;
    if (!needs.some((one) => this.allows(token, one, request))) {
      const [code, message] = REFUSED[needs[0].on] ?? [10000, 'Authentication error'];
      throw fail(403, code, message);
    }
  }

  // Requests that change the account run one at a time; reads run at once.
  serialize(method, work) {
    if (method === 'GET') return work();
    const run = this.writeQueue.then(work, work);
    this.writeQueue = run.then(() => undefined, () => undefined);
    return run;
  }

  async carryOut(request) {
    const { route, params } = this.resolveRoute(request.method, request.path);
    request.params = params;
    this.authorize(request, route);
    if (route.key.includes(' accounts/:account/r2/') && !this.store.state.switches.r2Enabled) {
      throw fail(403, 10042, 'Please enable R2 through the Cloudflare Dashboard.');
    }
    return this.serialize(request.method, async () => {
      try {
        return await route.handler(request);
      } finally {
        if (request.method !== 'GET') this.store.save();
      }
    });
  }

  async handleApi(incoming, response, url) {
    const body = await readBody(incoming);
    const record = { method: incoming.method, path: url.pathname.slice(API_PREFIX.length), query: Object.fromEntries(url.searchParams), status: null };
    this.records.push(record);
    const fault = this.nextFault();
    if (fault) {
      record.fault = fault.reset ? 'reset' : String(fault.status);
      record.status = this.answerFault(fault, response);
      return;
    }
    const request = {
      method: incoming.method,
      path: record.path,
      query: record.query,
      headers: incoming.headers,
      body,
      switches: this.store.state.switches,
      jsonOrEmpty() {
        try { return JSON.parse(body.toString('utf8')) ?? {}; } catch { return {}; }
      },
      allows: (need) => this.allows(request.token, need, request),
    };
    let status;
    try {
      const answer = await this.carryOut(request);
      if (answer.raw) {
        status = answer.raw.status;
        response.writeHead(status, answer.raw.headers);
        response.end(answer.raw.body);
      } else {
        status = answer.status ?? 200;
        writeJson(response, status, envelope(status, answer));
      }
    } catch (error) {
      if (!(error instanceof ApiError)) {
        console.error(`${incoming.method} /${record.path}: ${error.message}`);
        error = fail(500, 10001, 'Internal server error.');
      }
      status = error.status;
      writeJson(response, status, envelope(status, { errors: error.errors }));
    }
    record.status = status;
  }

  redactedState() {
    const { state } = this.store;
    const withoutTexts = (script) => ({ ...script, bindings: script.bindings.map(({ text, ...binding }) => binding) });
    const scripts = Object.fromEntries(Object.entries(state.workers.scripts).map(([name, script]) => [name, withoutTexts(script)]));
    const versions = Object.fromEntries(Object.entries(state.workers.versions)
      .map(([id, entry]) => [id, { ...entry, version: withoutTexts(entry.version) }]));
    return {
      ...state,
      tokens: state.tokens.map(({ value, ...token }) => token),
      workers: { ...state.workers, secret: undefined, scripts, versions },
    };
  }

  async handleControl(incoming, response, url) {
    const name = url.pathname.slice(CONTROL_PREFIX.length);
    const body = await readBody(incoming);
    let input = {};
    try {
      if (body.length) input = JSON.parse(body.toString('utf8'));
    } catch {
      return writeJson(response, 400, { error: 'the body is not JSON' });
    }
    const { switches } = this.store.state;
    const change = (apply) => {
      apply();
      this.store.save();
      writeJson(response, 200, switches);
    };
    switch (`${incoming.method} ${name}`) {
      case 'GET requests': return writeJson(response, 200, this.records);
      case 'DELETE requests': this.records = []; return writeJson(response, 200, []);
      case 'GET state': return writeJson(response, 200, this.redactedState());
      case 'GET edge-requests': return writeJson(response, 200, this.edge.records);
      case 'DELETE edge-requests': this.edge.records = []; return writeJson(response, 200, []);
      case 'PUT faults':
        if (Array.isArray(input.script)) this.script = [...input.script];
        if (input.share !== undefined) {
          this.faults = { share: Number(input.share), kinds: (input.kinds ?? ['429', '500', '503', 'reset']).map(String), retryAfter: input.retryAfter ?? 1 };
        }
        return writeJson(response, 200, { ...this.faults, script: this.script });
      case 'PUT r2': return change(() => { switches.r2Enabled = Boolean(input.enabled); });
      case 'PUT domains': return change(() => { switches.activationSeconds = Number(input.activationSeconds); });
      case 'PUT quirks':
        return change(() => {
          if (input.endlessPaging !== undefined) switches.endlessPaging = Boolean(input.endlessPaging);
          if (input.repeatingCursor !== undefined) switches.repeatingCursor = Boolean(input.repeatingCursor);
        });
      case 'POST user-tokens': {
        const token = await addUserToken({ store: this.store, gateway: this.gateway }, input);
        this.store.save();
        return writeJson(response, 200, { id: token.id, value: token.value });
      }
      default: return writeJson(response, 404, { error: `no control ${incoming.method} ${url.pathname}` });
    }
  }

  handle(incoming, response) {
    const url = new URL(incoming.url, 'http://127.0.0.1');
    const work = url.pathname.startsWith(API_PREFIX) ? this.handleApi(incoming, response, url)
      : url.pathname.startsWith(CONTROL_PREFIX) ? this.handleControl(incoming, response, url)
        : Promise.resolve(writeJson(response, 404, envelope(404, { errors: [{ code: 7000, message: 'No route for that URI' }] })));
    work.catch((error) => {
      console.error(`${incoming.method} ${url.pathname}: ${error.message}`);
      if (!response.headersSent) writeJson(response, 500, { error: 'the local account failed; see its log' });
    });
  }
}

async function main() {
  const [dir, fixture] = process.argv.slice(2);
  if (!dir || !fixture) {
    console.error('usage: node server.mjs DIR FIXTURE');
    process.exit(2);
  }
  const store = new Store(dir, fixture);
  const gateway = new Gateway({
    endpoint: process.env.VORLEN_CF_RGW_ENDPOINT,
    dir: process.env.VORLEN_CF_RGW_DIR,
    uid: 'tester',
    credentials: { accessKeyId: process.env.VORLEN_CF_RGW_ACCESS_KEY, secretAccessKey: process.env.VORLEN_CF_RGW_SECRET_KEY },
  });
  const account = new Account(store, gateway);
  await account.reconcile();
  const workers = new EdgeWorkers({ store, gateway, dir: path.join(dir, 'edge') });
  account.edge = new Edge({ store, gateway, workers });
  const { ca, key, cert } = makeCertificates(path.join(dir, 'edge'), certificateNames(store.state));
  const edgeServer = https.createServer({ key, cert }, (incoming, response) => account.edge.handle(incoming, response));
  await new Promise((resolve) => { edgeServer.listen(0, '127.0.0.1', resolve); });
  writeFileSync(path.join(dir, 'edge.address'), `127.0.0.1:${edgeServer.address().port}\n${ca}\n`);
  const server = http.createServer((incoming, response) => account.handle(incoming, response));
  server.listen(Number(process.env.VORLEN_CF_PORT ?? 0), '127.0.0.1', () => {
    writeFileSync(path.join(dir, 'server.port'), `${server.address().port}\n`);
    console.log(`listening on 127.0.0.1:${server.address().port}, edge on 127.0.0.1:${edgeServer.address().port}`);
  });
  // The Workers' workerd processes end with the server.
  const stop = () => {
    for (const one of [server, edgeServer]) {
      one.close();
      one.closeAllConnections();
    }
    workers.close().finally(() => process.exit(0));
  };
  process.on('SIGTERM', stop);
  process.on('SIGINT', stop);
}

main().catch((error) => {
  console.error(`the local Cloudflare account did not start: ${error.message}`);
  process.exit(1);
});
