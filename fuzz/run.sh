#!/usr/bin/env bash
# Runs every fuzz target for SECONDS (default 60) from the seed corpus, one after the other.
#   fuzz/run.sh BUILD_DIR [SECONDS]
# Findings land in BUILD_DIR/fuzz-findings/<target>/; the grown corpus in BUILD_DIR/fuzz-corpus/.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "${1:?usage: fuzz/run.sh BUILD_DIR [SECONDS]}" && pwd)"
seconds="${2:-60}"
for target in fuzz_task_file fuzz_encrypted_task_file fuzz_tagged_stream fuzz_classes_file \
              fuzz_nonwork_file fuzz_scrambling fuzz_runlet_start fuzz_queue_database \
              fuzz_door_calls fuzz_repeat_schedule fuzz_slurm_output fuzz_shell_words; do
  corpus="$build/fuzz-corpus/$target"
  findings="$build/fuzz-findings/$target"
  mkdir -p "$corpus" "$findings"
  cp -n "$here/corpus/$target/"* "$corpus/" 2>/dev/null || true
  echo "== $target ($seconds s)"
  "$build/bin/$target" -max_total_time="$seconds" -timeout=10 -max_len=65536 -rss_limit_mb=2048 \
      -artifact_prefix="$findings/" -print_final_stats=1 "$corpus" 2>&1 |
    grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|stat::average_exec_per_sec|stat::new_units_added|==[0-9]+==ERROR|SUMMARY|artifact_prefix|Test unit written)' || true
done
