# Sourced by the command line's tests of R2 sites. Needs $home (a fresh HOME),
# $source_dir and $vorlen. A real S3 server (RADOS Gateway) that knows only the
# S3 keys that follow from a fresh R2 API Token, a bucket "videos" in it, and
# botocore to look into it: `s3 list PREFIX`, `s3 get KEY`, `s3 head KEY` (the
# object's headers as JSON), and `s3 put KEY FILE` to seed it.

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
import json, os, sys, botocore.session, botocore.config
client = botocore.session.get_session().create_client(
    "s3", endpoint_url=os.environ["S3_ENDPOINT"], region_name="us-east-1",
    aws_access_key_id=os.environ["S3_KEY"], aws_secret_access_key=os.environ["S3_SECRET"],
    config=botocore.config.Config(s3={"addressing_style": "path"}))
action = sys.argv[1]
if action == "create":
    client.create_bucket(Bucket="videos")
elif action == "put":
    client.put_object(Bucket="videos", Key=sys.argv[2], Body=open(sys.argv[3], "rb").read())
elif action == "get":
    sys.stdout.write(client.get_object(Bucket="videos", Key=sys.argv[2])["Body"].read().decode())
elif action == "head":
    head = client.head_object(Bucket="videos", Key=sys.argv[2])
    print(json.dumps({"type": head["ContentType"], "cache": head["CacheControl"], "metadata": head["Metadata"]}))
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
