#!/bin/sh
# Renders the log viewer, the queue folder dialog, the splash, the Properties window's pages,
# every page of the Options dialog, the About box and the support page to PNG files without a
# display, for a person to look at. Usage: scripts/render-dialogs.sh [BUILD_DIR] [OUT_DIR]
set -eu
build=${1:-build}
out=${2:-$build/render}
cmake --build "$build" --target render_dialogs
QT_QPA_PLATFORM=offscreen "$build/bin/render_dialogs" "$out"
