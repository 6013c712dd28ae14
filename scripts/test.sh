#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test suite (on a session bus of its own).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
export QT_QPA_PLATFORM=offscreen
cd build
exec dbus-run-session -- ctest --output-on-failure -j"$(nproc)" --timeout 300 "$@"
