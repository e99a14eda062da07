// Account-owned API tokens and their verification. Follows
// https://developers.cloudflare.com/api/resources/accounts/subresources/tokens/ (create with
// name and policies, list, get, delete, verify, permission_groups with a "name" filter) and
// https://developers.cloudflare.com/api/resources/user/subresources/tokens/methods/verify/
// (a good token answers {id, status} with the message 10000 "This API Token is valid and
// active"; a bad one 1000 "Invalid API Token"). Tokens that reach R2 get their S3
// credentials on the gateway at once, and lose them when revoked.
import { fail, invalidBody, jsonBody, paged, requireText } from './api.mjs';
import { PERMISSION_GROUPS, permissionGroup, reachesR2 } from './permissions.mjs';
import { isoNow, newId, newTokenValue } from './state.mjs';

function policiesFrom(body) {
  const { policies } = body;
  if (!Array.isArray(policies) || policies.length === 0) throw invalidBody('policies must be a non-empty list');
  return policies.map((policy) => {
    if (!['allow', 'deny'].includes(policy?.effect)) throw invalidBody('a policy\'s effect must be "allow" or "deny"');
    if (!policy.resources || typeof policy.resources !== 'object' || Object.keys(policy.resources).length === 0) {
      throw invalidBody('a policy needs resources');
    }
    if (!Array.isArray(policy.permission_groups) || policy.permission_groups.length === 0) throw invalidBody('a policy needs permission groups');
    const groups = policy.permission_groups.map(({ id } = {}) => {
      const known = permissionGroup(id);
      if (!known) throw fail(400, 1001, `Permission group ${id} does not exist`);
      return { id: known.id, name: known.name };
    });
    return { id: newId(), effect: policy.effect, resources: policy.resources, permission_groups: groups };
  });
}

function tokenView(token) {
  return {
    id: token.id,
    name: token.name,
    status: token.status,
    issued_on: token.issued_on,
    modified_on: token.modified_on,
    last_used_on: null,
    condition: {},
    policies: token.policies,
  };
}

async function addToken({ store, gateway }, body, kind) {
  const token = {
    id: newId(),
    name: requireText(body, 'name'),
    kind,
    value: newTokenValue(kind),
    status: 'active',
    issued_on: isoNow(),
    modified_on: isoNow(),
    policies: policiesFrom(body),
  };
  if (reachesR2(token)) await gateway.addTokenKey(token);
  store.state.tokens.push(token);
  return token;
}

// A user token, as a person makes one on their profile page (the control surface's way
// to get one, since an account token cannot make user tokens).
export function addUserToken(context, body) {
  return addToken(context, body, 'user');
}

export function routes(context) {
  const { store, gateway } = context;
  const { state } = store;
  const accountTokens = () => state.tokens.filter((token) => token.kind === 'account');

  function tokenOf(request) {
    const token = accountTokens().find((candidate) => candidate.id === request.params.token);
    if (!token) throw fail(404, 1003, 'Invalid token id');
    return token;
  }

  function verify(request) {
    return {
      result: { id: request.token.id, status: request.token.status },
      messages: [{ code: 10000, message: 'This API Token is valid and active', type: null }],
    };
  }

  return {
    'GET user/tokens/verify': verify,
    'GET accounts/:account/tokens/verify': verify,

    'GET accounts/:account/tokens': (request) => paged(request, accountTokens().map(tokenView)),

    'GET accounts/:account/tokens/:token': (request) => ({ result: tokenView(tokenOf(request)) }),

    'POST accounts/:account/tokens': async (request) => {
      const token = await addToken(context, jsonBody(request), 'account');
      return { result: { ...tokenView(token), value: token.value } };
    },

    'DELETE accounts/:account/tokens/:token': async (request) => {
      const token = tokenOf(request);
      if (reachesR2(token)) await gateway.removeTokenKey(token);
      state.tokens = state.tokens.filter((candidate) => candidate !== token);
      return { result: { id: token.id } };
    },

    'GET accounts/:account/tokens/permission_groups': (request) => {
      const { name, scope } = request.query;
      const groups = PERMISSION_GROUPS.filter((group) => (!name || group.name === name) && (!scope || group.scopes.includes(scope)));
      return { result: groups.map(({ id, name: groupName, scopes }) => ({ id, name: groupName, scopes })) };
    },
  };
}
