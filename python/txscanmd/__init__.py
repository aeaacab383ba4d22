"""The txscanmd string functions over pandas and numpy columns.

kfind, kcountx, kfindc, kcountc, kcountw, kfindw, kscanx and kscanx_call take
a pandas Series, a numpy array or a list of str (None or NaN for an absent
value) as their first argument and scalars or columns of the same length as
the others. Every row runs through the row engine in C++ with the GIL
released. Importing the package also registers the Series accessor
``.txscan`` (``df["name"].txscan.kscanx(-1)``), on dask Series too when
dask.dataframe is already imported (importing txscanmd.dask always does).
"""
import sys

from txscanmd._functions import (
    Message,
    TxscanNote,
    available_encodings,
    kcountc,
    kcountw,
    kcountx,
    kfind,
    kfindc,
    kfindw,
    kscanx,
    kscanx_call,
    last_messages,
)
from txscanmd import accessor as _accessor  # noqa: F401  (registers .txscan)

if "dask.dataframe" in sys.modules:
    from txscanmd import dask as _dask  # noqa: F401  (registers .txscan on dask Series)

__all__ = [
    "Message",
    "TxscanNote",
    "available_encodings",
    "kcountc",
    "kcountw",
    "kcountx",
    "kfind",
    "kfindc",
    "kfindw",
    "kscanx",
    "kscanx_call",
    "last_messages",
]
