#!/usr/bin/env bash
# Runs every fuzz_* program of a fuzz build directory in turn and stops at
# the first finding.
#   run-fuzz.sh BUILD_DIR seconds N   each target for N seconds (`make fuzz`)
#   run-fuzz.sh BUILD_DIR runs        each target for the fixed number of
#                                     inputs in fuzz/ci-runs.txt (`make fuzz-ci`)
# Seed inputs come from fuzz/corpus/<name>/ and are only read; new inputs go
# to BUILD_DIR/fuzz-corpus/<name>/ and findings to BUILD_DIR/fuzz-findings/.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$1"
mode="$2"
seconds="${3:-600}"
default_runs=100000

shopt -s nullglob
targets=("$build"/bin/fuzz_*)
if [ ${#targets[@]} -eq 0 ]; then
  echo "run-fuzz.sh: no fuzz_* programs in $build/bin" >&2
  exit 1
fi
mkdir -p "$build/fuzz-findings"
for program in "${targets[@]}"; do
  name="${program##*/fuzz_}"
  scratch="$build/fuzz-corpus/$name"
  mkdir -p "$scratch"
  corpora=("$scratch")
  [ -d "$root/fuzz/corpus/$name" ] && corpora+=("$root/fuzz/corpus/$name")
  if [ "$mode" = runs ]; then
    runs=$(awk -v n="$name" '$1 == n { print $2 }' "$root/fuzz/ci-runs.txt" 2>/dev/null)
    limit=(-runs="${runs:-$default_runs}")
  else
    limit=(-max_total_time="$seconds")
  fi
  echo "== fuzz_$name ${limit[*]}"
  # A single input that takes seconds is a hang, and a hang is a finding.
  UBSAN_OPTIONS=print_stacktrace=1 "$program" "${limit[@]}" -timeout=10 -print_final_stats=1 \
    -artifact_prefix="$build/fuzz-findings/$name-" "${corpora[@]}"
done
