#!/usr/bin/env bash
# Regenerates docs/views.png and docs/views-200.png, the README's pictures of
# the views: the demo host plays the built-in scene in each view and puts the
# snapshots side by side, labelled; the second through a 200-degree lens.
# Runs on Xvfb when there is no X display.
set -euo pipefail
cd "$(dirname "$0")/.."
JOBS=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$JOBS" --target panoview-play Panoview >/dev/null
. scripts/xvfb-env.sh
trap stop_xvfb EXIT
mkdir -p docs
./build/panoview-play --contact-sheet docs/views.png --window 288x162 --frames 30 "$@"
./build/panoview-play --contact-sheet docs/views-200.png --window 288x162 --frames 30 --fov 200 "$@"
