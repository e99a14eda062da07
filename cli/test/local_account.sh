# Sourced by the script tests that need the local Cloudflare account: starts it in a
# fresh work folder (stopped, and the folder removed, when the script ends; it dies
# with the script too), and gives `value NAME` for the lines that `start` printed and
# `in_home DIR COMMAND...` to run a command as a computer whose home is DIR.
# Expects `source_dir` to be set.
work=$(mktemp -d)
account_dir=$work/cloudflare
trap '"$source_dir/testing/cloudflare/stop" "$account_dir" >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
unset DBUS_SESSION_BUS_ADDRESS VORLEN_CLOUDFLARE_TOKEN VORLEN_SETUP_CODE VORLEN_R2_TOKEN

local_account=$(VORLEN_CLOUDFLARE_OWNER=$$ "$source_dir/testing/cloudflare/start" "$account_dir")
value() { sed -n "s/^$1=//p" <<<"$local_account" | head -1; }
export VORLEN_CLOUDFLARE_API=$(value api) VORLEN_R2_STORAGE=$(value r2)

in_home() {
  local home=$1; shift
  mkdir -p "$home"
  HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache \
    XDG_STATE_HOME=$home/state TMPDIR=$home "$@"
}
