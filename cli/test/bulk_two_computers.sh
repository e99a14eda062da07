#!/usr/bin/env bash
# Two computers (two homes, two processes) start a bulk upload on one R2 site at
# the same moment: exactly one runs, the other is told which computer holds the
# site and publishes nothing; once the first has ended, the second runs.
set -euo pipefail
vorlen=$1
source_dir=$2
home=$(mktemp -d)
unset DBUS_SESSION_BUS_ADDRESS
source "$(dirname "$0")/r2_site.sh"

# The second computer: a home of its own.
other=$home/other
mkdir -p "$other"
as_other() {
  HOME=$other XDG_CONFIG_HOME=$other/config XDG_DATA_HOME=$other/data XDG_CACHE_HOME=$other/cache TMPDIR=$other "$@"
}
site=$(add_site)
test -n "$site"
as_other env VORLEN_R2_TOKEN="$token" "$vorlen" sites add-r2 --account test --bucket videos --token-id "$token_id" \
  --media-host media.example.com --page-host videos.example.com --path library --endpoint "$endpoint" > /dev/null

for computer in "$home" "$other"; do
  printf 'File,Title,Reference\n' > "$computer/list.csv"
  for n in 1 2 3; do
    ffmpeg -loglevel error -f lavfi -i "testsrc2=size=320x180:rate=25:duration=3" -f lavfi -i "sine=frequency=$((300 + n * 50)):duration=3" \
      -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$computer/film$n.mp4"
    printf 'film%s.mp4,%s film %s,%s-%s\n' "$n" "$(basename "$computer")" "$n" "$(basename "$computer")" "$n" >> "$computer/list.csv"
  done
done

"$vorlen" bulk "$home/list.csv" --site "$site" --yes > "$home/first" 2>&1 &
first=$!
as_other "$vorlen" bulk "$other/list.csv" --yes > "$other/first" 2>&1 &
second=$!
status_first=0; wait $first || status_first=$?
status_second=0; wait $second || status_second=$?

computer=$(hostname)
refusal="“$computer” is running a bulk upload on this site. Start this run when that run ends. If that computer stopped, you can start this run after about 5 minutes."
if [[ $status_first == 0 && $status_second != 0 ]]; then
  grep -qx 'The Bulk Upload Did Not Start' "$other/first" && grep -qF "$refusal" "$other/first" || { cat "$other/first"; exit 1; }
  refused=$other
elif [[ $status_second == 0 && $status_first != 0 ]]; then
  grep -qx 'The Bulk Upload Did Not Start' "$home/first" && grep -qF "$refusal" "$home/first" || { cat "$home/first"; exit 1; }
  refused=$home
else
  echo "both runs ended with $status_first and $status_second: exactly one must run" >&2
  cat "$home/first" "$other/first" >&2
  exit 1
fi
s3 list library/ > "$home/keys"
# Only the running computer's three videos.
test "$(grep -c '/master.m3u8$' "$home/keys")" = 3

# The record went with the run, so the other computer now runs.
if [[ $refused == "$other" ]]; then as_other "$vorlen" bulk "$other/list.csv" --yes > "$other/second" 2>&1
else "$vorlen" bulk "$home/list.csv" --site "$site" --yes > "$home/second" 2>&1; fi
s3 list library/ > "$home/keys"
test "$(grep -c '/master.m3u8$' "$home/keys")" = 6
s3 list _vorlen/ | grep -q batch-run.json && exit 1
exit 0
