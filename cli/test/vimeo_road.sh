#!/usr/bin/env bash
# A Vimeo account moves into a site in the local Cloudflare account: after a
# sync, every imported video's page plays in its own Shaka Player with the text
# tracks that it had on Vimeo, under its Vimeo title, description and thumbnail,
# and the site keeps its Vimeo date.
#   vimeo_road.sh VORLEN SOURCE_DIR SCREENSHOT_DIR
set -Eeuo pipefail
trap 'echo "vimeo_road: failed at line $LINENO" >&2' ERR
vorlen=$1
source_dir=$2
screenshots=$3
source "$(dirname "$0")/local_account.sh"
chromium=${VORLEN_CHROMIUM:-/usr/bin/chromium}
media_host=media.media-dovrin.test
page_host=videos.dovrin.test
edge=$(value edge)
ca=$(value ca)

home=$work/home
mkdir -p "$home"
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache \
  XDG_STATE_HOME=$home/state TMPDIR=$home
export VORLEN_CLOUDFLARE_DASHBOARD=https://dash.invalid \
  VORLEN_CONNECT_TO=$media_host:443:$edge,$page_host:443:$edge VORLEN_CA_FILE=$ca

VORLEN_CLOUDFLARE_TOKEN=$(value token) "$vorlen" setup --account "$(value account)" --bucket videos \
  --media-host "$media_host" --page-host "$page_host" --computer-name road > "$work/setup" 2>&1 \
  || { cat "$work/setup" >&2; exit 1; }

vimeo=$(VORLEN_VIMEO_OWNER=$$ "$source_dir/testing/vimeo/start" "$work/vimeo")
export VORLEN_VIMEO_API=$(sed -n 's/^api=//p' <<<"$vimeo") VORLEN_VIMEO_TOKEN=$(sed -n 's/^token=//p' <<<"$vimeo")
trap '"$source_dir/testing/vimeo/stop" "$work/vimeo" >/dev/null 2>&1 || true; "$source_dir/testing/cloudflare/stop" "$account_dir" >/dev/null 2>&1 || true; rm -rf "$work"' EXIT

"$vorlen" vimeo sync --include-private --include-password --yes > "$work/sync" 2>&1 || { cat "$work/sync" >&2; exit 1; }
grep -q '^Imported: 5, re-imported: 0, skipped: 0, failed: 0$' "$work/sync"

rm -rf "$screenshots" && mkdir -p "$screenshots"
"$vorlen" library --json > "$work/library.json" 2> /dev/null
# title|description as the page shows it|subtitle languages|Vimeo date
while IFS='|' read -r title description languages created; do
  folder=$(python3 -c "import json, sys; print(next(v['folder'] for v in json.load(open(sys.argv[1])) if v['title'] == sys.argv[2]))" \
    "$work/library.json" "$title")
  "$vorlen" video show "$folder" > "$work/show"
  grep -q "^Reference:   vimeo:" "$work/show"
  grep -qx "Published:   $created" "$work/show"
  poster=$(sed -n 's/^Poster:      //p' "$work/show")
  [[ $poster == https://$media_host/$folder/poster-*.jpg ]]
  page=$(sed -n 's/^Page:        //p' "$work/show")
  curl -sf --connect-to "$page_host:443:$edge" --cacert "$ca" "$page" > "$work/page.html"
  grep -qF "<title>$title" "$work/page.html"
  grep -qF "$description" "$work/page.html"
  grep -qF "poster=\"$poster\"" "$work/page.html"
  node "$source_dir/testing/player/playPage.mjs" "$page" "$edge" "$ca" "$chromium" "$screenshots/$folder" > "$work/played"
  python3 -c '
import json, sys
report, media_host, languages = json.load(open(sys.argv[1])), sys.argv[2], sys.argv[3].split()
problems = []
if report["errors"]: problems.append(f"errors: {report[\"errors\"]}")
if report["currentTime"] <= 1: problems.append("did not play past 1 s")
if report["mediaHost"] != media_host: problems.append(f"media from {report[\"mediaHost\"]}")
if sorted(t["language"] for t in report["textTracks"]) != sorted(languages): problems.append(f"text tracks {report[\"textTracks\"]}")
if problems: sys.exit(f"{sys.argv[1]}: " + "; ".join(problems) + "\n" + json.dumps(report))
' "$work/played" "$media_host" "$languages"
done <<'LIST'
Harbour at Dawn|Boats leave the harbour before sunrise.|en fr|2025-06-01T08:00:00Z
Workshop Interview|A carpenter talks about her tools.|de|2025-06-03T14:30:00Z
Città di notte||it|2025-06-05T21:15:00Z
Festival Trailer|Kept in cold storage since the festival.|es|2025-06-07T11:00:00Z
Orchard in Spring|Blossom time in the orchard.|en|2025-06-09T16:45:00Z
LIST
