#!/usr/bin/env bash
# The page template of an R2 site: `vorlen template set FILE` reaches a real S3
# server with the site's own keys, the template carries its headers and the file's
# name (spaces and non-ASCII letters, percent-encoded), and site.json switches to it.
set -euo pipefail
vorlen=$1
source_dir=$2
home=$(mktemp -d)
unset DBUS_SESSION_BUS_ADDRESS
source "$(dirname "$0")/r2_site.sh"

site=$(add_site)
test -n "$site"
cat > "$home/site.json" <<'JSON'
{"version": 1, "media_host": "media.example.com", "page_host": "videos.example.com", "path": "library",
 "template": "light", "worker": {"name": "vorlen-videos", "version": "1.0.0"}}
JSON
s3 put _vorlen/site.json "$home/site.json"

page="$home/Été page.html"
printf '<html><head>{{head}}</head><body>{{player}}</body></html>\n' > "$page"
"$vorlen" template set "$page" --site "$site" > "$home/out"
grep -qx "The site “$site” now uses the custom template “Été page.html”." "$home/out"
test "$(s3 get _vorlen/template.html)" = "$(cat "$page")"
test "$(s3 head _vorlen/template.html)" = \
  '{"type": "text/html; charset=utf-8", "cache": "no-cache", "metadata": {"source-name": "%C3%89t%C3%A9%20page.html"}}'
s3 get _vorlen/site.json | grep -q '"template": "custom"'
s3 get _vorlen/site.json | grep -q '"path": "library"'
"$vorlen" template --site "$site" | grep -q '^The custom template “Été page.html” has '

"$vorlen" template set auto --site "$site" > /dev/null
s3 get _vorlen/site.json | grep -q '"template": "auto"'
