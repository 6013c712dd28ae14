#!/usr/bin/env bash
# Builds everything into build/ (programs in build/bin/).
set -euo pipefail
cd "$(dirname "$0")/.."
type="${BUILD_TYPE:-RelWithDebInfo}"
extra=()
[ "${CI:-}" = "true" ] && extra+=(-DVQS_WERROR=ON)
cmake -S . -B build -DCMAKE_BUILD_TYPE="$type" "${extra[@]}" > build.log 2>&1 || { cat build.log; exit 1; }
cmake --build build -j"$(nproc)" 2>&1 | grep -vE '^\[ *[0-9]+%\]' || true
test "${PIPESTATUS[0]}" -eq 0
rm -f build.log
