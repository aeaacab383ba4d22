"""Runs the engine benchmark and its peers on the same generated rows (the
ASCII set; the mixed set, where 30% of the rows hold accented Latin or CJK;
the wide set, where most rows do; one-character rows for the direct call
against the plain loop) and prints, per set, nanoseconds per row and the ratios from that one run.

    /usr/bin/python3 bench/engine/compare.py BUILD/bin/bench_engine [--rows N] [--no-callsite] [--no-pandas]
"""
import collections
import os
import re
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
FUNCTIONS = ["KFIND", "KCOUNTX", "KFINDC", "KCOUNTC", "KCOUNTW", "KFINDW", "KSCANX", "KSCANX_LAST"]
SETS = ("ascii", "mixed", "wide")
LOOP_CALLS = ["KFIND_Street", "KCOUNTX_the", "KFINDC_d", "KCOUNTC_d", "KCOUNTW_default", "KSCANX_-1", "KFINDW_the"]
LOOP_SETS = SETS + ("one",)


def results(command, table, bytes_per_row):
    output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    for line in output.splitlines():
        if line.startswith("#"):
            print(line)
            found = re.match(r"# (\w+): \d+ rows, ([\d.]+) bytes per row", line)
            if found:
                bytes_per_row[found.group(1)] = float(found.group(2))
        parts = line.split()
        if len(parts) == 5 and parts[0] == "RESULT":
            table[(parts[1], parts[2])][parts[3]] = float(parts[4])


def ratio(numerator, denominator):
    return f"{numerator / denominator:8.2f}" if numerator is not None and denominator else f"{'-':>8}"


def print_set(name, table, bytes_per_row):
    print(f"\n{name} rows: ns per row; engine1/direct; engine rows/s on 2 workers over 1; each peer's time over"
          " engine1's (>1: the engine is ahead)" + ("; engine1's ns per byte here over the ASCII set's"
                                                   if name != "ascii" else ""))
    print(f"{'function':12}{'direct':>8}{'callsite':>9}{'engine1':>8}{'engine2':>8}{'stringi':>8}{'pandas':>8}"
          f"{'e1/dir':>8}{'2w/1w':>7}{'stri/e1':>8}{'pd/e1':>8}" + (f"{'mix/asc':>8}" if name != "ascii" else ""))
    for function in FUNCTIONS:
        m = table.get((name, function), {})
        if "engine1" not in m:
            continue
        cell = lambda k: f"{m[k]:8.1f}" if k in m else f"{'-':>8}"
        line = (f"{function:12}{cell('direct')}{cell('callsite'):>9}{cell('engine1')}{cell('engine2')}"
                f"{cell('stringi')}{cell('pandas')}{ratio(m['engine1'], m.get('direct'))}"
                f"{m['engine1'] / m['engine2']:7.2f}{ratio(m.get('stringi'), m['engine1'])}"
                f"{ratio(m.get('pandas'), m['engine1'])}")
        if name != "ascii":
            ascii_e1 = table.get(("ascii", function), {}).get("engine1")
            per_byte = m["engine1"] / bytes_per_row[name]
            line += ratio(per_byte, ascii_e1 / bytes_per_row["ascii"] if ascii_e1 else None)
        print(line)


def print_loop_set(name, table):
    print(f"\n{name} rows: the direct call against the benchmark's plain C++ loop and stringi (ns per row);"
          " loop/dir is the share of the loop's speed the module reaches, stri/dir >1 when it is ahead of stringi")
    print(f"{'call':14}{'direct':>8}{'loop':>8}{'stringi':>8}{'loop/dir':>9}{'stri/dir':>9}")
    for call in LOOP_CALLS:
        m = table.get((name, call), {})
        if "direct" not in m or "loop" not in m:
            continue
        cell = lambda k: f"{m[k]:8.1f}" if k in m else f"{'-':>8}"
        print(f"{call:14}{cell('direct')}{cell('loop')}{cell('stringi')}{ratio(m['loop'], m['direct']):>9}"
              f"{ratio(m.get('stringi'), m['direct']):>9}")


def main():
    driver = sys.argv[1]
    table = collections.defaultdict(dict)
    bytes_per_row = {}
    with_pandas = "--no-pandas" not in sys.argv
    with tempfile.TemporaryDirectory() as directory:
        results([driver, "--write-rows", directory] + [a for a in sys.argv[2:] if a != "--no-pandas"], table,
                bytes_per_row)
        for name in LOOP_SETS:
            rows = os.path.join(directory, name + ".txt")
            peers = [["Rscript", os.path.join(HERE, "stringi_peer.R"), rows, name]]
            if name in SETS and with_pandas:
                peers.append(["/usr/bin/python3", os.path.join(HERE, "pandas_peer.py"), rows, name])
            for peer in peers:
                results(peer, table, bytes_per_row)
    for name in SETS:
        print_set(name, table, bytes_per_row)
    for name in LOOP_SETS:
        print_loop_set(name, table)
    print("\nTargets: on the mixed set stri/e1 >= 1 and pd/e1 >= 2 for every function; mix/asc <= 3 on both"
          " the mixed and the wide set. Against the loop: loop/dir >= 0.6 on ASCII rows and >= 0.4 on mixed"
          " rows; one-character rows <= 12 ns for KFIND and KCOUNTC and ahead of stringi.")


if __name__ == "__main__":
    main()
