#!/bin/bash
# The PostgreSQL extension against PostgreSQL's own string functions on one
# throwaway server (postgres/throwaway_server.sh): 1M generated rows
# (examples/make_samples.py), one backend pinned to core 0 (backend CPU
# time, median of rounds), then the same queries with 2 parallel workers on
# cores 0 and 1 (wall time, median of rounds). Ratios are to the peer of the
# same line, in the same run.
#
#   run.sh BUILD [ROWS]    (BUILD: the build directory holding lib/txscan.so)
set -euo pipefail
build=$(cd "$1" && pwd)
rows=${2:-1000000}
here=$(cd "$(dirname "$0")" && pwd)
src=$here/../..
. "$src/postgres/throwaway_server.sh"

/usr/bin/python3 "$src/examples/make_samples.py" --rows "$rows" --only utf8 --out "$work"
start_server "$(pg_config --bindir)" "$(pg_config --pkglibdir)" "$(pg_config --sharedir)" \
    "$build/lib/txscan.so" "$build/lib/txscanmd.so" "$build/postgres"
psql -X -q -v ON_ERROR_STOP=1 -d postgres -v csv="$work/people.csv" <<'SQL'
CREATE EXTENSION txscan;
CREATE TABLE people (id integer, name text, address text, comment text);
COPY people FROM :'csv' WITH (FORMAT csv, HEADER);
VACUUM ANALYZE people;
SQL
postmaster=$(head -1 "$work/data/postmaster.pid")
pin() { taskset -a -p -c "$1" "$postmaster" >/dev/null; }
pin 0
/usr/bin/python3 "$here/bench_pg.py" serial
pin 0,1
/usr/bin/python3 "$here/bench_pg.py" parallel
