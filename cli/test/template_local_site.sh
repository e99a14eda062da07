#!/usr/bin/env bash
# The page template of the local site from the command line: a file that lacks a
# required placeholder changes nothing; a good one is kept in the bucket, the site
# switches to it, and `vorlen preview` serves it, a newer one at the next load; a
# built-in design switches back and leaves the custom file in place; and the home
# page, once public, lists what `vorlen catalog rebuild` wrote.
set -euo pipefail
vorlen=$1
source_dir=$2
home=$(mktemp -d)
source "$(dirname "$0")/local_preview.sh"
trap 'stop_preview; rm -rf "$home"' EXIT
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache TMPDIR=$home
unset DBUS_SESSION_BUS_ADDRESS
objects=$home/data/vorlen/local-site/objects

printf '<p>{{title}}</p>{{head}}\n' > "$home/bad.html"
if "$vorlen" template check "$home/bad.html" 2> "$home/err"; then exit 1; fi
grep -qx 'The template does not contain {{player}}. A page cannot play its video without them.' "$home/err"
if "$vorlen" template set "$home/bad.html" 2> "$home/err"; then exit 1; fi
grep -q 'does not contain {{player}}' "$home/err"
test ! -e "$objects/_vorlen/template.html"
grep -q '"template": "auto"' "$objects/_vorlen/site.json"

page="$home/Our Page.html"
printf '<!doctype html><html><head>{{head}}</head><body><main>First page {{player}} {{ site }}</main></body></html>\n' > "$page"
"$vorlen" template check "$page" > "$home/out"
grep -qx '  {{ site }}' "$home/out"
grep -qx '“Our Page.html” passes the check.' "$home/out"

"$vorlen" template set "$page" > "$home/out"
grep -qx 'The site “local” now uses the custom template “Our Page.html”.' "$home/out"
cmp "$page" "$objects/_vorlen/template.html"
grep -q '"template": "custom"' "$objects/_vorlen/site.json"
"$vorlen" template > "$home/out"
grep -q '^The custom template “Our Page.html” has 1[0-9][0-9] bytes, imported 20' "$home/out"

# A playable folder, written in the folder bucket's layout, for a page to show.
node --input-type=module -e "
  const { writeObject } = await import(process.argv[1]);
  await writeObject(process.argv[2], 'harbour/master.m3u8', '#EXTM3U\n', { contentType: 'application/vnd.apple.mpegurl', cacheControl: 'public, max-age=300' });
" "$source_dir/worker/dev/folderBucket.mjs" "$home/data/vorlen/local-site"

start_preview
page_of() { curl -sf "http://localhost:$port/harbour"; }
page_of | grep -q '<main>First page '

# The home page lists what `vorlen catalog rebuild` wrote, once the site makes its home page public.
node --input-type=module -e "
  const fs = await import('node:fs');
  const { writeObject } = await import(process.argv[1]);
  const [root, objects] = process.argv.slice(2);
  const json = { contentType: 'application/json', cacheControl: 'no-cache' };
  await writeObject(root, 'harbour/video.json', JSON.stringify({ version: 1, title: 'Harbour at dawn', visibility: 'public',
    created: '2026-05-01T06:00:00Z', updated: '2026-05-01T06:00:00Z' }), json);
  const site = JSON.parse(fs.readFileSync(objects + '/_vorlen/site.json', 'utf8'));
  site.home_page.public = true;
  await writeObject(root, '_vorlen/site.json', JSON.stringify(site), json);
" "$source_dir/worker/dev/folderBucket.mjs" "$home/data/vorlen/local-site" "$objects"
"$vorlen" catalog rebuild > /dev/null
curl -sf "http://localhost:$port/" | grep -q 'Harbour at dawn'

sed 's/First page/Second page/' "$page" > "$home/second.html"
"$vorlen" template set "$home/second.html" > /dev/null
page_of | grep -q '<main>Second page '

"$vorlen" template set dark > "$home/out"
grep -qx 'The site “local” now uses the dark template.' "$home/out"
grep -q '"template": "dark"' "$objects/_vorlen/site.json"
test -f "$objects/_vorlen/template.html"
page_of | grep -q 'data-theme="dark"'
stop_preview

"$vorlen" template export light "$home/light.html" > /dev/null
grep -q '{{player}}' "$home/light.html"
"$vorlen" template check "$home/light.html" > /dev/null
