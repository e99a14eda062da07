// R2 through the REST API: buckets (kept on the gateway), reading an object, custom
// domains, the r2.dev managed domain and CORS policies. Follows
// https://developers.cloudflare.com/api/resources/r2/subresources/buckets/ (list with
// "per_page" and "cursor", result {"buckets": [...]}), its domains/custom, domains/managed
// and cors subresources, and https://developers.cloudflare.com/r2/api/error-codes/ (10005
// InvalidBucketName, 10006 NoSuchBucket, 10007 NoSuchKey, 10042 R2 not enabled).
import { createHash } from 'node:crypto';
import { cursorPaged, fail, invalidBody, jsonBody, requireText } from './api.mjs';
import { isoNow, newId } from './state.mjs';

const LOCATION_HINTS = ['apac', 'eeur', 'enam', 'weur', 'wnam', 'oc'];
const BUCKET_NAME = /^[a-z0-9][a-z0-9-]{1,61}[a-z0-9]$/;
const CORS_METHODS = ['GET', 'PUT', 'POST', 'DELETE', 'HEAD'];

function bucketView(bucket) {
  return { name: bucket.name, creation_date: bucket.creation_date, location: bucket.location, jurisdiction: 'default', storage_class: 'Standard' };
}

function managedView(bucket) {
  return { bucketId: bucket.id, domain: `pub-${bucket.publicId}.r2.dev`, enabled: bucket.managedEnabled };
}

// A custom domain is pending until the activation delay has passed since it was added.
function domainView(domain, state) {
  const zone = state.zones.find((candidate) => candidate.id === domain.zoneId);
  const active = Date.now() - domain.addedAt >= state.switches.activationSeconds * 1000;
  return {
    domain: domain.domain,
    enabled: domain.enabled,
    status: active ? { ownership: 'active', ssl: 'active' } : { ownership: 'pending', ssl: 'pending' },
    minTLS: domain.minTLS,
    zoneId: domain.zoneId,
    zoneName: zone?.name,
  };
}

function corsRules(body) {
  const { rules } = body;
  const valid = Array.isArray(rules) && rules.every((rule) => Array.isArray(rule?.allowed?.origins)
    && Array.isArray(rule.allowed.methods) && rule.allowed.methods.every((method) => CORS_METHODS.includes(method)));
  if (!valid) throw invalidBody('rules must be a list of rules with allowed origins and methods');
  return rules;
}

export function routes({ store, gateway }) {
  const { state } = store;

  function bucketOf(request) {
    const bucket = store.bucket(request.params.bucket);
    if (!bucket) throw fail(404, 10006, 'The specified bucket does not exist.');
    return bucket;
  }

  function customDomain(bucket, name) {
    const domain = bucket.customDomains.find((candidate) => candidate.domain === name);
    if (!domain) throw fail(404, 10052, `The custom domain ${name} does not exist on this bucket.`);
    return domain;
  }

  function domainChange(request) {
    const body = jsonBody(request);
    if (body.enabled !== undefined && typeof body.enabled !== 'boolean') throw invalidBody('enabled must be true or false');
    if (body.minTLS !== undefined && !['1.0', '1.1', '1.2', '1.3'].includes(body.minTLS)) throw invalidBody('minTLS must be 1.0, 1.1, 1.2 or 1.3');
    return body;
  }

  return {
    'GET accounts/:account/r2/buckets': (request) => {
      const sorted = [...state.buckets].sort((a, b) => (a.name < b.name ? -1 : 1));
      const { slice, resultInfo } = cursorPaged(request, sorted, (bucket) => bucket.name);
      return { result: { buckets: slice.map(bucketView) }, resultInfo };
    },

    'POST accounts/:account/r2/buckets': async (request) => {
      const body = jsonBody(request);
      const name = requireText(body, 'name');
      if (!BUCKET_NAME.test(name)) throw fail(400, 10005, 'The specified bucket name is not valid.');
      if (store.bucket(name)) throw fail(409, 10004, 'The bucket you tried to create already exists, and you own it.');
      const hint = body.locationHint?.toLowerCase();
      if (hint !== undefined && !LOCATION_HINTS.includes(hint)) throw invalidBody(`locationHint must be one of ${LOCATION_HINTS.join(', ')}`);
      await gateway.createBucket(name);
      const bucket = {
        name, id: newId(), publicId: createHash('md5').update(`${state.account.id}/${name}`).digest('hex'),
        creation_date: isoNow(), location: hint ?? 'enam', cors: null, managedEnabled: false, customDomains: [],
      };
      state.buckets.push(bucket);
      return { result: bucketView(bucket) };
    },

    'GET accounts/:account/r2/buckets/:bucket': (request) => ({ result: bucketView(bucketOf(request)) }),

    'GET accounts/:account/r2/buckets/:bucket/objects/*key': async (request) => {
      const bucket = bucketOf(request);
      const object = await gateway.getObject(bucket.name, request.params.key);
      if (!object) throw fail(404, 10007, 'The specified key does not exist.');
      return { raw: { status: 200, headers: { 'content-type': object.contentType, 'content-length': object.body.length }, body: object.body } };
    },

    'GET accounts/:account/r2/buckets/:bucket/domains/custom': (request) =>
      ({ result: { domains: bucketOf(request).customDomains.map((domain) => domainView(domain, state)) } }),

    'POST accounts/:account/r2/buckets/:bucket/domains/custom': (request) => {
      const bucket = bucketOf(request);
      const body = domainChange(request);
      const name = requireText(body, 'domain').toLowerCase();
      const zone = store.zone(requireText(body, 'zoneId'));
      if (!zone || !(name === zone.name || name.endsWith(`.${zone.name}`))) {
        throw invalidBody(`The domain ${name} does not belong to the zone ${body.zoneId}.`);
      }
      if (state.buckets.some((other) => other.customDomains.some((domain) => domain.domain === name))) {
        throw fail(409, 10053, `The domain ${name} is already connected to a bucket.`);
      }
      const domain = { domain: name, zoneId: zone.id, enabled: body.enabled ?? false, minTLS: body.minTLS ?? '1.0', addedAt: Date.now() };
      bucket.customDomains.push(domain);
      return { result: { domain: name, enabled: domain.enabled, zoneId: zone.id, minTLS: domain.minTLS } };
    },

    'GET accounts/:account/r2/buckets/:bucket/domains/custom/:domain': (request) =>
      ({ result: domainView(customDomain(bucketOf(request), request.params.domain), state) }),

    'PUT accounts/:account/r2/buckets/:bucket/domains/custom/:domain': (request) => {
      const bucket = bucketOf(request);
      const domain = customDomain(bucket, request.params.domain);
      const body = domainChange(request);
      if (body.enabled !== undefined) domain.enabled = body.enabled;
      if (body.minTLS !== undefined) domain.minTLS = body.minTLS;
      return { result: { domain: domain.domain, enabled: domain.enabled, minTLS: domain.minTLS } };
    },

    'DELETE accounts/:account/r2/buckets/:bucket/domains/custom/:domain': (request) => {
      const bucket = bucketOf(request);
      const domain = customDomain(bucket, request.params.domain);
      bucket.customDomains = bucket.customDomains.filter((candidate) => candidate !== domain);
      return { result: { domain: domain.domain } };
    },

    'GET accounts/:account/r2/buckets/:bucket/domains/managed': (request) => ({ result: managedView(bucketOf(request)) }),

    'PUT accounts/:account/r2/buckets/:bucket/domains/managed': (request) => {
      const bucket = bucketOf(request);
      const { enabled } = jsonBody(request);
      if (typeof enabled !== 'boolean') throw invalidBody('enabled must be true or false');
      bucket.managedEnabled = enabled;
      return { result: managedView(bucket) };
    },

    'GET accounts/:account/r2/buckets/:bucket/cors': (request) => {
      const bucket = bucketOf(request);
      if (!bucket.cors) throw fail(404, 10059, 'The CORS configuration does not exist.');
      return { result: { rules: bucket.cors } };
    },

    'PUT accounts/:account/r2/buckets/:bucket/cors': async (request) => {
      const bucket = bucketOf(request);
      const rules = corsRules(jsonBody(request));
      if (rules.length > 0) await gateway.putCors(bucket.name, rules);
      else await gateway.deleteCors(bucket.name);
      bucket.cors = rules.length > 0 ? rules : null;
      return { result: {} };
    },

    'DELETE accounts/:account/r2/buckets/:bucket/cors': async (request) => {
      const bucket = bucketOf(request);
      await gateway.deleteCors(bucket.name);
      bucket.cors = null;
      return { result: {} };
    },
  };
}
