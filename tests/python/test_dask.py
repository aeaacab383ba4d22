"""New columns over a 200k-row CSV file on a two-process local cluster, equal
to the same columns computed in this process."""
import dask.dataframe as dd
import pandas as pd
import pytest
from distributed import Client, LocalCluster

import rows as generated
import txscanmd.dask
from txscanmd.dask import col


def test_two_worker_processes_match_one_process(tmp_path):
    path = tmp_path / "people.csv"
    comments = generated.generate(200_000, seed=2)
    frame = pd.DataFrame({"name": generated.generate(200_000, seed=1), "comment": comments,
                          "pattern": [c[-2:] for c in comments]})
    frame.loc[::997, "comment"] = None
    frame.to_csv(path, index=False)
    frame = pd.read_csv(path)
    position, length = txscanmd.kscanx_call(frame["comment"], 2)
    expected = frame.assign(surname=txscanmd.kscanx(frame["name"], 1, ","), words=txscanmd.kcountw(frame["comment"]),
                            at=txscanmd.kfind(frame["comment"], frame["pattern"], "i"),
                            word2_position=position, word2_length=length)
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster, \
            Client(cluster):
        ddf = dd.read_csv(path, blocksize=2_000_000)
        assert ddf.npartitions >= 4
        got = txscanmd.dask.assign(ddf, surname=("kscanx", "name", 1, ","), words=("kcountw", "comment"),
                                   at=("kfind", "comment", col("pattern"), "i"), word2=("kscanx_call", "comment", 2))
        got = got.compute()
    pd.testing.assert_frame_equal(got.reset_index(drop=True), expected)


def test_unknown_column_refused_before_any_work():
    with pytest.raises(ValueError, match="new uses column 'x', which the frame does not have"):
        txscanmd.dask.assign(dd.from_pandas(pd.DataFrame({"name": ["a b"]}), npartitions=1),
                             new=("kfind", "name", col("x")))


def test_accessor_line_works_on_pandas_and_dask():
    frame = pd.DataFrame({"text": generated.generate(3000, seed=5), "word": ["e", "a", "the"] * 1000})
    frame.loc[::7, "text"] = None
    ddf = dd.from_pandas(frame, npartitions=4)
    for name, call in [("kfind", lambda s, f: s.txscan.kfind(f["word"], "i")),
                       ("kscanx", lambda s, f: s.txscan.kscanx(-1)),
                       ("kcountw string", lambda s, f: s.astype("string").txscan.kcountw()),
                       ("kscanx_call", lambda s, f: s.txscan.kscanx_call(2)[1])]:
        want = call(frame["text"], frame)
        got = call(ddf["text"], ddf)
        assert got.dtype == want.dtype, name
        pd.testing.assert_series_equal(got.compute(), want, obj=name)
