// The local Google Fonts, checked by a client that nobody here wrote: headless Chromium
// loads its stylesheets through <link> elements, reaches the file host over HTTPS by its
// own name, and reports through document.fonts which faces it loaded. Plain fetches
// check what a browser does not show: the TrueType answer to other clients and the 400s.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdtemp, rm } from 'node:fs/promises';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
import { promisify } from 'node:util';
import { launchChromium, publicKeyHashes } from '../../player/chromium.mjs';

const run = promisify(execFile);
const script = (name) => new URL(`../${name}`, import.meta.url).pathname;
const chrome = 'Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/120.0.0.0 Safari/537.36';

let dir;
let standIn;
let browser;
let pageServer;
let pageOrigin;
let pageHtml = '';

before(async () => {
  dir = await mkdtemp(path.join(os.tmpdir(), 'vorlen-googlefonts-'));
  const { stdout } = await run(script('start'), [dir], { env: { ...process.env, VORLEN_GOOGLE_FONTS_OWNER: String(process.pid) } });
  standIn = Object.fromEntries(stdout.trim().split('\n').map((line) => [line.slice(0, line.indexOf('=')), line.slice(line.indexOf('=') + 1)]));
  const [host, , address, port] = standIn.connect_to.split(':');
  browser = await launchChromium('/usr/bin/chromium', path.join(dir, 'chromium'),
    `MAP ${host} ${address}:${port}, MAP * ~NOTFOUND, EXCLUDE 127.0.0.1`,
    [`--ignore-certificate-errors-spki-list=${publicKeyHashes(standIn.ca).join(',')}`]);
  pageServer = http.createServer((request, response) => {
    response.writeHead(200, { 'Content-Type': 'text/html; charset=utf-8' });
    response.end(pageHtml);
  });
  await new Promise((resolve) => pageServer.listen(0, '127.0.0.1', resolve));
  pageOrigin = `http://127.0.0.1:${pageServer.address().port}`;
});

after(async () => {
  await browser?.close();
  pageServer?.close();
  await run(script('stop'), [dir]);
  await rm(dir, { recursive: true, force: true });
});

const css2 = (query) => `${standIn.api}/css2?${query}`;

// Opens a page that links the stylesheet and writes each text in its family, and returns
// the web fonts that Chromium loaded (system fonts never show in document.fonts).
async function loadedFaces(query, texts) {
  pageHtml = `<!DOCTYPE html><meta charset="utf-8"><link rel="stylesheet" href="${css2(query).replaceAll('&', '&amp;')}">
${texts.map(({ family, style = 'normal', weight = 400, text }) =>
    `<p style="font-family: '${family}', monospace; font-style: ${style}; font-weight: ${weight}">${text}</p>`).join('\n')}`;
  const page = await browser.newPage();
  const failures = [];
  page.on('requestfailed', (request) => failures.push(`${request.url()}: ${request.failure()?.errorText}`));
  try {
    await page.goto(pageOrigin, { waitUntil: 'load' });
    const faces = await page.evaluate(async () => {
      await document.fonts.ready;
      return [...document.fonts].map((face) => ({
        family: face.family.replace(/^"|"$/g, ''), style: face.style, weight: face.weight, status: face.status,
      }));
    });
    assert.deepEqual(failures, []);
    return faces;
  } finally {
    await page.close();
  }
}

describe('a stylesheet in Chromium', () => {
  test('loads the WOFF2 subsets that the text needs, from the file host', async () => {
    const faces = await loadedFaces('family=DejaVu+Serif:ital,wght@0,400;0,700;1,400&display=swap', [
      { family: 'DejaVu Serif', text: 'Harbour at dawn, ł' },
      { family: 'DejaVu Serif', weight: 700, text: 'Bold harbour' },
      { family: 'DejaVu Serif', style: 'italic', text: 'Italic harbour' },
    ]);
    const loaded = faces.filter((face) => face.status === 'loaded');
    // Latin and latin-ext of the regular face (the text has "ł"), latin of the bold and the italic.
    assert.deepEqual(loaded.map(({ style, weight }) => `${style} ${weight}`).sort(),
      ['italic 400', 'normal 400', 'normal 400', 'normal 700']);
    assert.equal(faces.length, 6, 'two subsets for each of the three styles');
    assert.ok(loaded.every((face) => face.family === 'DejaVu Serif'));
    const requests = await (await fetch(`${standIn.api}/_admin/requests`)).json();
    const fileRequests = requests.filter((entry) => entry.path.startsWith('/s/dejavuserif/'));
    assert.equal(fileRequests.length, 4);
    assert.ok(fileRequests.every((entry) => entry.host === standIn.file_host && entry.path.endsWith('.woff2')));
  });

  test('several families in one request, and a range of a variable family', async () => {
    const faces = await loadedFaces('family=DejaVu+Sans:wght@700&family=DejaVu+Sans+Mono:wght@400..700', [
      { family: 'DejaVu Sans', weight: 700, text: 'Sans' },
      { family: 'DejaVu Sans Mono', weight: 550, text: 'Mono' },
    ]);
    const loaded = faces.filter((face) => face.status === 'loaded');
    assert.deepEqual(loaded.map(({ family, weight }) => `${family} ${weight}`).sort(),
      ['DejaVu Sans 700', 'DejaVu Sans Mono 400 700']);
  });
});

describe('what other clients get', () => {
  test('a client that is no modern browser gets one TrueType file per style, without subsets', async () => {
    const response = await fetch(css2('family=DejaVu+Sans:ital,wght@0,400;1,700'), { headers: { 'User-Agent': 'curl/7.88.1' } });
    assert.equal(response.status, 200);
    assert.match(response.headers.get('content-type'), /^text\/css/);
    const css = await response.text();
    assert.equal(css.match(/@font-face/g).length, 2);
    assert.match(css, /src: url\(https:\/\/fonts\.gstatic\.com\/s\/dejavusans\/v18\/[\w-]+\.ttf\) format\('truetype'\);/);
    assert.doesNotMatch(css, /unicode-range|woff2|font-display/);
  });

  test('a variable family declares every asked weight with its one file', async () => {
    const css = await (await fetch(css2('family=DejaVu+Sans+Mono:wght@400;700'), { headers: { 'User-Agent': chrome } })).text();
    const rules = [...css.matchAll(/font-weight: (\d+);\n {2}src: url\(([^)]+)\)/g)].map((match) => [match[1], match[2]]);
    assert.equal(rules.length, 4);
    assert.equal(rules.find(([weight]) => weight === '400')[1], rules.find(([weight]) => weight === '700')[1]);
  });

  test("Google's 400 page for what it cannot serve", async () => {
    for (const query of ['family=No+Such+Family', 'family=DejaVu+Serif:ital,wght@1,700', 'family=DejaVu+Serif:wght@400..700',
      'family=DejaVu+Sans:wght,ital@400,0', 'family=DejaVu+Sans:wght@700;400', 'family=DejaVu+Sans&display=soon']) {
      const response = await fetch(css2(query), { headers: { 'User-Agent': chrome } });
      assert.equal(response.status, 400, query);
      assert.match(response.headers.get('content-type'), /^text\/html/);
      assert.match(await response.text(), /The requested font families are not available/);
    }
  });
});
