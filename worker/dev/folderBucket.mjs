// The folder of a FolderBucket (core/storage/FolderBucket.hpp) as the local site
// reads it and tests write it: each object's bytes at objects/<key>, and its record,
// with the headers it was stored with, at .meta/<SHA-256 of the key, hex>.json. An
// object is there only with its record.
import { createHash } from 'node:crypto';
import { constants } from 'node:fs';
import { mkdir, open, readdir, readFile, realpath, writeFile } from 'node:fs/promises';
import path from 'node:path';

const longestSegment = 250;

// Whether a folder bucket can hold the key: no empty, "." or ".." segment, none over
// 250 bytes, no NUL.
export function isStorableKey(key) {
  return key !== '' && !key.includes('\0') && key.split('/')
    .every((segment) => segment !== '' && segment !== '.' && segment !== '..' && Buffer.byteLength(segment) <= longestSegment);
}

// Where a key's bytes and its record lie, relative to the root.
export function layoutOf(key) {
  if (!isStorableKey(key)) throw new Error(`“${key}” cannot be kept in a folder bucket`);
  return {
    object: `objects/${key}`,
    record: `.meta/${createHash('sha256').update(key, 'utf8').digest('hex')}.json`,
  };
}

// Stores bytes under a key with the headers given, in the form that FolderBucket
// writes. Without its lock and change record: for folders that no application
// writes to at the same time, such as a test's.
export async function writeObject(root, key, body, { contentType, cacheControl, metadata = {} }) {
  const layout = layoutOf(key);
  const bytes = Buffer.from(body);
  const file = path.join(root, layout.object);
  await mkdir(path.dirname(file), { recursive: true });
  await writeFile(file, bytes);
  const record = {
    cacheControl,
    contentType,
    etag: `"${createHash('md5').update(bytes).digest('hex')}"`,
    key,
    lastModified: new Date().toISOString().replace(/\.\d+Z$/, 'Z'),
    metadata: Object.fromEntries(Object.entries(metadata).map(([name, value]) => [name.toLowerCase(), value])),
    size: bytes.length,
  };
  await mkdir(path.join(root, '.meta'), { recursive: true });
  await writeFile(path.join(root, layout.record), JSON.stringify(record));
}

function isMissing(error) {
  return ['ENOENT', 'ENOTDIR', 'ELOOP'].includes(error.code);
}

// Opens a regular file that no symbolic link leads to below `folder`, or gives null:
// a link in the folder, wherever it points, is never followed.
async function openPlainFile(folder, parts) {
  let handle;
  try {
    const file = path.join(await realpath(folder), ...parts);
    if (await realpath(file) !== file) return null;
    handle = await open(file, constants.O_RDONLY | constants.O_NOFOLLOW);
    const info = await handle.stat();
    if (info.isFile()) return { handle, info };
  } catch (error) {
    if (!isMissing(error)) throw error;
  }
  await handle?.close();
  return null;
}

// A stored object: its record's headers and ETag, and its bytes open for reading
// (the caller closes `handle`); null for a key without bytes or without a record.
export async function openStoredObject(root, key) {
  if (!isStorableKey(key)) return null;
  const { record } = layoutOf(key);
  const recordFile = await openPlainFile(path.join(root, '.meta'), [path.basename(record)]);
  if (!recordFile) return null;
  let meta;
  try {
    meta = JSON.parse(await recordFile.handle.readFile('utf8'));
  } catch {
    meta = null;
  } finally {
    await recordFile.handle.close();
  }
  if (!meta || meta.key !== key) return null;
  const bytes = await openPlainFile(path.join(root, 'objects'), key.split('/'));
  if (!bytes) return null;
  return {
    headers: { contentType: String(meta.contentType ?? ''), cacheControl: String(meta.cacheControl ?? '') },
    etag: typeof meta.etag === 'string' ? meta.etag : null,
    ...bytes,
  };
}

// The keys of the regular files under objects/ that have a record, each with the
// record's text, which changes whenever the object is stored again. Links are not
// followed.
export async function listStoredObjects(root) {
  const objects = path.join(root, 'objects');
  const found = new Map();
  async function walk(relative) {
    let entries;
    try {
      entries = await readdir(path.join(objects, relative), { withFileTypes: true });
    } catch (error) {
      if (isMissing(error)) return;
      throw error;
    }
    for (const entry of entries) {
      const key = relative ? `${relative}/${entry.name}` : entry.name;
      if (entry.isDirectory()) await walk(key);
      else if (entry.isFile() && isStorableKey(key)) {
        const record = await readFile(path.join(root, layoutOf(key).record), 'utf8').catch(() => null);
        if (record !== null) found.set(key, record);
      }
    }
  }
  await walk('');
  return found;
}
