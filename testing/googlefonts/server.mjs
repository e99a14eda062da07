// A local Google Fonts on loopback, from a fixture: the CSS2 API (GET /css2) over HTTP,
// and the font file host over HTTPS with a certificate for its name from a test
// authority of its own. As Google does, the API answers a modern browser's User-Agent
// with WOFF2 files cut into unicode-range subsets, and any other client with one
// TrueType file per style; an unknown family, a style that the family lacks, a range
// on a family that is not variable, or axes out of order give Google's 400 page.
// The files are made at the first start from Debian's DejaVu fonts with hb-subset and
// woff2_compress, into DIR/files (kept for the next start).
//   node server.mjs DIR FIXTURE      (writes DIR/server.json: {api, filePort, ca})
// GET /_admin/requests lists every request since the start: host, path, query, user agent.
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { existsSync, mkdirSync, readFileSync, renameSync, rmSync, writeFileSync } from 'node:fs';
import http from 'node:http';
import https from 'node:https';
import path from 'node:path';
import { makeCertificates } from '../cloudflare/edge.mjs';

const [dir, fixturePath] = process.argv.slice(2);
const fixture = JSON.parse(readFileSync(fixturePath, 'utf8'));
const filesDir = path.join(dir, 'files');
mkdirSync(filesDir, { recursive: true });

const slugOf = (family) => family.name.toLowerCase().replace(/[^a-z0-9]/g, '');
const fileId = (...parts) => createHash('sha256').update(parts.join('|')).digest('base64url').slice(0, 26);

// hb-subset takes ranges as "0100-02BA,0304"; a subset's CSS text is "U+0100-02BA, U+0304".
const hbUnicodes = (unicodeRange) => unicodeRange.split(',').map((part) => part.trim().replace(/^U\+/, '')).join(',');

function makeFile(target, make) {
  if (existsSync(target)) return;
  const partial = `${target}.part`;
  make(partial);
  renameSync(partial, target);
}

function woff2Of(source, target, unicodeRange) {
  makeFile(target, (partial) => {
    const ttf = `${partial}.ttf`;
    execFileSync('hb-subset', [source, `--unicodes=${hbUnicodes(unicodeRange)}`, `--output-file=${ttf}`]);
    execFileSync('woff2_compress', [ttf], { stdio: 'ignore' });
    renameSync(`${partial}.woff2`, partial);
    rmSync(ttf);
  });
}

// Every style of every family: its TrueType file and a WOFF2 file for each subset.
const files = new Map(); // URL path -> { file, type }
for (const family of fixture.families) {
  family.slug = slugOf(family);
  for (const style of family.styles) {
    const source = path.join(fixture.fontFolder, style.file);
    const key = `${family.name}|${style.italic}|${style.weight ?? 'variable'}`;
    style.ttfPath = `/s/${family.slug}/${family.version}/${fileId(key, 'ttf')}.ttf`;
    files.set(style.ttfPath, { file: source, type: 'font/ttf' });
    style.subsets = fixture.subsets.map((subset) => {
      const urlPath = `/s/${family.slug}/${family.version}/${fileId(key, subset.name)}.woff2`;
      const target = path.join(filesDir, `${family.slug}-${fileId(key, subset.name)}.woff2`);
      woff2Of(source, target, subset.unicodeRange);
      files.set(urlPath, family.woff2AnswersTrueType ? { file: source, type: 'font/woff2' } : { file: target, type: 'font/woff2' });
      return { ...subset, urlPath };
    });
  }
}

// Google sends WOFF2 to browsers that read it (Chrome 36, Firefox 39, Safari 12 and
// later) and TrueType to everything else, curl included.
function readsWoff2(userAgent = '') {
  const version = (pattern) => Number(pattern.exec(userAgent)?.[1] ?? 0);
  return version(/Chrome\/(\d+)/) >= 36 || version(/Firefox\/(\d+)/) >= 39
    || (/Safari\//.test(userAgent) && version(/Version\/(\d+)/) >= 12);
}

class BadRequest extends Error {}

// One family= value: "Name", "Name:wght@400;700", "Name:ital,wght@0,400;1,700..".
// Each asked style becomes { italic, weights: [low, high] }.
function parseFamily(value) {
  const [name, spec] = value.split(':');
  const family = fixture.families.find((candidate) => candidate.name === name);
  if (!family) throw new BadRequest(name);
  if (spec === undefined) return { family, asked: [{ italic: false, weights: [400, 400] }] };
  const [axesText, tuplesText] = spec.split('@');
  const axes = axesText.split(',');
  const known = ['ital', 'wght'];
  // Axes in alphabetical order, each known and given once; tuples in numeric order.
  if (!tuplesText || axes.some((axis) => !known.includes(axis)) || axes.join() !== [...new Set(axes)].sort().join()) {
    throw new BadRequest(value);
  }
  const tuples = tuplesText.split(';').map((tuple) => {
    const values = tuple.split(',');
    if (values.length !== axes.length) throw new BadRequest(value);
    const entry = { italic: false, weights: [400, 400] };
    axes.forEach((axis, index) => {
      const match = /^(\d+)(?:\.\.(\d+))?$/.exec(values[index]);
      if (!match) throw new BadRequest(value);
      const low = Number(match[1]);
      const high = Number(match[2] ?? match[1]);
      if (axis === 'ital') {
        if (match[2] !== undefined || low > 1) throw new BadRequest(value);
        entry.italic = low === 1;
      } else {
        if (low > high) throw new BadRequest(value);
        entry.weights = [low, high];
      }
    });
    return entry;
  });
  const order = (entry) => [entry.italic ? 1 : 0, ...entry.weights];
  for (let i = 1; i < tuples.length; i += 1) {
    const [a, b] = [order(tuples[i - 1]), order(tuples[i])];
    if (a[0] > b[0] || (a[0] === b[0] && a[2] >= b[1])) throw new BadRequest(value);
  }
  return { family, asked: tuples };
}

// The rules for one asked style, or a BadRequest when the family lacks it.
function facesFor(family, { italic, weights: [low, high] }) {
  const axis = family.variable?.wght;
  if (axis) {
    if (low < axis[0] || high > axis[1]) throw new BadRequest(family.name);
    const style = family.styles.find((candidate) => candidate.italic === italic);
    if (!style) throw new BadRequest(family.name);
    return [{ style, weight: low === high ? String(low) : `${low} ${high}` }];
  }
  if (low !== high) throw new BadRequest(family.name);
  const style = family.styles.find((candidate) => candidate.italic === italic && candidate.weight === low);
  if (!style) throw new BadRequest(family.name);
  return [{ style, weight: String(low) }];
}

function fontFace(family, { style, weight }, display, src, unicodeRange) {
  return [
    '@font-face {',
    `  font-family: '${family.name}';`,
    `  font-style: ${style.italic ? 'italic' : 'normal'};`,
    `  font-weight: ${weight};`,
    ...(display ? [`  font-display: ${display};`] : []),
    `  src: ${src};`,
    ...(unicodeRange ? [`  unicode-range: ${unicodeRange};`] : []),
    '}',
  ].join('\n');
}

function stylesheet(query, userAgent) {
  const families = query.getAll('family');
  if (families.length === 0) throw new BadRequest('');
  const display = query.get('display');
  if (display !== null && !['auto', 'block', 'swap', 'fallback', 'optional'].includes(display)) throw new BadRequest(display);
  const modern = readsWoff2(userAgent);
  const fileOrigin = `https://${fixture.fileHost}`;
  const rules = [];
  for (const value of families) {
    const { family, asked } = parseFamily(value);
    const faces = asked.flatMap((entry) => facesFor(family, entry));
    if (!modern) {
      for (const face of faces) {
        rules.push(fontFace(family, face, display, `url(${fileOrigin}${face.style.ttfPath}) format('truetype')`));
      }
      continue;
    }
    for (const face of faces) {
      for (const subset of face.style.subsets) {
        rules.push(`/* ${subset.name} */\n${fontFace(family, face, display,
          `url(${fileOrigin}${subset.urlPath}) format('woff2')`, subset.unicodeRange)}`);
      }
    }
  }
  return `${rules.join('\n')}\n`;
}

// Google's answer to a request that it cannot serve: an HTML page with status 400.
function badRequestPage(requested) {
  const escaped = requested.replace(/[&<>"']/g, (c) => `&#${c.charCodeAt(0)};`);
  return `<!DOCTYPE html><html lang=en><meta charset=utf-8><title>Error 400 (Bad Request)!!1</title>`
    + `<p><b>400:</b>&nbsp;<ins>Missing font family</ins></p><p>The requested font families are not available.`
    + `<p>Requested: ${escaped}<p><ins>For reference, see the <a href="https://developers.google.com/fonts/docs/getting_started">`
    + 'Google Fonts API documentation</a>.</ins></p></html>\n';
}

const requests = [];

function record(request, url) {
  requests.push({ host: request.headers.host, path: url.pathname, query: url.search, userAgent: request.headers['user-agent'] ?? '' });
}

const api = http.createServer((request, response) => {
  const url = new URL(request.url, 'http://localhost');
  if (url.pathname === '/_admin/requests') {
    response.writeHead(200, { 'Content-Type': 'application/json' });
    return response.end(JSON.stringify(requests));
  }
  record(request, url);
  if (url.pathname !== '/css2' || (request.method !== 'GET' && request.method !== 'HEAD')) {
    response.writeHead(404, { 'Content-Type': 'text/html; charset=UTF-8' });
    return response.end('<!DOCTYPE html><p><b>404.</b> <ins>That’s an error.</ins>\n');
  }
  try {
    const css = stylesheet(url.searchParams, request.headers['user-agent']);
    response.writeHead(200, {
      'Content-Type': 'text/css; charset=utf-8',
      'Access-Control-Allow-Origin': '*',
      'Cache-Control': 'private, max-age=86400, stale-while-revalidate=604800',
    });
    return response.end(request.method === 'HEAD' ? undefined : css);
  } catch (error) {
    if (!(error instanceof BadRequest)) throw error;
    response.writeHead(400, { 'Content-Type': 'text/html; charset=UTF-8' });
    return response.end(badRequestPage(url.searchParams.getAll('family').join('|')));
  }
});

const certificates = makeCertificates(path.join(dir, 'tls'), [fixture.fileHost]);
const fileServer = https.createServer({ key: certificates.key, cert: certificates.cert }, (request, response) => {
  const url = new URL(request.url, `https://${fixture.fileHost}`);
  record(request, url);
  const entry = files.get(url.pathname);
  if (!entry || (request.method !== 'GET' && request.method !== 'HEAD')) {
    response.writeHead(404, { 'Content-Type': 'text/html; charset=UTF-8' });
    return response.end('<!DOCTYPE html><p><b>404.</b> <ins>That’s an error.</ins>\n');
  }
  const body = readFileSync(entry.file);
  response.writeHead(200, {
    'Content-Type': entry.type,
    'Content-Length': String(body.length),
    'Access-Control-Allow-Origin': '*',
    'Cache-Control': 'public, max-age=31536000',
  });
  return response.end(request.method === 'HEAD' ? undefined : body);
});

const listening = (server) => new Promise((resolve) => server.listen(0, '127.0.0.1', () => resolve(server.address().port)));
const [apiPort, filePort] = await Promise.all([listening(api), listening(fileServer)]);
writeFileSync(path.join(dir, 'server.json.part'), JSON.stringify({ api: `http://127.0.0.1:${apiPort}`, filePort, ca: certificates.ca }));
renameSync(path.join(dir, 'server.json.part'), path.join(dir, 'server.json'));
