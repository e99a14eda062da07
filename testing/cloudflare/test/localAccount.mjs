// Starting and driving a local Cloudflare account from a node test: start's lines read
// into one object, the control surface, and polling for a condition.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

const run = promisify(execFile);
const script = (name) => new URL(`../${name}`, import.meta.url).pathname;

// The account's addresses, ids and setup token; it stops when this process ends.
export async function startAccount(dir) {
  const { stdout } = await run(script('start'), [dir], { env: { ...process.env, VORLEN_CLOUDFLARE_OWNER: String(process.pid) } });
  const lines = stdout.trim().split('\n').map((line) => [line.slice(0, line.indexOf('=')), line.slice(line.indexOf('=') + 1)]);
  const value = (name) => lines.find(([key]) => key === name)[1];
  const zones = Object.fromEntries(lines.filter(([key]) => key === 'zone').map(([, text]) => text.split(' ')));
  return {
    api: value('api'), r2: value('r2'), account: value('account'), zones, token: value('token'), control: value('control'),
    edge: value('edge'), ca: value('ca'),
  };
}

export function stopAccount(dir) {
  return run(script('stop'), [dir]);
}

export async function control(local, method, name, body) {
  const response = await fetch(`${local.control}/${name}`, { method, body: body && JSON.stringify(body) });
  assert.equal(response.status, 200, `control ${method} ${name}`);
  return response.json();
}

export async function eventually(condition, what) {
  for (let attempt = 0; attempt < 600; attempt += 1) {
    if (await condition()) return;
    await new Promise((resolve) => { setTimeout(resolve, 100); });
  }
  assert.fail(`${what} did not happen within a minute`);
}
