#!/usr/bin/env bash
# An R2 site on the command line: it is added with the value of an R2 API Token
# alone, and a publish reaches a real S3 server that knows only the S3 keys that
# follow from that token. The token's value shows nowhere but in the secret store.
set -euo pipefail
vorlen=$1
source_dir=$2
home=$(mktemp -d)
rgw_dir=$home/rgw
trap '"$source_dir/testing/rgw" stop "$rgw_dir" >/dev/null 2>&1 || true; rm -rf "$home"' EXIT
export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache TMPDIR=$home
unset DBUS_SESSION_BUS_ADDRESS VORLEN_ACCESS_KEY_ID VORLEN_SECRET_ACCESS_KEY

token=$(python3 -c 'import secrets; print(secrets.token_urlsafe(30))')
token_id=$(python3 -c 'import secrets; print(secrets.token_hex(16))')
secret=$(printf %s "$token" | sha256sum | cut -d' ' -f1)
mkdir -p "$rgw_dir"
server=$(VORLEN_RGW_OWNER=$$ VORLEN_RGW_ACCESS_KEY=$token_id VORLEN_RGW_SECRET_KEY=$secret \
  "$source_dir/testing/rgw" start "$rgw_dir")
endpoint=$(sed -n 's/^endpoint=//p' <<<"$server")

# Another S3 client, to make the bucket and to look into it afterwards.
s3() {
  S3_ENDPOINT=$endpoint S3_KEY=$token_id S3_SECRET=$secret python3 -c '
import os, sys, botocore.session, botocore.config
client = botocore.session.get_session().create_client(
    "s3", endpoint_url=os.environ["S3_ENDPOINT"], region_name="us-east-1",
    aws_access_key_id=os.environ["S3_KEY"], aws_secret_access_key=os.environ["S3_SECRET"],
    config=botocore.config.Config(s3={"addressing_style": "path"}))
if sys.argv[1] == "create":
    client.create_bucket(Bucket="videos")
else:
    for item in client.list_objects_v2(Bucket="videos", Prefix=sys.argv[2]).get("Contents", []):
        print(item["Key"])
' "$@"
}
s3 create

ffmpeg -loglevel error -f lavfi -i "testsrc2=size=320x180:rate=25:duration=3" -f lavfi -i "sine=frequency=440:duration=3" \
  -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest "$home/Lake.mp4"

VORLEN_R2_TOKEN=$token "$vorlen" sites add-r2 --account test --bucket videos --token-id "$token_id" \
  --media-host media.example.com --page-host videos.example.com --path library --endpoint "$endpoint" \
  > "$home/added" 2>&1
site=$(sed -n 's/^Added the site \xe2\x80\x9c\(.*\)\xe2\x80\x9d.$/\1/p' "$home/added")
test -n "$site"

"$vorlen" publish "$home/Lake.mp4" --site "$site" --poster none > "$home/published" 2>&1
grep -q '^Page:  https://videos.example.com/lake$' "$home/published"
grep -q '^HLS:   https://media.example.com/library/lake/master.m3u8$' "$home/published"
s3 list library/lake/ > "$home/keys"
grep -qx 'library/lake/master.m3u8' "$home/keys"
grep -qx 'library/lake/video.json' "$home/keys"

# The token and its secret key stay in the 0600 secret store.
if grep -rqF -e "$token" -e "$secret" "$home/added" "$home/published" "$home/config"; then
  echo "a secret leaked into the output or the settings" >&2
  exit 1
fi
store=$(grep -rlF "$token" "$home/data" "$home/config" 2>/dev/null || true)
test "$(wc -l <<<"$store")" -eq 1
test "$(stat -c %a "$store")" = 600
