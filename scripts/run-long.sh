#!/usr/bin/env bash
# The opt-in long runs of the lifecycle test:
#   run-long.sh lifecycle   1,000 cycles under ASan + UBSan (PANOVIEW_CYCLES to change)
#   run-long.sh valgrind    a short run under valgrind's memcheck, with the
#                           suppressions of Mesa's own noise (tests/valgrind-mesa.supp)
set -euo pipefail
cd "$(dirname "$0")/.."
JOBS=$(nproc 2>/dev/null || echo 2)
. scripts/xvfb-env.sh
trap stop_xvfb EXIT

case "${1:-}" in
lifecycle)
  export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
  cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPANOVIEW_SANITIZE=address -DPANOVIEW_BENCH=OFF >/dev/null
  cmake --build build-asan -j"$JOBS" --target test_gl_lifecycle >/dev/null
  PANOVIEW_CYCLES=${PANOVIEW_CYCLES:-1000} build-asan/tests/test_gl_lifecycle
  ;;
valgrind)
  cmake -S . -B build-plain -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPANOVIEW_BENCH=OFF >/dev/null
  cmake --build build-plain -j"$JOBS" --target test_gl_lifecycle >/dev/null
  PANOVIEW_CYCLES=${PANOVIEW_CYCLES:-3} PANOVIEW_WARMUP=${PANOVIEW_WARMUP:-2} \
    valgrind --tool=memcheck --leak-check=full --errors-for-leak-kinds=definite --error-exitcode=1 \
    --suppressions=tests/valgrind-mesa.supp build-plain/tests/test_gl_lifecycle
  ;;
*)
  echo "usage: $0 lifecycle|valgrind" >&2
  exit 2
  ;;
esac
