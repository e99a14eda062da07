// Accounts, zones, DNS records, cache purges and zone rulesets. Follows
// https://developers.cloudflare.com/api/resources/accounts/ (list),
// https://developers.cloudflare.com/api/resources/zones/ (list with "name" and "account.id",
// get), https://developers.cloudflare.com/api/resources/dns/subresources/records/ (list with
// "name"), https://developers.cloudflare.com/api/resources/cache/methods/purge/ and
// https://developers.cloudflare.com/api/resources/rulesets/ with
// https://developers.cloudflare.com/ruleset-engine/basic-operations/add-rule-phase-rulesets/
// (an entry point that does not exist yet is 404 with code 10003 "could not find entrypoint
// ruleset in the … phase"; a second zone ruleset of one phase is 400 with code 20217).
import { ApiError, fail, invalidBody, jsonBody, paged, requireText } from './api.mjs';
import { parseExpression, UnsupportedExpression } from './rules.mjs';
import { isoNow, newId } from './state.mjs';

function accountView(account) {
  return { id: account.id, name: account.name, type: 'standard', settings: { enforce_twofactor: false }, created_on: account.created_on };
}

function zoneView(zone, account) {
  return {
    id: zone.id,
    name: zone.name,
    status: zone.status,
    paused: false,
    type: 'full',
    development_mode: 0,
    name_servers: zone.name_servers ?? ['ada.ns.cloudflare.com', 'bob.ns.cloudflare.com'],
    account: { id: account.id, name: account.name },
    plan: zone.plan,
    created_on: zone.created_on,
    modified_on: zone.created_on,
    activated_on: zone.status === 'active' ? zone.created_on : null,
  };
}

function recordView(record, zone) {
  return {
    id: record.id,
    zone_id: zone.id,
    zone_name: zone.name,
    name: record.name,
    type: record.type,
    content: record.content,
    proxiable: true,
    proxied: record.proxied ?? false,
    ttl: record.ttl ?? 1,
    locked: false,
    meta: {},
    comment: null,
    tags: [],
    created_on: zone.created_on,
    modified_on: zone.created_on,
  };
}

const PURGE_KINDS = ['files', 'prefixes', 'hosts', 'tags'];

// The edge evaluates only a subset of the Rules language: an expression outside it is
// refused here, where it is written, rather than never matching on the edge.
function checkExpression(expression, pointer) {
  try {
    parseExpression(expression);
  } catch (error) {
    if (!(error instanceof UnsupportedExpression)) throw error;
    throw new ApiError(400, [{
      code: 20100,
      message: `'${expression}' is not a valid value for expression because the expression is not supported by the local account: ${error.message}`,
      source: { pointer },
    }]);
  }
}

function ruleFrom(definition, pointer = '/expression') {
  if (typeof definition.expression !== 'string' || typeof definition.action !== 'string') {
    throw invalidBody('a rule needs an expression and an action');
  }
  checkExpression(definition.expression, pointer);
  const id = newId();
  const rule = {
    id,
    version: '1',
    action: definition.action,
    expression: definition.expression,
    description: definition.description ?? '',
    last_updated: isoNow(),
    ref: definition.ref ?? id,
    enabled: definition.enabled ?? true,
  };
  if (definition.action_parameters !== undefined) rule.action_parameters = definition.action_parameters;
  return rule;
}

export function routes({ store }) {
  const { state } = store;

  function zoneOf(request) {
    const zone = store.zone(request.params.zone);
    if (!zone) throw fail(404, 1001, 'Invalid zone identifier');
    return zone;
  }

  // The limits go by the zone's plan.
  function checkRuleLimit(zoneId, phase, count) {
    const limit = state.ruleLimits?.[store.zone(zoneId)?.plan?.legacy_id]?.[phase];
    if (limit !== undefined && count > limit) {
      throw fail(400, 20080, `exceeded the maximum number of rules in the phase ${phase}: ${limit}`);
    }
  }

  function rulesetOf(request) {
    const zone = zoneOf(request);
    const ruleset = state.rulesets.find((candidate) => candidate.id === request.params.ruleset && candidate.zoneId === zone.id);
    if (!ruleset) throw fail(404, 10003, `could not find ruleset ${request.params.ruleset}`);
    return ruleset;
  }

  function ruleIndex(ruleset, id) {
    const index = ruleset.rules.findIndex((rule) => rule.id === id);
    if (index < 0) throw fail(404, 10003, `could not find rule ${id} in ruleset ${ruleset.id}`);
    return index;
  }

  function changed(ruleset) {
    ruleset.version = String(Number(ruleset.version) + 1);
    ruleset.last_updated = isoNow();
    const { zoneId, ...view } = ruleset;
    return { result: view };
  }

  const zoneRead = { family: 'Zone', level: 'read', on: 'zone' };

  return {
    'GET accounts': (request) => {
      const visible = request.allows({ family: 'Account Settings', level: 'read', on: 'account' }) ? [accountView(state.account)] : [];
      return paged(request, visible);
    },

    'GET zones': (request) => {
      const { name, status } = request.query;
      const wantedAccount = request.query['account.id'];
      const zones = state.zones.filter((zone) => request.allows({ ...zoneRead, zone: zone.id })
        && (!name || zone.name.toLowerCase() === name.toLowerCase())
        && (!status || zone.status === status)
        && (!wantedAccount || wantedAccount === state.account.id));
      return paged(request, zones.map((zone) => zoneView(zone, state.account)));
    },

    'GET zones/:zone': (request) => ({ result: zoneView(zoneOf(request), state.account) }),

    'GET zones/:zone/dns_records': (request) => {
      const zone = zoneOf(request);
      // The SDK asks "name.exact", Cloudflare's older form is "name".
      const name = request.query.name ?? request.query['name.exact'];
      const { type } = request.query;
      const records = zone.dnsRecords.filter((record) => (!name || record.name.toLowerCase() === name.toLowerCase())
        && (!type || record.type === type));
      return paged(request, records.map((record) => recordView(record, zone)), { maxPerPage: 5000 });
    },

    'POST zones/:zone/purge_cache': (request) => {
      const zone = zoneOf(request);
      const body = jsonBody(request);
      const kinds = PURGE_KINDS.filter((kind) => body[kind] !== undefined);
      const everything = body.purge_everything === true;
      if (kinds.length + (everything ? 1 : 0) !== 1) throw fail(400, 1012, 'Request must contain one of "purge_everything", "files", "tags", "hosts" or "prefixes"');
      const kind = everything ? 'purge_everything' : kinds[0];
      if (!everything && (!Array.isArray(body[kind]) || body[kind].length === 0)) throw invalidBody(`${kind} must be a non-empty list`);
      state.purges.push({ zoneId: zone.id, at: isoNow(), kind, values: everything ? [] : body[kind] });
      return { result: { id: zone.id } };
    },

    'GET zones/:zone/rulesets/phases/:phase/entrypoint': (request) => {
      const zone = zoneOf(request);
      const { phase } = request.params;
      const ruleset = state.rulesets.find((candidate) => candidate.zoneId === zone.id && candidate.phase === phase);
      if (!ruleset) throw fail(404, 10003, `could not find entrypoint ruleset in the ${phase} phase`);
      const { zoneId, ...view } = ruleset;
      return { result: view };
    },

    'POST zones/:zone/rulesets': (request) => {
      const zone = zoneOf(request);
      const body = jsonBody(request);
      const phase = requireText(body, 'phase');
      const kind = requireText(body, 'kind');
      if (kind === 'zone' && state.rulesets.some((ruleset) => ruleset.zoneId === zone.id && ruleset.phase === phase)) {
        throw new ApiError(400, [{
          code: 20217,
          message: `'zone' is not a valid value for kind because exceeded maximum number of zone rulesets for phase ${phase}`,
          source: { pointer: '/kind' },
        }]);
      }
      const rules = (body.rules ?? []).map((rule, index) => ruleFrom(rule, `/rules/${index}/expression`));
      checkRuleLimit(zone.id, phase, rules.length);
      const ruleset = {
        id: newId(), zoneId: zone.id, name: requireText(body, 'name'), description: body.description ?? '',
        kind, phase, version: '1', last_updated: isoNow(), rules,
      };
      state.rulesets.push(ruleset);
      const { zoneId, ...view } = ruleset;
      return { result: view };
    },

    'POST zones/:zone/rulesets/:ruleset/rules': (request) => {
      const ruleset = rulesetOf(request);
      const rule = ruleFrom(jsonBody(request));
      checkRuleLimit(ruleset.zoneId, ruleset.phase, ruleset.rules.length + 1);
      ruleset.rules.push(rule);
      return changed(ruleset);
    },

    'PATCH zones/:zone/rulesets/:ruleset/rules/:rule': (request) => {
      const ruleset = rulesetOf(request);
      const index = ruleIndex(ruleset, request.params.rule);
      const before = ruleset.rules[index];
      const replacement = ruleFrom({ ...before, ...jsonBody(request) });
      ruleset.rules[index] = { ...replacement, id: before.id, ref: before.ref, version: String(Number(before.version) + 1) };
      return changed(ruleset);
    },

    'DELETE zones/:zone/rulesets/:ruleset/rules/:rule': (request) => {
      const ruleset = rulesetOf(request);
      ruleset.rules.splice(ruleIndex(ruleset, request.params.rule), 1);
      return changed(ruleset);
    },
  };
}
