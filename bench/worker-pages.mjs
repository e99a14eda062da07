// How much a rendered page costs next to a static asset of the same bundle, both
// served by workerd through Miniflare in the same run: node bench/worker-pages.mjs
// Prints the time per request of each and their ratio (best of interleaved rounds).
import { performance } from 'node:perf_hooks';
import { startWorker } from '../worker/dev/localSite.mjs';

const origin = 'https://watch.example.com';
const requests = 200;
const rounds = 5;

const worker = await startWorker();
const put = (key, value) => worker.bucket.put(key, JSON.stringify(value));
await put('_vorlen/site.json', {
  version: 1, media_host: 'media.example.com', page_host: 'watch.example.com', template: 'auto',
  worker: { name: 'vorlen-pages', version: '1.0.0' }, home_page: { public: true, title: 'Bench' },
});
await put('harbour/video.json', {
  version: 1, title: 'Harbour', description: 'A **bold** [link](https://a.example) and https://b.example.\n\n'.repeat(20),
  visibility: 'public', created: '2026-01-01T00:00:00Z', updated: '2026-01-01T00:00:00Z',
});
await worker.bucket.put('harbour/master.m3u8', '#EXTM3U\n');
await put('_vorlen/catalog.json', {
  version: 1,
  videos: Array.from({ length: 500 }, (_, i) => ({
    folder: `video-${i}`, title: `Video number ${i}`, poster: 'poster.jpg', duration: i * 7,
    created: new Date(Date.UTC(2026, 0, 1) + i * 3600e3).toISOString().replace(/\.\d+Z$/, 'Z'), visibility: 'public',
  })),
});

async function timePerRequest(path) {
  const start = performance.now();
  for (let i = 0; i < requests; i += 1) {
    const response = await worker.fetch(`${origin}${path}`);
    if (response.status !== 200) throw new Error(`${path} answered ${response.status}`);
    await response.arrayBuffer();
  }
  return (performance.now() - start) / requests;
}

const paths = { asset: '/_assets/site.css', player: '/harbour', home: '/' };
const best = { asset: Infinity, player: Infinity, home: Infinity };
await timePerRequest(paths.player);
for (let round = 0; round < rounds; round += 1) {
  for (const [name, path] of Object.entries(paths)) best[name] = Math.min(best[name], await timePerRequest(path));
}
await worker.close();

console.log(`static asset          ${best.asset.toFixed(3)} ms per request`);
console.log(`player page           ${best.player.toFixed(3)} ms per request, ${(best.player / best.asset).toFixed(2)}x the asset`);
console.log(`home page, 500 videos ${best.home.toFixed(3)} ms per request, ${(best.home / best.asset).toFixed(2)}x the asset`);
