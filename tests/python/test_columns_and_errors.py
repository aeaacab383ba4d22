"""What the package adds around the engine: input and output shapes, absent
values, refused arguments, notes and the accessor."""
import warnings

import numpy as np
import pandas as pd
import pytest

import txscanmd

ROWS = ["Smith, John", "Müller Jörg", None, "山田 太郎", np.nan]
ABSENT = [2, 4]


@pytest.mark.parametrize("make,kind", [
    (lambda: pd.Series(ROWS, index=list("vwxyz"), name="name"), pd.Series),
    (lambda: pd.Series(ROWS, dtype="string"), pd.Series),
    (lambda: np.array(ROWS, dtype=object), np.ndarray),
    (lambda: list(ROWS), np.ndarray),
])
def test_shapes_and_absent_rows(make, kind):
    x = make()
    for function, args in [("kfind", ("J",)), ("kcountw", ()), ("kscanx", (-1,)), ("kscanx_call", (1,))]:
        got = getattr(txscanmd, function)(x, *args)
        for part in got if function == "kscanx_call" else [got]:
            assert isinstance(part, kind), function
            if kind is pd.Series:
                assert part.index.equals(x.index) and part.name == x.name
        # None, NaN and NA are one absent argument: rows alike and as alone.
        alone = getattr(txscanmd, function)([None], *args)
        for part, single in zip(*((got, alone) if function == "kscanx_call" else ([got], [alone]))):
            assert list(part)[ABSENT[0]] == list(part)[ABSENT[1]] == single[0]
    assert list(txscanmd.kscanx(x, -1))[3] == "太郎"


def test_column_arguments_and_missing_numbers():
    x = pd.Series(["abcabc", "abcabc", "abcabc", "abcabc"], index=[10, 20, 30, 40])
    got = txscanmd.kfind(x, pd.Series(["b", "c", "x", "a"]), [1, 4, np.nan, -6])
    # A missing start gives NaN, as NaN would anywhere in pandas.
    np.testing.assert_equal(got.to_numpy(), [2, 6, np.nan, 4])
    words = txscanmd.kscanx_call(x.str.replace("c", " "), pd.array([2, None, 1, 3], "Int64"), errors="coerce")
    np.testing.assert_equal(words[0].to_numpy(), [4, np.nan, 1, 0])


@pytest.mark.parametrize("call,message", [
    (lambda x: txscanmd.kscanx(x, [1, 0, 2, 0]), r"kscanx: invalid argument \(status 0x1D804\) at row 1 \(index 'b'\)"),
    (lambda x: txscanmd.kfindw(x, "a", 1, 2), r"kfindw: invalid argument \(status 0x1D804\) at row 0 \(index 'a'\)"),
    (lambda x: txscanmd.kfind(x), r"kfind\(\) missing 1 required positional argument"),
    (lambda x: txscanmd.kcountx(x, "a", "i", "t"), r"KCOUNTX takes 2 to 3 inputs, not 4"),
    (lambda x: txscanmd.kfind(x, 5), r"KFIND: argument 2 must be character"),
    (lambda x: txscanmd.kfind(x, ["a", "b"]), r"kfind: argument 2 has 2 rows, argument 1 has 4"),
    (lambda x: txscanmd.kfind(["a", 3, "c"], "a"), r"kfind: argument 1, row 1: int is not text"),
    (lambda x: txscanmd.kfind(pd.Series([1, 2]), "a"), r"kfind: argument 1 must hold text"),
    (lambda x: txscanmd.kfind(["日本"], "a", encoding="ISO-8859-1"), r"row 0: the text has a character ISO-8859-1"),
    (lambda x: txscanmd.kfind(x, "a", encoding="EBCDIC"), r'unknown session encoding "EBCDIC" \(the host offers UTF-8'),
    (lambda x: txscanmd.kfind(x, "a", errors="ignore"), r"errors must be 'raise' or 'coerce'"),
])
def test_refusals_name_function_status_and_row(call, message):
    x = pd.Series(["a b", "c d", "e f", "g h"], index=list("abcd"))
    with pytest.raises((ValueError, TypeError), match=message):
        call(x)


def test_coerce_gives_nan_only_at_refused_rows():
    x = ["a b", "c d", "e f", "g h"]
    assert list(txscanmd.kscanx(x, [1, 0, 2, 0], errors="coerce")) == ["a", None, "f", None]
    np.testing.assert_equal(txscanmd.kscanx_call(x, [1, 0, 2, 0], errors="coerce")[1], [1, np.nan, 1, np.nan])


def test_notes_counted_and_warned_once_per_kind():
    x = ["abc"] * 5 + ["äbc"]
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        txscanmd.kfind(x, "b", "zq")
    notes = txscanmd.last_messages()
    assert sorted((m.code, m.function, m.character, m.count, m.first_row) for m in notes) == \
        [(744, "FIND", "Q", 5, 0), (744, "FIND", "Z", 5, 0)]
    assert len(caught) == 2 and all(issubclass(w.category, txscanmd.TxscanNote) for w in caught)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        txscanmd.kfind(x, "b", "z", notes="count")
    assert txscanmd.last_messages()[0].count == 5


def test_accessor_on_a_frame():
    df = pd.DataFrame({"name": ["Smith, John", "Ødegård, Søren"], "comment": ["a b c", "日本語 テキスト"]})
    assert list(df["name"].txscan.kscanx(-1)) == ["John", "Søren"]
    assert list(df["comment"].txscan.kcountw()) == [3, 2]
    with pytest.raises(AttributeError):
        df["name"].txscan.upper()
