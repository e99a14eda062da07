# Sourced by the command line's tests of R2 sites. Needs $home (a fresh HOME),
# $source_dir and $vorlen. A real S3 server (RADOS Gateway) that knows only the
# S3 keys that follow from a fresh R2 API Token, a bucket "videos" in it, and
# `s3 list PREFIX` to look into it with botocore.

export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache TMPDIR=$home
unset VORLEN_ACCESS_KEY_ID VORLEN_SECRET_ACCESS_KEY

token=$(python3 -c 'import secrets; print(secrets.token_urlsafe(30))')
token_id=$(python3 -c 'import secrets; print(secrets.token_hex(16))')
secret=$(printf %s "$token" | sha256sum | cut -d' ' -f1)
rgw_dir=$home/rgw
mkdir -p "$rgw_dir"
trap '"$source_dir/testing/rgw" stop "$rgw_dir" >/dev/null 2>&1 || true; rm -rf "$home"' EXIT
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

# Adds the site with the token's value alone; prints the site's ID.
add_site() {
  VORLEN_R2_TOKEN=$token "$vorlen" sites add-r2 --account test --bucket videos --token-id "$token_id" \
    --media-host media.example.com --page-host videos.example.com --path library --endpoint "$endpoint" \
    > "$home/added" 2>&1
  sed -n 's/^Added the site \xe2\x80\x9c\(.*\)\xe2\x80\x9d.$/\1/p' "$home/added"
}
