#!/usr/bin/env bash
# The command line's road on a fresh computer: the first publish makes the local
# site and carries a French subtitle track, the folder decodes as HLS, a second publish of the same name takes the
# next free folder, and the site shows in the list.
set -euo pipefail
vorlen=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache TMPDIR=$home
unset DBUS_SESSION_BUS_ADDRESS

ffmpeg -loglevel error -f lavfi -i "testsrc2=size=320x180:rate=25:duration=4" -f lavfi -i "sine=frequency=440:duration=4" \
  -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$home/Holiday Film 1080p.mp4"

printf '1\r\n00:00:00,500 --> 00:00:02,000\r\n<font color="red">Bonjour</font>\r\n\r\n' > "$home/Holiday.fr.srt"

"$vorlen" publish "$home/Holiday Film 1080p.mp4" --poster none --subtitles "$home/Holiday.fr.srt" > "$home/out1"
grep -q '^Page:  http://localhost:8787/holiday-film$' "$home/out1"
objects=$home/data/vorlen/local-site/objects
test -f "$objects/_vorlen/site.json"
test -f "$objects/holiday-film/master.m3u8"
test ! -e "$objects/holiday-film/poster.jpg"
grep -q '^#EXT-X-MEDIA:TYPE=SUBTITLES,.*LANGUAGE="fr",NAME="French"' "$objects/holiday-film/master.m3u8"
grep -q 'lang="fr"' "$objects/holiday-film/manifest.mpd"
ffmpeg -v error -i "$objects/holiday-film/master.m3u8" -map 0 -f null -

"$vorlen" publish "$home/Holiday Film 1080p.mp4" --title "Second" --unlisted > "$home/out2"
folder=$(sed -n 's|^Page:  http://localhost:8787/||p' "$home/out2")
[[ $folder =~ ^holiday-film-[a-z0-9]{8}$ ]]
test -f "$objects/$folder/poster.jpg"
grep -q '"visibility": "unlisted"' "$objects/$folder/video.json"

"$vorlen" sites | grep -q '^\* local '
# Nothing stays in the work folder once a publish has ended.
test -z "$(ls -A "$home/vorlen" 2>/dev/null)"

# Each publish brought the catalogue that the home page reads up to date.
python3 - "$objects/_vorlen/catalog.json" "$folder" <<'PY'
import json, sys
catalog = json.load(open(sys.argv[1]))
assert [(v["folder"], v["visibility"]) for v in catalog["videos"]] == [("holiday-film", "public"), (sys.argv[2], "unlisted")], catalog
PY
"$vorlen" library --json --order title > "$home/library.json"
python3 - "$home/library.json" "$folder" <<'PY'
import json, sys
videos = json.load(open(sys.argv[1]))
assert [v["title"] for v in videos] == ["Holiday Film 1080p", "Second"], videos
first = videos[0]
assert set(first) == {"folder", "title", "visibility", "duration", "complete", "record", "page"}, first
assert first["complete"] is True and first["record"] == "valid" and abs(first["duration"] - 4) < 0.2, first
assert videos[1]["page"] == "http://localhost:8787/" + sys.argv[2], videos[1]
PY
# A second listing shows this computer's list at once, then the site's.
"$vorlen" library > "$home/library.txt"
grep -q "^From this computer's last reading:" "$home/library.txt"
test "$(grep -c '^2 videos$' "$home/library.txt")" = 2
