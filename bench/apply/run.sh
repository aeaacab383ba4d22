#!/usr/bin/env bash
# txscan apply end to end against peers doing the same job on the same
# 1M-row CSV in the same run: R (data.table's fread, stringi, fwrite), pandas
# (read_csv, .str, to_csv), and awk for the last word alone. Each job reads
# the file, computes the last word of the name, the word count of the comment
# and the caseless position of "street" in the address, and writes a CSV.
# Prints seconds, rows per second, peak memory (/usr/bin/time -v) and each
# peer's time as a multiple of txscan's.
#   bench/apply/run.sh [TXSCAN] [ROWS]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
txscan=$(realpath "${1:-build-bench/bin/txscan}")
rows=${2:-1000000}
scratch=${TXSCAN_BENCH_DIR:-${TMPDIR:-/tmp}/txscan-bench-apply}
. "$here/../sample_input.sh"
sample_input "$scratch" "$rows"
input=$scratch/people.csv

cat >"$scratch/peer.R" <<'R'
suppressMessages({ library(data.table); library(stringi) })
args <- commandArgs(trailingOnly = TRUE)
d <- fread(args[1], encoding = "UTF-8", colClasses = "character", na.strings = NULL)
d[, surname := stri_extract_last_words(name)]
d[, words := stri_count_words(comment)]
hit <- stri_locate_first_fixed(d$address, "street", case_insensitive = TRUE)[, 1]
d[, street := fifelse(is.na(hit), 0L, hit)]
fwrite(d, args[2])
R
cat >"$scratch/peer.py" <<'PY'
import sys
import pandas as pd
d = pd.read_csv(sys.argv[1], dtype=str, keep_default_na=False)
d["surname"] = d["name"].str.extract(r"(\w+)\W*$", expand=False)
d["words"] = d["comment"].str.count(r"\w+")
d["street"] = d["address"].str.lower().str.find("street") + 1
d.to_csv(sys.argv[2], index=False)
PY

# name, seconds, peak kB of one job
measure() {
    local name=$1
    shift
    /usr/bin/time -f "%e %M" -o "$scratch/time" "$@" >/dev/null 2>"$scratch/err" || {
        echo "$name failed:" >&2
        cat "$scratch/err" >&2
        exit 1
    }
    read -r seconds kilobytes <"$scratch/time"
    echo "$name $seconds $kilobytes"
}

{
    measure "txscan-apply" "$txscan" apply --quiet "$input" -o "$scratch/out-txscan.csv" \
        'surname = KSCANX(name, -1)' 'words = KCOUNTW(comment)' 'street = KFIND(address, "street", "i")'
    measure "R-data.table+stringi" Rscript "$scratch/peer.R" "$input" "$scratch/out-r.csv"
    measure "pandas" /usr/bin/python3 "$scratch/peer.py" "$input" "$scratch/out-pandas.csv"
    measure "txscan-apply(last-word)" "$txscan" apply --quiet "$input" -o "$scratch/out-txscan-last.csv" \
        'surname = KSCANX(name, -1)'
    # awk splits lines at every comma and newline: not CSV, only the speed of
    # the simplest tool for the last word.
    measure "awk(last-word)" sh -c "awk -F, 'NR > 1 { n = split(\$2, w, \" \"); print \$0 \",\" w[n] }' '$input' >'$scratch/out-awk.csv'"
} >"$scratch/results"

# One core, CPU time (user + system), median of three rounds: the CSV door
# alone (pass-through: one cheap call on the shortest column), the three
# columns above, and mawk printing every line with a column added (mawk
# splits at every comma and newline: not CSV, the speed of the simplest tool).
# TXSCAN_BEFORE=path adds an earlier txscan build to the same rounds.
cpu() {
    local best=()
    for _ in 1 2 3; do
        /usr/bin/time -f "%U %S" -o "$scratch/cpu" taskset -c 0 "$@" >/dev/null 2>"$scratch/err" || {
            cat "$scratch/err" >&2
            exit 1
        }
        best+=("$(awk '{ print $1 + $2 }' "$scratch/cpu")")
    done
    printf '%s\n' "${best[@]}" | sort -n | sed -n 2p
}
one_core() {
    local name=$1 bin=$2
    echo "$name pass-through $(cpu "$bin" apply --quiet --threads 1 "$input" -o "$scratch/out-1.csv" 'n = KFIND(id, "x")')"
    echo "$name 3-columns $(cpu "$bin" apply --quiet --threads 1 "$input" -o "$scratch/out-1.csv" \
        'surname = KSCANX(name, -1)' 'words = KCOUNTW(comment)' 'street = KFIND(address, "street", "i")')"
}
{
    one_core txscan "$txscan"
    [ -n "${TXSCAN_BEFORE:-}" ] && one_core before "$(realpath "$TXSCAN_BEFORE")"
    if command -v mawk >/dev/null; then
        echo "mawk pass-through $(cpu sh -c "mawk -F, '{ print \$0 \",x\" }' '$input' >'$scratch/out-mawk.csv'")"
    fi
} >"$scratch/one-core"
echo "one core (taskset -c 0, --threads 1), CPU seconds, median of 3; ratio to txscan's"
awk '{ cpu[$1 " " $2] = $3; line[NR] = $0 }
     END { for (i = 1; i <= NR; i++) { split(line[i], f, " ");
               printf "  %-8s %-13s %6.2f s %8.2fx\n", f[1], f[2], f[3], f[3] / cpu["txscan " f[2]] } }' "$scratch/one-core"

awk -v rows="$rows" '
    { name[NR] = $1; secs[NR] = $2; kb[NR] = $3 }
    END {
        printf "%-26s %9s %12s %10s %16s\n", "job (" rows " rows)", "seconds", "rows/s", "peak MB", "time / txscan"
        for (i = 1; i <= NR; i++) {
            base = name[i] ~ /last-word/ ? secs[4] : secs[1]
            printf "%-26s %9.2f %12.0f %10.1f %16.2f\n", name[i], secs[i], rows / secs[i], kb[i] / 1024, secs[i] / base
        }
    }' "$scratch/results"
