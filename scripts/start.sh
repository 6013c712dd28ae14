#!/usr/bin/env bash
# Installs what is missing, builds, and starts the server without a window on the queue folder
# given with --queue-root, else the stored one, else $HOME/$JQ.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
exec build/bin/vqserv --headless "$@"
