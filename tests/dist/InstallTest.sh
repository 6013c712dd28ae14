#!/usr/bin/env bash
# Installs the build into a temporary prefix (with a blank in its name) and checks what lands
# there: the programs run from there and find each other, the manual pages read, the completion
# completes, and the unit and the desktop entry are valid and name the installed vqserv.
# Usage: InstallTest.sh BUILD_DIR VERSION [CMAKE]
set -uo pipefail
build=$1
version=$2
cmake=${3:-cmake}
work=$(mktemp -d "${TMPDIR:-/tmp}/vqinstall.XXXXXX")
prefix="$work/pre fix"
failures=0
pids=()
cleanup() {
  local pid
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; done
  wait 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

fail() { echo "FAILED: $*" >&2; failures=$((failures + 1)); }
skip() { echo "SKIPPED: $*"; }
# expect TEXT PATTERN WHAT: TEXT holds the fixed string PATTERN.
expect() { grep -qF -- "$2" <<< "$1" || fail "$3: no \"$2\" in: ${1:0:400}"; }

"$cmake" --install "$build" --prefix "$prefix" > "$work/install.log" 2>&1 || { cat "$work/install.log"; exit 1; }

# What lands where.
for file in bin/vqserv bin/runlet bin/vqctl share/man/man1/vqserv.1 share/man/man1/vqctl.1 \
    share/bash-completion/completions/vqctl lib/systemd/user/orvantis-server.service \
    share/applications/orvantis-server.desktop share/icons/hicolor/scalable/apps/orvantis-server.svg; do
  [ -f "$prefix/$file" ] || fail "$file was not installed"
done

# The programs run from there.
expect "$("$prefix/bin/vqserv" --version)" "Orvantis Personal Server $version" "vqserv --version"
if "$prefix/bin/vqctl" --help | grep -q -- "--version"; then
  expect "$("$prefix/bin/vqctl" --version)" "$version" "vqctl --version"
else
  "$prefix/bin/vqctl" --help > /dev/null || fail "vqctl --help"
  skip "vqctl has no --version: its --help was run instead"
fi

# The manual pages: readable, without warnings, and the client's lists every command.
if command -v man > /dev/null; then
  for page in vqserv vqctl; do
    text=$(LC_ALL=C MANWIDTH=80 man --warnings -l "$prefix/share/man/man1/$page.1" 2> "$work/man.err")
    [ -s "$work/man.err" ] && fail "$page.1 has warnings: $(cat "$work/man.err")"
    expect "$text" "$page - " "$page.1's name line"
  done
  commands=$("$prefix/bin/vqctl" --help | awk '/^Subcommands:/ { on = 1; next } on && /^$/ { exit } on { print $1 }')
  [ -n "$commands" ] || fail "vqctl --help lists no commands"
  for command in $commands; do
    grep -qx "   vqctl $command" <<< "$text" || fail "vqctl.1 has no heading for the command $command"
  done
else
  skip "man is not installed: the manual pages were not read"
fi

# The completion sources cleanly and completes commands, options, and task keys from the server.
# The keys come from a vqctl that answers `status --keys` as the server would.
cat > "$work/vqctl" <<FAKE
#!/usr/bin/env bash
[ "\$*" = "status --keys" ] && exec printf '000001-Hello\n000002-World\n000010-Other\n'
exec "$prefix/bin/vqctl" "\$@"
FAKE
chmod +x "$work/vqctl"
completion=$(bash --norc -c '
  source "$1" || exit 1
  complete -p vqctl > /dev/null || exit 1
  complete_line() {
    COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _vqctl
    echo "${COMP_WORDS[*]:1} => ${COMPREPLY[*]}"
  }
  complete_line "$2" sub
  complete_line "$2" config ""
  complete_line "$2" new-task --name X --st
  complete_line "$3" hold 00000
  complete_line "$3" info 000001
  complete_line "$3" submit "$4/pre"
' completion "$prefix/share/bash-completion/completions/vqctl" "$prefix/bin/vqctl" "$work/vqctl" "$work" 2>&1)
for line in "sub => submit" "config  => get set list" "new-task --name X --st => --step" \
    "hold 00000 => 000001-Hello 000002-World" "info 000001 => 000001-Hello" "=> $prefix"; do
  expect "$completion" "$line" "completion"
done

# The unit and the desktop entry name the installed server.
unit="$prefix/lib/systemd/user/orvantis-server.service"
entry="$prefix/share/applications/orvantis-server.desktop"
expect "$(cat "$unit")" "ExecStart=\"$prefix/bin/vqserv\" --headless" "the unit"
expect "$(cat "$entry")" "Exec=\"$prefix/bin/vqserv\"" "the desktop entry"
if command -v systemd-analyze > /dev/null; then
  mkdir -m 700 "$work/runtime"
  verdict=$(MANPATH="$prefix/share/man" XDG_RUNTIME_DIR="$work/runtime" systemd-analyze --user verify "$unit" 2>&1) ||
    fail "systemd-analyze verify: $verdict"
  [ -n "$verdict" ] && fail "systemd-analyze verify complains: $verdict"
else
  skip "systemd-analyze is not installed: the unit was not verified"
fi
if command -v desktop-file-validate > /dev/null; then
  verdict=$(desktop-file-validate "$entry" 2>&1) || fail "desktop-file-validate: $verdict"
else
  skip "desktop-file-validate is not installed: the desktop entry was not validated"
fi

# The installed server, on a bus of its own, runs a step with the runlet beside it and writes
# the start at logon to name itself.
export HOME="$work/home" XDG_CONFIG_HOME="$work/config" VQS_TICK_MS=50 LC_ALL=C
export DBUS_SESSION_BUS_ADDRESS="unix:path=$work/bus"
mkdir -p "$HOME"
dbus-daemon --session --nofork --address="$DBUS_SESSION_BUS_ADDRESS" 2> /dev/null & pids+=($!)
"$prefix/bin/vqctl" config set ServerSettings StartServ 1 || fail "vqctl config set"
"$prefix/bin/vqserv" --headless --queue-root "$work/queue" LOGON 2> "$work/server.err" & server=$!
pids+=("$server")
wait_for() {
  local i
  for ((i = 0; i < 100; i++)); do "$@" && return 0; sleep 0.1; done
  return 1
}
wait_for "$prefix/bin/vqctl" location > /dev/null 2>&1 || fail "the installed server does not answer: $(cat "$work/server.err")"
expect "$(cat "$XDG_CONFIG_HOME/autostart/orvantis-server.desktop")" \
  "Exec=\"$prefix/bin/vqserv\" LOGON" "the autostart entry"
# The step's shell names the program that started it: the runner.
"$prefix/bin/vqctl" new-task --name Hello --step 'echo "runner: $(readlink /proc/$PPID/exe)"' \
  "$work/Hello.vqf" > /dev/null || fail "vqctl new-task"
key=$("$prefix/bin/vqctl" submit "$work/Hello.vqf") || fail "vqctl submit"
output="$work/queue/\$LOCALS\$/\$LOCALUSER\$/Hello/${key%%-*}/Step1.txt"
wait_for grep -q "runner: " "$output" 2> /dev/null ||
  fail "the step did not run: $(cat "$work/queue/\$Data/SrvLog.txt")"
expect "$(cat "$output")" "runner: $prefix/bin/runlet" "the step's runner"
kill -TERM "$server"
wait "$server" || fail "the server did not end cleanly: $(cat "$work/server.err")"

[ "$failures" -eq 0 ] && echo "Everything installed is in place."
exit $((failures > 0))
