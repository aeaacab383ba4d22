"""The Series accessor: df["name"].txscan.kscanx(-1), df["comment"].txscan.kcountw()."""
import pandas as pd

from txscanmd import _functions

_NAMES = ("kfind", "kcountx", "kfindc", "kcountc", "kcountw", "kfindw", "kscanx", "kscanx_call")


@pd.api.extensions.register_series_accessor("txscan")
class TxscanAccessor:
    """The package's functions with the Series as their first argument."""

    def __init__(self, series):
        self._series = series

    def __getattr__(self, name):
        if name not in _NAMES:
            raise AttributeError(f"txscan has no function {name!r}")
        function = getattr(_functions, name)
        return lambda *args, **options: function(self._series, *args, **options)

    def __dir__(self):
        return list(_NAMES)
