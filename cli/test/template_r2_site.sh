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

# PUT KEY FILE, or HEAD KEY (prints the object's headers as JSON), or GET KEY.
object() {
  S3_ENDPOINT=$endpoint S3_KEY=$token_id S3_SECRET=$secret python3 -c '
import json, os, sys, botocore.session, botocore.config
client = botocore.session.get_session().create_client(
    "s3", endpoint_url=os.environ["S3_ENDPOINT"], region_name="us-east-1",
    aws_access_key_id=os.environ["S3_KEY"], aws_secret_access_key=os.environ["S3_SECRET"],
    config=botocore.config.Config(s3={"addressing_style": "path"}))
action, key = sys.argv[1], sys.argv[2]
if action == "put":
    client.put_object(Bucket="videos", Key=key, Body=open(sys.argv[3], "rb").read(), ContentType="application/json")
elif action == "head":
    head = client.head_object(Bucket="videos", Key=key)
    print(json.dumps({"type": head["ContentType"], "cache": head["CacheControl"], "metadata": head["Metadata"]}))
else:
    sys.stdout.write(client.get_object(Bucket="videos", Key=key)["Body"].read().decode())
' "$@"
}

site=$(add_site)
test -n "$site"
cat > "$home/site.json" <<'JSON'
{"version": 1, "media_host": "media.example.com", "page_host": "videos.example.com", "path": "library",
 "template": "light", "worker": {"name": "vorlen-videos", "version": "1.0.0"}}
JSON
object put _vorlen/site.json "$home/site.json"

page="$home/Été page.html"
printf '<html><head>{{head}}</head><body>{{player}}</body></html>\n' > "$page"
"$vorlen" template set "$page" --site "$site" > "$home/out"
grep -qx "The site “$site” now uses the custom template “Été page.html”." "$home/out"
test "$(object get _vorlen/template.html)" = "$(cat "$page")"
test "$(object head _vorlen/template.html)" = \
  '{"type": "text/html; charset=utf-8", "cache": "no-cache", "metadata": {"source-name": "%C3%89t%C3%A9%20page.html"}}'
object get _vorlen/site.json | grep -q '"template": "custom"'
object get _vorlen/site.json | grep -q '"path": "library"'
"$vorlen" template --site "$site" | grep -q '^The custom template “Été page.html” has '

"$vorlen" template set auto --site "$site" > /dev/null
object get _vorlen/site.json | grep -q '"template": "auto"'
