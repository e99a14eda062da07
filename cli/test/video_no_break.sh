#!/usr/bin/env bash
# A viewer who watches a published video sees no break while it changes. The local
# site's page plays in headless Chromium while the video gets a new title, a new
# subtitle track and a new file: the player reports no error and plays on to the
# end, and the page, loaded again, plays the new file with the new track. Then a
# move to an unlisted link: at no moment is neither the old nor the new folder
# playable, the player on the old link plays on without error until the move ends,
# and the new link plays.
#   video_no_break.sh VORLEN SOURCE_DIR
set -Eeuo pipefail
trap 'echo "video_no_break: failed at line $LINENO" >&2' ERR
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

# 40 s with sound. Both become the one 360-line rendition, so the replacement is
# 4:3 (480x360) where the first is 16:9 (640x360): the width tells them apart.
clip() {
  ffmpeg -loglevel error -f lavfi -i "testsrc2=size=$1:rate=25:duration=40" \
    -f lavfi -i "sine=frequency=$2:sample_rate=48000:duration=40" -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$3"
}
clip 320x180 440 "$home/harbour.mp4"
clip 320x240 660 "$home/harbour-4x3.mp4"
printf '1\n00:00:01,000 --> 00:00:39,000\nGuten Morgen\n\n' > "$home/harbour.de.srt"
"$vorlen" publish "$home/harbour.mp4" --poster none > "$home/published" 2>&1 || { cat "$home/published" >&2; exit 1; }

start_preview

# watch FOLDER [--to-end] [COMMAND]...: the page of FOLDER plays while the commands run.
watch() {
  local folder=$1
  shift
  node "$source_dir/testing/player/playThroughChanges.mjs" "$chromium" "http://localhost:$port/$folder" "$objects" "$folder" "$@"
}
# judge REPORT CHECKS: CHECKS is Python over `report`, `steps` and `end`, appending to `problems`.
judge() {
  python3 - "$1" "$2" <<'EOF'
import json, sys
report = json.load(open(sys.argv[1]))
steps, end, problems = report["steps"], report["end"], []
for step in steps:
    if step["status"] != 0: problems.append(f"“{step['command']}” ended with {step['status']}")
    if step["errors"]: problems.append(f"player errors by the end of “{step['command']}”: {step['errors']}")
    if step["advancedTo"] <= step["currentTime"]: problems.append(f"playback stopped after “{step['command']}”")
if report["unplayableSamples"]: problems.append(f"{report['unplayableSamples']} of {report['samples']} samples found no master.m3u8")
exec(sys.argv[2])
if problems:
    print("\n".join(problems), file=sys.stderr)
    print(json.dumps(report, indent=1), file=sys.stderr)
    sys.exit(1)
EOF
}

# The player keeps the manifests it loaded at the start, so it plays the old file on
# to its end: its segments must still be there after the replacement.
watch harbour --to-end \
  "'$vorlen' video edit harbour --title 'New title'" \
  "'$vorlen' video subtitles harbour add '$home/harbour.de.srt' --language de" \
  "'$vorlen' video replace harbour '$home/harbour-4x3.mp4'" > "$home/changes.json"
judge "$home/changes.json" '
if len(steps) != 3: problems.append("not every change ran")
if not end["ended"] or end["errors"]: problems.append(f"did not play to the end without error: {end}")'
grep -q '"title": "New title"' "$objects/harbour/video.json"

watch harbour > "$home/reloaded.json"
judge "$home/reloaded.json" '
if end["errors"] or end["videoSize"] != [480, 360]: problems.append(f"the page does not play the new file: {end}")
if "de" not in end["textTracks"]: problems.append(f"no de track: {end}")'

watch harbour "'$vorlen' video visibility harbour unlisted" > "$home/move.json"
judge "$home/move.json" 'if report["samples"] == 0: problems.append("no sample of the objects folder")'
folder=$(python3 -c 'import json, re, sys; print(re.search(r"under a new link: \S+/(\S+)", json.load(open(sys.argv[1]))["steps"][0]["output"])[1])' "$home/move.json")
[[ $folder =~ ^harbour-[a-z0-9]{8}$ ]]
test ! -e "$objects/harbour"

watch "$folder" > "$home/moved.json"
judge "$home/moved.json" 'if end["errors"] or end["videoSize"] != [480, 360]: problems.append(f"the new link does not play: {end}")'
