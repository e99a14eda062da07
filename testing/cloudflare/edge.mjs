// The account's edge: one HTTPS port on loopback that routes by the Host header, as
// Cloudflare's edge does. The zone's rules come first (a WAF custom rule that blocks
// answers 403; a cache rule is named on the answer), then a Worker domain or a
// workers.dev name goes to its Worker, and a bucket's active custom domain serves the
// bucket's objects with ranges and the bucket's CORS policy. Any other host gets
// Cloudflare's error 1001. The certificate comes from a test authority of its own, made
// with openssl in DIR/edge, for every zone name, "*.<zone>" and the workers.dev names.
import { execFileSync } from 'node:child_process';
import { existsSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { readBody } from './api.mjs';
import { CONDITION_HEADERS, OBJECT_HEADERS, pickHeaders } from './rgw.mjs';
import { matches, parseExpression } from './rules.mjs';

// Headers that belong to one hop, or that the Worker's answer no longer matches once
// its body has been read whole.
const HOP_HEADERS = ['connection', 'keep-alive', 'transfer-encoding', 'content-encoding', 'content-length'];

function openssl(args, cwd) {
  execFileSync('openssl', args, { cwd, stdio: ['ignore', 'ignore', 'pipe'] });
}

// The authority is made once per DIR, so that a client that trusts it keeps trusting the
// edge across restarts; the server certificate is made again at every start.
export function makeCertificates(dir, names) {
  mkdirSync(dir, { recursive: true });
  const ec = ['-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes'];
  if (!existsSync(path.join(dir, 'ca.pem'))) {
    openssl(['req', '-x509', ...ec, '-keyout', 'ca.key', '-out', 'ca.pem', '-days', '3650', '-subj', '/CN=Local Cloudflare edge authority',
      '-addext', 'basicConstraints=critical,CA:TRUE', '-addext', 'keyUsage=critical,keyCertSign,cRLSign'], dir);
  }
  writeFileSync(path.join(dir, 'edge.ext'), `${[
    `subjectAltName=${names.map((name) => `DNS:${name}`).join(',')}`,
    'basicConstraints=CA:FALSE', 'keyUsage=critical,digitalSignature', 'extendedKeyUsage=serverAuth',
  ].join('\n')}\n`);
  openssl(['req', ...ec, '-keyout', 'edge.key', '-out', 'edge.csr', '-subj', '/CN=local edge'], dir);
  openssl(['x509', '-req', '-in', 'edge.csr', '-CA', 'ca.pem', '-CAkey', 'ca.key', '-set_serial', `0x${Date.now().toString(16)}`,
    '-days', '825', '-extfile', 'edge.ext', '-out', 'edge.pem'], dir);
  return {
    ca: path.join(dir, 'ca.pem'),
    key: readFileSync(path.join(dir, 'edge.key')),
    cert: readFileSync(path.join(dir, 'edge.pem')),
  };
}

export function certificateNames(state) {
  const { subdomain } = state.workers;
  return [...state.zones.flatMap((zone) => [zone.name, `*.${zone.name}`]), '*.workers.dev', `*.${subdomain}.workers.dev`];
}

function text(status, body, headers = {}) {
  return { status, headers: { 'content-type': 'text/plain; charset=UTF-8', ...headers }, body: Buffer.from(body, 'utf8') };
}

function corsRuleFor(rules, origin, method, requestedHeaders = []) {
  return (rules ?? []).find((rule) => {
    const origins = rule.allowed.origins;
    const allowedHeaders = (rule.allowed.headers ?? []).map((name) => name.toLowerCase());
    return (origins.includes('*') || origins.includes(origin)) && rule.allowed.methods.includes(method)
      && requestedHeaders.every((name) => allowedHeaders.includes('*') || allowedHeaders.includes(name));
  });
}

export class Edge {
  constructor({ store, gateway, workers }) {
    this.store = store;
    this.gateway = gateway;
    this.workers = workers;
    this.records = [];
    this.parsed = new Map();
  }

  zoneOf(host) {
    return this.store.state.zones.filter((zone) => host === zone.name || host.endsWith(`.${zone.name}`))
      .sort((a, b) => b.name.length - a.name.length)[0];
  }

  matchingRules(zone, phase, fields) {
    const ruleset = this.store.state.rulesets.find((candidate) => candidate.zoneId === zone.id && candidate.phase === phase);
    return (ruleset?.rules ?? []).filter((rule) => {
      if (!rule.enabled) return false;
      if (!this.parsed.has(rule.expression)) this.parsed.set(rule.expression, parseExpression(rule.expression));
      return matches(this.parsed.get(rule.expression), fields);
    });
  }

  // The Worker that answers a host: a Worker domain, or "<script>.<subdomain>.workers.dev"
  // while the script's workers.dev route is on.
  workerFor(host) {
    const { workers } = this.store.state;
    const domain = workers.domains.find((candidate) => candidate.hostname === host);
    if (domain) return domain.service;
    const suffix = `.${workers.subdomain}.workers.dev`;
    if (!host.endsWith(suffix)) return null;
    const name = host.slice(0, -suffix.length);
    return workers.scripts[name]?.subdomain?.enabled ? name : null;
  }

  bucketFor(host) {
    const { state } = this.store;
    const activeAfter = Date.now() - state.switches.activationSeconds * 1000;
    return state.buckets.find((bucket) => bucket.customDomains.some((domain) => domain.domain === host
      && domain.enabled && domain.addedAt <= activeAfter));
  }

  async answer(incoming, host, url) {
    const fields = { 'http.host': host, 'http.request.uri.path': url.pathname };
    const zone = this.zoneOf(host);
    const extra = {};
    let rule;
    if (zone) {
      const blocking = this.matchingRules(zone, 'http_request_firewall_custom', fields).find((candidate) => candidate.action === 'block');
      if (blocking) {
        return { rule: blocking.id, ...text(403, `error code: 1020\nSorry, you have been blocked (rule ${blocking.id}).\n`) };
      }
      const cacheRules = this.matchingRules(zone, 'http_request_cache_settings', fields).filter((candidate) => candidate.action === 'set_cache_settings');
      if (cacheRules.length > 0) {
        rule = cacheRules.map((candidate) => candidate.id).join(',');
        extra['x-local-cache-rule'] = rule;
      }
    }
    const script = this.workerFor(host);
    const bucket = script ? null : this.bucketFor(host);
    let answer;
    if (script) answer = await this.fromWorker(script, incoming, host);
    else if (bucket) answer = await this.fromBucket(bucket, incoming, url);
    else answer = text(403, 'error code: 1001\nDNS resolution error: this host is not served by the local account.\n');
    return { ...answer, rule, headers: { ...answer.headers, ...extra } };
  }

  async fromWorker(script, incoming, host) {
    const headers = new Headers();
    for (const [name, value] of Object.entries(incoming.headers)) {
      if (!HOP_HEADERS.includes(name) && name !== 'host') headers.set(name, [value].flat().join(', '));
    }
    headers.set('cf-connecting-ip', incoming.socket.remoteAddress.replace(/^::ffff:/, ''));
    headers.set('x-forwarded-proto', 'https');
    headers.set('x-real-ip', incoming.socket.remoteAddress.replace(/^::ffff:/, ''));
    const hasBody = !['GET', 'HEAD'].includes(incoming.method);
    const response = await this.workers.dispatch(script, `https://${host}${incoming.url}`, {
      method: incoming.method, headers, body: hasBody ? await readBody(incoming) : undefined,
    });
    const out = {};
    response.headers.forEach((value, name) => { if (!HOP_HEADERS.includes(name) && !name.startsWith('mf-') && name !== 'set-cookie') out[name] = value; });
    const cookies = response.headers.getSetCookie();
    if (cookies.length > 0) out['set-cookie'] = cookies;
    const body = Buffer.from(await response.arrayBuffer());
    if (incoming.method === 'HEAD' && response.headers.has('content-length')) out['content-length'] = response.headers.get('content-length');
    return { status: response.status, headers: out, body };
  }

  async fromBucket(bucket, incoming, url) {
    const origin = incoming.headers.origin;
    if (incoming.method === 'OPTIONS') {
      const method = incoming.headers['access-control-request-method'];
      const requested = (incoming.headers['access-control-request-headers'] ?? '').split(',').map((name) => name.trim().toLowerCase()).filter(Boolean);
      const found = origin && method ? corsRuleFor(bucket.cors, origin, method, requested) : null;
      if (!found) return text(403, 'CORS preflight refused: no rule of the bucket allows this origin, method and headers.\n');
      return {
        status: 204,
        headers: {
          'access-control-allow-origin': origin,
          'access-control-allow-methods': found.allowed.methods.join(', '),
          ...(requested.length ? { 'access-control-allow-headers': requested.join(', ') } : {}),
          ...(found.maxAgeSeconds !== undefined ? { 'access-control-max-age': String(found.maxAgeSeconds) } : {}),
          vary: 'Origin',
        },
        body: Buffer.alloc(0),
      };
    }
    if (incoming.method !== 'GET' && incoming.method !== 'HEAD') return text(405, 'Method not allowed\n', { allow: 'GET, HEAD, OPTIONS' });
    let key;
    try {
      key = decodeURIComponent(url.pathname.slice(1));
    } catch {
      return text(400, 'Bad request\n');
    }
    const cors = origin ? corsRuleFor(bucket.cors, origin, incoming.method) : null;
    const corsHeaders = cors ? {
      'access-control-allow-origin': origin,
      ...(cors.exposeHeaders?.length ? { 'access-control-expose-headers': cors.exposeHeaders.join(', ') } : {}),
      vary: 'Origin',
    } : {};
    const answer = key ? await this.gateway.object(incoming.method, bucket.name, key, pickHeaders(incoming.headers, CONDITION_HEADERS)) : { status: 404 };
    if (answer.status === 404) return text(404, 'Object not found\n', corsHeaders);
    return {
      status: answer.status,
      headers: { ...pickHeaders(answer.headers, OBJECT_HEADERS), ...corsHeaders },
      body: incoming.method === 'HEAD' ? Buffer.alloc(0) : answer.body,
    };
  }

  async handle(incoming, response) {
    const host = (incoming.headers.host ?? '').toLowerCase().replace(/:\d+$/, '');
    const url = new URL(incoming.url, 'https://edge.invalid');
    const record = { host, method: incoming.method, path: url.pathname, status: null };
    this.records.push(record);
    let answer;
    try {
      answer = await this.answer(incoming, host, url);
    } catch (error) {
      console.error(`edge ${incoming.method} ${host}${url.pathname}: ${error.message}`);
      answer = text(500, 'error code: 500\nThe local edge failed; see its log.\n');
    }
    record.status = answer.status;
    if (answer.rule) record.rule = answer.rule;
    const headers = { ...answer.headers };
    if (incoming.method !== 'HEAD' || headers['content-length'] === undefined) headers['content-length'] = answer.body.length;
    response.writeHead(answer.status, headers);
    response.end(incoming.method === 'HEAD' ? undefined : answer.body);
  }
}
