# Shared by the fake Slurm programs: each call is one line of $FAKE_SLURM_LOG (the program and
# its arguments, tab-separated), and the answers come from files in $FAKE_SLURM_STATE.
log_call() {
  program=$(basename "$0")
  line="$program"
  for argument in "$@"; do line="$line	$argument"; done
  printf '%s\n' "$line" >> "$FAKE_SLURM_LOG"
}
# The content of a state file, or the default given.
state() { if [ -f "$FAKE_SLURM_STATE/$1" ]; then cat "$FAKE_SLURM_STATE/$1"; else printf '%s' "$2"; fi; }
set_state() { printf '%s' "$2" > "$FAKE_SLURM_STATE/$1"; }
# A refusal asked for by the test: refuse-NAME holds Slurm's message.
refuse_if_asked() {
  if [ -f "$FAKE_SLURM_STATE/refuse-$1" ]; then cat "$FAKE_SLURM_STATE/refuse-$1" >&2; exit 1; fi
}
