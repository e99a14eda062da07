// Makes the bundle complete: the main module with the built-in templates and the
// manifest's binding names inside it (only the main module reaches Cloudflare), and
// Shaka Player's files in assets/.
// Run by scripts/setup; safe to run again.
import { mkdir, readFile, rename, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';

const workerDir = path.dirname(fileURLToPath(import.meta.url));
const playerDir = path.join(workerDir, '..', 'tools', 'node_modules', 'shaka-player');

async function writeAtomically(file, content) {
  const temporary = `${file}.${process.pid}.tmp`;
  await writeFile(temporary, content);
  await rename(temporary, file);
}

function replaceMarker(source, marker, value) {
  const pattern = new RegExp(`/\\* ${marker} \\*/ (?:\\{\\}|'[^']*')`);
  if (!pattern.test(source)) throw new Error(`worker/src/worker.js has no ${marker} marker`);
  return source.replace(pattern, () => value);
}

export async function buildBundle() {
  const manifest = JSON.parse(await readFile(path.join(workerDir, 'manifest.json'), 'utf8'));
  const player = JSON.parse(await readFile(path.join(playerDir, 'package.json'), 'utf8'));

  const templates = {};
  for (const name of ['auto', 'light', 'dark']) {
    templates[name] = await readFile(path.join(workerDir, 'templates', `${name}.html`), 'utf8');
  }
  let source = await readFile(path.join(workerDir, 'src', 'worker.js'), 'utf8');
  source = replaceMarker(source, 'built-in templates', JSON.stringify(templates, null, 2));
  source = replaceMarker(source, 'bundle version', JSON.stringify(manifest.version).replace(/"/g, "'"));
  source = replaceMarker(source, 'player version', JSON.stringify(player.version).replace(/"/g, "'"));
  source = replaceMarker(source, 'binding names', JSON.stringify({
    bucket: manifest.bucket_binding, sessions: manifest.sessions_binding, challengeKey: manifest.challenge_key_binding,
  }));
  await writeAtomically(path.join(workerDir, manifest.main_module), source);

  const shakaDir = path.join(workerDir, 'assets', '_shaka');
  await mkdir(shakaDir, { recursive: true });
  const ui = await readFile(path.join(playerDir, 'dist', 'shaka-player.ui.js'));
  await writeAtomically(path.join(shakaDir, 'shaka-player.ui.js'), ui);
  // The stylesheet loads Roboto from a font service; the pages use the reader's own fonts.
  const controls = (await readFile(path.join(playerDir, 'dist', 'controls.css'), 'utf8'))
    .replace(/@font-face\{[^}]*\}/g, '');
  await writeAtomically(path.join(shakaDir, 'controls.css'), controls);
  await writeAtomically(path.join(shakaDir, 'LICENSE'), await readFile(path.join(playerDir, 'LICENSE')));
  return { version: manifest.version, playerVersion: player.version };
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) {
  await buildBundle();
}
