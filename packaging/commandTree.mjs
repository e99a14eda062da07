// Reads the command line's own --help texts into a tree, so that the manual page and the
// shell completions always say what the program says.
import { execFileSync } from 'node:child_process';
import { mkdtempSync } from 'node:fs';
import os from 'node:os';
import path from 'node:path';

// The program runs as a fresh user would, with no display, so that reading its help
// never touches the builder's own settings or opens a window.
export function helpEnvironment() {
  const home = mkdtempSync(path.join(os.tmpdir(), 'vorlen-help-'));
  const env = { PATH: process.env.PATH ?? '/usr/bin:/bin', HOME: home, LANG: 'C.UTF-8' };
  for (const folder of ['XDG_CONFIG_HOME', 'XDG_DATA_HOME', 'XDG_STATE_HOME', 'XDG_CACHE_HOME']) {
    env[folder] = path.join(home, folder.toLowerCase());
  }
  return env;
}

export function runHelp(binary, words, env) {
  return execFileSync(binary, [...words, '--help'], { env, encoding: 'utf8' });
}

// The blocks of a CLI11 help text: the description, then "Usage:", then sections
// such as "Options:" whose entries are indented by two spaces, then the footer.
function sections(text) {
  const result = new Map();
  let current = null;
  for (const line of text.split('\n')) {
    const heading = /^([A-Z][A-Za-z ]*):$/.exec(line);
    if (heading) {
      current = [];
      result.set(heading[1], current);
    } else if (current && line.startsWith('  ')) {
      current.push(line);
    } else if (current && line.trim() !== '') {
      current = null;
    }
  }
  return result;
}

function entryNames(lines) {
  return lines.filter((line) => /^ {2}\S/.test(line)).map((line) => line.trim().split(/\s+/)[0]);
}

// words are the command's names; args are what reaches it on a command line, with a
// stand-in for each positional that a parent requires before its subcommands
// (`vorlen video subtitles FOLDER add`).
export function readCommandTree(binary, env = helpEnvironment(), words = [], args = words) {
  const help = runHelp(binary, args, env);
  const parts = sections(help);
  const options = entryNames(parts.get('Options') ?? [])
    .flatMap((names) => names.split(','))
    .filter((name) => name.startsWith('-'));
  const required = (parts.get('Positionals') ?? [])
    .filter((line) => /^ {2}\S/.test(line) && /\bREQUIRED\b/.test(line))
    .map((line) => line.trim().split(/\s+/)[0]);
  const subcommands = entryNames(parts.get('Subcommands') ?? [])
    .map((name) => readCommandTree(binary, env, [...words, name], [...args, ...required, name]));
  return { words, help, options, subcommands };
}

export function* allCommands(tree) {
  yield tree;
  for (const subcommand of tree.subcommands) yield* allCommands(subcommand);
}
