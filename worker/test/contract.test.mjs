// The cases of testing/contract/ that the core's tests answer too: here the page
// Worker reads site files, hostnames, origins, folder paths, folder names and player colours, and the
// local site's tools write the folder bucket's layout.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { mkdtemp, readFile, rm } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { folderPath, isFolderName, playerColor, siteSettingsFrom, validHost, webOrigin } from '../src/worker.js';
import { layoutOf, writeObject } from '../dev/folderBucket.mjs';

function contract(file) {
  return JSON.parse(readFileSync(new URL(`../../testing/contract/${file}`, import.meta.url), 'utf8'));
}

// The settings that the pages keep, in the file's own form.
function fileForm(site) {
  const home = site.homePage;
  return {
    path: site.path,
    page_path: site.pagePath,
    media_host: site.mediaHost,
    page_host: site.pageHost,
    template: site.template,
    embeds: site.embeds,
    home_page: { public: home.isPublic, title: home.title, search: home.showsSearch, sort: home.sort, poster_size: home.posterSize },
    private: site.isPrivate,
  };
}

// What the file must hold validly but the pages do not keep.
const notKept = new Set(['version', 'worker', 'media_origins', 'audio_loudness']);

test('reads or refuses each site file as the application does', () => {
  for (const entry of contract('site-settings.json')) {
    const text = entry.text ?? JSON.stringify(entry.file);
    let read;
    try {
      read = fileForm(siteSettingsFrom(text));
    } catch (error) {
      assert.ok(entry.refused, `${text} is refused (${error.message}) but is to be read`);
      assert.equal({ newer: 'newer', unreadable: 'invalid' }[error.reason], entry.refused, text);
      continue;
    }
    assert.ok(entry.read, `${text} is read but is to be refused`);
    for (const [key, value] of Object.entries(entry.read)) {
      if (!notKept.has(key)) assert.deepEqual(read[key], value, `${text}: ${key}`);
    }
  }
});

test('tells hostnames, origins, folder paths and folder names as the application does', () => {
  for (const { input, normalised } of contract('hostnames.json')) assert.equal(validHost(input), normalised, input);
  for (const { input, normalised } of contract('web-origins.json')) assert.equal(webOrigin(input), normalised, input);
  for (const { input, normalised } of contract('folder-paths.json')) {
    assert.equal(folderPath(input), normalised, JSON.stringify(input));
  }
  for (const { name, valid } of contract('folder-names.json')) assert.equal(isFolderName(name), valid, JSON.stringify(name));
  for (const { input, valid } of contract('player-colors.json')) {
    assert.equal(playerColor(input), valid ? input : null, JSON.stringify(input));
  }
});

test('writes each key where the folder bucket keeps it, and refuses the keys it refuses', async () => {
  const layout = contract('folder-bucket-layout.json');
  const root = await mkdtemp(path.join(os.tmpdir(), 'vorlen-layout-'));
  try {
    const headers = { contentType: 'video/mp4', cacheControl: '' };
    for (const { key, object, record } of layout.stored) {
      await writeObject(root, key, 'x', headers);
      assert.equal(await readFile(path.join(root, object), 'utf8'), 'x', key);
      assert.equal(JSON.parse(await readFile(path.join(root, record), 'utf8')).key, key);
    }
    const sample = layout.record;
    await writeObject(root, sample.key, sample.body, sample.headers);
    const record = JSON.parse(await readFile(path.join(root, layoutOf(sample.key).record), 'utf8'));
    for (const [field, value] of Object.entries(sample.record)) assert.deepEqual(record[field], value, field);
    assert.match(record.lastModified, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$/);
    for (const key of layout.refused) {
      await assert.rejects(writeObject(root, key, 'x', headers), /cannot be kept in a folder bucket/, JSON.stringify(key));
    }
  } finally {
    await rm(root, { recursive: true, force: true });
  }
});
