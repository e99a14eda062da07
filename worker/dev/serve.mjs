// Serves a local site until it is stopped: node worker/dev/serve.mjs ROOT [--port N].
// ROOT is a folder bucket's folder (objects/ and .meta/). Prints one JSON line with
// the page and media origins when it is ready, so that the process that started it
// can read where the site is.
import { existsSync } from 'node:fs';
import path from 'node:path';
import { startLocalSite } from './localSite.mjs';

const args = process.argv.slice(2);
const portIndex = args.indexOf('--port');
const port = portIndex >= 0 ? Number(args.splice(portIndex, 2)[1]) : 0;
const [root] = args;
if (!root || !Number.isInteger(port) || port < 0 || port > 65535) {
  console.error('usage: serve.mjs ROOT [--port N]');
  process.exit(2);
}
if (!existsSync(path.join(root, 'objects'))) {
  console.error(`${root} is not a folder bucket: it has no objects/ folder`);
  process.exit(2);
}

const site = await startLocalSite({ root, port });
console.log(JSON.stringify({ page: site.pageOrigin, media: site.mediaOrigin, port: site.port }));

async function stop() {
  await site.close();
  process.exit(0);
}
process.on('SIGTERM', stop);
process.on('SIGINT', stop);
