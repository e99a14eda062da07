// Makes the batch record of a local site 6 minutes old, as if its computer had
// stopped: the next run may take the site over.
//   node age_batch_run.mjs SITE_FOLDER
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { writeObject } from '../../worker/dev/folderBucket.mjs';

const [site] = process.argv.slice(2);
const key = '_vorlen/batch-run.json';
const record = JSON.parse(readFileSync(path.join(site, 'objects', key), 'utf8'));
record.updated = new Date(Date.now() - 6 * 60 * 1000).toISOString().replace(/\.\d+Z$/, 'Z');
await writeObject(site, key, JSON.stringify(record), { contentType: 'application/json', cacheControl: 'no-cache' });
