#!/usr/bin/env bash
# A bulk upload from a spreadsheet on the local site: each row is published once,
# the results copy tells the truth about every row, a run killed with SIGKILL
# halfway goes on when started again (once its record has gone stale), and rows
# added to the spreadsheet later are merged into the copy and published.
set -euo pipefail
vorlen=$1
source_dir=$2
home=$(mktemp -d)
pid=
trap 'if [[ -n $pid ]]; then kill -9 $pid 2>/dev/null || true; fi; rm -rf "$home"' EXIT
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache TMPDIR=$home
unset DBUS_SESSION_BUS_ADDRESS
objects=$home/data/vorlen/local-site/objects

mkdir "$home/films"
for n in 1 2 3 4 5 6; do
  ffmpeg -loglevel error -f lavfi -i "testsrc2=size=320x180:rate=25:duration=3" -f lavfi -i "sine=frequency=$((200 + n * 100)):duration=3" \
    -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$home/films/film$n.mp4"
done
"$vorlen" publish "$home/films/film1.mp4" --title "Already here" --reference R1 --poster none > /dev/null

# Semicolons and Windows line endings, as a spreadsheet program in many countries writes them.
printf 'Title;File;Reference;Description\r\nFirst;films/film1.mp4;R1;\r\nSecond;films/film2.mp4;R2;See https://example.com/notes.\r\n'\
'Third;films/film3.mp4;R3;\r\nThird again;films/film3.mp4;R3;\r\nFourth;films/film4.mp4;R4;\r\nFifth;films/film5.mp4;R5;\r\n' > "$home/list.csv"
results="$home/list (published).csv"

# Without --yes and without a terminal nothing starts.
if "$vorlen" bulk "$home/list.csv" > "$home/out" 2>&1 < /dev/null; then exit 1; fi
grep -q '^  File: *“File” (column 2)$' "$home/out"
grep -q '^No row is done yet. Vorlen writes the result of each row to “list (published).csv”.$' "$home/out"
test ! -e "$results"

# Killed as soon as a row after the first is in work.
"$vorlen" bulk "$home/list.csv" --yes > "$home/out" 2>&1 &
pid=$!
for _ in $(seq 600); do
  if [[ -f $results ]] && grep -q ';Publishing' "$results" && grep -q ';Published' "$results"; then break; fi
  sleep 0.05
done
kill -9 $pid
wait $pid || true
pid=

# The killed run's record holds the site until it is 5 minutes old.
if "$vorlen" bulk "$home/list.csv" --yes > "$home/out" 2>&1; then cat "$home/out"; exit 1; fi
grep -q 'is running a bulk upload on this site. Start this run when that run ends. If that computer stopped, you can start this run after about 5 minutes.' "$home/out" || { cat "$home/out"; exit 1; }
node "$source_dir/cli/test/age_batch_run.mjs" "$home/data/vorlen/local-site"

"$vorlen" bulk "$home/list.csv" --yes > "$home/out" 2>&1 || { cat "$home/out"; exit 1; }
test ! -e "$objects/_vorlen/batch-run.json"

# Every reference has one folder, and every row of the copy says where its video is.
python3 - "$objects" "$results" <<'PY'
import csv, json, os, sys
objects, results = sys.argv[1], sys.argv[2]
by_reference = {}
for folder in os.listdir(objects):
    if folder.startswith('_'):
        continue
    assert os.path.exists(os.path.join(objects, folder, 'master.m3u8')), f'{folder} is unfinished'
    record = json.load(open(os.path.join(objects, folder, 'video.json')))
    by_reference.setdefault(record.get('reference'), []).append(folder)
assert all(len(folders) == 1 for folders in by_reference.values()), by_reference
assert sorted(by_reference) == ['R1', 'R2', 'R3', 'R4', 'R5'], by_reference
raw = open(results, 'rb').read()
assert raw.startswith(b'\xef\xbb\xbf') and b'\r\n' in raw, 'the copy is UTF-8 with a byte order mark, with the lines of the input'
rows = list(csv.DictReader(raw.decode('utf-8-sig').splitlines(), delimiter=';'))
for row in rows:
    folder = row['Vorlen folder']
    assert by_reference[row['Reference']] == [folder], row
    assert row['Vorlen page URL'] == f'http://localhost:8787/{folder}', row
status = {row['Title']: row['Vorlen status'] for row in rows}
assert status['First'] == f"Skipped: already in the bucket ({by_reference['R1'][0]})", status
assert status['Third again'] == f"Skipped: already in the bucket ({by_reference['R3'][0]})", status
assert all(status[title] == 'Published' for title in ['Second', 'Third', 'Fourth', 'Fifth']), status
description = json.load(open(os.path.join(objects, by_reference['R2'][0], 'video.json')))['description']
assert description == 'See [https://example.com/notes](https://example.com/notes).', description
PY

# A row added to the spreadsheet later joins the copy and is the only one published.
printf 'Sixth;films/film6.mp4;R6;\r\n' >> "$home/list.csv"
"$vorlen" bulk "$home/list.csv" --yes > "$home/out" 2>&1
grep -q '^Vorlen continues from the results in “list (published).csv”.$' "$home/out"
grep -q '^The spreadsheet has 1 new row. Vorlen adds it to the results and publishes it.$' "$home/out"
grep -q '^Published: 1, re-imported: 0, skipped: 0, failed: 0$' "$home/out"
grep -q '^6 rows were done earlier.$' "$home/out"
grep -q '^Vorlen added 1 new row from the spreadsheet.$' "$home/out"
test "$(tail -n 1 "$results")" = $'Sixth;films/film6.mp4;R6;;sixth;http://localhost:8787/sixth;Published\r'
# The home page lists what the run published.
grep -q '"folder": "sixth"' "$objects/_vorlen/catalog.json" || { cat "$home/out"; grep folder "$objects/_vorlen/catalog.json"; exit 1; }

# Re-imports name their video by its page address; the audio alone changes, and the video still plays.
printf 'File,Existing folder\nfilms/film6.mp4,http://localhost:8787/sixth\nfilms/film6.mp4,nowhere\n' > "$home/again.csv"
"$vorlen" bulk "$home/again.csv" --reimport audio --yes > "$home/out" 2>&1 && exit 1
grep -q '^Published: 0, re-imported: 1, skipped: 0, failed: 1$' "$home/out"
grep -q '^films/film6.mp4,http://localhost:8787/sixth,sixth,http://localhost:8787/sixth,Re-imported' "$home/again (published).csv"
grep -q '^films/film6.mp4,nowhere,,,"Failed: Vorlen did not re-import this video, because the site no longer has it.' "$home/again (published).csv"
ls "$objects/sixth" | grep -q '^r-'
ffmpeg -v error -i "$objects/sixth/master.m3u8" -map 0 -f null -
