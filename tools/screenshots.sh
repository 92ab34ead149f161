#!/usr/bin/env bash
# Takes the pictures of the exporter's windows in docs/ on a virtual display.
# Run from the source tree after building: tools/screenshots.sh [BUILD_DIR]
set -euo pipefail
build="${1:-build}"
cmake --build "$build" --target window_shots
xvfb-run -a -s "-screen 0 1280x1024x24" "$build/window_shots" docs
