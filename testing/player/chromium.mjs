// Debian's Chromium through playwright-core, headless and quiet: no sync, no
// component updates, no first-run pages, autoplay without a gesture, its profile
// under `profile`. `resolverRules` (Chromium's --host-resolver-rules) says where
// names go, so that nothing leaves the machine.
import { X509Certificate, createHash } from 'node:crypto';
import fs from 'node:fs';
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

// The base64 SHA-256 of each certificate's public key, as Chromium's
// --ignore-certificate-errors-spki-list takes them: the authority's and those of
// the certificates beside it (the server's own, made at each start).
export function publicKeyHashes(authorityFile) {
  const folder = path.dirname(authorityFile);
  const files = [authorityFile, ...fs.readdirSync(folder).filter((name) => name.endsWith('.pem')).map((name) => path.join(folder, name))];
  const hashes = new Set();
  for (const file of new Set(files)) {
    for (const pem of fs.readFileSync(file, 'utf8').match(/-----BEGIN CERTIFICATE-----[^-]+-----END CERTIFICATE-----/g) ?? []) {
      const key = new X509Certificate(pem).publicKey.export({ type: 'spki', format: 'der' });
      hashes.add(createHash('sha256').update(key).digest('base64'));
    }
  }
  return [...hashes];
}
