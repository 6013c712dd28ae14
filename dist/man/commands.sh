#!/usr/bin/env bash
# Writes a help2man include with a COMMANDS section: the --help text of every command of a
# program and of the commands below them, so that the manual page lists each one in full.
# Usage: commands.sh PROGRAM OUTPUT
set -euo pipefail
program=$1
output=$2

# The names listed under "Subcommands:" in a help text.
subcommands() {
  awk '/^Subcommands:/ { inside = 1; next } inside && /^$/ { exit } inside { print $1 }'
}

# A help text as roff: headings in bold, each option or command as a tagged paragraph.
as_roff() {
  sed -e 's/\\/\\e/g' -e 's/-/\\-/g' -e "s/^\\([.']\\)/\\\\\\&\\1/" |
    awk '
      /^$/ { print ".PP"; next }
      /^Usage:/ { sub(/^Usage:/, "\\fBUsage:\\fR"); print ".br"; print; next }
      /^[^ ].*:$/ { print "\\fB" $0 "\\fR"; next }
      /^  [^ ]/ {
        line = substr($0, 3)
        gap = match(line, /   */)
        print ".TP"
        if (gap) { print substr(line, 1, gap - 1); print substr(line, gap + RLENGTH) }
        else print line
        next
      }
      { sub(/^ +/, ""); print }'
}

# One command's entry, then the entries of its own commands.
describe() {
  local help
  help=$("$program" "$@" --help)
  printf '.SS "%s"\n' "$(basename "$program") $*"
  as_roff <<< "$help"
  local name
  for name in $(subcommands <<< "$help"); do describe "$@" "$name"; done
}

{
  printf '[COMMANDS]\n'
  printf 'Each command prints the same text with \\fB\\-\\-help\\fR.\n'
  for name in $("$program" --help | subcommands); do describe "$name"; done
} > "$output.tmp"
mv "$output.tmp" "$output"
