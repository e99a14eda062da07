#!/usr/bin/env bash
# Chunking a 2 GB stream of segments: memory must stay under 32 MB, and the copy
# must run at no less than 0.8 of cat's throughput on the same files.
#   bench/chunk/run.sh [build dir] [total MiB]
set -euo pipefail
build=${1:-build}
total_mib=${2:-2048}
segment_mib=6
bin="$build/bin/bench_chunk"
[ -x "$bin" ] || { echo "build bench_chunk first: cmake --build $build --target bench_chunk" >&2; exit 2; }

work=$(mktemp -d "${TMPDIR:-/tmp}/vorlen-chunk-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
stream="$work/package/v_1080"
mkdir -p "$stream"
head -c 900 /dev/urandom > "$stream/init.mp4"
count=$(( total_mib / segment_mib ))
# One random segment copied under every number: the bytes are incompressible, the setup is quick.
head -c $(( segment_mib * 1048576 )) /dev/urandom > "$work/segment"
for n in $(seq 1 "$count"); do cp "$work/segment" "$stream/$n.m4s"; done
files=("$stream/init.mp4")
for n in $(seq 1 "$count"); do files+=("$stream/$n.m4s"); done
bytes=$(( 900 + count * segment_mib * 1048576 ))
echo "stream: $count segments, $bytes bytes"

now() { date +%s.%N; }
run_cat() {
  rm -f "$work/cat.out"
  local start end
  start=$(now); cat "${files[@]}" > "$work/cat.out"; end=$(now)
  echo "$end - $start" | bc -l
}
run_chunk() {
  rm -rf "$work/publish"
  "$bin" "$work/package" v_1080 "$work/publish"
}

run_cat > /dev/null  # warm the page cache for both
best_cat=""
best_chunk=""
max_rss=0
for round in 1 2 3; do
  c=$(run_cat)
  line=$(run_chunk)
  k=$(sed -E 's/.*chunk_s=([0-9.]+).*/\1/' <<<"$line")
  rss=$(sed -E 's/.*max_rss_kb=([0-9]+).*/\1/' <<<"$line")
  echo "round $round: cat_s=$c $line"
  [ -z "$best_cat" ] || [ "$(echo "$c < $best_cat" | bc -l)" = 1 ] && best_cat=$c
  [ -z "$best_chunk" ] || [ "$(echo "$k < $best_chunk" | bc -l)" = 1 ] && best_chunk=$k
  [ "$rss" -gt "$max_rss" ] && max_rss=$rss
done
cat_rate=$(echo "$bytes / $best_cat / 1048576" | bc -l)
chunk_rate=$(echo "$bytes / $best_chunk / 1048576" | bc -l)
printf 'cat_MiB_s=%.1f chunk_MiB_s=%.1f max_rss_MiB=%.1f\n' "$cat_rate" "$chunk_rate" "$(echo "$max_rss / 1024" | bc -l)"
printf 'throughput_ratio_vs_cat=%.3f (target >= 0.8) rss_under_32MiB=%s\n' \
  "$(echo "$chunk_rate / $cat_rate" | bc -l)" "$([ "$max_rss" -lt 32768 ] && echo yes || echo no)"
