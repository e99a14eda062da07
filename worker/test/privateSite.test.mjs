// A private site in a real browser: `vorlen` publishes a public and an unlisted clip to
// the local site, makes it private and invites a viewer; headless Chromium, with a
// virtual authenticator, redeems the invite, watches, signs out and in again, and is
// turned away once the invite is used, expired, or the viewer removed.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdir, readFile, rm } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { promisify } from 'node:util';
import { after, before, test } from 'node:test';
import { writeObject } from '../dev/folderBucket.mjs';
import { freshHome, launchChromium, playsPastTwoSeconds, startPreview } from './helpers.mjs';

const run = promisify(execFile);
const vorlen = process.env.VORLEN_BINARY;
const screenshotDir = process.env.VORLEN_SCREENSHOT_DIR ?? path.join(os.tmpdir(), 'vorlen-worker-screenshots');

let home;
let env;
let preview;
let browser;

async function vorlenSays(...args) {
  return (await run(vorlen, args, { env })).stdout;
}

// Adds a viewer and gives their ID and the invite link's path.
async function invite(name) {
  const link = (await vorlenSays('viewers', 'add', name)).trim().split('\n').pop();
  const [, invitePath, id] = /^http:\/\/localhost:8787(\/_invite\/([0-9a-f]{32})\.[A-Za-z0-9_-]{43})$/.exec(link);
  return { id, path: invitePath };
}

async function clip(file, source) {
  await run('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', `${source}=size=640x360:rate=25:duration=6`,
    '-f', 'lavfi', '-i', 'sine=frequency=330:sample_rate=48000:duration=6', '-c:v', 'libx264', '-pix_fmt', 'yuv420p',
    '-c:a', 'aac', '-shortest', file]);
}

before(async () => {
  ({ home, env } = await freshHome('vorlen-private-'));
  await mkdir(screenshotDir, { recursive: true });
  if (!vorlen) return;
  const [harbour, rehearsal] = [path.join(home, 'Harbour at Dawn.mp4'), path.join(home, 'Rehearsal Cut.mp4')];
  await Promise.all([clip(harbour, 'testsrc2'), clip(rehearsal, 'smptehdbars')]);
  await run(vorlen, ['publish', harbour], { env });
  await run(vorlen, ['publish', rehearsal, '--unlisted'], { env });
  browser = await launchChromium(path.join(home, 'chromium'));
});

after(async () => {
  await browser?.close();
  await preview?.stop();
  await rm(home, { recursive: true, force: true });
});

test('an invited viewer makes a passkey, watches, signs out and in; used, expired and removed invites are refused',
  { skip: !vorlen && 'VORLEN_BINARY is not set' }, async () => {
    assert.match(await vorlenSays('viewers', 'private', 'on'), /^The site is private: /);
    assert.match(await vorlenSays('viewers'), /^The site is private: every page needs a viewer signed in with a passkey\.\n/);
    const ana = await invite('Ana <Lima> "Ana"');
    preview = await startPreview(vorlen, env);
    const { origin } = preview;

    const context = await browser.newContext({ viewport: { width: 1100, height: 760 } });
    const page = await context.newPage();
    const failures = [];
    page.on('pageerror', (error) => failures.push(error.message));
    const cdp = await context.newCDPSession(page);
    await cdp.send('WebAuthn.enable', { enableUI: false });
    await cdp.send('WebAuthn.addVirtualAuthenticator', { options: {
      protocol: 'ctap2', transport: 'internal', hasResidentKey: true, hasUserVerification: true,
      isUserVerified: true, automaticPresenceSimulation: true,
    } });

    await page.goto(`${origin}/`);
    assert.equal(page.url(), `${origin}/_signin?next=%2F`, 'a private page asks for a sign-in');
    await page.screenshot({ path: path.join(screenshotDir, 'private-signin.png') });

    await page.goto(`${origin}${ana.path}`);
    assert.equal(await page.locator('h1').textContent(), 'Welcome, Ana <Lima> "Ana"');
    await page.screenshot({ path: path.join(screenshotDir, 'private-invite.png') });
    await Promise.all([page.waitForURL(`${origin}/`), page.getByRole('button', { name: 'Make a passkey' }).click()]);
    assert.match(await vorlenSays('viewers'), new RegExp(`${ana.id}  Ana <Lima> "Ana"  signs in with a passkey made at `));
    await page.screenshot({ path: path.join(screenshotDir, 'private-home.png'), fullPage: true });
    assert.deepEqual((await page.locator('.card-title').allTextContents()).map((t) => t.replace(/,.*/, '')).sort(),
      ['Harbour at Dawn', 'Rehearsal Cut']);
    await Promise.all([page.waitForURL(/\/rehearsal-cut-/), page.getByRole('link', { name: /Rehearsal Cut/ }).click()]);
    await page.waitForSelector('.shaka-controls-container');
    await playsPastTwoSeconds(page);

    await page.goto(`${origin}/`);
    await Promise.all([page.waitForURL(`${origin}/_signin`), page.getByRole('button', { name: 'Sign out' }).click()]);
    await page.goto(`${origin}/harbour-at-dawn`);
    assert.equal(page.url(), `${origin}/_signin?next=%2Fharbour-at-dawn`);
    await Promise.all([page.waitForURL(`${origin}/harbour-at-dawn`), page.getByRole('button', { name: 'Sign in with a passkey' }).click()]);
    await page.waitForSelector('.shaka-controls-container');
    await playsPastTwoSeconds(page);

    const used = await page.goto(`${origin}${ana.path}`);
    assert.equal(used.status(), 410);
    assert.equal(await page.locator('h1').textContent(), 'This invite was used already');

    const bo = await invite('Bo');
    const boFile = path.join(home, 'data', 'vorlen', 'local-site', 'objects', '_vorlen', 'viewers', `${bo.id}.json`);
    const aged = JSON.parse(await readFile(boFile, 'utf8'));
    aged.invite.expires = '2020-01-01T00:00:00Z';
    await writeObject(path.join(home, 'data', 'vorlen', 'local-site'), `_vorlen/viewers/${bo.id}.json`,
      JSON.stringify(aged, null, 2), { contentType: 'application/json', cacheControl: 'no-cache' });
    const expired = await page.goto(`${origin}${bo.path}`);
    assert.equal(expired.status(), 410);
    assert.equal(await page.locator('h1').textContent(), 'This invite has expired');

    await vorlenSays('viewers', 'remove', ana.id);
    await page.goto(`${origin}/harbour-at-dawn`);
    assert.equal(page.url(), `${origin}/_signin?next=%2Fharbour-at-dawn`, 'the old session no longer opens pages');
    await page.getByRole('button', { name: 'Sign in with a passkey' }).click();
    await page.waitForFunction(() => document.getElementById('viewer-status').textContent.startsWith('This passkey does not sign in'));
    assert.equal(page.url(), `${origin}/_signin?next=%2Fharbour-at-dawn`);
    assert.deepEqual(failures, []);
    await context.close();
  });
