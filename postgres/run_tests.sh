#!/bin/bash
# The extension against a real server of its own: a private installation, a
# throwaway cluster on a Unix socket (no TCP port), pg_regress over sql/ and
# expected/, then the server stopped and everything removed, also on failure.
#
#   run_tests.sh BINDIR PKGLIBDIR SHAREDIR EXTENSION MODULE FILES TXSCAN SRCDIR
#
# BINDIR, PKGLIBDIR, SHAREDIR: pg_config's; EXTENSION, MODULE: txscan.so and
# txscanmd.so; FILES: the directory holding txscan.control and the install
# script; TXSCAN: the command line, whose `txscan apply` gives the answers
# the SQL functions must equal row for row (TXSCAN_PG_ROWS rows, 20000 by
# default: enough for every kind of row the generator makes, and seconds).
# With TXSCAN_PG_RESULTS=DIR the outputs of the run are copied there (to
# review them as new expected files).
set -euo pipefail
bindir=$1 pkglibdir=$2 sharedir=$3 extension=$4 module=$5 files=$6 txscan=$7 src=$8
rows=${TXSCAN_PG_ROWS:-20000}

work=$(mktemp -d "${TMPDIR:-/tmp}/txscan-pg.XXXXXX")
# The server refuses to run as root; as root it runs as the postgres system
# user (as pg_virtualenv does), who then owns the whole scratch directory.
as_server() { if [ "$(id -u)" = 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi; }
inst=$work/install
cleanup() {
    if [ -f "$work/data/postmaster.pid" ]; then
        as_server "$inst$bindir/pg_ctl" -D "$work/data" -m immediate -w stop >/dev/null 2>&1 || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

# A private installation: the server finds its share and library directories
# relative to its own binary, so copies of the binaries beside links to the
# system's files make an installation that holds the extension without
# writing into the system's directories (and as any user).
mkdir -p "$inst$bindir" "$inst$pkglibdir" "$inst$sharedir/extension"
cp "$bindir/postgres" "$bindir/initdb" "$bindir/pg_ctl" "$inst$bindir/"
for f in "$pkglibdir"/*; do ln -s "$f" "$inst$pkglibdir/"; done
for f in "$sharedir"/*; do [ "${f##*/}" = extension ] || ln -s "$f" "$inst$sharedir/"; done
for f in "$sharedir"/extension/*; do ln -s "$f" "$inst$sharedir/extension/"; done
cp "$extension" "$module" "$inst$pkglibdir/"
cp "$files/txscan.control" "$files/txscan--1.0.sql" "$inst$sharedir/extension/"

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

[ "$(id -u)" = 0 ] && chown -R postgres: "$work"
mkdir -p "$work/sock" && [ "$(id -u)" = 0 ] && chown postgres: "$work/sock"
as_server "$inst$bindir/initdb" -D "$work/data" -E UTF8 --no-locale -A trust -U postgres >"$work/initdb.log" 2>&1 ||
    { cat "$work/initdb.log"; exit 1; }
as_server "$inst$bindir/pg_ctl" -D "$work/data" -l "$work/server.log" -w \
    -o "-c listen_addresses='' -k $work/sock -c fsync=off -c max_worker_processes=8" start >/dev/null ||
    { cat "$work/server.log"; exit 1; }

export TXSCAN_ROWS="$work/rows" TXSCAN_SQL="$src/sql" PGHOST="$work/sock" PGUSER=postgres
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
