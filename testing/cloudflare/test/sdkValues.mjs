// Prints, as one JSON object, what Cloudflare's own SDK reads of an account: the raw
// objects as the SDK gives them, for a test that compares them with what another client
// decodes from the same account.
//   CLOUDFLARE_API_TOKEN=... node testing/cloudflare/test/sdkValues.mjs API ACCOUNT
// The token comes through the environment, never as an argument that a process list shows.
import { createRequire } from 'node:module';
import { pathToFileURL } from 'node:url';

const toolsRequire = createRequire(new URL('../../../tools/package.json', import.meta.url));
const Cloudflare = toolsRequire('cloudflare').default;

export async function collect(iterable) {
  const items = [];
  for await (const item of iterable) items.push(item);
  return items;
}

// The SDK gives a bucket list's result only; the cursor lies in the envelope beside it.
export async function bucketPages(cf, account, perPage) {
  const pages = [];
  let cursor;
  do {
    const body = await (await cf.r2.buckets.list({ account_id: account, per_page: perPage, cursor }).asResponse()).json();
    pages.push(body.result.buckets);
    cursor = body.result_info?.cursor;
  } while (cursor);
  return pages;
}

async function main([api, account], token) {
  const cf = new Cloudflare({ apiToken: token, baseURL: api, maxRetries: 0 });
  const zones = await collect(cf.zones.list({ account: { id: account } }));
  const dnsRecords = {};
  for (const zone of zones) dnsRecords[zone.id] = await collect(cf.dns.records.list({ zone_id: zone.id }));
  const values = {
    accounts: await collect(cf.accounts.list()),
    zones,
    zone: zones.length > 0 ? await cf.zones.get({ zone_id: zones[0].id }) : null,
    dnsRecords,
    buckets: (await bucketPages(cf, account, 100)).flat(),
    kvNamespaces: await collect(cf.kv.namespaces.list({ account_id: account })),
    permissionGroups: await collect(cf.accounts.tokens.permissionGroups.list({ account_id: account })),
    verify: token.startsWith('cfat_') ? await cf.accounts.tokens.verify({ account_id: account }) : await cf.user.tokens.verify(),
  };
  process.stdout.write(`${JSON.stringify(values, null, 2)}\n`);
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) {
  if (process.argv.length !== 4 || !process.env.CLOUDFLARE_API_TOKEN) {
    console.error('usage: CLOUDFLARE_API_TOKEN=... node sdkValues.mjs API ACCOUNT');
    process.exit(2);
  }
  main(process.argv.slice(2), process.env.CLOUDFLARE_API_TOKEN).catch((error) => {
    console.error(`sdkValues: ${error.message}`);
    process.exit(1);
  });
}
