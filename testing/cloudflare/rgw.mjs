// The account's R2 storage on the RADOS Gateway that testing/rgw starts: buckets are made
// and given CORS policies over S3 (signed with SigV4 as the gateway user that stands for
// the account), and a token's S3 credentials become keys of that user through
// radosgw-admin. R2's S3 interface: https://developers.cloudflare.com/r2/api/s3/api/ and
// https://developers.cloudflare.com/r2/api/tokens/ (access key = token id, secret =
// SHA-256 of the token value). No secret is ever written to a log or an error text.
import { createHash, createHmac } from 'node:crypto';
import { execFile } from 'node:child_process';
import path from 'node:path';

const REGION = 'auto';

// The headers of an object request that pass between a client and the gateway: the
// client's conditions, the object's stored HTTP headers, and what the answer adds.
export const CONDITION_HEADERS = ['range', 'if-match', 'if-none-match', 'if-modified-since', 'if-unmodified-since'];
export const STORED_HEADERS = ['content-type', 'content-language', 'content-disposition', 'content-encoding', 'cache-control', 'expires'];
export const OBJECT_HEADERS = [...STORED_HEADERS, 'etag', 'last-modified', 'content-length', 'content-range', 'accept-ranges'];

// The named headers present in a Headers object or in Node's plain header object.
export function pickHeaders(headers, names) {
  const out = {};
  for (const name of names) {
    const value = typeof headers.get === 'function' ? headers.get(name) : headers[name];
    if (value !== null && value !== undefined) out[name] = value;
  }
  return out;
}

function encodeSegment(text) {
  return encodeURIComponent(text).replace(/[!'()*]/g, (c) => `%${c.charCodeAt(0).toString(16).toUpperCase()}`);
}

function hmac(key, text) {
  return createHmac('sha256', key).update(text).digest();
}

// SigV4 headers for one S3 request (path-style); `query` is a list of [name, value].
function signS3({ method, url, query = [], headers = {}, body = Buffer.alloc(0), credentials }) {
  const target = new URL(url);
  const amzDate = new Date().toISOString().replace(/[-:]/g, '').replace(/\.\d{3}/, '');
  const day = amzDate.slice(0, 8);
  const payloadHash = createHash('sha256').update(body).digest('hex');
  const all = { ...headers, host: target.host, 'x-amz-date': amzDate, 'x-amz-content-sha256': payloadHash };
  const names = Object.keys(all).map((name) => name.toLowerCase()).sort();
  const lower = Object.fromEntries(Object.entries(all).map(([name, value]) => [name.toLowerCase(), String(value).trim()]));
  const canonicalPath = target.pathname.split('/').map((segment) => encodeSegment(decodeURIComponent(segment))).join('/');
  const canonicalQuery = query.map(([name, value]) => [encodeSegment(name), encodeSegment(value)])
    .sort(([a, x], [b, y]) => (a === b ? (x < y ? -1 : 1) : a < b ? -1 : 1))
    .map(([name, value]) => `${name}=${value}`).join('&');
  const canonical = [method, canonicalPath, canonicalQuery, ...names.map((name) => `${name}:${lower[name]}`), '',
    names.join(';'), payloadHash].join('\n');
  const scope = `${day}/${REGION}/s3/aws4_request`;
  const toSign = ['AWS4-HMAC-SHA256', amzDate, scope, createHash('sha256').update(canonical).digest('hex')].join('\n');
  const key = hmac(hmac(hmac(hmac(`AWS4${credentials.secretAccessKey}`, day), REGION), 's3'), 'aws4_request');
  const signature = createHmac('sha256', key).update(toSign).digest('hex');
  return {
    ...all,
    authorization: `AWS4-HMAC-SHA256 Credential=${credentials.accessKeyId}/${scope}, SignedHeaders=${names.join(';')}, Signature=${signature}`,
  };
}

export async function sendS3({ endpoint, credentials, method, bucket, key, query = [], headers = {}, body }) {
  const keyPath = key === undefined ? '' : `/${key.split('/').map(encodeSegment).join('/')}`;
  const url = `${endpoint}/${encodeSegment(bucket)}${keyPath}`;
  const search = query.length ? `?${query.map(([n, v]) => (v === '' ? encodeSegment(n) : `${encodeSegment(n)}=${encodeSegment(v)}`)).join('&')}` : '';
  const signed = signS3({ method, url, query, headers, body, credentials });
  const response = await fetch(url + search, { method, headers: signed, body });
  return { status: response.status, headers: response.headers, body: Buffer.from(await response.arrayBuffer()) };
}

function xmlEscape(text) {
  return String(text).replace(/[<>&'"]/g, (c) => ({ '<': '&lt;', '>': '&gt;', '&': '&amp;', "'": '&apos;', '"': '&quot;' })[c]);
}

function xmlUnescape(text) {
  return text.replace(/&(lt|gt|amp|apos|quot|#\d+|#x[0-9a-fA-F]+);/g, (whole, name) => ({ lt: '<', gt: '>', amp: '&', apos: "'", quot: '"' })[name]
    ?? String.fromCodePoint(name[1] === 'x' ? Number.parseInt(name.slice(2), 16) : Number(name.slice(1))));
}

// R2's JSON CORS rules in S3's XML form.
export function corsXml(rules) {
  const element = (name, values) => (values ?? []).map((value) => `<${name}>${xmlEscape(value)}</${name}>`).join('');
  const body = rules.map((rule) => '<CORSRule>'
    + (rule.id ? `<ID>${xmlEscape(rule.id)}</ID>` : '')
    + element('AllowedOrigin', rule.allowed?.origins)
    + element('AllowedMethod', rule.allowed?.methods)
    + element('AllowedHeader', rule.allowed?.headers)
    + element('ExposeHeader', rule.exposeHeaders)
    + (rule.maxAgeSeconds !== undefined ? `<MaxAgeSeconds>${Number(rule.maxAgeSeconds)}</MaxAgeSeconds>` : '')
    + '</CORSRule>').join('');
  return `<?xml version="1.0" encoding="UTF-8"?><CORSConfiguration>${body}</CORSConfiguration>`;
}

export class Gateway {
  // `dir` is testing/rgw's folder (its ceph.conf); `credentials` the account user's keys.
  constructor({ endpoint, dir, uid, credentials }) {
    this.endpoint = endpoint;
    this.dir = dir;
    this.uid = uid;
    this.credentials = credentials;
  }

  async send(request) {
    const response = await sendS3({ endpoint: this.endpoint, credentials: this.credentials, ...request });
    if (response.status >= 300 && !(request.accept ?? []).includes(response.status)) {
      const code = /<Code>([^<]*)<\/Code>/.exec(response.body.toString('utf8'))?.[1] ?? 'no error code';
      throw new Error(`the gateway answered ${request.method} ${request.bucket} with HTTP ${response.status} (${code})`);
    }
    return response;
  }

  async createBucket(name) {
    await this.send({ method: 'PUT', bucket: name, accept: [409] });
  }

  async deleteBucket(name) {
    await this.send({ method: 'DELETE', bucket: name, accept: [404] });
  }

  async putCors(name, rules) {
    const body = Buffer.from(corsXml(rules), 'utf8');
    const md5 = createHash('md5').update(body).digest('base64');
    await this.send({ method: 'PUT', bucket: name, query: [['cors', '']], headers: { 'content-md5': md5, 'content-type': 'application/xml' }, body });
  }

  async deleteCors(name) {
    await this.send({ method: 'DELETE', bucket: name, query: [['cors', '']], accept: [404] });
  }

  // The object's bytes and content type, or null when the key does not exist.
  async getObject(bucket, key) {
    const response = await this.send({ method: 'GET', bucket, key, accept: [404] });
    if (response.status === 404) return null;
    return { body: response.body, contentType: response.headers.get('content-type') ?? 'application/octet-stream' };
  }

  // One object request as a client asked it, answered with the gateway's status, headers
  // and body. The gateway refuses a quoted ETag in if-match even when it matches (R2 takes
  // it): the quotes are dropped on the way.
  object(method, bucket, key, headers = {}, body = undefined) {
    const sent = { ...headers };
    for (const name of ['if-match', 'if-none-match']) if (sent[name]) sent[name] = sent[name].replace(/"/g, '');
    return sendS3({ endpoint: this.endpoint, credentials: this.credentials, method, bucket, key, headers: sent, body });
  }

  // One page of ListObjectsV2: {objects: [{key, size, etag, uploaded}], delimitedPrefixes,
  // truncated, cursor}.
  async list(bucket, { prefix, delimiter, cursor, limit, startAfter } = {}) {
    const query = [['list-type', '2'], ['prefix', prefix], ['delimiter', delimiter], ['continuation-token', cursor],
      ['max-keys', limit], ['start-after', startAfter]].filter(([, value]) => value !== undefined && value !== null);
    const response = await this.send({ method: 'GET', bucket, query: query.map(([name, value]) => [name, String(value)]) });
    const xml = response.body.toString('utf8');
    const text = (element, name) => xmlUnescape(new RegExp(`<${name}>([^<]*)</${name}>`).exec(element)?.[1] ?? '');
    return {
      objects: [...xml.matchAll(/<Contents>(.*?)<\/Contents>/gs)].map(([, entry]) => ({
        key: text(entry, 'Key'), size: Number(text(entry, 'Size')), etag: text(entry, 'ETag'), uploaded: new Date(text(entry, 'LastModified')).toUTCString(),
      })),
      delimitedPrefixes: [...xml.matchAll(/<CommonPrefixes>(.*?)<\/CommonPrefixes>/gs)].map(([, entry]) => text(entry, 'Prefix')),
      truncated: text(xml, 'IsTruncated') === 'true',
      cursor: text(xml, 'NextContinuationToken') || undefined,
    };
  }

  admin(args) {
    return new Promise((resolve, reject) => {
      execFile('radosgw-admin', ['-n', 'client.rgw.a', ...args], {
        env: { ...process.env, CEPH_CONF: path.join(this.dir, 'ceph.conf') },
        timeout: 120_000,
      }, (error) => (error ? reject(new Error(`radosgw-admin ${args[0]} ${args[1]} failed (exit ${error.code})`)) : resolve()));
    });
  }

  // The token's S3 credentials become a key of the account's user: they reach every bucket
  // of the account, as R2's do not (R2 keeps them to the token's buckets).
  addTokenKey(token) {
    const secret = createHash('sha256').update(token.value, 'utf8').digest('hex');
    return this.admin(['key', 'create', `--uid=${this.uid}`, '--key-type=s3', `--access-key=${token.id}`, `--secret-key=${secret}`]);
  }

  removeTokenKey(token) {
    return this.admin(['key', 'rm', `--uid=${this.uid}`, '--key-type=s3', `--access-key=${token.id}`]);
  }
}
