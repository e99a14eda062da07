// Writes the bash and zsh completions of vorlen from the program's --help texts:
// node completions.mjs VORLEN BASH_OUTPUT ZSH_OUTPUT. Both complete the commands, each
// command's subcommands and options, and file names where nothing else fits.
import { writeFileSync } from 'node:fs';
import { allCommands, readCommandTree } from './commandTree.mjs';

const [binary, bashOutput, zshOutput] = process.argv.slice(2);
if (!binary || !bashOutput || !zshOutput) {
  console.error('usage: completions.mjs VORLEN BASH_OUTPUT ZSH_OUTPUT');
  process.exit(2);
}

const commands = [...allCommands(readCommandTree(binary))];
const quoted = (text) => `'${text.replace(/'/g, "'\\''")}'`;

// The first sentence of a command's description, short enough for a menu.
function summary(command) {
  const first = command.help.split('\n')[0].split(/(?<=\.)\s/)[0].replace(/\.$/, '');
  return first.length > 70 ? `${first.slice(0, 69)}…` : first;
}

const bashCases = (field) => commands
  .map((command) => `    ${quoted(command.words.join(' '))}) echo ${quoted(field(command).join(' '))} ;;`)
  .join('\n');

writeFileSync(bashOutput, `# bash completion for vorlen, made from its --help texts.
_vorlen_subcommands() {
  case "$1" in
${bashCases((command) => command.subcommands.map((sub) => sub.words.at(-1)))}
  esac
}

_vorlen_options() {
  case "$1" in
${bashCases((command) => command.options)}
  esac
}

_vorlen() {
  local cur=\${COMP_WORDS[COMP_CWORD]} node= word i
  for (( i = 1; i < COMP_CWORD; i++ )); do
    word=\${COMP_WORDS[i]}
    case " $(_vorlen_subcommands "$node") " in
      *" $word "*) node=\${node:+$node }$word ;;
    esac
  done
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$(_vorlen_options "$node")" -- "$cur"))
  else
    COMPREPLY=($(compgen -W "$(_vorlen_subcommands "$node")" -- "$cur"))
  fi
}
complete -o default -F _vorlen vorlen
`);

const zshTable = (name, field) => `typeset -gA ${name}\n${name}=(\n${commands
  .map((command) => `  ${quoted(command.words.join(' '))} ${quoted(field(command))}`)
  .join('\n')}\n)`;

writeFileSync(zshOutput, `#compdef vorlen
# zsh completion for vorlen, made from its --help texts.
${zshTable('_vorlen_subcommands', (command) => command.subcommands
    .map((sub) => `${sub.words.at(-1)}:${summary(sub)}`).join('\n'))}
${zshTable('_vorlen_options', (command) => command.options.join(' '))}

_vorlen() {
  local node= word i
  local -a names
  for (( i = 2; i < CURRENT; i++ )); do
    word=\${words[i]}
    names=(\${\${(f)_vorlen_subcommands[$node]}%%:*})
    (( \${names[(Ie)$word]} )) && node=\${node:+$node }$word
  done
  if [[ \${words[CURRENT]} == -* ]]; then
    compadd -- \${=_vorlen_options[$node]}
  elif [[ -n \${_vorlen_subcommands[$node]} ]]; then
    local -a described
    described=(\${(f)_vorlen_subcommands[$node]})
    _describe -t commands 'vorlen command' described
  else
    _files
  fi
}

_vorlen "$@"
`);
