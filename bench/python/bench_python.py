"""The Python package against its peers on the same 1M rows in one run:
pandas' .str methods and R's stringi (through Rscript), as ratios of their
time to ours; then rows per second of a dask.dataframe on a local cluster of
2 worker processes against 1.

    PYTHONPATH=build-bench/python /usr/bin/python3 bench/python/bench_python.py
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time

import pandas as pd

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "tests", "python"))
import rows as generated  # noqa: E402
import txscanmd  # noqa: E402

# function: (our call, the nearest pandas .str call)
CASES = {
    "kfind": (lambda s: txscanmd.kfind(s, "e"), lambda s: s.str.find("e")),
    "kcountx": (lambda s: txscanmd.kcountx(s, "an"), lambda s: s.str.count("an")),
    "kfindc": (lambda s: txscanmd.kfindc(s, ",."), lambda s: s.str.find(",")),
    "kcountc": (lambda s: txscanmd.kcountc(s, "aeiou"), lambda s: s.str.count("[aeiou]")),
    "kcountw": (lambda s: txscanmd.kcountw(s, " "), lambda s: s.str.split().str.len()),
    "kfindw": (lambda s: txscanmd.kfindw(s, "the", " "), lambda s: s.str.find("the")),
    "kscanx": (lambda s: txscanmd.kscanx(s, -1, " "), lambda s: s.str.split().str[-1]),
    "kscanx_call": (lambda s: txscanmd.kscanx_call(s, 2, " "), lambda s: s.str.split().str[1].str.len()),
}


def best_of(runs, call, *args):
    best = float("inf")
    for _ in range(runs):
        start = time.perf_counter()
        call(*args)
        best = min(best, time.perf_counter() - start)
    return best


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

    # One engine thread per worker process, so that the workers are the split.
    os.environ["TXSCANMD_THREADS"] = "1"
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
    parser.add_argument("--rows", type=int, default=1_000_000)
    parser.add_argument("--runs", type=int, default=3)
    options = parser.parse_args()

    series = pd.Series(generated.generate(options.rows, seed=7))
    with tempfile.TemporaryDirectory() as directory:
        lines = os.path.join(directory, "rows.txt")
        with open(lines, "w", encoding="utf-8") as f:
            f.write("\n".join(series) + "\n")
        stringi = stringi_times(lines)
        print(f"{options.rows} rows, engine threads {txscanmd._runtime.runtime('UTF-8').threads}")
        print(f"{'function':<12} {'ours s':>8} {'pandas s':>9} {'pandas/ours':>12} {'stringi s':>10} {'stringi/ours':>13}")
        for name, (ours, pandas) in CASES.items():
            ours_s = best_of(options.runs, ours, series)
            pandas_s = best_of(options.runs, pandas, series)
            line = f"{name:<12} {ours_s:8.3f} {pandas_s:9.3f} {pandas_s / ours_s:12.1f}"
            if name in stringi:
                line += f" {stringi[name]:10.3f} {stringi[name] / ours_s:13.1f}"
            print(line, flush=True)

        csv = os.path.join(directory, "rows.csv")
        series.to_frame("text").to_csv(csv, index=False)
        one = dask_rows_per_second(csv, 1, options.rows)
        two = dask_rows_per_second(csv, 2, options.rows)
        print(f"dask rows/s: 1 worker {one:,.0f}, 2 workers {two:,.0f}, ratio {two / one:.2f}")


if __name__ == "__main__":
    main()
