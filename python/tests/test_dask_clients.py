"""Fits and searches through one client of several, through none, and inside the tasks of a cluster."""

from __future__ import annotations

import asyncio
import pickle
from pathlib import Path
from typing import Any

import dask.array as da
import numpy as np
import pytest
from distributed import Client, LocalCluster, worker_client

import clastool.dask as cd
from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier


def sample(rows: int, seed: int = 1) -> Any:
    random = np.random.default_rng(seed)
    y = random.integers(0, 3, rows)
    return random.normal(size=(rows, 3)) + y[:, np.newaxis], y


X, y = sample(200)
LAZY_X, LAZY_Y = da.from_array(X, chunks=(70, 3)), da.from_array(y, chunks=70)
QUERIES = sample(40, 2)[0]
EXPECTED = KNeighborsCostClassifier().fit(X, y)


def same(found: Any, expected: Any) -> None:
    assert found.dtype == expected.dtype
    np.testing.assert_array_equal(found, expected)


@pytest.fixture
def fitted_elsewhere(cluster: Any) -> Any:
    """An estimator whose shards another client holds than the current one."""
    with Client(cluster) as holder:
        fitted = cd.KNeighborsCostClassifier().fit(LAZY_X, LAZY_Y)
        with (
            LocalCluster(n_workers=1, threads_per_worker=1, processes=False, dashboard_address=None) as other,
            Client(other) as current,
        ):
            yield fitted, holder, current


def test_the_client_that_holds_the_shards_searches_them(fitted_elsewhere: Any, tmp_path: Path) -> None:
    fitted, holder, current = fitted_elsewhere
    same(fitted.predict_proba(QUERIES), EXPECTED.predict_proba(QUERIES))
    fitted.replicate(2)
    for copies in fitted.tool_.shards:
        held = holder.who_has([shard.dask[shard.key] for shard in copies])
        assert len(held) == 2 and all(held.values())
    fitted.save(tmp_path / "model")
    loaded = cd.KNeighborsCostClassifier.load(tmp_path / "model")
    assert {shard.dask[shard.key].client for (shard,) in loaded.tool_.shards} == {current}
    same(loaded.predict_proba(QUERIES), EXPECTED.predict_proba(QUERIES))


def test_an_estimator_from_a_pickle_finds_its_shards(cluster: Any) -> None:
    with Client(cluster):
        fitted = cd.KNeighborsCostClassifier().fit(LAZY_X, LAZY_Y)
        data = pickle.dumps(fitted)
        same(pickle.loads(data).predict_proba(QUERIES), EXPECTED.predict_proba(QUERIES))
    alone = pickle.loads(data)
    text = "^the shards are on the workers of a cluster, and this process has no client of it$"
    works: list[Any] = [lambda: alone.predict(QUERIES), lambda: alone.predict(LAZY_X), lambda: alone.replicate(2)]
    for work in works:
        with pytest.raises(RuntimeError, match=text):
            work()


def test_a_closed_client_makes_no_copies(cluster: Any) -> None:
    with Client(cluster):
        fitted = cd.KNeighborsCostClassifier().fit(LAZY_X, LAZY_Y)
    with pytest.raises(RuntimeError, match="^the client that held the shards is closed or has lost its scheduler: "):
        fitted.replicate(2)


def test_an_asynchronous_client_is_refused() -> None:
    async def fit() -> None:
        async with (
            LocalCluster(n_workers=1, threads_per_worker=1, processes=False, dashboard_address=None, asynchronous=True) as cluster,
            Client(cluster, asynchronous=True) as client,
        ):
            model = BayesCostClassifier().fit(X, y)
            same(await client.compute(cd.predict(model, LAZY_X)), model.predict(X))
            with pytest.raises(RuntimeError, match="^a client that is asynchronous cannot fit: only what is lazy works with it$"):
                cd.BayesCostClassifier().fit(LAZY_X, LAZY_Y)

    asyncio.run(fit())


def answers() -> Any:
    blocks, labels = da.from_array(X, chunks=(70, 3)), da.from_array(y, chunks=70)
    near = cd.KNeighborsCostClassifier().fit(blocks, labels)
    bayes = cd.BayesCostClassifier().fit(blocks, labels)
    return near.predict_proba(QUERIES), near.predict(blocks).compute(), bayes.predict(X)


def answers_with_a_client() -> Any:
    with worker_client():
        return answers()


def probabilities(model: Any) -> Any:
    return model.predict_proba(QUERIES)


@pytest.mark.parametrize("work", [answers, answers_with_a_client])
def test_a_task_fits_and_searches(client: Any, work: Any) -> None:
    # Each worker has one thread: a task that kept it while it waits would wait for ever.
    near, decided, by_bayes = client.submit(work, pure=False).result(600)
    same(near, EXPECTED.predict_proba(QUERIES))
    same(decided, EXPECTED.predict(X))
    same(by_bayes, BayesCostClassifier().fit(X, y).predict(X))


def test_a_task_gets_an_estimator_with_shards(client: Any) -> None:
    fitted = cd.KNeighborsCostClassifier().fit(LAZY_X, LAZY_Y)
    same(client.submit(probabilities, fitted, pure=False).result(600), EXPECTED.predict_proba(QUERIES))
