#!/usr/bin/env bash
# The Secret Service store against a private gnome-keyring on a private session
# bus, in a fresh home: the person's own keyring is never touched.
set -euo pipefail
tests=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME=$home XDG_DATA_HOME=$home/data XDG_CONFIG_HOME=$home/config XDG_CACHE_HOME=$home/cache \
  XDG_RUNTIME_DIR=$home/run
VORLEN_PRIVATE_SECRET_SERVICE=1 "$(dirname "$0")/../../testing/with-keyring" "$tests" --gtest_filter="SecretStoreTest.SecretService*"
