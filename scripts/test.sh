#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test suite (on a session bus of its own).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
scripts/install-deps.sh
# The date and casing tests pin these locales; a test whose locale is missing fails and says so.
available=$(locale -a)
for name in en_US de_DE nl_NL en_GB tr_TR; do
  grep -qix "$name.utf8" <<< "$available" && continue
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo -n"
  $sudo localedef -i "$name" -f UTF-8 "$name.UTF-8" ||
    echo "could not make the locale $name.UTF-8: the tests that need it will fail" >&2
done
scripts/build.sh
export QT_QPA_PLATFORM=offscreen

# The Slurm tests run against a one-node cluster of this machine. One already running is used and
# left running; one started here is stopped again however the tests end.
if scripts/slurm-cluster.sh status >/dev/null 2>&1; then
  export VQS_SLURM_CLUSTER=1
elif scripts/slurm-cluster.sh start; then
  export VQS_SLURM_CLUSTER=1
  # The tests run from build/: the path is absolute, and a failed stop doesn't hide their result.
  trap '"$root"/scripts/slurm-cluster.sh stop || echo "The Slurm cluster could not be stopped." >&2' EXIT
else
  echo "The Slurm cluster could not be started (see above): the Slurm tests will be skipped." >&2
fi
export "$(scripts/slurm-cluster.sh env)"

cd build
dbus-run-session -- ctest --output-on-failure -j"$(nproc)" --timeout 300 "$@"
