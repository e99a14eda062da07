#!/usr/bin/env bash
# Ctrl-C in `vorlen publish` to an R2 site on a desktop whose session bus runs a
# Secret Service (so libsecret starts its D-Bus threads): no thread but the one that
# waits for interrupts can take one; the first stops the upload and cleans up the
# bucket; a second says so; a third ends the process at once, with status 130.
set -euo pipefail
vorlen=$1
source_dir=$2
# The whole test runs on a private session bus with a private keyring.
if [[ -z ${VORLEN_TEST_HOME:-} ]]; then
  home=$(mktemp -d)
  trap 'rm -rf "$home"' EXIT
  status=0
  HOME=$home VORLEN_TEST_HOME=$home "$source_dir/testing/with-keyring" "$0" "$@" || status=$?
  exit $status
fi
home=$VORLEN_TEST_HOME
source "$(dirname "$0")/r2_site.sh"

hint="Cleaning up the bucket; press Ctrl-C again to leave it as it is."

site=$(add_site)
# The token went to the keyring, not to the private file.
test ! -e "$home/data/vorlen/secrets.json"
"$vorlen" settings --site "$site" --limit 1 > /dev/null

ffmpeg -loglevel error -f lavfi -i "testsrc2=size=640x360:rate=25:duration=8" -f lavfi -i "sine=frequency=440:duration=8" \
  -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$home/River.mp4"

# Background jobs of their own, as at a terminal: without job control a shell
# starts them with interrupts ignored.
set -m

# Starts a publish in the background as $pid and waits until it uploads.
start_publish() {
  "$vorlen" publish "$home/River.mp4" --site "$site" --poster none > "$home/out" 2> "$home/err" &
  pid=$!
  for _ in $(seq 1 1200); do
    grep -q "^uploading" "$home/err" && return
    kill -0 $pid 2>/dev/null || { cat "$home/err" >&2; exit 1; }
    sleep 0.1
  done
  echo "the publish never began to upload" >&2
  exit 1
}

# Threads whose mask lets SIGINT (bit 2) or SIGTERM (bit 15) through.
open_threads() {
  for status in /proc/$1/task/*/status; do
    mask=$(sed -n "s/^SigBlk:\t//p" "$status")
    (( (0x$mask & 0x4002) == 0x4002 )) || sed -n "s/^Name:\t//p" "$status"
  done
}

start_publish
threads=$(ls /proc/$pid/task | wc -l)
open=$(open_threads $pid)
echo "$threads threads; taking interrupts: $open"
test "$(wc -l <<<"$open")" -eq 1

# Sends Ctrl-C N times, a moment apart, and checks that the publish ended with 130 after saying the hint.
interrupt() {
  for i in $(seq 1 $1); do
    (( i == 1 )) || sleep 0.3
    kill -INT $pid
  done
  local status=0
  wait $pid || status=$?
  test $status -eq 130
  grep -qF "$hint" "$home/err"
}

interrupt 2
grep -q "^Stopped. Vorlen deleted what it had uploaded.$" "$home/err"
test -z "$(s3 list library/river/)"

start_publish
interrupt 3
# Ended at once: no word of a finished clean-up.
if grep -q "^Stopped." "$home/err"; then exit 1; fi
