"""The pandas peer: Series.str over the rows compare.py hands it, one line
per function as "RESULT SET FUNCTION pandas ns_per_row" (best of three).

    /usr/bin/python3 pandas_peer.py ROWS_FILE SET
"""
import sys
import time

import pandas as pd

ROW_SET = sys.argv[2]
with open(sys.argv[1], encoding="utf-8") as source:
    rows = pd.Series(source.read().split("\n")[:-1])

PEERS = {
    "KFIND": lambda: rows.str.find("an") + 1,
    "KCOUNTX": lambda: rows.str.count("an"),
    "KFINDC": lambda: rows.str.extract(r"^([^xyz.,]*)[xyz.,]", expand=False).str.len() + 1,
    "KCOUNTC": lambda: rows.str.count("[aeiou]"),
    "KCOUNTW": lambda: rows.str.count("[^ ,]+"),
    "KFINDW": lambda: rows.str.extract(r"^(.*?)(?<![^ ])de(?![^ ])", expand=False).str.len() + 1,
    "KSCANX": lambda: rows.str.split(r"[ ,]+", regex=True).str[1],
    "KSCANX_LAST": lambda: rows.str.extract(r"([^ ,]+)[ ,]*$", expand=False),
}

for name, peer in PEERS.items():
    best = float("inf")
    for _ in range(3):
        start = time.perf_counter()
        peer()
        best = min(best, time.perf_counter() - start)
    print(f"RESULT {ROW_SET} {name} pandas {best * 1e9 / len(rows):.2f}", flush=True)
