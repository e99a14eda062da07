#!/usr/bin/env bash
# Chunking a 2 GB stream of segments: memory must stay under 32 MB, and the copy
# must run at no less than 0.8 of cat's throughput on the same files.
#   bench/chunk/run.sh [build dir] [total MiB] [rounds]
# Both runs are timed alike by the shell, interleaved, and the best of each is taken:
# the machine is shared, and the best round is the one least disturbed.
set -euo pipefail
build=${1:-build}
total_mib=${2:-2048}
rounds=${3:-7}
segment_mib=6
bin="$build/bin/bench_chunk"
[ -x "$bin" ] || { echo "build bench_chunk first: cmake --build $build --target bench_chunk" >&2; exit 2; }

work=$(mktemp -d "${TMPDIR:-/tmp}/vorlen-chunk-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
stream="$work/package/v_1080"
mkdir -p "$stream"
head -c 900 /dev/urandom > "$stream/init.mp4"
count=$(( total_mib / segment_mib ))
# One random segment copied under every number: incompressible bytes, quick to set up.
head -c $(( segment_mib * 1048576 )) /dev/urandom > "$work/segment"
for n in $(seq 1 "$count"); do cp "$work/segment" "$stream/$n.m4s"; done
files=("$stream/init.mp4")
for n in $(seq 1 "$count"); do files+=("$stream/$n.m4s"); done
bytes=$(( 900 + count * segment_mib * 1048576 ))
echo "stream: $count segments, $bytes bytes"

# Prints "wall_s user_s sys_s max_rss_kb" (the chunker reports its own peak memory).
# Each run starts with no dirty pages of the last.
TIMEFORMAT="%R %U %S"
run_cat() {
  rm -f "$work/cat.out"; sync
  { time cat "${files[@]}" > "$work/cat.out"; } 2> "$work/time"
  echo "$(cat "$work/time") 0"
}
run_chunk() {
  rm -rf "$work/publish"; sync
  local line
  { time line=$("$bin" "$work/package" v_1080 "$work/publish"); } 2> "$work/time"
  echo "$(cat "$work/time") $(sed -E 's/.*max_rss_kb=([0-9]+).*/\1/' <<<"$line")"
}
calc() { awk "BEGIN { print $* }"; }

run_cat > /dev/null  # the same warm page cache for both
best_cat=999999; best_chunk=999999; max_rss=0
for round in $(seq 1 "$rounds"); do
  read -r cw cu cs _ < <(run_cat)
  read -r kw ku ks km < <(run_chunk)
  echo "round $round: cat wall_s=$cw cpu_s=$(calc "$cu + $cs") | chunk wall_s=$kw cpu_s=$(calc "$ku + $ks") max_rss_kb=$km"
  [ "$(calc "$cw < $best_cat")" = 1 ] && best_cat=$cw
  [ "$(calc "$kw < $best_chunk")" = 1 ] && best_chunk=$kw
  [ "$km" -gt "$max_rss" ] && max_rss=$km
done
cat_rate=$(calc "$bytes / $best_cat / 1048576")
chunk_rate=$(calc "$bytes / $best_chunk / 1048576")
printf 'cat_MiB_s=%.0f chunk_MiB_s=%.0f max_rss_MiB=%.1f\n' "$cat_rate" "$chunk_rate" "$(calc "$max_rss / 1024")"
printf 'throughput_ratio_vs_cat=%.3f (target >= 0.8) rss_under_32MiB=%s\n' \
  "$(calc "$chunk_rate / $cat_rate")" "$([ "$max_rss" -lt 32768 ] && echo yes || echo no)"
