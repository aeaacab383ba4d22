#!/usr/bin/python3
"""SQL over generated rows: the extension's functions against SQLite's own
instr and against Python user functions doing the same work, in one process
on one table. Prints rows per second and ratios to the peers of this run,
from the process's CPU time (run it pinned: taskset -c 0), the median of
five rounds; kfind and instr also over rows of 20-120 bytes of ASCII text and
of mixed text (one word in four not ASCII).

Usage: bench_sql.py EXTENSION [ROWS]   (EXTENSION without its .so suffix)
"""
import os
import random
import sqlite3
import statistics
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


def text_rows(words, count, seed):
    rng = random.Random(seed)
    out = []
    for i in range(count):
        target = rng.randint(20, 120)
        row = []
        length = 0
        while length < target:
            word = rng.choice(words)
            row.append(word)
            length += len(word.encode("utf-8")) + 1
        out.append((i, " ".join(row)[:target]))
    return out


ASCII_WORDS = ["Main", "Street", "north", "river", "the", "of", "and", "Boston", "delivered", "on", "time",
               "thanks", "call", "back", "after", "road", "avenue", "house", "garden", "number"]
MIXED_WORDS = ASCII_WORDS + ["Hauptstraße", "Köln", "Łódź", "東京", "café", "crème", "Ødegård", "Nguyễn",
                             "über", "señor", "naïve", "São", "Zoë", "Åsgatan", "Malmö", "García", "dañado",
                             "銀座通り", "François", "Ángel"]
for table, words in (("ascii_rows", ASCII_WORDS), ("mixed_rows", MIXED_WORDS)):
    db.execute(f"CREATE TABLE {table}(id INTEGER PRIMARY KEY, s TEXT)")
    db.executemany(f"INSERT INTO {table} VALUES (?, ?)", text_rows(words, rows, 7))
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
    "address_scan": "SELECT sum(length(address)) FROM people",
    "note_scan": "SELECT sum(length(note)) FROM people",
    "kfind_ascii": "SELECT sum(kfind(s, 'Street')) FROM ascii_rows",
    "instr_ascii": "SELECT sum(instr(s, 'Street')) FROM ascii_rows",
    "kfind_mixed": "SELECT sum(kfind(s, 'Street')) FROM mixed_rows",
    "instr_mixed": "SELECT sum(instr(s, 'Street')) FROM mixed_rows",
}


# Each round runs every query once, so a slow spell of a shared machine
# falls on all of them rather than on the rounds of one.
def rates_per_second(rounds=5):
    times = {name: [] for name in QUERIES}
    for _ in range(rounds):
        for name, query in QUERIES.items():
            start = time.process_time()
            db.execute(query).fetchall()
            times[name].append(time.process_time() - start)
    return {name: rows / statistics.median(t) for name, t in times.items()}


rates = rates_per_second()
print(f"{rows} rows; rows per CPU second (median of 5)")
for name, rate in rates.items():
    print(f"  {name:<12} {rate:>14,.0f}")
print("ratios (extension / peer, above 1 is faster):")
for ours, peer in [("kfind", "instr"), ("kfind_ascii", "instr_ascii"), ("kfind_mixed", "instr_mixed"), ("kfind", "py_find"), ("kcountw", "py_countw"), ("kscanx_last", "py_lastword")]:
    print(f"  {ours} / {peer}: {rates[ours] / rates[peer]:.2f}")
# What each call adds to a bare scan of its column, in ns a row: the
# function's own cost, which the whole-query ratios above dilute.
print("ns a row added to the scan of the same column; the Python function's over the extension's:")
for ours, peer, scan in [("kfind", "py_find", "plain_scan"), ("kcountw", "py_countw", "address_scan"),
                         ("kscanx_last", "py_lastword", "note_scan")]:
    added = {name: 1e9 / rates[name] - 1e9 / rates[scan] for name in (ours, peer)}
    print(f"  {ours} +{added[ours]:.1f}, {peer} +{added[peer]:.1f}: {added[peer] / added[ours]:.1f}")
