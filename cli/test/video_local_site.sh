#!/usr/bin/env bash
# Changing published videos of the local site from the command line: details in
# place, a new visibility under a new link, a new poster, a new file, subtitle
# tracks, deletion, and a record from a newer version that nothing may change.
# The catalogue follows each change.
set -euo pipefail
vorlen=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache TMPDIR=$home
unset DBUS_SESSION_BUS_ADDRESS
objects=$home/data/vorlen/local-site/objects
catalog() { python3 -c 'import json, sys; print(" ".join(v["folder"] + ":" + v["title"] + ":" + v["visibility"] for v in json.load(open(sys.argv[1]))["videos"]))' "$objects/_vorlen/catalog.json"; }

ffmpeg -loglevel error -f lavfi -i "testsrc2=size=320x180:rate=25:duration=2" -c:v libx264 -pix_fmt yuv420p "$home/harbour.mp4"
ffmpeg -loglevel error -f lavfi -i "color=c=orange:size=640x360" -frames:v 1 "$home/poster.png"
"$vorlen" publish "$home/harbour.mp4" --poster none > /dev/null

"$vorlen" video edit http://localhost:8787/harbour/embed --title "Harbour at dawn" --description "Boats" > "$home/out"
grep -qx 'Saved the details of “Harbour at dawn”. Its link stays: http://localhost:8787/harbour' "$home/out"
grep -q '"description": "Boats"' "$objects/harbour/video.json"
test "$(catalog)" = "harbour:Harbour at dawn:public"

"$vorlen" video visibility harbour unlisted > "$home/out"
folder=$(sed -n 's|.*under a new link: http://localhost:8787/||p' "$home/out")
[[ $folder =~ ^harbour-[a-z0-9]{8}$ ]]
test ! -e "$objects/harbour"
grep -q '"visibility": "unlisted"' "$objects/$folder/video.json"
ffmpeg -v error -i "$objects/$folder/master.m3u8" -map 0 -f null -
test "$(catalog)" = "$folder:Harbour at dawn:unlisted"
"$vorlen" video visibility "$folder" public | grep -q 'under a new link: http://localhost:8787/harbour$'

"$vorlen" video poster harbour "$home/poster.png" > "$home/out"
grep -q '^“Harbour at dawn” has a new poster: http://media.localhost:8787/harbour/poster-[0-9a-f]\{8\}\.jpg$' "$home/out"
test -f "$objects/harbour/poster.jpg"
"$vorlen" video show harbour | grep -q '^Poster:      http://media.localhost:8787/harbour/poster-'
image_poster=$(sed -n 's|.*/harbour/\(poster-[0-9a-f]*\.jpg\)$|\1|p' "$home/out")
# A frame of the published video itself; the poster of the image goes.
"$vorlen" video poster harbour --frame 1.5 > /dev/null
test ! -e "$objects/harbour/$image_poster"
test "$(ffprobe -v error -show_entries stream=width,height -of csv=p=0 "$objects/harbour/poster.jpg")" = "640,360"  # the top rendition's size
if "$vorlen" video poster harbour "$home/poster.png" --frame 1 2> "$home/err"; then exit 1; fi
grep -q 'one of the two' "$home/err"

# A new file behind the same link: the poster, details and catalogue stay, the new media lies under one r- prefix.
ffmpeg -loglevel error -f lavfi -i "testsrc=size=480x270:rate=25:duration=3" -c:v libx264 -pix_fmt yuv420p "$home/harbour-recut.mp4"
"$vorlen" video replace harbour "$home/harbour-recut.mp4" 2> /dev/null | grep -qx '“Harbour at dawn” plays the new video. Its link, details and poster stay: http://localhost:8787/harbour'
prefix=$(cd "$objects/harbour" && ls -d r-*)
grep -q "^$prefix/v_" "$objects/harbour/master.m3u8"
ffmpeg -v error -i "$objects/harbour/master.m3u8" -map 0 -f null -
"$vorlen" video show harbour | grep -q '^Duration:    0:03$'
test "$(catalog)" = "harbour:Harbour at dawn:public"

printf '1\n00:00:00,200 --> 00:00:01,000\nHallo\n' > "$home/harbour.de.srt"
"$vorlen" video subtitles harbour add "$home/harbour.de.srt" | grep -q '^  de  German  subtitles'
"$vorlen" video subtitles harbour | grep -q '^de  German  subtitles'
"$vorlen" video subtitles harbour remove de > /dev/null
if grep -q SUBTITLES "$objects/harbour/master.m3u8"; then exit 1; fi
if "$vorlen" video subtitles harbour remove fr 2> "$home/err"; then exit 1; fi
grep -qx '“Harbour at dawn” has no subtitles in “fr”.' "$home/err"

# A record of a newer version is never overwritten nor deleted by this one.
node --input-type=module -e "
  const { writeObject } = await import(process.argv[1]);
  await writeObject(process.argv[2], 'future/video.json', '{\"version\":7}', { contentType: 'application/json', cacheControl: 'no-cache' });
  await writeObject(process.argv[2], 'future/master.m3u8', '#EXTM3U\n', { contentType: 'application/vnd.apple.mpegurl', cacheControl: 'public, max-age=300' });
" "$(cd "$(dirname "$0")/../.." && pwd)/worker/dev/folderBucket.mjs" "$home/data/vorlen/local-site"
if "$vorlen" video delete future --yes 2> "$home/err"; then exit 1; fi
grep -qx 'Vorlen cannot change “future”' "$home/err"
test -f "$objects/future/master.m3u8"

# A batch run holds the site while its computer reports; one silent for 5 minutes holds nothing.
batch_record() {
  node --input-type=module -e "
    const { writeObject } = await import(process.argv[1]);
    await writeObject(process.argv[2], '_vorlen/batch-run.json', JSON.stringify({ version: 1, id: 'A1', kind: 'bulk-upload', computer_name: 'Studio', updated: process.argv[3] }), { contentType: 'application/json', cacheControl: 'no-cache' });
  " "$(cd "$(dirname "$0")/../.." && pwd)/worker/dev/folderBucket.mjs" "$home/data/vorlen/local-site" "$(date -u -d "$1" +%Y-%m-%dT%H:%M:%SZ)"
}
"$vorlen" runs | grep -qx 'No batch run holds the site “local”.'
batch_record now
"$vorlen" runs | grep -qx '“Studio” is running a bulk upload on this site. You can start when that upload ends. If that computer stopped, you can start after about 5 minutes.'
batch_record '-6 minutes'
"$vorlen" runs | grep -qx 'No batch run holds the site “local”.'

# The library as a spreadsheet that spreadsheet programs and a bulk sheet read back.
"$vorlen" library --export "$home" 2>&1 >/dev/null | grep -q "^Wrote 2 videos to $home/Vorlen videos.csv$"
python3 - "$home/Vorlen videos.csv" <<'PY'
import csv, sys
rows = list(csv.reader(open(sys.argv[1], encoding="utf-8-sig", newline="")))
assert rows[0][:4] == ["Title", "Reference", "Description", "Existing folder"], rows[0]
harbour, future = sorted(rows[1:], key=lambda row: row[3])[1], sorted(rows[1:], key=lambda row: row[3])[0]
assert harbour[:5] == ["Harbour at dawn", "", "Boats", "harbour", "public"], harbour
assert future[3] == "future" and "newer version" in future[8], future
PY

if "$vorlen" video delete harbour < /dev/null 2> "$home/err"; then exit 1; fi
grep -q 'nothing was deleted' "$home/err"
"$vorlen" video delete harbour --yes | grep -qx 'Deleted “Harbour at dawn”.'
test ! -e "$objects/harbour"
test "$(catalog)" = ""
if "$vorlen" video show harbour 2> "$home/err"; then exit 1; fi
grep -qx 'The site “local” has no video “harbour”.' "$home/err"
