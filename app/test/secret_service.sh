#!/usr/bin/env bash
# The Secret Service store against a private gnome-keyring on a private session
# bus, in a fresh home: the person's own keyring is never touched.
set -euo pipefail
tests=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME=$home XDG_DATA_HOME=$home/data XDG_CONFIG_HOME=$home/config XDG_CACHE_HOME=$home/cache \
  XDG_RUNTIME_DIR=$home/run
mkdir -p -m 700 "$XDG_RUNTIME_DIR"
exec dbus-run-session -- bash -c '
  set -euo pipefail
  # A login keyring made and unlocked with a throwaway password, run in the
  # foreground so that it ends by its own PID.
  printf "throwaway" | gnome-keyring-daemon --foreground --unlock --components=secrets >/dev/null 2>&1 &
  keyring=$!
  trap "kill $keyring 2>/dev/null || true" EXIT
  for _ in $(seq 1 100); do
    dbus-send --session --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.NameHasOwner \
      string:org.freedesktop.secrets 2>/dev/null | grep -q "boolean true" && break
    sleep 0.1
  done
  VORLEN_PRIVATE_SECRET_SERVICE=1 "$1" --gtest_filter="SecretStoreTest.SecretService*"
' bash "$tests"
