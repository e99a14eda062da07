// Serves a local site until it is stopped: node worker/dev/serve.mjs ROOT [--port N].
// ROOT is a FolderBucket's folder (objects/ and .meta/) or a plain folder of objects.
// Prints one JSON line with the page and media origins when it is ready, so that
// the process that started it can read where the site is.
import { existsSync } from 'node:fs';
import path from 'node:path';
import { folderBucketLayout, startLocalSite } from './localSite.mjs';

const args = process.argv.slice(2);
const portIndex = args.indexOf('--port');
const port = portIndex >= 0 ? Number(args.splice(portIndex, 2)[1]) : 0;
const [root] = args;
if (!root || !Number.isInteger(port) || port < 0 || port > 65535) {
  console.error('usage: serve.mjs ROOT [--port N]');
  process.exit(2);
}

const layout = existsSync(path.join(root, 'objects')) ? folderBucketLayout(root) : { objectsDir: root };
const site = await startLocalSite({ ...layout, port });
console.log(JSON.stringify({ page: site.pageOrigin, media: site.mediaOrigin, port: site.port }));

async function stop() {
  await site.close();
  process.exit(0);
}
process.on('SIGTERM', stop);
process.on('SIGINT', stop);
