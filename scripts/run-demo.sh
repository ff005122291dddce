#!/usr/bin/env bash
# Builds the library and the demo host and runs it. With a usable X display
# the demo opens a window; without one it runs on Xvfb and writes PNG
# snapshots instead. Arguments go to panoview-play.
set -euo pipefail
cd "$(dirname "$0")/.."
JOBS=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$JOBS" --target panoview-play Panoview

if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
  exec ./build/panoview-play "$@"
fi

. scripts/xvfb-env.sh
trap stop_xvfb EXIT
mkdir -p out
echo "No X display: running on Xvfb ($DISPLAY), snapshots go to $PWD/out/"
./build/panoview-play --headless --outdir out "$@"
