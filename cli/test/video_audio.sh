#!/usr/bin/env bash
# New audio for published videos of the local site from the command line. The page
# plays in headless Chromium while the video's own published audio is encoded again
# at another loudness: the player reports no error, the picture's files stay byte
# for byte, the record tells the new loudness, and the page loaded again plays.
# A file that does not fit is refused and changes nothing.
#   video_audio.sh VORLEN SOURCE_DIR
set -Eeuo pipefail
trap 'echo "video_audio: failed at line $LINENO" >&2' ERR
vorlen=$1
source_dir=$2
chromium=${VORLEN_CHROMIUM:-/usr/bin/chromium}
home=$(mktemp -d)
source "$(dirname "$0")/local_preview.sh"
trap 'stop_preview; rm -rf "$home"' EXIT
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache \
  XDG_STATE_HOME=$home/state TMPDIR=$home
unset DBUS_SESSION_BUS_ADDRESS
objects=$home/data/vorlen/local-site/objects

ffmpeg -loglevel error -f lavfi -i "testsrc2=size=320x180:rate=25:duration=8" \
  -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=8" -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$home/harbour.mp4"
"$vorlen" publish "$home/harbour.mp4" --poster none > "$home/published" 2>&1 || { cat "$home/published" >&2; exit 1; }
picture() { (cd "$objects/harbour" && find . -path './v_*' -type f | sort | xargs sha256sum); }
picture > "$home/picture-before"

start_preview
node "$source_dir/testing/player/playThroughChanges.mjs" "$chromium" "http://localhost:$port/harbour" "$objects" harbour \
  "'$vorlen' video audio harbour --loudness broadcast" > "$home/change.json"
python3 - "$home/change.json" <<'EOF'
import json, sys
report = json.load(open(sys.argv[1]))
step = report["steps"][0]
problems = []
if step["status"] != 0: problems.append(f"the re-import ended with {step['status']}: {step['output']}")
if "harbour: the new audio plays, at broadcast loudness" not in step["output"]: problems.append(f"no result line: {step['output']}")
if step["errors"] or report["end"]["errors"]: problems.append("the player reported errors")
if report["unplayableSamples"]: problems.append("the video was not playable for a moment")
if problems:
    print("\n".join(problems), file=sys.stderr)
    print(json.dumps(report, indent=1), file=sys.stderr)
    sys.exit(1)
EOF
grep -q '"audio_loudness": "broadcast"' "$objects/harbour/video.json"
picture | cmp - "$home/picture-before"
prefix=$(cd "$objects/harbour" && ls -d r-*)
grep -q "URI=\"$prefix/a_stereo.m3u8\"" "$objects/harbour/master.m3u8"
test ! -e "$objects/harbour/a_stereo.m3u8" && test ! -e "$objects/harbour/a_stereo"

node "$source_dir/testing/player/playThroughChanges.mjs" "$chromium" "http://localhost:$port/harbour" "$objects" harbour --to-end \
  > "$home/reloaded.json"
python3 -c 'import json, sys; end = json.load(open(sys.argv[1]))["end"]; sys.exit(0 if end["ended"] and not end["errors"] else f"the page does not play: {end}")' \
  "$home/reloaded.json"
stop_preview

# A file of another length is refused: one line for the folder, a failing status, nothing changed.
ffmpeg -loglevel error -f lavfi -i "sine=frequency=660:sample_rate=48000:duration=20" "$home/long.m4a"
cp "$objects/harbour/master.m3u8" "$home/master-before"
if "$vorlen" video audio harbour --file "$home/long.m4a" > "$home/out" 2> /dev/null; then exit 1; fi
grep -qx 'harbour: not changed: “long.m4a” is 20 seconds long, and the video in the site is 8 seconds long.*' "$home/out"
cmp "$objects/harbour/master.m3u8" "$home/master-before"
if "$vorlen" video audio harbour other --file "$home/long.m4a" 2> "$home/err"; then exit 1; fi
grep -q 'name exactly one folder' "$home/err"
