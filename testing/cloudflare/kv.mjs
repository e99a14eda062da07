// Workers KV namespaces: list, create by title, delete. Follows
// https://developers.cloudflare.com/api/resources/kv/subresources/namespaces/ (a title that
// the account already has is refused with code 10014).
import { fail, jsonBody, paged, requireText } from './api.mjs';
import { newId } from './state.mjs';

function namespaceView(namespace) {
  return { id: namespace.id, title: namespace.title, supports_url_encoding: true };
}

export function routes({ store }) {
  const { state } = store;
  return {
    'GET accounts/:account/storage/kv/namespaces': (request) =>
      paged(request, state.kvNamespaces.map(namespaceView), { maxPerPage: 1000 }),

    'POST accounts/:account/storage/kv/namespaces': (request) => {
      const title = requireText(jsonBody(request), 'title');
      if (state.kvNamespaces.some((namespace) => namespace.title === title)) {
        throw fail(400, 10014, 'a namespace with this account ID and title already exists');
      }
      const namespace = { id: newId(), title };
      state.kvNamespaces.push(namespace);
      return { result: namespaceView(namespace) };
    },

    'DELETE accounts/:account/storage/kv/namespaces/:namespace': (request) => {
      const index = state.kvNamespaces.findIndex((namespace) => namespace.id === request.params.namespace);
      if (index < 0) throw fail(404, 10013, 'namespace not found');
      state.kvNamespaces.splice(index, 1);
      return { result: {} };
    },
  };
}
