#!/bin/sh
# Builds the fuzz targets with clang and fuzzes each decoder for a bounded time, as CI does:
#   fuzz/ci.sh [seconds per target, default 20] [build folder, default build-fuzz]
# Needs Debian's clang package. Fails when any target finds a crash, a hang or an allocation
# over 1 GiB; the inputs are left in <build>/fuzz-findings/.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-20}
build=${2:-build-fuzz}
command -v clang++ >/dev/null 2>&1 || {
  echo "fuzz/ci.sh: clang++ is missing: install the Debian package clang" >&2
  exit 2
}
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DPICTAVO_FUZZ=ON -DPICTAVO_BUILD_TESTS=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --target fuzz_all
# Every kept regression first, through its own decoder and the whole load path.
for dir in fuzz/regressions/*/; do
  codec=$(basename "$dir")
  for bin in "$build/fuzz/fuzz_$codec" "$build/fuzz/fuzz_io"; do
    "$bin" -malloc_limit_mb=1024 -timeout=10 "$dir"* >/dev/null 2>&1 || {
      echo "fuzz/ci.sh: $bin fails on a kept regression in $dir" >&2
      exit 1
    }
  done
done
fuzz/run_fuzzers.sh "$build" "$seconds" "${PICTAVO_CORPUS:-../shared/corpus}"
