"""Runs the engine benchmark and its peers on the same generated rows and
prints the table of nanoseconds per row and of ratios from that one run.

    /usr/bin/python3 bench/engine/compare.py BUILD/bin/bench_engine [--rows N]
"""
import collections
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
FUNCTIONS = ["KFIND", "KCOUNTX", "KFINDC", "KCOUNTC", "KCOUNTW", "KFINDW", "KSCANX", "KSCANX_LAST"]


def results(command):
    found = collections.defaultdict(dict)
    output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    for line in output.splitlines():
        if line.startswith("#"):
            print(line)
        parts = line.split()
        if len(parts) == 5 and parts[0] == "RESULT":
            found[(parts[1], parts[2])][parts[3]] = float(parts[4])
    return found


def main():
    driver = sys.argv[1]
    with tempfile.TemporaryDirectory() as directory:
        rows = os.path.join(directory, "rows-ascii.txt")
        table = results([driver, "--write-ascii", rows] + sys.argv[2:])
        for peer in (["Rscript", os.path.join(HERE, "stringi_peer.R"), rows],
                     ["/usr/bin/python3", os.path.join(HERE, "pandas_peer.py"), rows]):
            for key, modes in results(peer).items():
                table[key].update(modes)
    for rows in ("ascii", "mixed"):
        print(f"\n{rows} rows: ns per row; engine1/direct; engine rows/s on 2 workers over 1;"
              " best peer time over the engine's (>1: the engine is ahead)")
        print(f"{'function':12}{'direct':>8}{'callsite':>9}{'engine1':>8}{'engine2':>8}{'stringi':>8}{'pandas':>8}"
              f"{'e1/dir':>8}{'2w/1w':>7}{'peer/e1':>8}{'peer/e2':>8}")
        for name in FUNCTIONS:
            m = table.get((rows, name), {})
            if not m:
                continue
            peers = [m[p] for p in ("stringi", "pandas") if p in m]
            cell = lambda k: f"{m[k]:8.1f}" if k in m else f"{'-':>8}"
            peer1 = f"{min(peers) / m['engine1']:8.2f}" if peers else f"{'-':>8}"
            peer2 = f"{min(peers) / m['engine2']:8.2f}" if peers else f"{'-':>8}"
            print(f"{name:12}{cell('direct')}{cell('callsite')[0:]:>9}{cell('engine1')}{cell('engine2')}"
                  f"{cell('stringi')}{cell('pandas')}{m['engine1'] / m['direct']:8.2f}"
                  f"{m['engine1'] / m['engine2']:7.2f}{peer1}{peer2}")


if __name__ == "__main__":
    main()
