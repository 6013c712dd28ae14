#!/usr/bin/env bash
# Builds everything into build/ (programs in build/bin/). Warnings are errors in CI.
set -euo pipefail
cd "$(dirname "$0")/.."
type="${BUILD_TYPE:-RelWithDebInfo}"
werror=OFF
[ "${CI:-}" = "true" ] && werror=ON
mkdir -p build
if ! cmake -S . -B build -DCMAKE_BUILD_TYPE="$type" -DVQS_WERROR="$werror" > build/configure.log 2>&1; then
  cat build/configure.log
  exit 1
fi
if ! cmake --build build -j"$(nproc)" > build/build.log 2>&1; then
  grep -E -B2 -A8 'error|Error' build/build.log | head -150
  echo "build failed: see build/build.log" >&2
  exit 1
fi
grep -E 'warning:' build/build.log | sort -u | head -40 || true
