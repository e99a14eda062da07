// Answers what the edge told it: the greeting of its deployment, the scheme and the caller.
export default {
  async fetch(request, env) {
    const url = new URL(request.url);
    const body = {
      greeting: env.GREETING ?? 'hello',
      host: url.host,
      proto: request.headers.get('x-forwarded-proto'),
      ip: request.headers.get('cf-connecting-ip'),
      asset: (await env.ASSETS.fetch(new URL('/hello.txt', url))).status,
    };
    return Response.json(body);
  },
};
