#!/usr/bin/env bash
# The player options of the local site from the command line: a set is saved in
# _vorlen/player.json and shown, autoplay brings muted with it, `default` gives a
# value back to the player, a bad key or value changes nothing, a reset asks (and
# without a terminal does nothing), and `vorlen preview` hands the saved options to
# the page's player on its next load.
set -euo pipefail
vorlen=$1
source_dir=$2
home=$(mktemp -d)
source "$(dirname "$0")/local_preview.sh"
trap 'stop_preview; rm -rf "$home"' EXIT
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache TMPDIR=$home
unset DBUS_SESSION_BUS_ADDRESS
objects=$home/data/vorlen/local-site/objects
file=$objects/_vorlen/player.json
option() { "$vorlen" player show | grep "^  $1 " | sed -E 's/^  [^ ]+ +//'; }

test "$(option ui.fadeDelay)" = '(player default)'
test ! -e "$file"

"$vorlen" player set autoplay on > "$home/out"
grep -qx 'autoplay is now on.' "$home/out"
grep -qx 'Browsers start a video by itself only when its sound is off, so Muted turns on with Autoplay.' "$home/out"
grep -qx 'The pages use the saved player settings on their next load.' "$home/out"
test "$(option muted)" = on
"$vorlen" player set ui.controlPanelElements 'play_pause, mute_volume,spacer' > /dev/null
"$vorlen" player set ui.playbackRates 0.5,1,2 > /dev/null
"$vorlen" player set colors.controls 'rgb(255, 204, 0)' > /dev/null
"$vorlen" player set ui.seekBarColors.played '#ff0000' > /dev/null
test "$(option ui.controlPanelElements)" = play_pause,mute_volume,spacer
test "$(option ui.playbackRates)" = 0.5,1,2
test "$(option colors.controls)" = 'rgb(255, 204, 0)'
head -2 "$file" | tail -1 | grep -qx '  "version": 1,'
python3 - "$file" <<'PY'
import json, sys
saved = json.load(open(sys.argv[1]))
assert saved == {"version": 1, "autoplay": True, "muted": True, "loop": False,
                 "ui": {"controlPanelElements": ["play_pause", "mute_volume", "spacer"], "playbackRates": [0.5, 1, 2],
                        "seekBarColors": {"played": "#ff0000"}},
                 "colors": {"controls": "rgb(255, 204, 0)"}}, saved
PY
"$vorlen" player set ui.playbackRates default > /dev/null
test "$(option ui.playbackRates)" = '(player default)'

# A bad key or value fails in words that list what is allowed, and changes nothing.
cp "$file" "$home/before.json"
if "$vorlen" player set ui.fullscreenButton off 2> "$home/err"; then exit 1; fi
grep -q '^“ui.fullscreenButton” is not a player option. The options are autoplay, muted, loop, ' "$home/err"
if "$vorlen" player set ui.fadeDelay soon 2> "$home/err"; then exit 1; fi
grep -qx '“soon” is not a value of ui.fadeDelay. Give a number of seconds, 0 or more, or default.' "$home/err"
if "$vorlen" player set colors.fade 'red;}</style>' 2> "$home/err"; then exit 1; fi
grep -q '^“red;}</style>” is not a value of colors.fade. Give a colour such as ' "$home/err"
if "$vorlen" player set ui.overflowMenuButtons quality,hologram 2> "$home/err"; then exit 1; fi
grep -q '^“hologram” is not a value of ui.overflowMenuButtons. Give element names separated by commas, from .*quality' "$home/err"
if "$vorlen" player set loop maybe 2> "$home/err"; then exit 1; fi
grep -qx '“maybe” is not a value of loop. Give on or off (or true or false), or default.' "$home/err"
cmp "$file" "$home/before.json"

# The page that `vorlen preview` serves hands the saved options to the player.
node --input-type=module -e "
  const { writeObject } = await import(process.argv[1]);
  await writeObject(process.argv[2], 'harbour/master.m3u8', '#EXTM3U\n', { contentType: 'application/vnd.apple.mpegurl', cacheControl: 'public, max-age=300' });
" "$source_dir/worker/dev/folderBucket.mjs" "$home/data/vorlen/local-site"
start_preview
curl -sf "http://localhost:$port/harbour" > "$home/page"
grep -q '<video [^>]*autoplay muted' "$home/page"
grep -q '"controlPanelElements":\["play_pause","mute_volume","spacer"\]' "$home/page"
grep -q -- '--vorlen-controls: rgb(255, 204, 0)' "$home/page"

if "$vorlen" player reset < /dev/null 2> "$home/err"; then exit 1; fi
grep -qx 'Nothing was reset: there is no terminal to ask on. To reset without a question, add --yes.' "$home/err"
test "$(option autoplay)" = on
"$vorlen" player reset --yes > /dev/null
test "$(option autoplay)" = off
test "$(option ui.controlPanelElements)" = '(player default)'
curl -sf "http://localhost:$port/harbour" > "$home/page"
if grep -q '<video [^>]*autoplay' "$home/page"; then exit 1; fi
stop_preview
