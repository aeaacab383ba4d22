"""New columns of a dask.dataframe, computed by the package's functions
partition by partition:

    txscanmd.dask.assign(ddf, surname=("kscanx", "name", -1),
                         words=("kcountw", "comment"),
                         at=("kfind", "name", col("pattern")))

A column is given as (function, source column, further arguments...); a
further argument is a constant, or col(name) for another column of the frame.
("kscanx_call", ...) makes two columns, <name>_position and <name>_length.
The graph carries only names and constants: each worker process imports the
package and loads the module once, on its first partition.

Importing this module also registers the accessor on dask Series, so the
line that works on a pandas Series works on a dask one:

    ddf["name"].txscan.kfind("x")
"""
import dask.dataframe as dd
import numpy as np
import pandas as pd

from txscanmd import _functions

_FUNCTIONS = ("kfind", "kcountx", "kfindc", "kcountc", "kcountw", "kfindw", "kscanx", "kscanx_call")


class col:
    """Another column of the frame as an argument."""

    def __init__(self, name):
        self.name = name

    def __repr__(self):
        return f"col({self.name!r})"


class _Plan:
    """The new columns and the options of one assign, as shipped to workers."""

    def __init__(self, columns, options):
        self.columns = columns   # [(new name, function, source column, arguments)]
        self.options = options


def _apply_plan(frame, plan):
    new = {}
    for name, function, source, arguments in plan.columns:
        values = [frame[a.name] if isinstance(a, col) else a for a in arguments]
        result = getattr(_functions, function)(frame[source], *values, **plan.options)
        if function == "kscanx_call":
            new[f"{name}_position"], new[f"{name}_length"] = result
        else:
            new[name] = result
    return frame.assign(**new)


def assign(ddf, *, encoding="UTF-8", errors="raise", notes="count", length=200, **columns):
    """ddf with the new columns; nothing runs until the result is computed."""
    planned = []
    empty = {}
    for name, wanted in columns.items():
        if not isinstance(wanted, tuple) or len(wanted) < 2 or wanted[0] not in _FUNCTIONS:
            raise ValueError(f"assign: {name} must be (function, column, arguments...), the function one of "
                             f"{', '.join(_FUNCTIONS)}; got {wanted!r}")
        function, source, *arguments = wanted
        for needed in [source] + [a.name for a in arguments if isinstance(a, col)]:
            if needed not in ddf.columns:
                raise ValueError(f"assign: {name} uses column {needed!r}, which the frame does not have")
        planned.append((name, function, source, tuple(arguments)))
        kind = object if function == "kscanx" else np.float64
        names = [f"{name}_position", f"{name}_length"] if function == "kscanx_call" else [name]
        empty.update({n: pd.Series([], dtype=kind) for n in names})
    plan = _Plan(planned, {"encoding": encoding, "errors": errors, "notes": notes, "length": length})
    meta = ddf._meta.assign(**empty)
    return ddf.map_partitions(_apply_plan, plan, meta=meta)


def _call_routine_frame(series, *args, **options):
    position, length = _functions.kscanx_call(series, *args, **options)
    return pd.DataFrame({"position": position, "length": length})


@dd.extensions.register_series_accessor("txscan")
class DaskTxscanAccessor:
    """The package's functions partition by partition, with the dask Series as their first argument; other dask
    Series of the same frame may stand for column arguments."""

    def __init__(self, series):
        self._series = series

    def __getattr__(self, name):
        if name not in _FUNCTIONS:
            raise AttributeError(f"txscan has no function {name!r}")
        return lambda *args, **options: self._map(name, args, options)

    def __dir__(self):
        return list(_FUNCTIONS)

    def _map(self, name, args, options):
        # The result's dtype comes from the function itself on the empty partitions dask keeps as meta.
        metas = [a._meta if isinstance(a, dd.Series) else a for a in args]
        if name == "kscanx_call":
            meta = _call_routine_frame(self._series._meta, *metas, **options)
            frame = self._series.map_partitions(_call_routine_frame, *args, meta=meta, **options)
            return frame["position"].rename(self._series.name), frame["length"].rename(self._series.name)
        function = getattr(_functions, name)
        meta = function(self._series._meta, *metas, **options)
        return self._series.map_partitions(function, *args, meta=meta, **options)
