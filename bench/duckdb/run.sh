#!/usr/bin/env bash
# The DuckDB extension end to end, in the same run and on the same 1M-row
# CSV (and a Parquet file made from it): `txscan sql` with three computed
# columns written back as CSV, against DuckDB's nearest built-ins in the same
# query shape (instr on the lowered text, regexp_extract, the length of a
# regexp_replace, string_split) and against `txscan apply`, on 1 and 2
# threads. Each figure is the median CPU time (user + system) of ROUNDS runs;
# one thread runs pinned to core 0. Ratios are to the extension.
#   bench/duckdb/run.sh [TXSCAN] [ROWS] [ROUNDS]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
txscan=$(realpath "${1:-build-bench/bin/txscan}")
rows=${2:-1000000}
rounds=${3:-3}
scratch=${TXSCAN_BENCH_DIR:-${TMPDIR:-/tmp}/txscan-bench-duckdb}
. "$here/../sample_input.sh"
sample_input "$scratch" "$rows"
input=$scratch/people.csv
parquet=$scratch/people.parquet
"$txscan" sql -o "$parquet" "SELECT * FROM read_csv('$input', all_varchar = true)"

# The three columns: the last word of the name, the word count of the
# comment, the caseless position of "street" in the address.
ours="kscanx(name, -1) AS surname, kcountw(comment) AS words, kfind(address, 'street', 'i') AS street"
builtin="regexp_extract(name, '(\\S+)\\s*\$', 1) AS surname, \
length(regexp_replace(trim(comment), '\\S+', 'x', 'g')) - length(replace(regexp_replace(trim(comment), '\\S+', 'x', 'g'), 'x', '')) AS words, \
instr(lower(address), 'street') AS street"
split="string_split(trim(name), ' ')[-1] AS surname, len(string_split_regex(trim(comment), '\\s+')) AS words, \
instr(lower(address), 'street') AS street"

# Median CPU seconds of a command over the rounds.
cpu() {
    local samples=()
    for _ in $(seq "$rounds"); do
        /usr/bin/time -f "%U %S" -o "$scratch/time" "$@" >/dev/null 2>"$scratch/err" || {
            echo "failed: $*" >&2
            cat "$scratch/err" >&2
            exit 1
        }
        samples+=("$(awk '{printf "%.3f", $1 + $2}' "$scratch/time")")
    done
    printf '%s\n' "${samples[@]}" | sort -n | awk '{a[NR] = $1} END {print a[int((NR + 1) / 2)]}'
}

sql() {   # threads, source, columns
    local pin=()
    [ "$1" = 1 ] && pin=(taskset -c 0)
    cpu "${pin[@]}" "$txscan" sql --threads "$1" -o "$scratch/out.csv" "SELECT *, $3 FROM $2"
}

printf '%-8s %-7s %-34s %10s %8s\n' source threads job cpu_s ratio
for threads in 1 2; do
    for source in csv parquet; do
        if [ "$source" = csv ]; then from="read_csv('$input', all_varchar = true)"; else from="'$parquet'"; fi
        base=$(sql "$threads" "$from" "$ours")
        printf '%-8s %-7s %-34s %10s %8s\n' "$source" "$threads" "txscan sql (extension)" "$base" 1.00
        for job in builtin split; do
            columns=$builtin
            label="DuckDB regexp_extract/replace+instr"
            [ "$job" = split ] && columns=$split && label="DuckDB string_split+instr"
            t=$(sql "$threads" "$from" "$columns")
            printf '%-8s %-7s %-34s %10s %8.2f\n' "$source" "$threads" "$label" "$t" "$(awk -v t="$t" -v b="$base" 'BEGIN {print t / b}')"
        done
        if [ "$source" = csv ]; then
            pin=()
            [ "$threads" = 1 ] && pin=(taskset -c 0)
            t=$(cpu "${pin[@]}" "$txscan" apply --quiet --threads "$threads" "$input" -o "$scratch/out-apply.csv" \
                'surname = KSCANX(name, -1)' 'words = KCOUNTW(comment)' 'street = KFIND(address, "street", "i")')
            printf '%-8s %-7s %-34s %10s %8.2f\n' "$source" "$threads" "txscan apply" "$t" "$(awk -v t="$t" -v b="$base" 'BEGIN {print t / b}')"
        fi
    done
done
