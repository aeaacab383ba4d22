"""What the operating system does to a caller: a fork after the package was
used (a child and a multiprocessing Pool call it too), and Ctrl-C during a
long call. Each runs in its own process group, killed if it hangs."""
import os
import signal
import subprocess
import sys
import time

import pytest

FORKED = """
import multiprocessing, os, txscanmd

def words(rows):
    return list(txscanmd.kcountw(rows))

if __name__ == "__main__":
    assert words(["a b", "c"]) == [2, 1]
    pid = os.fork()
    if pid == 0:
        os._exit(0 if words(["a b c"]) == [3] else 1)
    assert os.waitpid(pid, 0)[1] == 0, "the forked child failed"
    with multiprocessing.get_context("fork").Pool(2) as pool:
        assert pool.map(words, [["a"], ["a b"], ["a b c"]]) == [[1], [2], [3]]
    print("ok")
"""

# 800,000 rows of 1 MiB (one object): over a minute of work on one thread.
LONG_CALL = """
import numpy as np, txscanmd
rows = np.array([("abc de fghij " * 80000)[:1 << 20]] * 800_000, dtype=object)
print("calling", flush=True)
try:
    txscanmd.kcountw(rows)
    print("finished")
except KeyboardInterrupt:
    print("interrupted")
"""


def start(code, threads):
    return subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                            env={**os.environ, "TXSCANMD_THREADS": str(threads)}, start_new_session=True)


def finish(process, seconds):
    try:
        return process.communicate(timeout=seconds)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        pytest.fail(f"no answer within {seconds} s")


def test_forked_child_and_pool_call_the_package():
    out, err = finish(start(FORKED, threads=4), 120)
    assert out == "ok\n", err


def test_ctrl_c_stops_a_long_call():
    process = start(LONG_CALL, threads=1)
    assert process.stdout.readline() == "calling\n"
    time.sleep(1)
    process.send_signal(signal.SIGINT)
    out, err = finish(process, 30)
    assert out == "interrupted\n", err
