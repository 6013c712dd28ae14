#!/usr/bin/env bash
# Soak: keeps a queue busy with short tasks handed in through vqctl and kills the server with
# SIGKILL at random moments, restarting it each time. At the end every task whose submission
# was answered with a key must be in the queue exactly once, and no load may have needed a
# recovery. Not part of the test suite; it takes a few minutes.
#   scripts/soak-kill.sh [ROUNDS] [BUILD_DIR]
set -euo pipefail
rounds="${1:-100}"
bin="$(cd "${2:-$(dirname "$0")/../build}" && pwd)/bin"
work="$(mktemp -d /tmp/vqsoak.XXXXXX)"
trap 'kill $(jobs -p) 2>/dev/null || true; wait 2>/dev/null || true' EXIT
export XDG_CONFIG_HOME="$work/cfg" HOME="$work/home" VQS_TICK_MS=50 LC_ALL=C
export DBUS_SESSION_BUS_ADDRESS="unix:path=$work/bus"
root="$work/queue/"
mkdir -p "$HOME"
dbus-daemon --session --nofork --address="$DBUS_SESSION_BUS_ADDRESS" 2>/dev/null &
until [ -S "$work/bus" ]; do sleep 0.05; done
# Finished tasks stay for a day, so that every one can be counted at the end.
"$bin/vqctl" config set ServerSettings TIQH 24 >/dev/null

start_server() {
  "$bin/vqserv" --headless --queue-root "$root" >>"$work/server.err" 2>&1 &
  server=$!
  until "$bin/vqctl" location >/dev/null 2>&1; do sleep 0.02; done
}

# Hands in tasks one after the other; a key printed is a submission answered true.
submitter() {
  local round=$1 n=0
  while :; do
    local name="soak-$round-$n"
    "$bin/vqctl" new-task --name "$name" --step true --step 'exit 3' --step true --rc 4 \
        "$work/$name.vqf" >/dev/null
    if key=$("$bin/vqctl" submit "$work/$name.vqf" 2>/dev/null); then echo "$key" >>"$work/accepted"; fi
    rm -f "$work/$name.vqf"
    n=$((n + 1))
  done
}

: >"$work/accepted"
begin=$(date +%s)
for round in $(seq 1 "$rounds"); do
  start_server
  submitter "$round" &
  sub=$!
  sleep "0.$((RANDOM % 9 + 1))$((RANDOM % 10))"
  kill -KILL "$server"
  wait "$server" 2>/dev/null || true
  kill "$sub" 2>/dev/null || true
  wait "$sub" 2>/dev/null || true
done
start_server
kill -TERM "$server"
wait "$server" || true
elapsed=$(( $(date +%s) - begin ))

accepted=$(sort -u "$work/accepted" | wc -l)
lost=0 doubled=0
while read -r key; do
  name="${key#*-}"
  found=$({ grep -o "[0-9]\{6\}-$name\b" "$root\$Data/Jobs.dat" 2>/dev/null || true; } | sort -u | wc -l)
  if [ "$found" -eq 0 ]; then lost=$((lost + 1)); echo "lost: $key"; fi
  if [ "$found" -gt 1 ]; then doubled=$((doubled + 1)); echo "doubled: $key"; fi
done < <(sort -u "$work/accepted")
recoveries=$(grep -c -e "Error occurred while loading the Orvantis Server Queue Database" \
                     -e "There are no backup files" "$root\$Data/SrvLog.txt" 2>/dev/null || true)
echo "rounds: $rounds in ${elapsed}s; submissions answered true: $accepted; lost: $lost; doubled: $doubled; failed loads: ${recoveries:-0}"
if [ "$lost" -eq 0 ] && [ "$doubled" -eq 0 ] && [ "${recoveries:-0}" -eq 0 ]; then
  rm -rf "$work"
else
  echo "work folder kept: $work"
  exit 1
fi
