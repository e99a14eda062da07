// What the families of endpoints share: Cloudflare's failure shape, the two kinds of
// paged answer, and reading a request's body. Cloudflare's envelope and error list follow
// https://developers.cloudflare.com/fundamentals/api/how-to/make-api-calls/ and
// https://developers.cloudflare.com/api/ (every response: success, errors [{code, message}],
// messages, result, and result_info for lists).

export class ApiError extends Error {
  constructor(status, errors) {
    super(errors.map((error) => `${error.code}: ${error.message}`).join('; '));
    this.status = status;
    this.errors = errors;
  }
}

export function fail(status, code, message) {
  return new ApiError(status, [{ code, message }]);
}

// A body that is not JSON, or lacks a field that the endpoint needs. The documentation
// gives no code per field, so one code stands for all of them.
export function invalidBody(message = 'Request body is invalid.') {
  return fail(400, 9207, message);
}

export function jsonBody(request) {
  if (request.body.length === 0) return {};
  try {
    const value = JSON.parse(request.body.toString('utf8'));
    if (value === null || typeof value !== 'object' || Array.isArray(value)) throw new Error('not an object');
    return value;
  } catch {
    throw invalidBody();
  }
}

export function requireText(body, field) {
  const value = body[field];
  if (typeof value !== 'string' || value.length === 0) throw invalidBody(`${field} is required`);
  return value;
}

function positiveInteger(text, fallback) {
  const value = Number.parseInt(text ?? '', 10);
  return Number.isFinite(value) && value > 0 ? value : fallback;
}

// Page-number lists (accounts, zones, KV namespaces, tokens, DNS records). With the
// "endlessPaging" quirk every page is full and claims one more page after it.
export function paged(request, items, { maxPerPage = 50 } = {}) {
  const page = positiveInteger(request.query.page, 1);
  const perPage = Math.min(positiveInteger(request.query.per_page, 20), maxPerPage);
  if (request.switches.endlessPaging && items.length > 0) {
    const full = Array.from({ length: perPage }, (_, index) => items[((page - 1) * perPage + index) % items.length]);
    return {
      result: full,
      resultInfo: { page, per_page: perPage, count: perPage, total_count: (page + 1) * perPage, total_pages: page + 1 },
    };
  }
  const slice = items.slice((page - 1) * perPage, page * perPage);
  return {
    result: slice,
    resultInfo: {
      page,
      per_page: perPage,
      count: slice.length,
      total_count: items.length,
      total_pages: Math.max(1, Math.ceil(items.length / perPage)),
    },
  };
}

// Cursor lists (R2 buckets): the cursor names the last entry of the page before. With the
// "repeatingCursor" quirk a page answers the cursor it was asked with.
export function cursorPaged(request, items, key, { maxPerPage = 1000 } = {}) {
  const perPage = Math.min(positiveInteger(request.query.per_page, 20), maxPerPage);
  const asked = request.query.cursor;
  const after = asked ? Buffer.from(asked, 'base64url').toString('utf8') : null;
  const start = after === null ? 0 : items.findIndex((item) => key(item) > after);
  const slice = start < 0 ? [] : items.slice(start, start + perPage);
  const more = start >= 0 && start + perPage < items.length;
  const resultInfo = { per_page: perPage };
  if (asked && request.switches.repeatingCursor) resultInfo.cursor = asked;
  else if (more) resultInfo.cursor = Buffer.from(key(slice[slice.length - 1]), 'utf8').toString('base64url');
  return { slice, resultInfo };
}

// The whole body of an incoming request.
export function readBody(request) {
  return new Promise((resolve, reject) => {
    const chunks = [];
    request.on('data', (chunk) => chunks.push(chunk));
    request.on('end', () => resolve(Buffer.concat(chunks)));
    request.on('error', reject);
  });
}
