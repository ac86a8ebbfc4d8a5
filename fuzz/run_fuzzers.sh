#!/bin/sh
# Runs every fuzz target for a bounded time, seeded from the sample corpus and fuzz/seeds/.
#   fuzz/run_fuzzers.sh <fuzz build folder> [seconds per target] [corpus folder] [targets...]
# PICTAVO_FUZZ_TIMEOUT (seconds, default 10) is the hang limit per input; it is wall time, so raise
# it when the targets run at low priority beside other work.
# Crashes, hangs and over-large allocations are written to <build>/fuzz-findings/<target>/;
# after fixing one, keep the (minimised) input in fuzz/regressions/<codec>/ under a name that
# says what was wrong.
set -eu
build=${1:?fuzz build folder}
seconds=${2:-60}
corpus=${3:-$(dirname "$0")/../../shared/corpus}
shift $(( $# < 3 ? $# : 3 ))
targets=${*:-"jpeg png tiff gif bmp pcx tga ico pnm qoi psd webp jp2 io psp dst pat raw settings registry language list pages names actions"}

# Sample files per target, by extension (small ones only: they make quicker seeds).
exts() {
  case "$1" in
    jpeg) echo "jpg jpeg" ;; tiff) echo "tif tiff" ;; pnm) echo "pbm pgm ppm pam pnm" ;;
    jp2) echo "jp2 j2k jpc" ;; ico) echo "ico cur" ;;
    io) echo "jpg png tif gif bmp pcx tga ico ppm qoi psd webp jp2" ;;
    settings) echo "cfg" ;; language) echo "lng" ;; list) echo "lst" ;; actions) echo "act" ;;
    registry|pages|names|psp|dst|pat|raw) echo "" ;;
    *) echo "$1" ;;
  esac
}

status=0
for t in $targets; do
  bin="$build/fuzz/fuzz_$t"
  [ -x "$bin" ] || { echo "missing $bin" >&2; status=1; continue; }
  seeds="$build/fuzz-seeds/$t"; work="$build/fuzz-work/$t"; found="$build/fuzz-findings/$t"
  mkdir -p "$seeds" "$work" "$found"
  for e in $(exts "$t"); do
    find "$corpus" -type f -iname "*.$e" -size -200k -exec cp -n {} "$seeds/" \; 2>/dev/null || true
  done
  # Formats without sample files in the corpus have seeds of their own here.
  [ -d "$(dirname "$0")/seeds/$t" ] && cp -n "$(dirname "$0")/seeds/$t/"* "$seeds/" || true
  echo "== fuzz_$t for ${seconds}s ($(ls "$seeds" | wc -l) seeds)"
  if ! "$bin" "$work" "$seeds" -max_total_time="$seconds" -timeout="${PICTAVO_FUZZ_TIMEOUT:-10}" -rss_limit_mb=2048 \
       -malloc_limit_mb=1024 -max_len=65536 -artifact_prefix="$found/" -print_final_stats=1 \
       > "$build/fuzz-findings/$t.log" 2>&1; then
    echo "   FOUND: see $build/fuzz-findings/$t.log and $found/"
    status=1
  fi
  grep -E "^stat::number_of_executed_units|^stat::peak_rss_mb" "$build/fuzz-findings/$t.log" || true
done
exit $status
