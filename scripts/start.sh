#!/usr/bin/env bash
# Installs what is missing, builds the three programs, and starts the server without a window on
# the queue folder given with --queue-root, else the stored one, else ~/'$JQ' at a first start.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
mkdir -p build

# One line that follows the build: how many files it compiled, and which one it compiles now.
show_progress() {
  local count=0
  while IFS= read -r line; do
    if [[ $line =~ Building\ CXX\ object\ .*/([^/]+)\.o$ ]]; then
      count=$((count + 1))
      printf '\r  compiled %3d files, now %-40.40s' "$count" "${BASH_REMATCH[1]}"
    fi
  done
  printf '\r  compiled %3d files, done.%-40s\n' "$count" ""
}

echo "Building vqserv, runlet and vqctl into build/bin. A first build takes a few minutes;"
echo "its whole output goes to build/build.log."
if ! cmake -S . -B build -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" > build/configure.log 2>&1; then
  cat build/configure.log
  exit 1
fi
if ! cmake --build build -j"$(nproc)" --target vqserv runlet vqctl 2>&1 | tee build/build.log | show_progress; then
  grep -E -B2 -A8 'error|Error' build/build.log | head -60
  echo "The build failed: see build/build.log" >&2
  exit 1
fi
echo "Starting the server; it says below where its queue is and how to stop it."
exec build/bin/vqserv --headless "$@"
