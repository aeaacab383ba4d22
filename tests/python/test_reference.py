"""The package against `txscan eval` on sampled generated rows: every
function, constants and columns as arguments, UTF-8 and Shift_JIS."""
import math
import os
import random
import subprocess

import numpy as np
import pytest

import rows as generated
import txscanmd

ROWS = generated.generate(2000)
TXSCAN = os.environ["TXSCAN_CLI"]   # the command line, as ctest names it
# Columns as arguments: a searched word per row, a word number per row (0 is refused).
COLUMNS = {"WORDS": lambda rows: [r[:3] for r in rows], "NUMBERS": lambda rows: np.arange(len(rows)) % 5 - 2.0}
CASES = [("kfind", ("e",)), ("kfind", ("A", "i", -60)), ("kcountx", ("an", "i")), ("kfindc", (",.", 5)),
         ("kfindc", ("", "ak")), ("kcountc", ("aeiou日", "i")), ("kcountw", ()), ("kcountw", (", ", "m")),
         ("kfindw", ("the",)), ("kfindw", ("Smith", ", ", "ie")), ("kscanx", (-1,)), ("kscanx", (2, ", ")),
         ("kscanx_call", (2,)), ("kscanx_call", (-1, " ,", "r")), ("kfind", ("WORDS",)), ("kscanx", ("NUMBERS",))]


def literal(value):
    return '"' + value.replace('"', '""') + '"' if isinstance(value, str) else repr(float(value))


def parse(value):   # None: refused, NaN or None under errors="coerce"
    if value.startswith(("status ", "pos=")):
        return None if value[0] == "s" else tuple(parse(part.split("=")[1]) for part in value.split())
    return value[1:-1].replace('""', '"') if value[0] == '"' else math.nan if value == "." else float(value)


@pytest.mark.parametrize("encoding", ["UTF-8", "Shift_JIS"])
@pytest.mark.parametrize("function,args", CASES, ids=str)
def test_matches_command_line(encoding, function, args):
    rows = ROWS
    if encoding == "Shift_JIS":
        rows = [r for r in rows if r.encode("shift_jis", "replace").decode("shift_jis") == r]
    columns = [COLUMNS[a](rows) if a in COLUMNS else a for a in args]
    got = getattr(txscanmd, function)(rows, *columns, encoding=encoding, errors="coerce", notes="count")
    # Reference: `txscan eval` on a sample of the rows. Once `txscan apply` is
    # in, compare every row here against it on the same rows as a CSV file.
    sample = random.Random(7).sample(range(len(rows)), 40)
    calls = []
    for i in sample:
        a = [literal(c[i] if isinstance(c, (list, np.ndarray)) else c) for c in [rows] + columns]
        calls.append(f"CALL KSCANX({', '.join(a[:2] + ['pos', 'len'] + a[2:])})" if function == "kscanx_call"
                     else f"{function.upper()}({', '.join(a)})")
    out = subprocess.run([TXSCAN, "eval", "--encoding", encoding, *calls], capture_output=True, text=True,
                         check=True).stdout
    lines = [line for line in out.splitlines() if not line.startswith("  ")]
    for i, call, line in zip(sample, calls, lines, strict=True):
        assert line.startswith(call + " = "), line
        want = parse(line[len(call) + 3:])
        have = (got[0][i], got[1][i]) if function == "kscanx_call" else got[i]
        if want is None:
            assert have is None or np.isnan(have).all(), call
        else:
            np.testing.assert_equal(have, want, err_msg=call)


def test_bytes_columns_as_they_are():
    text = [r for r in ROWS if r.encode("shift_jis", "replace").decode("shift_jis") == r]
    got = txscanmd.kscanx([r.encode("shift_jis") for r in text], -1, encoding="Shift_JIS")
    assert list(got) == [w.encode("shift_jis") for w in txscanmd.kscanx(text, -1, encoding="Shift_JIS")]
