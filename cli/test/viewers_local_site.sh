#!/usr/bin/env bash
# The viewers of a site from the command line: whether the site is private, an invite
# link printed once on a line of its own (its secret nowhere else), a rename, a new
# invite that ends the old link, and a deletion.
set -Eeuo pipefail
trap 'echo "viewers_local_site: failed at line $LINENO" >&2' ERR
vorlen=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache \
  XDG_STATE_HOME=$home/state TMPDIR=$home
unset DBUS_SESSION_BUS_ADDRESS
viewers=$home/data/vorlen/local-site/objects/_vorlen/viewers

"$vorlen" viewers > "$home/list"
head -n 1 "$home/list" | grep -qx 'The site is public: its pages need no sign-in. Make it private with `vorlen viewers private on`.'
grep -qx 'The site has no viewers. Add one with `vorlen viewers add NAME`.' "$home/list"
site=$home/data/vorlen/local-site/objects/_vorlen/site.json
"$vorlen" viewers private on | grep -qx 'The site is private: every page needs a viewer signed in with a passkey.'
grep -q '"private": true' "$site"
"$vorlen" viewers | head -n 1 | grep -q '^The site is private: '
"$vorlen" viewers private off > /dev/null
if grep -q '"private"' "$site"; then exit 1; fi
if "$vorlen" viewers private maybe 2> /dev/null; then exit 1; fi
"$vorlen" viewers add "  Ana Lima " > "$home/added"
link=$(tail -n 1 "$home/added")
[[ $link =~ ^http://localhost:8787/_invite/([0-9a-f]{32})\.([A-Za-z0-9_-]{43})$ ]]
id=${BASH_REMATCH[1]} secret=${BASH_REMATCH[2]}
hash=$(printf %s "$secret" | sha256sum | cut -d' ' -f1)
grep -q "\"hash\": \"$hash\"" "$viewers/$id.json"
if grep -rqF -e "$secret" "$home/data" "$home/config" "$home/state"; then exit 1; fi

"$vorlen" viewers list | grep -Eq "^$id  Ana Lima  invited, the link works until "
"$vorlen" viewers rename "$id" "Ana" | grep -qx 'Renamed to “Ana”.'
"$vorlen" viewers renew "$id" > "$home/renewed"
test "$(tail -n 1 "$home/renewed")" != "$link"
if grep -q "\"hash\": \"$hash\"" "$viewers/$id.json"; then exit 1; fi
if "$vorlen" viewers rename nobody "Cy" 2> "$home/err"; then exit 1; fi
grep -qx '“nobody” is not a viewer ID.' "$home/err"
"$vorlen" viewers remove "$id" > /dev/null
test ! -e "$viewers/$id.json"
