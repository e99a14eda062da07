#!/usr/bin/env bash
# A collaborator joins a site of a Cloudflare account: the owner's computer makes
# an invite with the setup token, a second computer (an empty home) joins with the
# code alone and publishes into the same bucket, and revoking the invite shuts it
# out. No token value shows in any output, log or settings file.
set -euo pipefail
trap 'echo "invite_join: failed at line $LINENO" >&2' ERR
vorlen=$1
source_dir=$2
source "$(dirname "$0")/local_account.sh"
account=$(value account)
setup_token=$(value token)
owner=$work/owner
friend=$work/friend

# The owner's computer sets up the site; it makes an invite for Ana.
in_home "$owner" env VORLEN_CLOUDFLARE_TOKEN="$setup_token" "$vorlen" setup --account "$account" --bucket videos \
  --media-host media.dovrin.test --page-host videos.dovrin.test --path library --computer-name owner > "$work/added" 2>&1
in_home "$owner" env VORLEN_CLOUDFLARE_TOKEN="$setup_token" "$vorlen" invite Ana > "$work/invite" 2>&1
code=$(head -1 "$work/invite")
[[ $code == vorlen1:* ]]
grep -q 'Vorlen shows the code only once.' "$work/invite"

# A code that was cut is refused in its own words, and nothing is added.
if in_home "$friend" env VORLEN_SETUP_CODE="${code:0:40}" "$vorlen" sites join > "$work/cut" 2>&1; then
  echo "a cut code was accepted" >&2; exit 1
fi
grep -q 'The setup code is damaged. Copy the whole code again.' "$work/cut"

# The second computer joins with the code alone and publishes.
in_home "$friend" env VORLEN_SETUP_CODE="$code" "$vorlen" sites join > "$work/joined" 2>&1
grep -q 'pages on videos.dovrin.test, media on media.dovrin.test' "$work/joined"
ffmpeg -loglevel error -f lavfi -i "testsrc2=size=320x180:rate=25:duration=2" -f lavfi -i "sine=frequency=440:duration=2" \
  -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$friend/Pond.mp4"
in_home "$friend" "$vorlen" publish "$friend/Pond.mp4" --poster none > "$work/published" 2>&1
grep -q '^Page:  https://videos.dovrin.test/pond$' "$work/published"

# The owner lists the invite and revokes it; the second computer is shut out.
in_home "$owner" env VORLEN_CLOUDFLARE_TOKEN="$setup_token" "$vorlen" invites > "$work/invites" 2>&1
grep -q ' Ana  active' "$work/invites"
invite_id=$(grep ' Ana  active' "$work/invites" | cut -d' ' -f1)
in_home "$owner" env VORLEN_CLOUDFLARE_TOKEN="$setup_token" "$vorlen" invites revoke "$invite_id" > "$work/revoked" 2>&1
if in_home "$friend" "$vorlen" publish "$friend/Pond.mp4" --poster none --name pond-again > "$work/refused" 2>&1; then
  echo "a revoked invite still publishes" >&2; exit 1
fi

invite_token=$(python3 -c 'import base64,json,sys; p=sys.argv[1].split(":",1)[1]; print(json.loads(base64.urlsafe_b64decode(p+"="*(-len(p)%4)))["token"])' "$code")
if grep -rqF -e "$setup_token" -e "$invite_token" "$work"/{added,invite,cut,joined,published,invites,revoked,refused} \
    "$owner/config" "$friend/config" "$owner/state" "$friend/state"; then
  echo "a token leaked into an output, a log or the settings" >&2
  exit 1
fi
