// Debian's Chromium through playwright-core, headless and quiet: no sync, no
// component updates, no first-run pages, autoplay without a gesture, its profile
// under `profile`. `resolverRules` (Chromium's --host-resolver-rules) says where
// names go, so that nothing leaves the machine.
import { createRequire } from 'node:module';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
export const toolsRequire = createRequire(path.resolve(here, '../../tools/node_modules/noop.js'));

export function launchChromium(executablePath, profile, resolverRules, args = []) {
  const { chromium } = toolsRequire('playwright-core');
  return chromium.launch({
    executablePath,
    headless: true,
    env: { ...process.env, XDG_CONFIG_HOME: profile, XDG_CACHE_HOME: profile },
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
      '--disable-component-update', '--disable-sync', '--autoplay-policy=no-user-gesture-required',
      `--host-resolver-rules=${resolverRules}`, ...args],
  });
}
