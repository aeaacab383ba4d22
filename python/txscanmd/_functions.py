"""The public functions: arguments sorted into columns and constants, one
engine run per call, statuses turned into errors or NaN, messages kept and
warned about, and a Series back when a Series came in (nullable Int64 and
string results for a pandas `string` column, as its `.str` gives)."""
import threading
import warnings
from typing import NamedTuple

import numpy as np
import pandas as pd

from txscanmd import _core
from txscanmd._runtime import runtime

# A missing start position gives a missing result, as NaN does anywhere in
# pandas; every other status is a refused argument or exhausted memory.
_STATUS_MISSING_START = _core.STATUS_MISSING_START
_last = threading.local()
_ERRORS = ("raise", "coerce")
_NOTES = ("warn", "count")

# The result has the caller's index and a numpy array we just made: pandas
# before 2.1 can take both as they are (fastpath) instead of checking and
# inferring again; later versions warn on fastpath, and take the ordinary
# way. Before 2.1 its block, built here, costs a third of what the fastpath
# does, which is most of a short call's time.
_FASTPATH = tuple(int(p) for p in pd.__version__.split(".")[:2]) < (2, 1)
try:
    from pandas._libs.internals import BlockPlacement
    from pandas.core.internals import SingleBlockManager
    from pandas.core.internals.blocks import get_block_type
    _BLOCKS = {np.dtype(np.float64): get_block_type(np.dtype(np.float64)),
               np.dtype(object): get_block_type(np.dtype(object))}
except (ImportError, AttributeError, TypeError):
    _BLOCKS = {}


def _series(values, index, name):
    if _FASTPATH and isinstance(values, np.ndarray):
        block = _BLOCKS.get(values.dtype)
        if block is not None and values.ndim == 1 and len(index) == len(values):
            manager = SingleBlockManager(block(values, BlockPlacement(slice(0, len(values))), 1), index)
            return pd.Series(manager, name=name, fastpath=True)
        return pd.Series(values, index=index, name=name, fastpath=True)
    return pd.Series(values, index=index, name=name, copy=False)


class TxscanNote(UserWarning):
    """A note the module issued (an unknown modifier letter), once per kind and call."""


class Message(NamedTuple):
    error: bool       # an error (True) or a note
    code: int         # note or error number
    function: str     # notes: the function's short name ("FIND")
    character: str    # notes: the letter
    text: str         # the host's text of the first one
    count: int        # how many rows issued it
    first_row: int    # position (0-based) of the first


def last_messages():
    """Messages of this thread's last call, one per kind with its count."""
    return list(getattr(_last, "messages", []))


def available_encodings():
    """Session encodings the host offers (encoding=...)."""
    return list(_core.available_encodings())


def _is_scalar_number(value):
    return isinstance(value, (int, float, np.integer, np.floating)) and not isinstance(value, (bool, np.bool_))


def _values(value):
    """The column as a numpy array; object columns are the caller's own array, not a copy."""
    if isinstance(value, (pd.Series, pd.Index)):
        if pd.api.types.is_numeric_dtype(value.dtype) and not pd.api.types.is_bool_dtype(value.dtype):
            return value.to_numpy(dtype=np.float64, na_value=np.nan)
        if isinstance(value.dtype, pd.StringDtype) and value.dtype.storage == "python":
            return np.asarray(value.array)   # its objects, pd.NA for missing
        return value.to_numpy(dtype=object)
    # Lists stay objects: numpy would turn [ "a", 3 ] into the text "3".
    return value if isinstance(value, np.ndarray) else np.array(value, dtype=object)


def _argument(value, label, position):
    """(kind, value) as the native run takes it."""
    if value is None:
        return ("absent", None)
    if isinstance(value, (str, bytes)):
        return ("text", value)
    if type(value) is pd.Series and value.dtype == object:
        return ("column", np.ascontiguousarray(value.values))   # the common case: its own objects
    if _is_scalar_number(value):
        return ("number", float(value))
    array = _values(value)
    if array.ndim != 1:
        raise ValueError(f"{label}: argument {position} must be a scalar or a one-dimensional column")
    kind = array.dtype.kind
    if kind in "iuf":
        return ("number_column", np.ascontiguousarray(array, dtype=np.float64))
    if kind in "USO":
        # Text or numbers: the native side tells them apart in its one pass.
        return ("column", np.ascontiguousarray(array, dtype=object))
    raise ValueError(f"{label}: argument {position} has values of type {array.dtype}, neither text nor numbers")


def _row_name(index, row):
    if index is None or isinstance(index, pd.RangeIndex) and index.start == 0 and index.step == 1:
        return f"row {row}"
    return f"row {row} (index {index[row]!r})"


def _report(label, messages, notes, index):
    kept = [Message(**m) for m in messages]
    _last.messages = kept
    if notes == "warn":
        for m in kept:
            if not m.error:
                warnings.warn(
                    TxscanNote(f"{label}: note {m.code} {m.text!r} on {m.count} rows, first at "
                               f"{_row_name(index, m.first_row)}"),
                    stacklevel=4)


def _converted(values, dtype):
    """`values` (float64 with NaN, or objects with None) as `dtype`."""
    if dtype is None:
        return values
    target = pd.api.types.pandas_dtype(dtype)
    if isinstance(target, pd.Int64Dtype) and values.dtype == np.float64:
        missing = np.isnan(values)
        return pd.arrays.IntegerArray(np.where(missing, 0, values).astype(np.int64), missing)
    if isinstance(target, pd.api.extensions.ExtensionDtype):
        return pd.array(values, dtype=target)
    if target.kind in "iub" and values.dtype == np.float64 and np.isnan(values).any():
        raise ValueError(f"missing results cannot be held by dtype {target}; use a nullable one such as 'Int64'")
    return values.astype(target)


def _call(label, function, x, args, *, call_routine=False, length=200, encoding="UTF-8", errors="raise",
          notes="warn", dtype=None):
    if errors not in _ERRORS:
        raise ValueError(f"{label}: errors must be 'raise' or 'coerce', not {errors!r}")
    if notes not in _NOTES:
        raise ValueError(f"{label}: notes must be 'warn' or 'count', not {notes!r}")
    series = isinstance(x, pd.Series)
    if not series and (isinstance(x, (str, bytes)) or _is_scalar_number(x) or x is None):
        raise ValueError(f"{label}: argument 1 must be a column of text (a Series, an array or a list)")
    index = x.index if series else None
    name = x.name if series else None
    first = _argument(x, label, 1)
    if first[0] != "column":
        raise ValueError(f"{label}: argument 1 must hold text, not numbers")
    source = first[1]
    if dtype is None and series and isinstance(x.dtype, pd.StringDtype):
        dtype = "string" if function == "KSCANX" and not call_routine else "Int64"
    arguments = [first]
    for k, a in enumerate(args, start=2):
        arguments.append(("text", a) if type(a) is str else _argument(a, label, k))
    out = _core.run(runtime(encoding), label, function, call_routine, arguments, len(source), length, pd.NA)

    status = out["status"]   # None when every row is ok or has a missing start
    if status is not None:
        bad = (status != 0) & (status != _STATUS_MISSING_START)
        if errors == "raise":
            row = int(np.flatnonzero(bad)[0])
            code = int(status[row])
            raise ValueError(f"{label}: {_core.status_text(code)} at "
                             f"{_row_name(index, row)}")
        for key in ("number", "position", "length"):
            if key in out:
                out[key][bad] = np.nan
        if "text" in out:
            out["text"][bad] = None
    if out["messages"] or getattr(_last, "messages", None):
        _report(label, out["messages"], notes, index)

    def shaped(values):
        if dtype is not None:
            values = _converted(values, dtype)
        return _series(values, index, name) if series else values

    if call_routine:
        return shaped(out["position"]), shaped(out["length"])
    return shaped(out["text"] if "text" in out else out["number"])


def kfind(x, string, *args, **options):
    """Position of `string` in each row: kfind(x, string[, start][, modifiers])."""
    return _call("kfind", "KFIND", x, (string, *args), **options)


def kcountx(x, string, *args, **options):
    """Occurrences of `string` in each row: kcountx(x, string[, modifiers])."""
    return _call("kcountx", "KCOUNTX", x, (string, *args), **options)


def kfindc(x, *args, **options):
    """Position of the first character of a set: kfindc(x[, characters][, start][, modifiers])."""
    return _call("kfindc", "KFINDC", x, args, **options)


def kcountc(x, characters, *args, **options):
    """Characters of a set in each row: kcountc(x, characters[, modifiers])."""
    return _call("kcountc", "KCOUNTC", x, (characters, *args), **options)


def kcountw(x, *args, **options):
    """Words in each row: kcountw(x[, delimiters[, modifiers]])."""
    return _call("kcountw", "KCOUNTW", x, args, **options)


def kfindw(x, word, *args, **options):
    """Position of a whole word: kfindw(x, word[, delimiters][, modifiers][, start])."""
    return _call("kfindw", "KFINDW", x, (word, *args), **options)


def kscanx(x, n, *args, length=200, **options):
    """The n-th word of each row (from the end when n < 0): kscanx(x, n[, delimiters[, modifiers]]).

    `length` is the receiving length: longer words are cut there to whole characters."""
    return _call("kscanx", "KSCANX", x, (n, *args), length=length, **options)


def kscanx_call(x, n, *args, **options):
    """Position and length of the n-th word of each row: (position, length)."""
    return _call("kscanx_call", "KSCANX", x, (n, *args), call_routine=True, **options)
