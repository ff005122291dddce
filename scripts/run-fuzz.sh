#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan) and runs each for a
# bounded time, starting from its seed corpus in tests/fuzz/corpus/<target>;
# inputs the fuzzer finds go to build-fuzz/corpus, crashes to
# build-fuzz/artifacts. Fails on the first target that finds a crash, a leak
# or a non-finite saved state.
#   scripts/run-fuzz.sh [seconds per target]   (default 20; make fuzz-long: 600)
set -euo pipefail
cd "$(dirname "$0")/.."
SECONDS_PER_TARGET=${1:-20}
JOBS=$(nproc 2>/dev/null || echo 2)

if [ -z "${DISPLAY:-}" ] || ! xdpyinfo >/dev/null 2>&1; then
  . scripts/xvfb-env.sh
  trap stop_xvfb EXIT
fi
export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0"

CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPANOVIEW_SANITIZE=fuzz \
  -DPANOVIEW_TESTS=OFF -DPANOVIEW_BENCH=OFF >/dev/null
cmake --build build-fuzz -j"$JOBS" >/dev/null
mkdir -p build-fuzz/artifacts
for t in params frames state overlay; do
  mkdir -p "build-fuzz/corpus/$t"
  log="build-fuzz/fuzz_$t.log"
  # No leak check after each input: LeakSanitizer's stop of all threads
  # can crash while the display starts a render thread (a fault of the
  # tracer, not of the target); leaks are looked for once at the end, and
  # by the lifecycle test.
  if ! build-fuzz/fuzz/fuzz_$t -max_total_time="$SECONDS_PER_TARGET" -timeout=30 -rss_limit_mb=4096 -detect_leaks=0 \
      -print_final_stats=1 -artifact_prefix="build-fuzz/artifacts/$t-" \
      "build-fuzz/corpus/$t" "tests/fuzz/corpus/$t" >"$log" 2>&1; then
    tail -n 60 "$log"
    echo "fuzz_$t: FOUND A FAULT (input in build-fuzz/artifacts/)"
    exit 1
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  echo "fuzz_$t: ${runs:-?} inputs in ${SECONDS_PER_TARGET} s, no fault"
done
