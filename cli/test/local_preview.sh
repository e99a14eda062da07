# Sourced by the script tests that serve the local site: `start_preview` runs
# `vorlen preview` on a free loopback port (in `port`) and returns once it serves;
# `stop_preview` ends it by its PID, and the script's EXIT trap should call it too.
# Expects `vorlen` and `home` to be set.
preview=
start_preview() {
  port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  "$vorlen" preview --port "$port" > "$home/preview" 2>&1 &
  preview=$!
  for _ in $(seq 1 300); do
    grep -q '^Serving' "$home/preview" && return
    kill -0 "$preview" 2>/dev/null || break
    sleep 0.1
  done
  cat "$home/preview" >&2
  return 1
}
stop_preview() {
  if [[ -n $preview ]]; then kill -TERM "$preview" 2>/dev/null || true; wait "$preview" || true; fi
  preview=
}
