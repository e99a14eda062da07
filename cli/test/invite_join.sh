#!/usr/bin/env bash
# A collaborator joins a site of a Cloudflare account: the owner's computer makes
# an invite with the setup token, a second computer (an empty home) joins with the
# code alone and publishes into the same bucket, and revoking the invite shuts it
# out. No token value shows in any output, log or settings file.
set -euo pipefail
trap 'echo "invite_join: failed at line $LINENO" >&2' ERR
vorlen=$1
source_dir=$2
work=$(mktemp -d)
account_dir=$work/cloudflare
trap '"$source_dir/testing/cloudflare/stop" "$account_dir" >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
unset DBUS_SESSION_BUS_ADDRESS VORLEN_CLOUDFLARE_TOKEN VORLEN_SETUP_CODE VORLEN_R2_TOKEN

local_account=$(VORLEN_CLOUDFLARE_OWNER=$$ "$source_dir/testing/cloudflare/start" "$account_dir")
value() { sed -n "s/^$1=//p" <<<"$local_account" | head -1; }
api=$(value api)
r2=$(value r2)
account=$(value account)
setup_token=$(value token)
export VORLEN_CLOUDFLARE_API=$api VORLEN_R2_STORAGE=$r2

# The setup token goes to curl in a header file, never on a command line.
printf 'Authorization: Bearer %s\n' "$setup_token" > "$work/auth"
chmod 600 "$work/auth"
cloudflare() { curl -sf -H @"$work/auth" -H 'Content-Type: application/json' "$@"; }
cloudflare -X POST "$api/accounts/$account/r2/buckets" -d '{"name":"videos"}' > /dev/null
setup_id=$(cloudflare "$api/accounts/$account/tokens/verify" | python3 -c 'import json,sys; print(json.load(sys.stdin)["result"]["id"])')

# The site's settings file, as a finished setup leaves it.
S3_ENDPOINT=$r2 S3_KEY=$setup_id S3_SECRET=$(printf %s "$setup_token" | sha256sum | cut -d' ' -f1) python3 -c '
import json, os, botocore.session, botocore.config
client = botocore.session.get_session().create_client(
    "s3", endpoint_url=os.environ["S3_ENDPOINT"], region_name="us-east-1",
    aws_access_key_id=os.environ["S3_KEY"], aws_secret_access_key=os.environ["S3_SECRET"],
    config=botocore.config.Config(s3={"addressing_style": "path"}))
site = {"version": 1, "path": "library", "media_host": "media.dovrin.test", "page_host": "videos.dovrin.test",
        "template": "auto", "worker": {"name": "vorlen-videos", "version": "1.0.0"}}
client.put_object(Bucket="videos", Key="_vorlen/site.json", Body=json.dumps(site).encode(), ContentType="application/json")
'

in_home() {
  local home=$1; shift
  HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache \
    XDG_STATE_HOME=$home/state TMPDIR=$home "$@"
}
owner=$work/owner
friend=$work/friend
mkdir -p "$owner" "$friend"

# The owner's computer has the site; it makes an invite for Ana.
in_home "$owner" env VORLEN_R2_TOKEN="$setup_token" "$vorlen" sites add-r2 --account "$account" --bucket videos \
  --token-id "$setup_id" --media-host media.dovrin.test --page-host videos.dovrin.test --path library > "$work/added" 2>&1
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
