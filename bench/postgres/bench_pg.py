#!/usr/bin/python3
"""Times the queries of the PostgreSQL benchmark through psql (PGHOST and
PGUSER name the server; run.sh sets them): `serial` measures the backend's
CPU time (from /proc/self/stat, read by the backend itself) with parallel
query off, `parallel` the wall time with 2 workers. Median of ROUNDS rounds;
each line gives the ratio to its peer.
"""
import os
import statistics
import subprocess
import sys

ROUNDS = int(os.environ.get("TXSCAN_PG_ROUNDS", "5"))
mode = sys.argv[1]

# (name, query, peer names): a peer is PostgreSQL's own way to the same
# answer, or the nearest one (words split at white space).
QUERIES = [
    ("strpos", "SELECT sum(strpos(comment, 'street')) FROM people", ()),
    ("kfind", "SELECT sum(kfind(comment, 'street')) FROM people", ("strpos",)),
    ("regexp_split_to_array", "SELECT sum(array_length(regexp_split_to_array(comment, '\\s+'), 1)) FROM people", ()),
    ("kcountw", "SELECT sum(kcountw(comment)) FROM people", ("regexp_split_to_array",)),
    ("split_part(-1)", "SELECT sum(length(split_part(address, ' ', -1))) FROM people", ()),
    ("regexp_replace", "SELECT sum(length(regexp_replace(address, '^.*\\s', ''))) FROM people", ()),
    ("kscanx(-1)", "SELECT sum(length(kscanx(address, -1))) FROM people", ("split_part(-1)", "regexp_replace")),
]

ticks = os.sysconf("SC_CLK_TCK")
setup = [
    "CREATE OR REPLACE FUNCTION pg_temp.cpu_ms() RETURNS float8 LANGUAGE sql AS $$ SELECT "
    f"(split_part(s, ' ', 12)::float8 + split_part(s, ' ', 13)::float8) * 1000 / {ticks} FROM "
    "(SELECT split_part(pg_read_file('/proc/self/stat'), ') ', 2) AS s) AS t $$;",
]
if mode == "serial":
    setup.append("SET max_parallel_workers_per_gather = 0;")
else:
    setup += ["SET max_parallel_workers_per_gather = 2;", "SET parallel_setup_cost = 0;",
              "SET parallel_tuple_cost = 0;", "SET min_parallel_table_scan_size = 0;"]
# The backend's resident memory after every round: flat from the first
# round on (which maps the table's pages and loads the module) when nothing
# is kept per row.
RSS = "SELECT 'rss', (regexp_match(pg_read_file('/proc/self/status'), 'VmRSS:\\s*(\\d+)'))[1], 0;"
script = setup[:]
for _ in range(ROUNDS):
    for name, query, _peer in QUERIES:
        script += ["SELECT pg_temp.cpu_ms() AS c0, extract(epoch FROM clock_timestamp()) AS t0 \\gset",
                   "\\o /dev/null", query + ";", "\\o",
                   f"SELECT '{name}', pg_temp.cpu_ms() - :c0, (extract(epoch FROM clock_timestamp()) - :t0) * 1000;"]
script.append(RSS)
out = subprocess.run(["psql", "-X", "-q", "-A", "-t", "-F", "|", "-v", "ON_ERROR_STOP=1", "-d", "postgres"],
                     input="\n".join(script), capture_output=True, text=True, check=True).stdout
times = {}
for line in out.splitlines():
    name, cpu, wall = line.split("|")
    times.setdefault(name, []).append(float(cpu) if mode == "serial" or name == "rss" else float(wall))
rss = times.pop("rss")
median = {name: statistics.median(values) for name, values in times.items()}

what = "backend CPU ms, one core" if mode == "serial" else "wall ms, 2 parallel workers on 2 cores"
print(f"== PostgreSQL, {what} (median of {ROUNDS})")
for name, _query, peers in QUERIES:
    ratios = ", ".join(f"{median[peer] / median[name]:5.2f}x the speed of {peer}" for peer in peers)
    print(f"{name:24s} {median[name]:9.1f}   {ratios}")
print(f"backend resident memory: {rss[0] / 1024:.1f} MiB after the first round of {len(QUERIES)} queries, "
      f"{rss[-1] / 1024:.1f} MiB after round {ROUNDS}")
