#!/bin/bash
# The extension against a real server of its own (throwaway_server.sh):
# pg_regress over sql/ and expected/, then the server stopped and everything
# removed, also on failure.
#
#   run_tests.sh BINDIR PKGLIBDIR SHAREDIR EXTENSION MODULE FILES TXSCAN SRCDIR
#
# The first six as start_server takes them; TXSCAN: the command line, whose
# `txscan apply` gives the answers the SQL functions must equal row for row
# (TXSCAN_PG_ROWS rows, 20000 by default: every kind of row the generator
# makes, in seconds; the expected files count them).
# With TXSCAN_PG_RESULTS=DIR the outputs of the run are copied there (to
# review them as new expected files).
set -euo pipefail
bindir=$1 pkglibdir=$2 sharedir=$3 extension=$4 module=$5 files=$6 txscan=$7 src=$8
rows=${TXSCAN_PG_ROWS:-20000}

. "$src/throwaway_server.sh"

# The rows (UTF-8, and Shift_JIS for the EUC_JP database) and the answers
# of `txscan apply` over them: UTF-8 and EUC-JP sessions.
mkdir -p "$work/rows"
/usr/bin/python3 "$src/../examples/make_samples.py" --rows "$rows" --out "$work/rows"
iconv -f SHIFT_JIS -t EUC-JP "$work/rows/people-sjis.csv" > "$work/rows/people-eucjp.csv"
calls=(
    'find = KFIND(name, "an", "i")'
    'find_back = KFIND(comment, "e", -200)'
    'countx = KCOUNTX(comment, "e", "i")'
    'findc = KFINDC(address, "0123456789")'
    'findc_mods = KFINDC(comment, "", "ap", -300)'
    'countc = KCOUNTC(comment, "aeiou", "i")'
    'countw = KCOUNTW(address)'
    'countw_list = KCOUNTW(comment, " ,;")'
    'findw = KFINDW(address, "Street")'
    'findw_mods = KFINDW(comment, "the", " ", "ie")'
    'last_word = KSCANX(name, -1)'
    'second = KSCANX(address, 2, ", ")'
    '(position, length) = CALL KSCANX(comment, 2)'
)
"$txscan" apply --quiet "$work/rows/people.csv" -o "$work/rows/applied.csv" "${calls[@]}"
"$txscan" apply --quiet --encoding EUC-JP "$work/rows/people-eucjp.csv" -o "$work/rows/applied-eucjp.csv" "${calls[@]}"

start_server "$bindir" "$pkglibdir" "$sharedir" "$extension" "$module" "$files"
export TXSCAN_ROWS="$work/rows" TXSCAN_SQL="$src/sql"
regress() {   # DATABASE ENCODING TEST...
    local db=$1 encoding=$2 out=$work/regress-$1
    shift 2
    if ! "$pkglibdir/pgxs/src/test/regress/pg_regress" --bindir="$bindir" --inputdir="$src" --outputdir="$out" \
        --dbname="$db" --encoding="$encoding" --no-locale "$@"; then
        cat "$out/regression.diffs" 2>/dev/null || true
        status=1
    fi
    if [ -n "${TXSCAN_PG_RESULTS:-}" ]; then mkdir -p "$TXSCAN_PG_RESULTS" && cp "$out"/results/*.out "$TXSCAN_PG_RESULTS/"; fi
}
status=0
regress txscan_utf8 UTF8 functions rows_utf8 index_and_parallel
regress txscan_eucjp EUC_JP rows_eucjp
exit $status
