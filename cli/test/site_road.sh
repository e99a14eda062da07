#!/usr/bin/env bash
# The whole road on one machine: an empty Cloudflare account (the local one), a
# fresh computer that sets up a site in it, publishes a public clip with subtitles
# and an unlisted one, and viewers who reach them through the account's edge under
# the site's own hostnames: the pages play in their own player with media from the
# media hostname, and the media host keeps video records and the site's folder to
# itself. A WAF rule deleted in the dashboard shows in a check (which changes
# nothing) and a setup puts it back. No token value or secret key shows in any
# output, log or settings file.
#   site_road.sh VORLEN SOURCE_DIR SCREENSHOT_DIR
set -Eeuo pipefail
trap 'echo "site_road: failed at line $LINENO" >&2' ERR
vorlen=$1
source_dir=$2
screenshots=$3
source "$(dirname "$0")/local_account.sh"
chromium=${VORLEN_CHROMIUM:-/usr/bin/chromium}
media_host=media.media-dovrin.test
page_host=videos.dovrin.test

api=$(value api)
account=$(value account)
setup_token=$(value token)
edge=$(value edge)
ca=$(value ca)
media_zone=$(sed -n "s/^zone=media-dovrin.test //p" <<<"$local_account")

home=$work/home
mkdir -p "$home"
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache \
  XDG_STATE_HOME=$home/state TMPDIR=$home
export VORLEN_CLOUDFLARE_DASHBOARD=https://dash.invalid \
  VORLEN_CONNECT_TO=$media_host:443:$edge,$page_host:443:$edge VORLEN_CA_FILE=$ca
with_token() { VORLEN_CLOUDFLARE_TOKEN=$setup_token "$@"; }

# The status a viewer's client gets from a site's hostname, through the edge.
status_of() {
  curl -s --connect-to "$media_host:443:$edge" --connect-to "$page_host:443:$edge" --cacert "$ca" \
    -o /dev/null -w '%{http_code}' "$1"
}
json() { python3 -c "import json,sys; d=json.load(open(sys.argv[1])); print($1)" "$2"; }

# Each step's line: its status, padded, then the step's label.
expect_step() { grep -Eq "^$2 +$3:" "$1" || { echo "expected $2 for “$3” in $1:" >&2; cat "$1" >&2; exit 1; }; }

setup() {
  with_token "$vorlen" setup --account "$account" --bucket videos --media-host "$media_host" --page-host "$page_host" \
    --computer-name road
}
setup > "$work/setup" 2>&1 || { cat "$work/setup" >&2; exit 1; }
test "$(grep -Ec '^(done|alreadyInPlace) ' "$work/setup")" -eq 12
grep -q "is set up: https://$page_host/\$" "$work/setup"

ffmpeg -loglevel error -f lavfi -i "testsrc2=size=640x360:rate=25:duration=8" -f lavfi -i "sine=frequency=440:duration=8" \
  -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$work/Harbour at Dawn.mp4"
printf '1\r\n00:00:00,500 --> 00:00:04,000\r\nBonjour\r\n\r\n' > "$work/Harbour.fr.srt"
"$vorlen" publish "$work/Harbour at Dawn.mp4" --poster none --subtitles "$work/Harbour.fr.srt" \
  < /dev/null > "$work/published" 2>&1
"$vorlen" publish "$work/Harbour at Dawn.mp4" --title "Night Crossing" --unlisted < /dev/null > "$work/unlisted" 2>&1
public_page=$(sed -n 's/^Page:  //p' "$work/published")
unlisted_page=$(sed -n 's/^Page:  //p' "$work/unlisted")
test "$public_page" = "https://$page_host/harbour-at-dawn"
[[ $unlisted_page =~ ^https://$page_host/harbour-at-dawn-[a-z0-9]{8}$ ]]
grep -q "^HLS:   https://$media_host/harbour-at-dawn/master.m3u8\$" "$work/published"

# Both pages play in their own player, with the media in byte ranges from the media
# host and the subtitle tracks (languages, space-separated) that were published.
rm -rf "$screenshots" && mkdir -p "$screenshots"
play_page() {
  node "$source_dir/testing/player/playPage.mjs" "$1" "$edge" "$ca" "$chromium" "$screenshots" > "$2"
  python3 - "$2" "$media_host" "$3" <<'EOF'
import json, sys
report, media_host, languages = json.load(open(sys.argv[1])), sys.argv[2], sys.argv[3].split()
problems = []
if report["errors"]: problems.append(f"errors: {report['errors']}")
if report["currentTime"] <= 2: problems.append("did not play past 2 s")
if report["afterSeek"] < report["seekTarget"] + 0.4: problems.append("did not play on after the seek")
if report["mediaHost"] != media_host: problems.append(f"media from {report['mediaHost']}")
if report["mediaPartial"] == 0: problems.append("no 206 answer from the media host")
if [t["language"] for t in report["textTracks"]] != languages: problems.append(f"text tracks {report['textTracks']}")
if problems: sys.exit(f"{sys.argv[1]}: " + "; ".join(problems) + f"\n{json.dumps(report)}")
EOF
}
play_page "$public_page" "$work/played-public" fr

# A custom template: the next page rendered is the person's own, and its player plays.
cat > "$work/template.html" <<'EOF'
<!doctype html>
<html lang="en"><head><meta charset="utf-8">{{head}}<title>{{title}} at the Harbour Cinema</title></head>
<body><header id="harbour-cinema">Harbour Cinema</header><main>{{player}}</main><footer>{{site}}</footer></body></html>
EOF
"$vorlen" template set "$work/template.html" > "$work/template" 2>&1 || { cat "$work/template" >&2; exit 1; }
curl -s --connect-to "$page_host:443:$edge" --cacert "$ca" "$unlisted_page" > "$work/unlisted.html"
grep -q '<header id="harbour-cinema">Harbour Cinema</header>' "$work/unlisted.html"
grep -q '<title>Night Crossing at the Harbour Cinema</title>' "$work/unlisted.html"
play_page "$unlisted_page" "$work/played-unlisted" ""

# The home page is off until the site makes it public, so it is not found.
test "$(status_of "https://$page_host/")" = 404

# The media host keeps video records and the site's own folder from everyone.
private_urls=("https://$media_host/harbour-at-dawn/video.json" "https://$media_host/_vorlen/site.json")
for url in "${private_urls[@]}"; do test "$(status_of "$url")" = 403; done
test "$(status_of "https://$media_host/harbour-at-dawn/master.m3u8")" = 200

# The WAF rule is deleted in the dashboard: the private files are out in the open.
printf 'Authorization: Bearer %s\n' "$setup_token" > "$work/auth"
chmod 600 "$work/auth"
cloudflare() { curl -sf -H @"$work/auth" "$@"; }
cloudflare "$api/zones/$media_zone/rulesets/phases/http_request_firewall_custom/entrypoint" > "$work/waf"
ruleset=$(json "d['result']['id']" "$work/waf")
rule=$(json "next(r['id'] for r in d['result']['rules'] if r['description'] == 'Vorlen: private files of $media_host')" "$work/waf")
cloudflare -X DELETE "$api/zones/$media_zone/rulesets/$ruleset/rules/$rule" > /dev/null
for url in "${private_urls[@]}"; do test "$(status_of "$url")" = 200; done

# A check finds the step to do, goes on with the others, and writes nothing.
curl -sf -X DELETE "$(value control)/requests" > /dev/null
settings_before=$(sha256sum "$home/config/vorlen/settings.json")
status=0
with_token "$vorlen" check > "$work/check" 2>&1 || status=$?
test "$status" -eq 2 || { cat "$work/check" >&2; exit 1; }
expect_step "$work/check" toDo "WAF rule for private files"
test "$(grep -Ec '^alreadyInPlace ' "$work/check")" -eq 11
curl -sf "$(value control)/requests" > "$work/check-requests"
test "$(json "len(d)" "$work/check-requests")" -gt 0
test "$(json "[r['method'] for r in d if r['method'] != 'GET']" "$work/check-requests")" = "[]"
test "$(sha256sum "$home/config/vorlen/settings.json")" = "$settings_before"
for url in "${private_urls[@]}"; do test "$(status_of "$url")" = 200; done

# Setup again puts the rule back, with every other step already in place.
setup > "$work/setup-again" 2>&1 || { cat "$work/setup-again" >&2; exit 1; }
test "$(grep -Ec '^alreadyInPlace ' "$work/setup-again")" -eq 11
expect_step "$work/setup-again" done "WAF rule for private files"
for url in "${private_urls[@]}"; do test "$(status_of "$url")" = 403; done

# A new visibility moves the video to a new link and a deletion removes it: each
# purges the media host's cache of the old folder, with this computer's R2 API Token.
"$vorlen" video visibility "$public_page" unlisted > "$work/moved" 2>&1 || { cat "$work/moved" >&2; exit 1; }
moved_folder=$(sed -n "s|.*under a new link: https://$page_host/||p" "$work/moved")
[[ $moved_folder =~ ^harbour-at-dawn-[a-z0-9]{8}$ ]]
test "$(status_of "https://$media_host/$moved_folder/master.m3u8")" = 200
"$vorlen" video delete "$moved_folder" --yes > "$work/deleted" 2>&1 || { cat "$work/deleted" >&2; exit 1; }
test "$(status_of "https://$media_host/$moved_folder/master.m3u8")" = 404
python3 - "$account_dir/state.json" "$media_host" "$moved_folder" <<'EOF'
import json, sys
state, host, moved = json.load(open(sys.argv[1])), sys.argv[2], sys.argv[3]
purged = [p["values"] for p in state["purges"] if p["kind"] == "prefixes"]
assert purged == [[f"{host}/harbour-at-dawn/"], [f"{host}/{moved}/"]], purged
EOF

# No token value or secret key in any output, log or settings file.
r2_token=$(python3 -c '
import json, sys
state = json.load(open(sys.argv[1]))
print(next(t["value"] for t in state["tokens"] if t["name"] == "Vorlen \u2013 road"))' "$account_dir/state.json")
r2_secret=$(printf %s "$r2_token" | sha256sum | cut -d' ' -f1)
test -n "$r2_token"
if grep -rqF -e "$setup_token" -e "$r2_token" -e "$r2_secret" "$work"/{setup,published,unlisted,played-public,played-unlisted,template,check,setup-again,moved,deleted} \
    "$home/config" "$home/state"; then
  echo "a token or secret key leaked into an output, a log or the settings" >&2
  exit 1
fi
