#!/bin/sh
# Renders the main window over a sample queue of twenty tasks to a PNG, without a display.
# Usage: scripts/render-window.sh [BUILD_DIR] [OUTPUT.png] [WIDTH HEIGHT]
set -e
build=${1:-build}
out=${2:-$build/main-window.png}
cmake --build "$build" --target vqrenderwindow -j2 >/dev/null
QT_QPA_PLATFORM=offscreen "$build/bin/vqrenderwindow" "$out" ${3:-1024} ${4:-640}
echo "$out"
