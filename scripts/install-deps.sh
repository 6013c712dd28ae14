#!/usr/bin/env bash
# Installs the packages that building, running and testing need, when any is missing.
set -euo pipefail
# The fuzz targets also need clang (see fuzz/CMakeLists.txt); building and testing don't.
# help2man makes the manual pages; man-db, desktop-file-utils and systemd (systemd-analyze) let
# the install test read the pages and check the desktop entry and the user unit. Slurm and munge
# make the one-node cluster of the Slurm tests (scripts/slurm-cluster.sh; procps for its stop).
packages=(cmake make g++ qt6-base-dev libsqlite3-dev libcli11-dev libgtest-dev libgmock-dev
          libbenchmark-dev nlohmann-json3-dev dbus locales tzdata help2man man-db
          desktop-file-utils systemd slurmctld slurmd slurm-client munge procps)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
echo "Installing: ${missing[*]}"
$sudo apt-get update -q
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q "${missing[@]}"
