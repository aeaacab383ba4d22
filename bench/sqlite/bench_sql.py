#!/usr/bin/python3
"""SQL over generated rows: the extension's functions against SQLite's own
instr and against Python user functions doing the same work, in one process
on one table. Prints rows per second and ratios to the peers of this run.

Usage: bench_sql.py EXTENSION [ROWS]   (EXTENSION without its .so suffix)
"""
import os
import sqlite3
import sys
import time

extension = sys.argv[1]
rows = int(sys.argv[2]) if len(sys.argv) > 2 else 1_000_000
generator = os.path.join(os.path.dirname(os.path.abspath(__file__)), "rows.sql")

db = sqlite3.connect(":memory:")
db.enable_load_extension(True)
db.load_extension(extension)
db.execute("CREATE TABLE people(id INTEGER PRIMARY KEY, name TEXT, address TEXT, note TEXT)")
with open(generator, encoding="utf-8") as sql:
    db.execute(sql.read(), {"rows": rows})
db.commit()

# The Python peers: find is 1-based like kfind (0 when absent); words are
# split at blanks, close to the default delimiters for this text.
db.create_function("py_find", 2, lambda s, t: s.find(t) + 1, deterministic=True)
db.create_function("py_countw", 1, lambda s: len(s.split()), deterministic=True)
db.create_function("py_lastword", 1, lambda s: (s.split() or [""])[-1], deterministic=True)

QUERIES = {
    "kfind": "SELECT sum(kfind(name, 'an')) FROM people",
    "instr": "SELECT sum(instr(name, 'an')) FROM people",
    "py_find": "SELECT sum(py_find(name, 'an')) FROM people",
    "kcountw": "SELECT sum(kcountw(address)) FROM people",
    "py_countw": "SELECT sum(py_countw(address)) FROM people",
    "kscanx_last": "SELECT sum(length(kscanx(note, -1))) FROM people",
    "py_lastword": "SELECT sum(length(py_lastword(note))) FROM people",
    "plain_scan": "SELECT sum(length(name)) FROM people",
}


def rows_per_second(query, repeats=3):
    best = float("inf")
    for _ in range(repeats):
        start = time.perf_counter()
        db.execute(query).fetchall()
        best = min(best, time.perf_counter() - start)
    return rows / best


rates = {name: rows_per_second(query) for name, query in QUERIES.items()}
print(f"{rows} rows; rows per second (best of 3)")
for name, rate in rates.items():
    print(f"  {name:<12} {rate:>14,.0f}")
print("ratios (extension / peer, above 1 is faster):")
for ours, peer in [("kfind", "instr"), ("kfind", "py_find"), ("kcountw", "py_countw"), ("kscanx_last", "py_lastword")]:
    print(f"  {ours} / {peer}: {rates[ours] / rates[peer]:.2f}")
