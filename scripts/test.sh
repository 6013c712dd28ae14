#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test suite (on a session bus of its own).
set -euo pipefail
cd "$(dirname "$0")/.."
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
cd build
exec dbus-run-session -- ctest --output-on-failure -j"$(nproc)" --timeout 300 "$@"
