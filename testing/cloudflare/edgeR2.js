// Runs inside workerd, beside a deployed Worker: its R2 bucket binding, with the calls of
// https://developers.cloudflare.com/r2/api/workers/workers-api-reference/ (get with range
// and onlyIf, head, put, list, delete), carried out over S3 on the gateway by the edge
// through the service binding `s3`, so that the Worker reads and writes the same bucket
// as every other client. The edge answers with the gateway's status and headers.

const HTTP_FIELDS = [
  ['contentType', 'content-type'], ['contentLanguage', 'content-language'], ['contentDisposition', 'content-disposition'],
  ['contentEncoding', 'content-encoding'], ['cacheControl', 'cache-control'], ['cacheExpiry', 'expires'],
];
const CONDITIONS = ['if-match', 'if-none-match', 'if-modified-since', 'if-unmodified-since'];

function rangeHeader(range) {
  if (!range) return null;
  if (range instanceof Headers) return range.get('range');
  if (range.suffix !== undefined) return `bytes=-${range.suffix}`;
  const offset = range.offset ?? 0;
  return range.length !== undefined ? `bytes=${offset}-${offset + range.length - 1}` : `bytes=${offset}-`;
}

function conditionHeaders(onlyIf) {
  const headers = {};
  if (!onlyIf) return headers;
  if (onlyIf instanceof Headers) {
    for (const name of CONDITIONS) if (onlyIf.has(name)) headers[name] = onlyIf.get(name);
    return headers;
  }
  if (onlyIf.etagMatches) headers['if-match'] = onlyIf.etagMatches;
  if (onlyIf.etagDoesNotMatch) headers['if-none-match'] = onlyIf.etagDoesNotMatch;
  if (onlyIf.uploadedBefore) headers['if-unmodified-since'] = onlyIf.uploadedBefore.toUTCString();
  if (onlyIf.uploadedAfter) headers['if-modified-since'] = onlyIf.uploadedAfter.toUTCString();
  return headers;
}

class LocalR2Object {
  constructor(key, headers) {
    const etag = (headers.get('etag') ?? '').replace(/"/g, '');
    const whole = /\/(\d+)$/.exec(headers.get('content-range') ?? '');
    this.key = key;
    this.version = etag;
    this.etag = etag;
    this.httpEtag = `"${etag}"`;
    this.size = Number(whole ? whole[1] : headers.get('content-length') ?? 0);
    this.uploaded = new Date(headers.get('last-modified') ?? Date.now());
    this.httpMetadata = {};
    for (const [field, header] of HTTP_FIELDS) {
      if (headers.has(header)) this.httpMetadata[field] = field === 'cacheExpiry' ? new Date(headers.get(header)) : headers.get(header);
    }
    this.customMetadata = {};
    for (const [name, value] of headers) {
      if (name.startsWith('x-amz-meta-')) this.customMetadata[name.slice('x-amz-meta-'.length)] = value;
    }
    const part = /^bytes (\d+)-(\d+)\//.exec(headers.get('content-range') ?? '');
    this.range = part ? { offset: Number(part[1]), length: Number(part[2]) - Number(part[1]) + 1 } : { offset: 0, length: this.size };
    this.checksums = {};
    this.storageClass = 'Standard';
  }

  writeHttpMetadata(headers) {
    for (const [field, header] of HTTP_FIELDS) {
      const value = this.httpMetadata[field];
      if (value !== undefined) headers.set(header, value instanceof Date ? value.toUTCString() : value);
    }
  }
}

class LocalR2ObjectBody extends LocalR2Object {
  constructor(key, response) {
    super(key, response.headers);
    this.response = response;
    this.body = response.body;
  }

  get bodyUsed() { return this.response.bodyUsed; }
  arrayBuffer() { return this.response.arrayBuffer(); }
  text() { return this.response.text(); }
  json() { return this.response.json(); }
  blob() { return this.response.blob(); }
}

function httpMetadataHeaders(metadata) {
  const headers = {};
  if (!metadata) return headers;
  if (metadata instanceof Headers) {
    for (const [, header] of HTTP_FIELDS) if (metadata.has(header)) headers[header] = metadata.get(header);
    return headers;
  }
  for (const [field, header] of HTTP_FIELDS) {
    const value = metadata[field];
    if (value !== undefined) headers[header] = value instanceof Date ? value.toUTCString() : String(value);
  }
  return headers;
}

export class LocalR2Bucket {
  constructor(s3) {
    this.s3 = s3;
  }

  call(method, operation, params, init = {}) {
    const url = new URL(`http://s3/${operation}`);
    for (const [name, value] of Object.entries(params)) if (value !== undefined && value !== null) url.searchParams.set(name, String(value));
    return this.s3.fetch(url, { method, ...init });
  }

  async head(key) {
    const response = await this.call('HEAD', 'object', { key });
    if (response.status === 404) return null;
    if (!response.ok) throw new Error(`head ${key}: the bucket answered ${response.status}`);
    return new LocalR2Object(key, response.headers);
  }

  async get(key, options = {}) {
    const headers = conditionHeaders(options.onlyIf);
    const range = rangeHeader(options.range);
    if (range) headers.range = range;
    const response = await this.call('GET', 'object', { key }, { headers });
    if (response.status === 404) return null;
    // A failed condition gives the object without its body, as R2 does.
    if (response.status === 304 || response.status === 412) return this.head(key);
    if (!response.ok) throw new Error(`get ${key}: the bucket answered ${response.status}`);
    return new LocalR2ObjectBody(key, response);
  }

  async put(key, value, options = {}) {
    const headers = { ...httpMetadataHeaders(options.httpMetadata), ...conditionHeaders(options.onlyIf) };
    for (const [name, text] of Object.entries(options.customMetadata ?? {})) headers[`x-amz-meta-${name}`] = text;
    const body = value === null || value === undefined ? new ArrayBuffer(0) : await new Response(value).arrayBuffer();
    const response = await this.call('PUT', 'object', { key }, { headers, body });
    if (response.status === 412) return null;
    if (!response.ok) throw new Error(`put ${key}: the bucket answered ${response.status}`);
    return new LocalR2Object(key, response.headers);
  }

  async delete(keys) {
    for (const key of [keys].flat()) {
      const response = await this.call('DELETE', 'object', { key });
      if (!response.ok && response.status !== 404) throw new Error(`delete ${key}: the bucket answered ${response.status}`);
    }
  }

  async list(options = {}) {
    const response = await this.call('GET', 'list', {
      prefix: options.prefix, delimiter: options.delimiter, cursor: options.cursor, limit: options.limit, startAfter: options.startAfter,
    });
    if (!response.ok) throw new Error(`list: the bucket answered ${response.status}`);
    const listed = await response.json();
    return {
      objects: listed.objects.map((entry) => new LocalR2Object(entry.key, new Headers({
        etag: entry.etag, 'content-length': String(entry.size), 'last-modified': entry.uploaded,
      }))),
      delimitedPrefixes: listed.delimitedPrefixes,
      truncated: listed.truncated,
      ...(listed.cursor ? { cursor: listed.cursor } : {}),
    };
  }
}
