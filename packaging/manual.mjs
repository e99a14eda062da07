// Writes the manual page vorlen.1 from the program's --help texts with help2man:
// node manual.mjs VORLEN OUTPUT. The page holds the main help and, under COMMANDS,
// every command's own help.
import { execFileSync } from 'node:child_process';
import { writeFileSync } from 'node:fs';
import path from 'node:path';
import { allCommands, helpEnvironment, readCommandTree } from './commandTree.mjs';

const [binary, output] = process.argv.slice(2);
if (!binary || !output) {
  console.error('usage: manual.mjs VORLEN OUTPUT');
  process.exit(2);
}

const env = helpEnvironment();
const tree = readCommandTree(binary, env);
const footer = tree.help.trimEnd().split('\n').at(-1);

// Text for roff's no-fill mode: a backslash is written \e, and a line that begins
// with a dot or an apostrophe would be read as a request.
function roffText(text) {
  return text.split('\n').map((line) => line.replace(/\\/g, '\\e').replace(/^([.'])/, '\\&$1')).join('\n');
}

const commands = [...allCommands(tree)].slice(1).map((command) => {
  const help = command.help.trimEnd().split('\n');
  if (help.at(-1) === footer) help.pop();
  return `.SS "vorlen ${command.words.join(' ')}"\n.nf\n${roffText(help.join('\n').trimEnd())}\n.fi`;
});

const include = path.join(env.HOME, 'commands.h2m');
writeFileSync(include, `[COMMANDS]\n${commands.join('\n')}\n\n[FILES]\n.TP
.I ~/.config/vorlen/settings.json
this computer's sites and settings (under $XDG_CONFIG_HOME when it is set, as for the folders below)
.TP
.I ~/.local/state/vorlen/vorlen.log
the log
.TP
.I ~/.local/share/vorlen/local-site/
the local site, a folder bucket that
.B vorlen preview
serves
.TP
.I ~/.cache/vorlen/
lists kept between runs, such as a Vimeo account's videos
`);
execFileSync('help2man', [
  '--no-info', '--section=1', '--include', include,
  '--name=publish your videos into your own Cloudflare account',
  '--output', output, binary,
], { env, stdio: ['ignore', 'inherit', 'inherit'] });
