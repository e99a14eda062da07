#!/usr/bin/env bash
# A Vimeo account imported into the local site from the command line: the plan
# reads the account in the fewest pages and, within the hour, not again; a sync
# killed with SIGKILL halfway goes on when started again (once its record has
# gone stale) and imports every video once, preferring a local original to a
# download; the token never shows.
#   vimeo_local_site.sh VORLEN SOURCE_DIR
set -Eeuo pipefail
trap 'echo "vimeo_local_site: failed at line $LINENO" >&2' ERR
vorlen=$1
source_dir=$2
home=$(mktemp -d)
pid=
trap 'if [[ -n $pid ]]; then kill -9 $pid 2>/dev/null || true; fi; "$source_dir/testing/vimeo/stop" "$home/vimeo" >/dev/null 2>&1 || true; rm -rf "$home"' EXIT
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache \
  XDG_STATE_HOME=$home/state TMPDIR=$home
unset DBUS_SESSION_BUS_ADDRESS
objects=$home/data/vorlen/local-site/objects

# The fixture's account with 500 videos.
python3 -c 'import json, sys; f = json.load(open(sys.argv[1])); f["generated"]["count"] = 495; json.dump(f, open(sys.argv[2], "w"))' \
  "$source_dir/testing/vimeo/fixture.json" "$home/fixture.json"
vimeo=$(VORLEN_VIMEO_OWNER=$$ "$source_dir/testing/vimeo/start" "$home/vimeo" "$home/fixture.json")
api=$(sed -n 's/^api=//p' <<<"$vimeo")
token=$(sed -n 's/^token=//p' <<<"$vimeo")
export VORLEN_VIMEO_API=$api VORLEN_VIMEO_TOKEN=$token
requests() { curl -sf "$api/_admin/requests" | python3 -c "import json,sys; print(len([r for r in json.load(sys.stdin) if r['path'].startswith(sys.argv[1])]))" "$1"; }

# 500 videos in pages of 100, the most that Vimeo gives: the account and five pages.
"$vorlen" vimeo plan > "$home/plan" 2> "$home/plan.err"
grep -q '^Vimeo account: Dovrin Films on the plan pro (500 videos, read at ' "$home/plan"
grep -q '^Videos: 500, to import: 3 (0 from local files), imported: 0 (0 with another audio loudness), not selected because their privacy limits who can watch: 2, not ready on Vimeo: 9, without a file: 486$' "$home/plan" \
  || { tail -n 3 "$home/plan"; exit 1; }
test "$(requests /me/videos)" = 5
test "$(requests /me)" = 6
# A second plan within the hour reads the list that this computer kept.
"$vorlen" vimeo plan > "$home/plan2" 2> "$home/plan.err"
grep -q 'Using the list of videos read at' "$home/plan.err"
test "$(requests /)" = 6
# The token stays out of every output, log and settings file.
if grep -rqF -e "$token" "$home/plan" "$home/plan.err" "$home/config" "$home/state" "$home/cache"; then exit 1; fi

# A local original of one video, named as a browser saves a second copy.
mkdir -p "$home/films/.hidden"
ffmpeg -loglevel error -f lavfi -i "testsrc2=size=320x180:rate=25:duration=2" -c:v libx264 -pix_fmt yuv420p \
  "$home/films/Città di notte (1).mp4"
cp "$home/films/Città di notte (1).mp4" "$home/films/.hidden/Orchard in Spring.mp4"

sync=("$vorlen" vimeo sync --files "$home/films" --include-private --include-password --yes)
# Killed as soon as a second video is in work.
"${sync[@]}" > "$home/out" 2>&1 &
pid=$!
for _ in $(seq 1200); do
  if grep -q ': published ' "$home/out" && [[ $(grep -c ': Encodes\|: Downloads' "$home/out") -ge 2 ]]; then break; fi
  sleep 0.05
done
kill -9 $pid
wait $pid || true
pid=
grep -Eq '^import local file +900000003 ' "$home/out"
grep -Eq '^import +900000005 ' "$home/out" || { echo "a hidden file was matched" >&2; exit 1; }

# The killed run's record holds the site until it is 5 minutes old.
if "${sync[@]}" > "$home/out2" 2>&1; then cat "$home/out2"; exit 1; fi
grep -q 'is running a Vimeo sync on this site.' "$home/out2" || { cat "$home/out2"; exit 1; }
node "$source_dir/cli/test/age_batch_run.mjs" "$home/data/vorlen/local-site"

"${sync[@]}" > "$home/out3" 2>&1 || { cat "$home/out3"; exit 1; }
test ! -e "$objects/_vorlen/batch-run.json"
test "$(grep -c 'media/.*900000003_' <(curl -sf "$api/_admin/requests" | python3 -c 'import json,sys; [print("media" + r["path"]) for r in json.load(sys.stdin)]') || true)" = 0

# Every video once, with its Vimeo facts; each plays to its end.
python3 - "$objects" <<'PY'
import json, os, sys
objects = sys.argv[1]
by_reference = {}
for folder in os.listdir(objects):
    if folder.startswith('_'):
        continue
    assert os.path.exists(os.path.join(objects, folder, 'master.m3u8')), f'{folder} is unfinished'
    record = json.load(open(os.path.join(objects, folder, 'video.json')))
    by_reference.setdefault(record['reference'], []).append((folder, record))
assert sorted(by_reference) == [f'vimeo:90000000{n}' for n in range(1, 6)], by_reference
assert all(len(found) == 1 for found in by_reference.values()), by_reference
folder, harbour = by_reference['vimeo:900000001'][0]
assert (folder, harbour['title'], harbour['created'], harbour['visibility']) == \
    ('harbour-at-dawn', 'Harbour at Dawn', '2025-06-01T08:00:00Z', 'public'), harbour
assert by_reference['vimeo:900000002'][0][1]['visibility'] == 'unlisted'
master = open(os.path.join(objects, folder, 'master.m3u8')).read()
assert 'URI="sub_en.m3u8"' in master and 'URI="sub_fr.m3u8"' in master, master
PY
for master in "$objects"/*/master.m3u8; do ffmpeg -v error -i "$master" -map 0 -f null -; done
grep -q '^Imported: [0-9], re-imported: 0, skipped: 0, failed: 0$' "$home/out3"
# The home page lists what the runs imported.
test "$(grep -c '"folder":' "$objects/_vorlen/catalog.json")" = 5

# Nothing is left to import.
"${sync[@]}" > "$home/out4" 2>&1
grep -q '^Nothing to import.$' "$home/out4"
