#!/usr/bin/env bash
# A setup that is killed at a random moment, three times over, and then run once
# more completes, and the account holds exactly one R2 API Token of this computer.
set -euo pipefail
trap 'echo "setup_killed: failed at line $LINENO" >&2' ERR
vorlen=$1
source_dir=$2
source "$(dirname "$0")/local_account.sh"
control=$(value control)
account=$(value account)
home=$work/home
mkdir -p "$home"
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache \
  XDG_STATE_HOME=$home/state TMPDIR=$home VORLEN_CLOUDFLARE_TOKEN=$(value token)
setup=("$vorlen" setup --account "$account" --bucket killed --media-host media.media-dovrin.test
  --page-host videos.dovrin.test --computer-name studio)

for round in 1 2 3; do
  "${setup[@]}" > "$work/round$round" 2>&1 &
  pid=$!
  # Somewhere in the run: a whole setup takes about six seconds here.
  sleep "$(python3 -c 'import random; print(round(random.uniform(0.3, 6), 2))')"
  kill -KILL "$pid" 2>/dev/null || true
  { wait "$pid"; } 2>/dev/null || true
  echo "round $round: $(grep -c '' "$work/round$round") lines before the kill"
done

"${setup[@]}" > "$work/final" 2>&1 || { cat "$work/final" >&2; exit 1; }
grep -q 'Site settings: ' "$work/final"

tokens=$(curl -sf "$control/state" | python3 -c '
import json, sys
print(sum(1 for token in json.load(sys.stdin)["tokens"] if token["name"] == "Vorlen \u2013 studio"))')
if [[ $tokens != 1 ]]; then echo "the account holds $tokens tokens of this computer" >&2; exit 1; fi

# A second run finds everything in place.
"${setup[@]}" > "$work/again" 2>&1
[[ $(grep -c '^alreadyInPlace ' "$work/again") == 12 ]]

# Neither the setup token nor the computer's token shows in any output, log or settings file.
r2_token_value=$(python3 -c '
import json, sys
print(json.loads(next(iter(json.load(open(sys.argv[1])).values())))["token"])' "$home/data/vorlen/secrets.json")
[[ -n $r2_token_value ]]
for secret in "$VORLEN_CLOUDFLARE_TOKEN" "$r2_token_value"; do
  if grep -rlF -- "$secret" "$work"/round* "$work/final" "$work/again" "$home/state" "$home/config"; then
    echo "a token value leaked into the files above" >&2; exit 1
  fi
done
echo "setup_killed: ok"
