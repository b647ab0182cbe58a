"""Workers die, and blocks are not what they are said to be: the answer stays the same, or there is one error."""

from __future__ import annotations

import os
import signal
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import dask
import dask.array as da
import dask.dataframe as dd
import numpy as np
import pandas as pd
import pytest
from sklearn.datasets import load_iris

import clastool.dask as cd
from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier

IRIS, SPECIES = load_iris(return_X_y=True)
NAMES = np.array(["setosa", "versicolor", "virginica"])[SPECIES]
BIG, BIG_NAMES = np.tile(IRIS, (4, 1)), np.tile(NAMES, 4)


@pytest.fixture(autouse=True)
def no_hang() -> Iterator[None]:
    """A test that hangs fails."""

    def fail(*_: object) -> None:
        raise TimeoutError("the computation does not end")

    before = signal.signal(signal.SIGALRM, fail)
    signal.alarm(600)
    yield
    signal.alarm(0)
    signal.signal(signal.SIGALRM, before)


@pytest.fixture
def client(client_to_kill: Any) -> Any:
    return client_to_kill


def dying(part: Any, deaths: Path, most: int = 1, block_id: Any = None, at: int = 7) -> Any:
    """A part that kills the worker that asks for it, so many times."""
    if block_id is None or block_id[0] == at:
        died = len(list(deaths.iterdir()))
        if died < most:
            (deaths / str(died)).touch()
            os.kill(os.getpid(), signal.SIGKILL)
    return part


def deadly(values: Any, deaths: Path, most: int = 1) -> Any:
    """An array of twelve blocks, of which one kills the worker that computes it."""
    lazy = da.from_array(values, chunks=(50, *values.shape[1:]))
    return lazy.map_blocks(dying, deaths, most, dtype=lazy.dtype, meta=lazy._meta)


def close(fitted: Any, expected: Any) -> None:
    np.testing.assert_array_equal(fitted.class_count_, expected.class_count_)
    for density, other in zip(fitted.tool_.densities(), expected.tool_.densities(), strict=True):
        assert density.count == other.count
        np.testing.assert_allclose(density.mean, other.mean, rtol=1e-12)
        np.testing.assert_allclose(density.covariance, other.covariance, rtol=1e-12, atol=1e-12)


# Workers that die


def test_a_worker_dies_while_labels_are_counted_and_another_while_rows_are_learnt(client: Any, tmp_path: Path) -> None:
    (tmp_path / "X").mkdir()
    y = da.from_array(BIG_NAMES, chunks=50)
    fitted = cd.BayesCostClassifier(groups="all").fit(deadly(BIG, tmp_path / "X"), y)
    assert len(list((tmp_path / "X").iterdir())) == 1
    close(fitted, BayesCostClassifier(groups="all").fit(BIG, BIG_NAMES))


def test_a_worker_dies_while_rows_are_classified(client: Any, tmp_path: Path) -> None:
    model = KNeighborsCostClassifier().fit(IRIS, NAMES)
    found = cd.predict_proba(model, deadly(BIG, tmp_path)).compute()
    assert len(list(tmp_path.iterdir())) == 1
    np.testing.assert_array_equal(found, model.predict_proba(BIG))


def test_a_worker_dies_that_holds_partitions(client: Any) -> None:
    X, y = da.from_array(BIG, chunks=(50, 4)).persist(), da.from_array(BIG_NAMES, chunks=50).persist()
    model = BayesCostClassifier().fit(IRIS, NAMES)
    answers = cd.predict(model, X).persist()
    answers.compute()
    dead = next(worker for worker, held in client.has_what().items() if held)
    pid = client.run(os.getpid, workers=[dead])[dead]
    os.kill(pid, signal.SIGKILL)
    close(cd.BayesCostClassifier().fit(X, y), BayesCostClassifier().fit(BIG, BIG_NAMES))
    np.testing.assert_array_equal(answers.compute(), model.predict(BIG))


# Blocks that are not what they are said to be


def blocks(*parts: Any) -> Any:
    """An array that says that each block is like the first one."""
    shape = parts[0].shape[1:]
    return da.concatenate(
        [da.from_delayed(dask.delayed(part), (len(part), *shape), dtype=parts[0].dtype) for part in parts]
    )


def test_all_partitions_without_a_measurement_are_refused_as_on_one_machine() -> None:
    missing = np.full_like(IRIS, np.nan)
    with pytest.raises(ValueError) as alone:
        BayesCostClassifier().fit(np.vstack([missing, missing]), np.tile(NAMES, 2))
    with pytest.raises(type(alone.value)) as lazy:
        cd.BayesCostClassifier().fit(blocks(missing, missing), blocks(NAMES, NAMES))
    assert str(lazy.value) == str(alone.value)


def test_columns_of_a_partition_in_another_order_are_refused() -> None:
    table = pd.DataFrame(IRIS, columns=["a", "b", "c", "d"])
    parts = [dask.delayed(table), dask.delayed(table[["b", "a", "c", "d"]])]
    X = dd.from_delayed(parts, meta=table[:0], verify_meta=False)
    y = dd.from_delayed([dask.delayed(pd.Series(NAMES)) for _ in parts], meta=pd.Series(NAMES[:0]))
    text = r"^partition 1: columns are \['b', 'a', 'c', 'd'\], but \['a', 'b', 'c', 'd'\] are expected$"
    with pytest.raises(ValueError, match=text):
        cd.BayesCostClassifier().fit(X, y)
    with pytest.raises(ValueError, match=text):
        cd.predict(BayesCostClassifier().fit(IRIS, NAMES).tool_, X).compute()


@pytest.fixture
def parquet(tmp_path: Path) -> Path:
    """Twenty files, the 13th with an infinite number in the first column."""
    for number in range(20):
        table = pd.DataFrame(IRIS, columns=["a", "b", "c", "d"]).assign(label=NAMES)
        table["a"] = np.inf if number == 13 else table["a"]
        table.to_parquet(tmp_path / f"{number:02}.parquet")
    return tmp_path


def test_partitions_of_parquet_are_those_of_the_files(parquet: Path) -> None:
    lazy = dd.read_parquet(parquet)
    # Of few columns Dask would read several files at once.
    assert lazy["label"].optimize().npartitions < lazy.npartitions == 20
    X, y, few = lazy[["b", "c", "d"]], lazy["label"], lazy[["a"]]
    close(cd.BayesCostClassifier().fit(X, y), BayesCostClassifier().fit(X.compute(), y.compute()))
    with pytest.raises(ValueError, match="^partition 13: Input X contains infinity"):
        cd.BayesCostClassifier().fit(few, y)
    model = BayesCostClassifier().fit(pd.DataFrame({"a": IRIS[:, 0]}), NAMES)
    with pytest.raises(ValueError, match=r"^partition \d: Input X contains infinity"):
        cd.predict(model, few).compute()
    with dask.config.set({"optimization.tune.active": False}):
        with pytest.raises(ValueError, match="^partition 13: Input X contains infinity"):
            cd.predict(model, few).compute()
    model = BayesCostClassifier().fit(X.compute(), y.compute())
    found = cd.predict(model, X)
    assert found.npartitions == 20
    np.testing.assert_array_equal(found.compute(), model.predict(X.compute()))


def test_answers_of_few_columns_of_parquet_stay_with_their_rows(parquet: Path) -> None:
    """Each file has the same index, so rows can be paired by their places alone."""
    lazy = dd.read_parquet(parquet)
    table = lazy.compute()
    model = BayesCostClassifier().fit(table[["b"]], table["label"])
    expected = model.predict(table[["b"]])
    found = cd.predict(model, lazy[["b"]])
    joined = lazy.assign(found=found).compute()
    np.testing.assert_array_equal(joined["b"], table["b"])
    np.testing.assert_array_equal(joined["found"], expected)
    assert float((found == lazy["label"]).mean().compute()) == np.mean(expected == table["label"])


def test_shards_refuse_columns_in_another_order() -> None:
    table = pd.DataFrame(IRIS, columns=["a", "b", "c", "d"])
    parts = [dask.delayed(part) for part in (table, table[["b", "a", "c", "d"]])]
    X = dd.from_delayed(parts, meta=table[:0], verify_meta=False)
    y = dd.from_delayed([dask.delayed(pd.Series(NAMES))] * 2, meta=pd.Series(NAMES)[:0])
    text = r"^partition 1: columns are \['b', 'a', 'c', 'd'\], but \['a', 'b', 'c', 'd'\] are expected$"
    with pytest.raises(ValueError, match=text):
        cd.KNeighborsCostClassifier().fit(X, y)


def test_a_fit_that_fails_leaves_the_estimator_as_it_was() -> None:
    model = cd.BayesCostClassifier().fit(pd.DataFrame(IRIS[:, :2], columns=["a", "b"]), NAMES)
    before = {name: id(value) for name, value in vars(model).items()}
    with pytest.raises(ValueError, match="^partition 1: X has 3 columns, but 4 are expected$"):
        model.fit(blocks(IRIS, IRIS[:, :3]), blocks(NAMES, NAMES))
    assert {name: id(value) for name, value in vars(model).items()} == before


def test_a_block_of_one_dimension_is_not_learnt() -> None:
    text = "^partition 1: X must have two dimensions, not 1$"
    flat = da.concatenate([da.from_delayed(dask.delayed(part), (150, 4), dtype=float) for part in (IRIS, IRIS[:, 0])])
    with pytest.raises(ValueError, match=text):
        cd.BayesCostClassifier().fit(flat, blocks(NAMES, NAMES))
