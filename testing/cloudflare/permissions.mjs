// Permission groups, token policies, and the one table from endpoint to the permission
// that it needs. Follows https://developers.cloudflare.com/fundamentals/api/reference/permissions/
// and https://developers.cloudflare.com/api/resources/accounts/subresources/tokens/ (a policy
// is {effect, resources, permission_groups: [{id}]}; resources are
// "com.cloudflare.api.account.<account>", "com.cloudflare.api.account.zone.<zone>" (or ".*",
// also nested under an account), and "com.cloudflare.edge.r2.bucket.<account>_default_<bucket>").
import { createHash } from 'node:crypto';

const ACCOUNT = 'com.cloudflare.api.account';
const ZONE = 'com.cloudflare.api.account.zone';
const BUCKET = 'com.cloudflare.edge.r2.bucket';

// Cloudflare's own ids where they are known; the others are derived from the name, so
// that they are stable 32-hex ids across runs.
const KNOWN_IDS = {
  'Account Settings Read': 'c1fde68c7bcc44588cbb6ddbc16d6480',
  'Workers R2 Storage Write': 'bf7481a1826f439697cb59a20b22293e',
  'Workers Scripts Write': 'e086da7e2179491d91ee5f35b3ca210a',
  'Workers KV Storage Write': 'f7f0eda5697f475c90846e879bab8666',
  'Account API Tokens Write': '5bc3f8b21c554832afc660159ab75fa4',
  'Zone Read': 'c8fed203ed3043cba015a93ad1616f1f',
  'DNS Read': '82e64a83756745bbbb1c9c2701bf816b',
  'Workers Routes Write': '28f4b596e7d643029c524985477ae49a',
  'Zone WAF Write': 'fb6778dc191143babbfaa57993f1d275',
  'Cache Purge': 'e17beae8b8cb423a99b1730f21238bed',
};

function group(name, family, level, scope) {
  const id = KNOWN_IDS[name] ?? createHash('md5').update(name).digest('hex');
  return { id, name, family, level, scopes: [scope] };
}

function readWrite(family, scope) {
  return [group(`${family} Read`, family, 'read', scope), group(`${family} Write`, family, 'write', scope)];
}

export const PERMISSION_GROUPS = [
  ...readWrite('Account Settings', ACCOUNT),
  ...readWrite('Workers R2 Storage', ACCOUNT),
  ...readWrite('Workers Scripts', ACCOUNT),
  ...readWrite('Workers KV Storage', ACCOUNT),
  ...readWrite('Account API Tokens', ACCOUNT),
  ...readWrite('Zone', ZONE),
  ...readWrite('DNS', ZONE),
  ...readWrite('Workers Routes', ZONE),
  ...readWrite('Zone WAF', ZONE),
  ...readWrite('Cache Settings', ZONE),
  group('Cache Purge', 'Cache Purge', 'purge', ZONE),
  ...readWrite('Workers R2 Storage Bucket Item', BUCKET),
];

const groupsById = new Map(PERMISSION_GROUPS.map((entry) => [entry.id, entry]));

export function permissionGroup(id) {
  return groupsById.get(id);
}

// What a ruleset's phase is guarded by.
export const PHASE_GROUPS = {
  http_request_firewall_custom: 'Zone WAF',
  http_request_cache_settings: 'Cache Settings',
};

const account = (family, level) => ({ family, level, on: 'account' });
const zone = (family, level) => ({ family, level, on: 'zone' });

function rulesetNeed(level) {
  return (request, store) => {
    const phase = request.params.phase
      ?? store.state.rulesets.find((ruleset) => ruleset.id === request.params.ruleset)?.phase
      ?? request.jsonOrEmpty().phase;
    const family = PHASE_GROUPS[phase];
    return family ? [zone(family, level)] : Object.values(PHASE_GROUPS).map((name) => zone(name, level));
  };
}

// Endpoint → permission. "token" means any valid token (the token speaks of itself, or
// the list is filtered to what the token may see); "session" is the asset upload JWT.
// A list of needs means that any one of them is enough.
export const ENDPOINT_PERMISSIONS = {
  'GET accounts': 'token',
  'GET zones': 'token',
  'GET zones/:zone': [zone('Zone', 'read')],
  'GET zones/:zone/dns_records': [zone('DNS', 'read')],
  'POST zones/:zone/purge_cache': [zone('Cache Purge', 'purge')],
  'GET zones/:zone/rulesets/phases/:phase/entrypoint': rulesetNeed('read'),
  'POST zones/:zone/rulesets': rulesetNeed('write'),
  'POST zones/:zone/rulesets/:ruleset/rules': rulesetNeed('write'),
  'PATCH zones/:zone/rulesets/:ruleset/rules/:rule': rulesetNeed('write'),
  'DELETE zones/:zone/rulesets/:ruleset/rules/:rule': rulesetNeed('write'),
  'GET accounts/:account/storage/kv/namespaces': [account('Workers KV Storage', 'read')],
  'POST accounts/:account/storage/kv/namespaces': [account('Workers KV Storage', 'write')],
  'DELETE accounts/:account/storage/kv/namespaces/:namespace': [account('Workers KV Storage', 'write')],
  'GET accounts/:account/r2/buckets': [account('Workers R2 Storage', 'read')],
  'POST accounts/:account/r2/buckets': [account('Workers R2 Storage', 'write')],
  'GET accounts/:account/r2/buckets/:bucket': [account('Workers R2 Storage', 'read')],
  'GET accounts/:account/r2/buckets/:bucket/objects/*key': [
    account('Workers R2 Storage', 'read'),
    { family: 'Workers R2 Storage Bucket Item', level: 'read', on: 'bucket' },
  ],
  'GET accounts/:account/r2/buckets/:bucket/domains/custom': [account('Workers R2 Storage', 'read')],
  'POST accounts/:account/r2/buckets/:bucket/domains/custom': [account('Workers R2 Storage', 'write')],
  'GET accounts/:account/r2/buckets/:bucket/domains/custom/:domain': [account('Workers R2 Storage', 'read')],
  'PUT accounts/:account/r2/buckets/:bucket/domains/custom/:domain': [account('Workers R2 Storage', 'write')],
  'DELETE accounts/:account/r2/buckets/:bucket/domains/custom/:domain': [account('Workers R2 Storage', 'write')],
  'GET accounts/:account/r2/buckets/:bucket/domains/managed': [account('Workers R2 Storage', 'read')],
  'PUT accounts/:account/r2/buckets/:bucket/domains/managed': [account('Workers R2 Storage', 'write')],
  'GET accounts/:account/r2/buckets/:bucket/cors': [account('Workers R2 Storage', 'read')],
  'PUT accounts/:account/r2/buckets/:bucket/cors': [account('Workers R2 Storage', 'write')],
  'DELETE accounts/:account/r2/buckets/:bucket/cors': [account('Workers R2 Storage', 'write')],
  'GET user/tokens/verify': 'token',
  'GET accounts/:account/tokens/verify': 'token',
  'GET accounts/:account/tokens': [account('Account API Tokens', 'read')],
  'POST accounts/:account/tokens': [account('Account API Tokens', 'write')],
  'GET accounts/:account/tokens/permission_groups': [account('Account API Tokens', 'read')],
  'GET accounts/:account/tokens/:token': [account('Account API Tokens', 'read')],
  'DELETE accounts/:account/tokens/:token': [account('Account API Tokens', 'write')],
  'POST accounts/:account/workers/scripts/:script/assets-upload-session': [account('Workers Scripts', 'write')],
  'POST accounts/:account/workers/assets/upload': 'session',
  'PUT accounts/:account/workers/scripts/:script': [account('Workers Scripts', 'write')],
  'GET accounts/:account/workers/services/:script': [account('Workers Scripts', 'read')],
  'GET accounts/:account/workers/scripts/:script/deployments': [account('Workers Scripts', 'read')],
  'POST accounts/:account/workers/scripts/:script/deployments': [account('Workers Scripts', 'write')],
  'POST accounts/:account/workers/scripts/:script/versions': [account('Workers Scripts', 'write')],
  'PATCH accounts/:account/workers/scripts/:script/script-settings': [account('Workers Scripts', 'write')],
  'GET accounts/:account/workers/scripts/:script/settings': [account('Workers Scripts', 'read')],
  'DELETE accounts/:account/workers/scripts/:script': [account('Workers Scripts', 'write')],
  'GET accounts/:account/workers/scripts/:script/subdomain': [account('Workers Scripts', 'read')],
  'POST accounts/:account/workers/scripts/:script/subdomain': [account('Workers Scripts', 'write')],
  'GET accounts/:account/workers/subdomain': [account('Workers Scripts', 'read')],
  'GET accounts/:account/workers/domains': [account('Workers Scripts', 'read')],
  'PUT accounts/:account/workers/domains': (request) => [
    { family: 'Workers Routes', level: 'write', on: 'zone', zone: request.jsonOrEmpty().zone_id },
  ],
  'DELETE accounts/:account/workers/domains/:domain': [account('Workers Scripts', 'write')],
};

function levelCovers(held, wanted) {
  return held === wanted || (held === 'write' && wanted === 'read');
}

function keyCovers(key, target) {
  if (target.on === 'account') return key === `${ACCOUNT}.${target.account}` || key === `${ACCOUNT}.*`;
  if (target.on === 'zone') return key === `${ZONE}.${target.zone}` || key === `${ZONE}.*`;
  return key === `${BUCKET}.${target.account}_default_${target.bucket}` || key === `${BUCKET}.*`
    || key === `${ACCOUNT}.${target.account}`;
}

// A zone resource may stand under its account ({"…account.<id>": {"…zone.*": "*"}}),
// which then reaches only that account's zones.
function resourcesCover(resources, target) {
  return Object.entries(resources ?? {}).some(([key, value]) => {
    if (value && typeof value === 'object') {
      const accountKey = key === `${ACCOUNT}.*` || key === `${ACCOUNT}.${target.account}`;
      return accountKey && resourcesCover(value, target);
    }
    return keyCovers(key, target);
  });
}

function policyGrants(policy, need, target) {
  return policy.permission_groups.some(({ id }) => {
    const held = permissionGroup(id);
    return held && held.family === need.family && levelCovers(held.level, need.level);
  }) && resourcesCover(policy.resources, target);
}

// Whether the token may do what `need` says over `target` ({on, account, zone, bucket}).
// A matching "deny" policy wins over any "allow".
export function tokenAllows(token, need, target) {
  const matching = token.policies.filter((policy) => policyGrants(policy, need, target));
  return matching.length > 0 && matching.every((policy) => policy.effect !== 'deny');
}

// Whether a token's policies reach R2 at all, so that its S3 credentials are worth keeping
// on the gateway.
export function reachesR2(token) {
  return token.policies.some((policy) => policy.effect === 'allow' && policy.permission_groups.some(({ id }) =>
    permissionGroup(id)?.family.startsWith('Workers R2 Storage')));
}
