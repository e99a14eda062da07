// Copies the Node modules that the local preview needs (Miniflare and what it loads)
// from tools/node_modules into an installation:
//   node nodeModules.mjs FROM TO NAME... [--without NAME]...
// A dependency resolves as Node resolves it, from the nearest node_modules upward,
// and an optional one that is not installed (another platform's binary) is skipped.
// --without leaves out a package that is loaded only on demand and never by us
// (Miniflare's image resizing brings a prebuilt libvips of its own).
import { chmod, cp, mkdir, open, readdir, readFile, stat } from 'node:fs/promises';
import path from 'node:path';

const args = process.argv.slice(2);
const without = new Set();
for (let index = args.indexOf('--without'); index >= 0; index = args.indexOf('--without')) {
  without.add(args.splice(index, 2)[1]);
}
const [from, to, ...roots] = args;
if (!from || !to || roots.length === 0) {
  console.error('usage: nodeModules.mjs FROM_NODE_MODULES TO_NODE_MODULES NAME... [--without NAME]...');
  process.exit(2);
}

async function exists(file) {
  return stat(file).then(() => true, () => false);
}

// The folder of `name` as seen from a package in `folder`, or null.
async function resolvePackage(folder, name) {
  for (let dir = folder; dir.startsWith(from); dir = path.dirname(dir)) {
    const candidate = path.join(dir, dir === from ? '' : 'node_modules', name);
    if (await exists(path.join(candidate, 'package.json'))) return candidate;
    if (dir === from) break;
  }
  return null;
}

const found = new Set();
async function visit(folder, name, optional) {
  if (without.has(name)) return;
  const packageDir = await resolvePackage(folder, name);
  if (!packageDir) {
    if (optional) return;
    throw new Error(`${name} is not installed in ${from}; run scripts/setup`);
  }
  if (found.has(packageDir)) return;
  found.add(packageDir);
  const manifest = JSON.parse(await readFile(path.join(packageDir, 'package.json'), 'utf8'));
  for (const dependency of Object.keys(manifest.dependencies ?? {})) await visit(packageDir, dependency, false);
  for (const dependency of Object.keys(manifest.optionalDependencies ?? {})) await visit(packageDir, dependency, true);
}

for (const name of roots) await visit(from, name, false);
for (const packageDir of [...found].sort()) {
  const target = path.join(to, path.relative(from, packageDir));
  await mkdir(path.dirname(target), { recursive: true });
  // Nested node_modules are copied as packages of their own when they are needed.
  // workerd's bin/ holds a second copy of the runtime, for its command line, which
  // the preview never starts: Miniflare takes the platform package's binary.
  const skipped = (relative) => relative.split(path.sep).includes('node_modules')
    || (path.basename(packageDir) === 'workerd' && relative === 'bin');
  await cp(packageDir, target, {
    recursive: true,
    dereference: true,
    filter: (source) => source === packageDir || !skipped(path.relative(packageDir, source)),
  });
}
// Some packages mark type declarations or modules as programs; only programs keep
// the executable bit, so that nothing else can be run by mistake.
async function clearStrayExecutableBits(folder) {
  for (const entry of await readdir(folder, { withFileTypes: true })) {
    const file = path.join(folder, entry.name);
    if (entry.isDirectory()) {
      await clearStrayExecutableBits(file);
      continue;
    }
    const { mode } = await stat(file);
    if ((mode & 0o111) === 0) continue;
    const handle = await open(file);
    const { buffer, bytesRead } = await handle.read(Buffer.alloc(4), 0, 4, 0).finally(() => handle.close());
    const start = buffer.subarray(0, bytesRead);
    const isProgram = start.equals(Buffer.from([0x7f, 0x45, 0x4c, 0x46])) || start.subarray(0, 2).toString() === '#!';
    if (!isProgram) await chmod(file, mode & ~0o111);
  }
}
await clearStrayExecutableBits(to);
console.log(`${found.size} packages`);
