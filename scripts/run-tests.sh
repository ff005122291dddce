#!/usr/bin/env bash
# Builds the library and the tests under the sanitizers and runs the suite:
# the threading tests under ThreadSanitizer, a bounded run of each fuzz
# target (clang, libFuzzer, ASan + UBSan; PANOVIEW_FUZZ_SECONDS a target,
# default 20), then everything under AddressSanitizer +
# UndefinedBehaviorSanitizer. Ends with ctest's summary.
set -euo pipefail
cd "$(dirname "$0")/.."
JOBS=$(nproc 2>/dev/null || echo 2)

. scripts/xvfb-env.sh
trap stop_xvfb EXIT

# Mesa's driver leaves a few bytes behind when it is unloaded; that is the
# driver's, not ours.
export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp:halt_on_error=1:second_deadlock_stack=1"

configure() { # dir sanitizer
  cmake -S . -B "$1" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPANOVIEW_SANITIZE="$2" -DPANOVIEW_BENCH=OFF >/dev/null
}

echo "== ThreadSanitizer build: threading tests"
configure build-tsan thread
cmake --build build-tsan -j"$JOBS" >/dev/null
(cd build-tsan && ctest -L threads -j"$JOBS" --output-on-failure)

echo "== Fuzz targets: ${PANOVIEW_FUZZ_SECONDS:-20} s each"
bash scripts/run-fuzz.sh "${PANOVIEW_FUZZ_SECONDS:-20}"

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build: whole suite"
configure build-asan address
cmake --build build-asan -j"$JOBS" >/dev/null
cd build-asan && ctest -j"$JOBS" --output-on-failure
