"""The package against `txscan apply` on the same generated rows: every
function, constants and columns as arguments, UTF-8 and Shift_JIS."""
import io
import os
import subprocess

import numpy as np
import pandas as pd
import pytest

import rows as generated
import txscanmd

ROWS = generated.generate(2000)
TXSCAN = os.environ["TXSCAN_CLI"]   # the command line, as ctest names it
# Columns as arguments: a searched word per row, a word number per row (0 is refused).
COLUMNS = {"words": lambda rows: [r[:3] for r in rows], "numbers": lambda rows: np.arange(len(rows)) % 5 - 2.0}
CASES = [("kfind", ("e",)), ("kfind", ("A", "i", -60)), ("kcountx", ("an", "i")), ("kfindc", (",.", 5)),
         ("kfindc", ("", "ak")), ("kcountc", ("aeiou日", "i")), ("kcountw", ()), ("kcountw", (", ", "m")),
         ("kfindw", ("the",)), ("kfindw", ("Smith", ", ", "ie")), ("kscanx", (-1,)), ("kscanx", (2, ", ")),
         ("kscanx_call", (2,)), ("kscanx_call", (-1, " ,", "r")), ("kfind", ("words",)), ("kscanx", ("numbers",))]


def assignment(k, function, args):
    call = ", ".join(["x"] + [a if a in COLUMNS else f'"{a}"' if isinstance(a, str) else repr(a) for a in args])
    return f"(p{k}, l{k}) = CALL KSCANX({call})" if function == "kscanx_call" else f"r{k} = {function.upper()}({call})"


@pytest.fixture(scope="module", params=["UTF-8", "Shift_JIS"])
def applied(request, tmp_path_factory):
    """The rows and their columns as a CSV file in the encoding, and what `txscan apply` made of them."""
    encoding = request.param
    rows = [r for r in ROWS if r.encode(encoding, "replace").decode(encoding) == r]
    frame = pd.DataFrame({"x": rows, **{name: make(rows) for name, make in COLUMNS.items()}})
    path = tmp_path_factory.mktemp("apply") / "rows.csv"
    frame.to_csv(path, index=False, encoding=encoding)
    out = subprocess.run([TXSCAN, "apply", "--quiet", "--encoding", encoding, str(path),
                          *(assignment(k, f, a) for k, (f, a) in enumerate(CASES))], capture_output=True, check=True)
    return encoding, frame, pd.read_csv(io.BytesIO(out.stdout), dtype=str, keep_default_na=False, encoding=encoding)


@pytest.mark.parametrize("k", range(len(CASES)), ids=[f"{f}{a}" for f, a in CASES])
def test_matches_txscan_apply(applied, k):
    encoding, frame, out = applied
    function, args = CASES[k]
    got = getattr(txscanmd, function)(frame["x"], *(frame[a] if a in COLUMNS else a for a in args),
                                      encoding=encoding, errors="coerce", notes="count")
    wants = [out[f"p{k}"], out[f"l{k}"]] if function == "kscanx_call" else [out[f"r{k}"]]
    # apply writes an empty field for a missing number, a refused row and an empty word.
    for have, want in zip(got if function == "kscanx_call" else [got], wants):
        if function == "kscanx":
            pd.testing.assert_series_equal(have.fillna(""), want, check_names=False)
        else:
            pd.testing.assert_series_equal(have, pd.to_numeric(want.replace("", np.nan)).astype(float),
                                          check_names=False)


def test_bytes_columns_as_they_are():
    text = [r for r in ROWS if r.encode("shift_jis", "replace").decode("shift_jis") == r]
    got = txscanmd.kscanx([r.encode("shift_jis") for r in text], -1, encoding="Shift_JIS")
    assert list(got) == [w.encode("shift_jis") for w in txscanmd.kscanx(text, -1, encoding="Shift_JIS")]
