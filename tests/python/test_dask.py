"""New columns over a CSV file on a two-process local cluster, equal to the
same columns computed in this process."""
import dask.dataframe as dd
import numpy as np
import pandas as pd
import pytest
from distributed import Client, LocalCluster

import rows as generated
import txscanmd.dask
from txscanmd.dask import col

COLUMNS = {
    "surname": ("kscanx", "name", 1, ","),
    "first": ("kscanx", "name", -1),
    "words": ("kcountw", "comment"),
    "at": ("kfind", "comment", col("pattern"), "i"),
    "word2": ("kscanx_call", "comment", 2),
}


@pytest.fixture(scope="module")
def csv_file(tmp_path_factory):
    path = tmp_path_factory.mktemp("dask") / "people.csv"
    names = generated.generate(200_000, seed=1)
    comments = generated.generate(200_000, seed=2)
    frame = pd.DataFrame({"name": names, "comment": comments, "pattern": [c.split()[-1][:2] for c in comments]})
    frame.loc[::997, "comment"] = None
    frame.to_csv(path, index=False)
    return path


def test_two_worker_processes_match_one_process(csv_file):
    frame = pd.read_csv(csv_file)
    position, length = txscanmd.kscanx_call(frame["comment"], 2)
    expected = frame.assign(surname=txscanmd.kscanx(frame["name"], 1, ","), first=txscanmd.kscanx(frame["name"], -1),
                            words=txscanmd.kcountw(frame["comment"]),
                            at=txscanmd.kfind(frame["comment"], frame["pattern"], "i"),
                            word2_position=position, word2_length=length)
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster, \
            Client(cluster):
        ddf = dd.read_csv(csv_file, blocksize=2_000_000)
        assert ddf.npartitions >= 4
        got = txscanmd.dask.assign(ddf, **COLUMNS).compute()
    pd.testing.assert_frame_equal(got.reset_index(drop=True), expected)
    assert np.isnan(got["words"]).sum() == 0 and (got["word2_length"] > 0).mean() > 0.9


def test_refusals_before_any_work():
    ddf = dd.from_pandas(pd.DataFrame({"name": ["a b"]}), npartitions=1)
    for spec, message in [(("upper", "name"), "must be \\(function, column"),
                          (("kscanx", "nom", 1), "uses column 'nom'"),
                          (("kfind", "name", col("x")), "uses column 'x'")]:
        with pytest.raises(ValueError, match=message):
            txscanmd.dask.assign(ddf, new=spec)
