// The account's state: one JSON document in DIR/state.json, seeded from a fixture on
// the first start and written atomically after every change, so that a restart with
// the same DIR finds the account as it was. Bytes that would bloat the document
// (Worker modules, static assets) lie beside it in DIR/blobs, named by their SHA-256.
// The file holds token values and Worker secrets: it is made readable by its owner only.
import { createHash, randomBytes } from 'node:crypto';
import { existsSync, mkdirSync, readFileSync, renameSync, writeFileSync, openSync, fsyncSync, closeSync } from 'node:fs';
import path from 'node:path';
import { PERMISSION_GROUPS } from './permissions.mjs';

export function newId() {
  return randomBytes(16).toString('hex');
}

export function isoNow() {
  return new Date().toISOString();
}

export function sha256Hex(data) {
  return createHash('sha256').update(data).digest('hex');
}

// Account-owned token values carry Cloudflare's "cfat_" prefix; user tokens have none.
export function newTokenValue(kind) {
  const body = randomBytes(30).toString('base64url').slice(0, 40);
  return kind === 'account' ? `cfat_${body}` : body;
}

function writeAtomically(file, data) {
  const temporary = `${file}.${process.pid}.tmp`;
  const fd = openSync(temporary, 'w', 0o600);
  try {
    writeFileSync(fd, data);
    fsyncSync(fd);
  } finally {
    closeSync(fd);
  }
  renameSync(temporary, file);
}

// The account's workers.dev subdomain: its name in lower case, words joined by "-".
function subdomainFor(account) {
  return account.name.toLowerCase().replace(/[^a-z0-9]+/g, '-').replace(/^-|-$/g, '') || account.id;
}

function seed(fixture) {
  const tokens = (fixture.tokens ?? []).map((token) => ({
    id: token.id ?? newId(),
    name: token.name,
    kind: token.kind ?? 'account',
    value: newTokenValue(token.kind ?? 'account'),
    status: 'active',
    issued_on: isoNow(),
    modified_on: isoNow(),
    policies: token.policies.map((policy) => ({
      id: newId(),
      ...policy,
      permission_groups: policy.permission_groups.map(({ name }) => {
        const group = PERMISSION_GROUPS.find((candidate) => candidate.name === name);
        if (!group) throw new Error(`the fixture names an unknown permission group "${name}"`);
        return { id: group.id, name };
      }),
    })),
    setup: Boolean(token.setup),
  }));
  return {
    account: fixture.account,
    zones: fixture.zones.map((zone) => ({ ...zone, dnsRecords: zone.dnsRecords ?? [] })),
    ruleLimits: fixture.ruleLimits,
    switches: {
      r2Enabled: fixture.r2Enabled ?? true,
      activationSeconds: fixture.customDomainActivationSeconds ?? 2,
      endlessPaging: false,
      repeatingCursor: false,
    },
    tokens,
    buckets: [],
    kvNamespaces: [],
    rulesets: [],
    purges: [],
    workers: { scripts: {}, assets: {}, uploadSessions: {}, versions: {}, domains: [], subdomain: subdomainFor(fixture.account),
      secret: randomBytes(32).toString('hex') },
  };
}

export class Store {
  constructor(dir, fixtureFile) {
    this.dir = dir;
    this.file = path.join(dir, 'state.json');
    this.blobDir = path.join(dir, 'blobs');
    mkdirSync(this.blobDir, { recursive: true });
    if (existsSync(this.file)) {
      this.state = JSON.parse(readFileSync(this.file, 'utf8'));
      this.state.workers.subdomain ??= subdomainFor(this.state.account);
      this.state.workers.versions ??= {};
    } else {
      this.state = seed(JSON.parse(readFileSync(fixtureFile, 'utf8')));
      this.save();
    }
  }

  save() {
    writeAtomically(this.file, JSON.stringify(this.state, null, 1));
  }

  // Keeps bytes by their SHA-256 and answers that name.
  putBlob(data) {
    const name = sha256Hex(data);
    const file = path.join(this.blobDir, name);
    if (!existsSync(file)) writeAtomically(file, data);
    return name;
  }

  blobPath(name) {
    return path.join(this.blobDir, name);
  }

  zone(id) {
    return this.state.zones.find((zone) => zone.id === id);
  }

  bucket(name) {
    return this.state.buckets.find((bucket) => bucket.name === name);
  }
}
