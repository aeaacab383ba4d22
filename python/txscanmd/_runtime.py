"""One native Runtime per session encoding and process, made on first use.

Dask ships the package's functions to its workers by name; each worker
process then loads the module here once, on its first call. The engine uses
every core unless TXSCANMD_THREADS says how many threads to use.

A forked child (multiprocessing's default start on Linux) inherits the
parent's runtimes but not their worker threads, so it sets them aside,
never to be destroyed, and builds its own on first use.
"""
import os
import threading

from txscanmd import _core

_MODULE_PATH = os.path.join(os.path.dirname(os.path.abspath(__file__)), "lib", "txscanmd.so")
_runtimes = {}
_lock = threading.Lock()


def runtime(encoding):
    found = _runtimes.get(encoding)
    if found is not None:
        return found
    with _lock:
        if encoding not in _runtimes:
            threads = int(os.environ.get("TXSCANMD_THREADS", "0"))
            _runtimes[encoding] = _core.Runtime(_MODULE_PATH, encoding, threads)
        return _runtimes[encoding]


def _after_fork_in_child():
    global _lock
    _lock = threading.Lock()   # another thread of the parent may have held it
    for inherited in _runtimes.values():
        _core.abandon_after_fork(inherited)
    _runtimes.clear()


os.register_at_fork(after_in_child=_after_fork_in_child)
