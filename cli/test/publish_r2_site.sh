#!/usr/bin/env bash
# An R2 site on the command line: it is added with the value of an R2 API Token
# alone, and a publish reaches a real S3 server that knows only the S3 keys that
# follow from that token. The token's value and its secret key show nowhere but in
# the secret store: not in the output, the log file, the settings, nor in the
# environment of a tool, even when the person left them in their own.
set -euo pipefail
vorlen=$1
source_dir=$2
home=$(mktemp -d)
unset DBUS_SESSION_BUS_ADDRESS
source "$(dirname "$0")/r2_site.sh"

ffmpeg -loglevel error -f lavfi -i "testsrc2=size=320x180:rate=25:duration=3" -f lavfi -i "sine=frequency=440:duration=3" \
  -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$home/Lake.mp4"

site=$(add_site)
test -n "$site"

# ffmpeg and ffprobe as the publish finds them on PATH, each writing down its environment first.
mkdir -p "$home/wrappers"
for tool in ffmpeg ffprobe; do
  printf '#!/bin/sh\nenv >> "%s"\nexec %s "$@"\n' "$home/tool-environments" "$(command -v $tool)" > "$home/wrappers/$tool"
  chmod +x "$home/wrappers/$tool"
done
PATH=$home/wrappers:$PATH VORLEN_R2_TOKEN=$token AWS_SECRET_ACCESS_KEY=$secret \
  "$vorlen" publish "$home/Lake.mp4" --site "$site" --poster none > "$home/published" 2>&1
grep -q '^Page:  https://videos.example.com/lake$' "$home/published"
grep -q '^HLS:   https://media.example.com/library/lake/master.m3u8$' "$home/published"
s3 list library/lake/ > "$home/keys"
grep -qx 'library/lake/master.m3u8' "$home/keys"
grep -qx 'library/lake/video.json' "$home/keys"

# The token and its secret key stay in the 0600 secret store.
log=$home/.local/state/vorlen/vorlen.log
grep -q 'upload ended' "$log"
grep -q '^PATH=' "$home/tool-environments"
if grep -rqF -e "$token" -e "$secret" "$home/added" "$home/published" "$home/config" "$log" "$home/tool-environments"; then
  echo "a secret leaked into the output, the log, the settings or a tool's environment" >&2
  exit 1
fi
store=$(grep -rlF -e "$token" "$home/data" "$home/config" 2>/dev/null || true)
test "$(wc -l <<<"$store")" -eq 1
test "$(stat -c %a "$store")" = 600
