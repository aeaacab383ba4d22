"""What the package adds around the engine: input and output shapes, absent
values, refused arguments, notes and the accessor."""
import random
import sys
import warnings

import numpy as np
import pandas as pd
import pytest

import rows as generated
import txscanmd
from txscanmd import _core

ROWS = ["Smith, John", "Müller Jörg", None, "山田 太郎", np.nan]


@pytest.mark.parametrize("x", [pd.Series(ROWS, index=list("vwxyz"), name="n"), pd.Series(ROWS, dtype="string"),
                               np.array(ROWS, dtype=object), ROWS], ids=["series", "string", "array", "list"])
@pytest.mark.parametrize("function,args", [("kfind", ("J",)), ("kscanx", (-1,)), ("kscanx_call", (1,))])
def test_shapes_and_absent_rows(x, function, args):
    got = getattr(txscanmd, function)(x, *args)
    alone = getattr(txscanmd, function)([None], *args)
    for part, single in zip(*((got, alone) if function == "kscanx_call" else ([got], [alone]))):
        if isinstance(x, pd.Series):
            assert part.index.equals(x.index) and part.name == x.name
        assert isinstance(part, type(x) if isinstance(x, pd.Series) else np.ndarray)
        # None, NaN and NA are one absent argument: alike, and as on their own.
        assert list(part)[2] == list(part)[4] == single[0]


@pytest.mark.parametrize("call,message", [
    (lambda x: txscanmd.kscanx(x, [1, 0, 2, 0]), r"kscanx: invalid argument \(status 0x1D804\) at row 1 \(index 'b'\)"),
    (lambda x: txscanmd.kcountx(x, "a", "i", "t"), r"KCOUNTX takes 2 to 3 inputs, not 4"),
    (lambda x: txscanmd.kfind(x, 5), r"KFIND: argument 2 must be character"),
    (lambda x: txscanmd.kfind(x, ["a", "b"]), r"kfind: argument 2 has 2 rows, argument 1 has 4"),
    (lambda x: txscanmd.kfind(["a", 3, "c"], "a"), r"kfind: argument 1, row 1: int is not text"),
    (lambda x: txscanmd.kfind(pd.Series([1, 2]), "a"), r"kfind: argument 1 must hold text"),
    (lambda x: txscanmd.kfind(["日本"], "a", encoding="ISO-8859-1"), r"row 0: the text has a character ISO-8859-1"),
    (lambda x: txscanmd.kfind(x, "a", encoding="EBCDIC"), r'unknown session encoding "EBCDIC" \(the host offers UTF-8'),
])
def test_refusals_name_function_status_and_row(call, message):
    with pytest.raises(ValueError, match=message):
        call(pd.Series(["a b", "c d", "e f", "g h"], index=list("abcd")))


def test_coerce_and_missing_numbers():
    x = pd.Series(["a b", "c d", "e f", "g h"], index=[5, 6, 7, 8])
    assert list(txscanmd.kscanx(x, [1, 0, 2, 0], errors="coerce")) == ["a", None, "f", None]
    position, length = txscanmd.kscanx_call(x, pd.array([2, None, 1, 3], "Int64"), errors="coerce")
    np.testing.assert_equal(length.to_numpy(), [1, np.nan, 1, 0])
    # A missing start is no error: NaN, as anywhere in pandas.
    np.testing.assert_equal(txscanmd.kfind(x, " ", [1, np.nan, -3, 4]).to_numpy(), [2, np.nan, 2, 0])


def test_notes_counted_and_warned_once_per_kind():
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        txscanmd.kfind(["abc"] * 5 + ["äbc"], "b", "zq")
    assert sorted((m.code, m.function, m.character, m.count, m.first_row) for m in txscanmd.last_messages()) == \
        [(744, "FIND", "Q", 5, 0), (744, "FIND", "Z", 5, 0)]
    assert [w.category for w in caught] == [txscanmd.TxscanNote] * 2


@pytest.mark.parametrize("function,args", [("kfind", ("b", "zq")), ("kcountc", ("b", "oz")), ("kcountw", (" ", "oz"))])
def test_the_same_call_again_is_noted_again(function, args):
    for _ in range(2):
        getattr(txscanmd, function)(["abc", "bcd"], *args, notes="count")
        assert [(m.character, m.first_row) for m in txscanmd.last_messages()][-1] == ("Z", 0)


@pytest.mark.parametrize("function,first,second,want_first,want_second", [
    ("kfindc", ("b", "o"), ("c", "o"), [2, 2, 1], [3, 1, 2]),      # a set parsed once per call (modifier O)
    ("kcountc", ("ab", "o"), ("c", "o"), [2, 2, 2], [1, 2, 1]),
    ("kcountw", (" ",), ("b",), [1, 2, 1], [2, 2, 1]),
    ("kfind", ("b",), ("b", 3), [2, 2, 1], [0, 0, 3]),
    ("kscanx", (1, " "), (1, "b"), ["abc", "cba", "bcb"], ["a", "c", "c"]),
])
def test_a_changed_constant_gives_its_own_answer(function, first, second, want_first, want_second):
    call = getattr(txscanmd, function)
    rows = ["abc", "cba c", "bcb"]
    for args, want in [(first, want_first), (second, want_second), (first, want_first), (second, want_second)]:
        assert call(rows, *args).tolist() == want
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        txscanmd.kfind(["abc"], "b", "z", notes="count")   # counted, not warned


def test_accessor():
    df = pd.DataFrame({"name": ["Smith, John", "Ødegård, Søren"], "comment": ["a b c", "日本語 テキスト"]})
    assert list(df["name"].txscan.kscanx(-1)) == ["John", "Søren"] and list(df["comment"].txscan.kcountw()) == [3, 2]


@pytest.mark.parametrize("x,options,want", [
    (pd.Series(["a b", "c"], dtype="string"), {}, pd.array([1, None], dtype="Int64")),
    (pd.Series(["a b", "c"], dtype="string"), {"dtype": "float64"}, np.array([1.0, np.nan])),
    (pd.Series(["a b", "c"]), {}, np.array([1.0, np.nan])),
    (pd.Series(["a b", "c"]), {"dtype": "Int64"}, pd.array([1, None], dtype="Int64")),
])
def test_result_dtypes(x, options, want):
    # A missing start gives no result: NA or NaN.
    pd.testing.assert_series_equal(txscanmd.kfind(x, "a", [1, np.nan], **options), pd.Series(want, index=x.index))


def test_string_dtype_text_results_and_absent_rows_give_empty_text():
    x = pd.Series(["Smith, John", None, "b"], dtype="string")
    assert txscanmd.kscanx(x, -1).tolist() == ["John", "", "b"] and txscanmd.kscanx(x, -1).dtype == "string"
    assert list(txscanmd.kscanx([None, b"a b"], 2)) == [b"", b"b"]


@pytest.mark.parametrize("encoding,rows,sought,want", [
    ("UTF-8", ["Grüße", "日本語", "x\U0001F600y", "plain"], "y", [0, 0, 3, 0]),
    ("ISO-8859-1", ["Grüße", "ßa"], "ß", [4, 1]),            # one-byte str read where it lies
    ("ISO-8859-15", ["5 €", "Grüße"], "€", [3, 0]),          # wider str through Python's codec
    ("Shift_JIS", ["日本語", "abc"], "語", [3, 0]),
])
def test_encodings_and_no_copy_left_in_the_callers_strings(encoding, rows, sought, want):
    rows = ["".join(r) for r in rows]   # fresh objects with no UTF-8 copy made yet
    sizes = [sys.getsizeof(r) for r in rows]
    assert list(txscanmd.kfind(rows, sought, encoding=encoding)) == want
    assert [sys.getsizeof(r) for r in rows] == sizes


def test_lone_surrogate_and_mixed_columns_refused_by_row():
    with pytest.raises(ValueError, match="kfind: argument 1, row 1: the text has no UTF-8 form"):
        txscanmd.kfind(["a", "b\ud800"], "a")
    with pytest.raises(ValueError, match="kscanx: argument 2, row 0: int is not text"):
        txscanmd.kscanx(["a", "b", "c"], np.array([1, 2.0, "x"], dtype=object))
    # Numbers in an object column are a number column.
    assert list(txscanmd.kscanx(["a b", "c d", "e"], np.array([1, 2.0, np.int64(1)], dtype=object))) == ["a", "d", "e"]


def test_batches_give_the_rows_and_counts_of_one_run():
    rows = generated.generate(1000) * 150 + [None, "zz"]   # past two batches, not a multiple of 8
    rows[70001] = None
    whole = txscanmd.kfind(rows, "e", "zi", notes="count")
    counted = txscanmd.last_messages()
    parts, counts = [], 0
    for i in range(0, len(rows), 50000):
        parts.append(txscanmd.kfind(rows[i:i + 50000], "e", "zi", notes="count"))
        counts += txscanmd.last_messages()[0].count
    np.testing.assert_array_equal(whole, np.concatenate(parts))
    assert [(m.character, m.count, m.first_row) for m in counted] == [("Z", counts, 2)]
    assert txscanmd.kscanx(rows, 1)[[70001, -2, -1]].tolist() == ["", "", "zz"]
    # Which rows are ASCII str is noted for the whole column; later batches read it at their own rows.
    unique = [f"a{i}" for i in range(70000)] + [f"é{i}" for i in range(70000)]
    assert txscanmd.kscanx(unique, 1).tolist() == unique
    # A column is read batch by batch, yet answers as one: bytes results turn str once str is met.
    assert txscanmd.kscanx([b"b\xc3\xa9"] * 70000 + ["c"], 1).tolist() == ["bé"] * 70000 + ["c"]
    for bad, message in [(3, "row 70000: int is not text"), ("\udfff", "row 70000: the text has no UTF-8 form")]:
        with pytest.raises(ValueError, match=message):
            txscanmd.kfind(["a"] * 70000 + [bad, 4], "a")
    with pytest.raises(ValueError, match="argument 1 must hold text"):
        txscanmd.kfind([None] * 70000 + [3], "a")


@pytest.mark.parametrize("first,second", [(["ab", "ab", "cd"], ["ab", "ef"]), (["é1", "é1"], ["é1", "é2", "é1"])])
def test_shared_results_are_let_go_when_the_call_ends(first, second):
    # The thread's table of shared results serves the next call too; it
    # keeps no reference of its own, and no answer of the call before.
    for rows in (first, second, first):
        got = txscanmd.kscanx(pd.Series(rows, dtype=object), 1)
        item = got.values[0]
        references = sys.getrefcount(item) - 2   # less this name's and the call's own
        assert got.tolist() == rows and references == rows.count(rows[0])


@pytest.fixture(params=[2, 1, 0], ids=["avx512", "avx2", "plain"])
def utf8_writers(request):
    if request.param > _core._best_utf8_writer():
        pytest.skip("this CPU lacks that writer")
    was = _core._set_utf8_writer(request.param)
    yield
    _core._set_utf8_writer(was)


def test_every_str_layout_reaches_the_engine_and_comes_back_unchanged(utf8_writers):
    # Rows of each width (ASCII, Latin-1, two-byte below and above U+0800, four-byte) and mixed, of
    # every length around the 8-character blocks, repeated so that equal
    # short results are shared; a whole row is its one word.
    rng = random.Random(5)
    alphabets = ["abc xyz", "aé ÿ\x80", "aéŁ\u07ff", "aé€日\uffff", "a日\U0001F600\U0010FFFF",
                 "a\x7f\x80\u07ff\u0800\uffff\U00010000"]
    rows = ["".join(rng.choice(chars) for _ in range(n)) for chars in alphabets for n in range(1, 70) for _ in range(3)]
    # ASCII runs of a whole vector and more, broken by one wide character.
    rows += ["x" * n + w + "y" * m for w in ("é", "Ł", "€", "\U0001F600") for n in (15, 16, 31, 32, 33) for m in (0, 17, 40)]
    rows += rows[::7]
    assert txscanmd.kscanx(rows, 1, "\x01", length=1000).tolist() == rows
    for at in (0, 5, 8, 13, 16, 30):
        with pytest.raises(ValueError, match=f"row 1: the text has no UTF-8 form"):
            txscanmd.kfind(["a", "é日" * 15 + "x" * at + "\udfff" + "y" * 9], "a")
