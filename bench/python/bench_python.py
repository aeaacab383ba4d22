"""The Python package against the row engine underneath it and against what
a pandas user has instead, on the same rows in one run, one core pinned,
CPU time, median of rounds:

- ours/engine: the package's time over the engine's one-worker time on the
  same rows already in its own layout (target: at most 1.25), for an ASCII
  and a mixed set at 10k, 100k and 1M rows and on 1,280-byte rows of both;
- pandas/ours and python/ours: pandas' nearest `.str` call and a plain
  Python comprehension doing the same thing over ours (targets: at least 3
  and at least 1), at 1M rows and on the long rows;
- each row gives nanoseconds per row too, marks a missed target "miss", and
  a last line counts the targets met;
- then R's stringi (through Rscript, when installed) over ours at 1M rows,
  and rows per second of a dask.dataframe on 2 worker processes against 1.

    PYTHONPATH=build-bench/python /usr/bin/python3 bench/python/bench_python.py
"""
import argparse
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

# One engine thread, set before the package makes its runtime; main() pins
# the process to one core. Not here: dask's worker processes start by
# importing this file, and pinned here they all shared that one core.
os.environ["TXSCANMD_THREADS"] = "1"
_ALL_CORES = os.sched_getaffinity(0)

import pandas as pd  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "tests", "python"))
import rows as generated  # noqa: E402
import txscanmd  # noqa: E402
from txscanmd import _core, _runtime  # noqa: E402

_DIGIT = re.compile(r"\d")
_THE = re.compile(r"\bthe\b")


def _second_word_length(s):
    words = s.split()
    return len(words[1]) if len(words) > 1 else 0


# function: (engine function, call routine, arguments after the source,
#            pandas' nearest .str call, the plain Python comprehension)
CASES = {
    "kfind": ("KFIND", False, ("Street",), lambda s: s.str.find("Street") + 1,
              lambda rows: [r.find("Street") + 1 for r in rows]),
    "kcountx": ("KCOUNTX", False, ("the",), lambda s: s.str.count("the"),
                lambda rows: [r.count("the") for r in rows]),
    "kfindc": ("KFINDC", False, ("", "d"), lambda s: s.str.extract(r"^(\D*)\d", expand=False).str.len() + 1,
               lambda rows: [m.start() + 1 if (m := _DIGIT.search(r)) else 0 for r in rows]),
    "kcountc": ("KCOUNTC", False, ("aeiou",), lambda s: s.str.count("[aeiou]"),
                lambda rows: [sum(map(r.count, "aeiou")) for r in rows]),
    "kcountw": ("KCOUNTW", False, (" ",), lambda s: s.str.split().str.len(),
                lambda rows: [len(r.split()) for r in rows]),
    "kfindw": ("KFINDW", False, ("the", " "), lambda s: s.str.find(" the ") + 2,
               lambda rows: [m.start() + 1 if (m := _THE.search(r)) else 0 for r in rows]),
    "kscanx": ("KSCANX", False, (-1, " "), lambda s: s.str.split().str[-1],
               lambda rows: [(r.split() or [""])[-1] for r in rows]),
    "kscanx_call": ("KSCANX", True, (2, " "), lambda s: s.str.split().str[1].str.len(),
                    lambda rows: [_second_word_length(r) for r in rows]),
}


def cpu_median(rounds, call, *args):
    times = []
    for _ in range(rounds):
        start = time.process_time()
        call(*args)
        times.append(time.process_time() - start)
    return statistics.median(times)


def ours(name, series):
    function, routine, args = CASES[name][:3]
    return getattr(txscanmd, name)(series, *args, notes="count")


def engine_seconds(name, series, rounds):
    function, routine, args = CASES[name][:3]
    arguments = [("column", series.to_numpy(dtype=object))]
    arguments += [("number", float(a)) if isinstance(a, int) else ("text", a) for a in args]
    return statistics.median(_core.engine_seconds(_runtime.runtime("UTF-8"), function, routine, arguments,
                                                  len(series), rounds))


def ascii_of(row, width):
    """The row with its wide characters dropped, kept at 20 bytes or more and cut at `width`."""
    return (row.encode("ascii", "ignore").decode() + " data value")[:width]


def row_sets(rows):
    mixed = generated.generate(rows, seed=7)
    return {"ascii": [ascii_of(r, 100) for r in mixed], "mixed": mixed}


def long_rows(rows, width=1280):
    short = generated.generate(rows * 20, seed=9)
    out = []
    for i in range(rows):
        text = " ".join(short[i * 20:(i + 1) * 20])
        while len(text.encode()) < width:
            text += " " + text
        out.append(text.encode()[:width].decode("utf-8", "ignore"))
    return {"ascii": [ascii_of(r * 2, width) for r in out], "mixed": out}


def stringi_times(path):
    if shutil.which("Rscript") is None:
        return {}
    out = subprocess.run(["Rscript", os.path.join(HERE, "stringi_peer.R"), path], capture_output=True, text=True,
                         check=True).stdout
    return {name: float(seconds) for name, seconds in (line.split() for line in out.splitlines())}


def dask_rows_per_second(path, workers, rows):
    import dask.dataframe as dd
    from distributed import Client, LocalCluster, wait

    import txscanmd.dask

    with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, dashboard_address=None) as cluster, \
            Client(cluster) as client:
        frame = client.persist(dd.read_csv(path, blocksize=4_000_000))
        wait(frame)
        frame.map_partitions(lambda p: txscanmd.kcountw(p["text"]).sum()).compute()   # every worker loads once
        start = time.perf_counter()
        new = txscanmd.dask.assign(frame, last=("kscanx", "text", -1), words=("kcountw", "text"),
                                   at=("kfind", "text", "e"))
        new[["words", "at"]].sum().compute()
        return rows / (time.perf_counter() - start)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--sizes", default="10000,100000,1000000", help="row counts of the two short-row sets")
    parser.add_argument("--long-rows", type=int, default=50_000, help="rows of 1,280 bytes")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--peers", default="1000000", help="sizes at which pandas and Python are timed too")
    parser.add_argument("--no-dask", action="store_true")
    parser.add_argument("--functions", default=",".join(CASES), help="functions to time (a before/after of a few)")
    parser.add_argument("--sets", default="ascii,mixed,ascii 1280B,mixed 1280B", help="row sets to time")
    options = parser.parse_args()
    os.sched_setaffinity(0, {min(_ALL_CORES)})
    functions = options.functions.split(",")
    wanted_sets = set(options.sets.split(","))
    sizes = [int(n) for n in options.sizes.split(",")]
    peers_at = {int(n) for n in options.peers.split(",")}

    print(f"one core (cpu {min(_ALL_CORES)}), engine threads {_runtime.runtime('UTF-8').threads}, CPU seconds, "
          f"median of {options.rounds}; ns per row, and ratios with their targets")
    print(f"{'set':<12} {'rows':>8} {'function':<12} {'ours':>6} {'engine':>6} {'ours/engine<=1.25':>18} "
          f"{'pandas':>6} {'pandas/ours>=3':>15} {'python':>6} {'python/ours>=1':>15}")
    sets = []
    for size in sizes:
        sets += [(name, rows, size in peers_at) for name, rows in row_sets(size).items() if name in wanted_sets]
    if wanted_sets & {"ascii 1280B", "mixed 1280B"}:
        sets += [(name + " 1280B", rows, True) for name, rows in long_rows(options.long_rows).items()
                 if name + " 1280B" in wanted_sets]
    met = {"ours/engine": [0, 0], "pandas/ours": [0, 0], "python/ours": [0, 0]}

    def ratio(kind, value, good):
        met[kind][0] += good
        met[kind][1] += 1
        return f"{value:.2f}" + ("" if good else " miss")

    for set_name, rows, with_peers in sets:
        series = pd.Series(rows)
        ours(list(CASES)[0], series)   # the runtime and the thread's arena made before timing
        for name in functions:
            pandas_call, python_call = CASES[name][3:]
            ours_s = cpu_median(options.rounds, ours, name, series)
            engine_s = engine_seconds(name, series, options.rounds)
            per_row = 1e9 / len(rows)
            line = (f"{set_name:<12} {len(rows):>8} {name:<12} {ours_s * per_row:6.0f} {engine_s * per_row:6.0f} "
                    f"{ratio('ours/engine', ours_s / engine_s, ours_s <= 1.25 * engine_s):>18}")
            if with_peers:
                pandas_s = cpu_median(options.rounds, pandas_call, series)
                python_s = cpu_median(options.rounds, python_call, rows)
                line += (f" {pandas_s * per_row:6.0f} {ratio('pandas/ours', pandas_s / ours_s, pandas_s >= 3 * ours_s):>15}"
                         f" {python_s * per_row:6.0f} {ratio('python/ours', python_s / ours_s, python_s >= ours_s):>15}")
            print(line, flush=True)
    print("targets met: " + ", ".join(f"{kind} {good} of {total}" for kind, (good, total) in met.items()))

    os.sched_setaffinity(0, _ALL_CORES)
    size = max(sizes)
    series = pd.Series(generated.generate(size, seed=7))
    with tempfile.TemporaryDirectory() as directory:
        lines = os.path.join(directory, "rows.txt")
        with open(lines, "w", encoding="utf-8") as f:
            f.write("\n".join(series) + "\n")
        stringi = stringi_times(lines)
        if stringi:
            print(f"stringi/ours at {size} rows (stringi_peer.R's calls, nearest to ours):")
            legacy = {"kfind": ("e",), "kcountx": ("an",), "kfindc": (",.",), "kcountc": ("aeiou",),
                      "kcountw": (" ",), "kfindw": ("the", " "), "kscanx": (-1, " "), "kscanx_call": (2, " ")}
            for name, args in legacy.items():
                if name in stringi:
                    ours_s = cpu_median(options.rounds, lambda: getattr(txscanmd, name)(series, *args))
                    print(f"  {name:<12} {stringi[name] / ours_s:6.1f}")
        if not options.no_dask:
            csv = os.path.join(directory, "rows.csv")
            series.to_frame("text").to_csv(csv, index=False)
            one = dask_rows_per_second(csv, 1, size)
            two = dask_rows_per_second(csv, 2, size)
            print(f"dask rows/s: 1 worker {one:,.0f}, 2 workers {two:,.0f}, ratio {two / one:.2f}")


if __name__ == "__main__":
    main()
