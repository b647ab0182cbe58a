"""Nearest neighbours in shards: the answers are those of one machine, to the bit."""

from __future__ import annotations

import json
import os
import re
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import dask
import dask.array as da
import dask.dataframe as dd
import numpy as np
import pandas as pd
import pytest
from distributed import Client
from distributed.protocol.pickle import dumps

import clastool.dask as cd
from clastool import ClassifierTool, KNNParams, Norm
from clastool import _dask_shards
from clastool._dask_shards import _merged, _nearest, _searched
from clastool.sklearn import KNeighborsCostClassifier

METHODS = ["predict", "predict_proba", "expected_costs"]
COSTS = [[0, 1, 2], [5, 0, 3], [8, 2, 0]]


@pytest.fixture(autouse=True)
def in_this_process() -> Iterator[None]:
    """Unless a test has a client."""
    with dask.config.set(scheduler="synchronous"):
        yield


@pytest.fixture
def client(client: Any) -> Iterator[Any]:
    with dask.config.set(scheduler=client):
        yield client


def sample(rows: int, seed: int = 1) -> Any:
    random = np.random.default_rng(seed)
    y = random.integers(0, 3, rows)
    return random.normal(size=(rows, 3)) + y[:, np.newaxis], y


def lazy(X: Any, y: Any, sizes: Any) -> Any:
    """Dask arrays with blocks of these sizes."""
    return da.from_array(X, chunks=(tuple(sizes), X.shape[1])), da.from_array(y, chunks=(tuple(sizes),))


def cut(rows: int, random: Any, most: int = 20) -> list[int]:
    cuts = np.sort(random.integers(0, rows + 1, int(random.integers(0, most))))
    return [int(size) for size in np.diff([0, *cuts, rows])]


def shards(fitted: Any) -> Any:
    return fitted.tool_.shards


def same(found: Any, expected: Any) -> None:
    assert found.dtype == expected.dtype
    np.testing.assert_array_equal(found, expected)


def same_answers(fitted: Any, expected: Any, queries: Any) -> None:
    for method in METHODS:
        same(getattr(fitted, method)(queries), getattr(expected, method)(queries))
    for found, known in zip(fitted.kneighbors(queries), expected.kneighbors(queries)):
        same(found, known)


# The merge


def plain_scan(rows: Any, query: Any, k: int, order: float) -> tuple[list[float], list[int]]:
    """The definition: a sorted list of k at most, in which a new row goes before its equals, and which a full list takes only if it is
    nearer than the last."""
    norm = Norm(order)
    near: list[tuple[float, int]] = []
    for i, row in enumerate(rows):
        distance = norm(query, row)
        if len(near) < k or distance < near[-1][0]:
            place = next((j for j, (other, _) in enumerate(near) if distance <= other), len(near))
            near = [*near[:place], (distance, i), *near[place:]][:k]
    return [distance for distance, _ in near], [i for _, i in near]


def shards_of(X: Any, y: Any, sizes: list[int], order: float) -> list[tuple[ClassifierTool, int]]:
    tools = []
    for first, size in zip(np.cumsum([0, *sizes]).tolist(), sizes):
        if size:
            tool = ClassifierTool()
            tool.train(X[first : first + size], y[first : first + size], KNNParams(3, Norm(order)))
            tools.append((tool, first))
    return tools


@pytest.mark.parametrize("seed", range(60))
def test_shards_merge_to_what_a_plain_scan_finds(seed: int) -> None:
    random = np.random.default_rng(seed)
    rows, width = int(random.integers(1, 90)), int(random.integers(1, 4))
    X = random.integers(0, int(random.integers(1, 5)), (rows, width)).astype(float)
    # Rows in any order, in order of their distance from the origin, or in the opposite one.
    order = [np.arange(rows), *(np.argsort(sign * X.sum(axis=1), kind="stable") for sign in (1, -1))][seed % 3]
    X, y = X[order], random.integers(0, 3, rows)
    k, p = int(random.integers(1, 30)), [0.5, 1.0, 2.0, 3.0][seed % 4]
    queries = np.vstack([np.zeros(width), random.integers(0, 4, (3, width))]).astype(float)
    found = [_searched(tool, queries, k, Norm(p), first) for tool, first in shards_of(X, y, cut(rows, random), p)]
    assert (found[0].counts <= k).all()
    assert all((part.counts.astype(int) < 2 * k).all() for part in found)
    while len(found) > 1 and random.random() < 0.7:
        place = int(random.integers(0, len(found) - 1))
        found[place : place + 3] = [_merged(found[place : place + 3], k)]
        assert (found[place].counts.astype(int) < 2 * k).all()
    near = _nearest(found, k)
    for place, query in enumerate(queries):
        distances, indices = plain_scan(X, query, k, p)
        assert near.distances[place].tolist() == distances
        assert near.indices[place].tolist() == indices
        assert near.labels[place].tolist() == y[indices].tolist()


def test_many_ties_of_which_the_last_shard_holds_early_ones() -> None:
    # Of 400 rows at distance 1, five stand in the first shard; nearer ones come last.
    X = np.concatenate([np.ones(5), np.full(3, 9.0), np.ones(395), np.full(4, 0.5)])[:, np.newaxis]
    y = np.arange(len(X)) % 3
    tools = shards_of(X, y, [8, 399], 2.0)
    found = [_searched(tool, np.zeros((1, 1)), 7, Norm(2), first) for tool, first in tools]
    # The second shard sends its nearer rows, and seven ties that have left its own list.
    assert sorted(found[1].indices.tolist()) == [*range(8, 15), *range(403, 407)]
    near = _nearest(found, 7)
    assert near.indices[0].tolist() == plain_scan(X, [0.0], 7, 2.0)[1] == [406, 405, 404, 403, 9, 8, 4]


def test_rows_at_no_distance_that_a_number_holds() -> None:
    X = np.array([[1e200], [-1e200], [0.0], [1e200], [3.0], [-1e200]])
    y = np.array([0, 1, 2, 0, 1, 2])
    for k in range(1, 7):
        fitted = cd.KNeighborsCostClassifier(k, p=3).fit(*lazy(X, y, [2, 1, 3]))
        same_answers(fitted, KNeighborsCostClassifier(k, p=3).fit(X, y), X)


def test_a_shard_sends_little() -> None:
    X, y = sample(3000)
    queries = sample(100, 2)[0]
    for k in (1, 5, 40):
        for tool, first in shards_of(X, y, [1000] * 3, 2.0):
            found = _searched(tool, queries, k, Norm(2), first)
            assert found.counts.tolist() == [k] * 100
            # A distance, a row and a label for each, and how many there are.
            assert [part.itemsize for part in found] == [1, 8, 4, 1]
            assert sum(part.nbytes for part in found) == 100 * (13 * k + 1)
    many = _merged([_searched(tool, queries, 5, Norm(2), first + 2**33) for tool, first in shards_of(X, y, [1000] * 3, 2.0)], 5)
    assert many.indices.dtype == np.int64 and many.indices.min() >= 2**33


# The estimator


@pytest.mark.parametrize("kind", ["whole", "negative", "text", "objects", "booleans", "few bytes"])
def test_labels_of_any_kind(kind: str) -> None:
    X, y = sample(200)
    labels = {
        "whole": y * 1000,
        "negative": y - 1,
        "text": np.array(["a", "bb", "ccc"])[y],
        "objects": np.array(["a", "bb", "ccc"], dtype=object)[y],
        "booleans": y > 0,
        "few bytes": y.astype(np.uint8),
    }[kind]
    expected = KNeighborsCostClassifier(4).fit(X, labels)
    fitted = cd.KNeighborsCostClassifier(4).fit(*lazy(X, labels, [50, 0, 130, 20]))
    same(fitted.classes_, expected.classes_)
    same(fitted.class_count_, expected.class_count_)
    same(fitted.tool_.categories, expected.tool_.categories)
    same_answers(fitted, expected, sample(40, 2)[0])


@pytest.mark.parametrize(
    "parameters", [{"p": 1}, {"p": 0.7}, {"metric": lambda a, b: abs(a - b).max()}, {"costs": COSTS}],
    ids=lambda parameters: next(iter(parameters)),
)
@pytest.mark.parametrize("k", [1, 6, 500])
def test_any_parameters(parameters: Any, k: int) -> None:
    X, y = sample(120)
    X = np.round(X)
    expected = KNeighborsCostClassifier(k, **parameters).fit(X, y)
    fitted = cd.KNeighborsCostClassifier(k, **parameters).fit(*lazy(X, y, [1, 9, 60, 50]))
    queries = np.round(sample(30, 2)[0])
    for method in METHODS:
        same(getattr(fitted, method)(queries), getattr(expected, method)(queries))
    for count in (1, 7, 120):
        for found, known in zip(fitted.kneighbors(queries, count), expected.kneighbors(queries, count)):
            same(found, known)
    same(fitted.kneighbors(queries, 3, return_distance=False), expected.kneighbors(queries, 3)[1])
    assert fitted.score(queries, y[:30]) == expected.score(queries, y[:30])
    assert fitted.paid_cost(queries, y[:30]) == expected.paid_cost(queries, y[:30])


@pytest.mark.parametrize("method", METHODS)
def test_collections_are_answered_lazily(method: str) -> None:
    X, y = sample(150)
    expected = KNeighborsCostClassifier(costs=COSTS).fit(X, y)
    fitted = cd.KNeighborsCostClassifier(costs=COSTS).fit(*lazy(X, y, [70, 80]))
    queries = sample(50, 2)[0]
    known = getattr(expected, method)(queries)
    for apply in (getattr(fitted, method), lambda blocks: getattr(cd, method)(fitted, blocks)):
        answers = apply(da.from_array(queries, chunks=((20, 0, 30), (2, 1))))
        assert isinstance(answers, da.Array) and answers.shape == known.shape and answers.dtype == known.dtype
        assert answers.chunks[0] == (20, 0, 30)
        same(answers.compute(), known)
    unknown = da.from_array(queries.astype(np.float32), chunks=(20, 3))
    unknown = unknown[unknown[:, 0] > 0.5]
    small = queries.astype(np.float32)
    same(getattr(fitted, method)(unknown).compute(), getattr(expected, method)(small[small[:, 0] > 0.5]))


@pytest.mark.parametrize("method", METHODS)
def test_frames_keep_index_and_names(method: str) -> None:
    X, y = sample(150)
    table = pd.DataFrame(X, columns=["a", "b", "c"]).assign(label=np.array(["x", "y", "z"])[y])
    parts = dd.from_pandas(table, npartitions=4)
    fitted = cd.KNeighborsCostClassifier().fit(parts[["a", "b", "c"]], parts["label"])
    expected = KNeighborsCostClassifier().fit(table[["a", "b", "c"]], table["label"])
    assert fitted.feature_names_in_.tolist() == ["a", "b", "c"]
    queries = table[["a", "b", "c"]][20:90] + 0.25
    answers = getattr(fitted, method)(dd.from_pandas(queries, npartitions=3))
    found = answers.compute()
    known = getattr(expected, method)(queries)
    same(found.to_numpy().astype(known.dtype), known)
    np.testing.assert_array_equal(found.index, queries.index)
    assert answers.npartitions == 3 and answers.known_divisions
    if method != "predict":
        assert list(found.columns) == list(answers.columns) == ["x", "y", "z"]
    filtered = dd.from_pandas(queries, npartitions=3)
    filtered = filtered[filtered.a > 1.0]
    found = getattr(fitted, method)(filtered).compute().to_numpy()
    same(found.astype(known.dtype), known[queries.a > 1.0])


def test_kneighbors_of_collections() -> None:
    X, y = sample(100)
    queries = sample(30, 2)[0]
    expected = KNeighborsCostClassifier().fit(X, y)
    for fitted in (cd.KNeighborsCostClassifier().fit(*lazy(X, y, [40, 60])), cd.KNeighborsCostClassifier().fit(X, y)):
        distances, indices = fitted.kneighbors(da.from_array(queries, chunks=(10, 3)), 4)
        assert distances.chunks == indices.chunks == ((10, 10, 10), (4,))
        same(distances.compute(), expected.kneighbors(queries, 4)[0])
        same(indices.compute(), expected.kneighbors(queries, 4)[1])
        parts = dd.from_pandas(pd.DataFrame(queries), npartitions=2)
        same(fitted.kneighbors(parts, 4, return_distance=False).compute(), expected.kneighbors(queries, 4)[1])


def test_kneighbors_of_partitions_without_rows() -> None:
    X, y = sample(100)
    queries = sample(30, 2)[0]
    expected = KNeighborsCostClassifier().fit(X, y)
    fitted = cd.KNeighborsCostClassifier().fit(*lazy(X, y, [40, 60]))
    array = da.from_array(queries, chunks=((0, 10, 0, 20), 3))
    frame = dd.from_pandas(pd.DataFrame(queries), npartitions=3).map_partitions(lambda part: part[part.index < 12])
    for blocks, rows in [(array, 30), (frame, 12), (array[array[:, 0] > 1e9], 0)]:
        distances, indices = fitted.kneighbors(blocks, 4)
        known = expected.kneighbors(queries, 4)
        same(distances.compute(), known[0][:rows])
        same(indices.compute(), known[1][:rows])


@pytest.mark.parametrize("names", [["a", "b", "c"], [0, 1, 2]], ids=["names", "numbers"])
def test_queries_in_another_order_of_columns_are_refused(names: Any) -> None:
    X, y = sample(60)
    table = pd.DataFrame(X, columns=names)
    fitted = cd.KNeighborsCostClassifier().fit(dd.from_pandas(table, npartitions=2), dd.from_pandas(pd.Series(y), npartitions=2))
    parts = [dask.delayed(part) for part in (table, table[names[::-1]])]
    queries = dd.from_delayed(parts, meta=table[:0], verify_meta=False)
    text = re.escape(f"partition 1: columns are {names[::-1]}, but {names} are expected")
    with pytest.raises(ValueError, match=f"^{text}$"):
        fitted.predict(queries).compute()


def test_recost_and_other_parameters_of_a_fitted_one() -> None:
    X, y = sample(100)
    expected = KNeighborsCostClassifier().fit(X, y)
    fitted = cd.KNeighborsCostClassifier().fit(*lazy(X, y, [40, 60]))
    for estimator in (fitted, expected):
        estimator.set_params(n_neighbors=9, p=1)
        estimator.recost(COSTS)
    same_answers(fitted, expected, sample(30, 2)[0])


def test_without_dask_it_is_the_estimator_for_scikit_learn(tmp_path: Path) -> None:
    X, y = sample(100)
    fitted = cd.KNeighborsCostClassifier().fit(X, y).replicate(3)
    assert isinstance(fitted.tool_, ClassifierTool)
    fitted.save(tmp_path / "one.tool")
    for estimator in (fitted, cd.KNeighborsCostClassifier.load(tmp_path / "one.tool")):
        same_answers(estimator, KNeighborsCostClassifier().fit(X, y), X)


def blocks(*parts: Any) -> Any:
    """An array that says that each block has three columns."""
    return da.concatenate([da.from_delayed(dask.delayed(part), (len(part), 3), dtype=float) for part in parts])


def test_what_is_refused_names_the_partition() -> None:
    X, y = sample(60)
    nan = X.copy()
    nan[3, 1] = np.nan
    labels = da.from_array(y, chunks=20)

    def refused(text: str, X: Any, y: Any = labels, **parameters: Any) -> None:
        with pytest.raises(ValueError, match=text):
            cd.KNeighborsCostClassifier(**parameters).fit(X, y)

    refused("^partition 1: X has 2 columns, but 3 are expected$", blocks(X[:20], X[:20, :2], X[:20]))
    refused("^partition 2: Input X contains NaN", blocks(X[20:40], X[20:40], nan[:20]))
    refused("^partition 0: X has 19 rows, but y has 20 labels$", blocks(X[:20]).map_blocks(lambda block: block[1:]), labels[:20])
    refused("^reject_quantile needs all training rows at once: fit without Dask$", blocks(X), reject_quantile=0.1)
    refused("^n_neighbors must be an integer >= 1, not 0$", blocks(X[:20], X[:20], X[:20]), n_neighbors=0)
    fitted = cd.KNeighborsCostClassifier().fit(*lazy(X, y, [20, 40]))
    with pytest.raises(ValueError, match="^partition 1: Input X contains NaN"):
        fitted.predict(blocks(X, nan)).compute()
    with pytest.raises(ValueError, match="^partition 0: X has 2 columns, but the model was trained on 3$"):
        fitted.kneighbors(blocks(X[:, :2]))[0].compute()
    with pytest.raises(ValueError, match="^X has 2 columns, but the model was trained on 3$"):
        fitted.predict(da.zeros((5, 2)))
    with pytest.raises(ValueError, match="^X must have two dimensions, not 1$"):
        fitted.predict(da.zeros(5))
    for X in (X, blocks(X)):
        with pytest.raises(ValueError, match="^n_neighbors must be >= 1 and at most the number of training rows, 60, not 61$"):
            fitted.kneighbors(X, 61)
    with pytest.raises(ValueError, match="^shards on Dask learn nothing further: fit anew$"):
        fitted.partial_fit(nan[:2], y[:2])
    with pytest.raises(ValueError, match="^copies must be >= 1, not 0$"):
        fitted.replicate(0)


def test_many_rows_go_in_blocks(monkeypatch: Any) -> None:
    X, y = sample(60)
    queries = sample(50, 2)[0]
    expected = KNeighborsCostClassifier().fit(X, y)
    fitted = cd.KNeighborsCostClassifier().fit(*lazy(X, y, [20, 40]))
    monkeypatch.setattr(_dask_shards, "_BLOCK", 7)
    monkeypatch.setattr(_dask_shards, "_WAVE", 3)
    same_answers(fitted, expected, queries)
    told: list[tuple[int, int]] = []
    fitted.tool_.neighbors(queries, progress=lambda done, total: told.append((done, total)))
    assert told == [(20, 50), (38, 50), (50, 50)]


# Files


def saved(tmp_path: Path) -> Any:
    X, y = sample(90)
    labels = np.array(["a", "bb", "ccc"])[y]
    fitted = cd.KNeighborsCostClassifier(7, costs=COSTS, p=1).fit(*lazy(X, labels, [30, 0, 20, 40]))
    fitted.save(tmp_path / "model")
    return KNeighborsCostClassifier(7, costs=COSTS, p=1).fit(X, labels)


def test_what_is_saved_is_loaded(tmp_path: Path) -> None:
    expected = saved(tmp_path)
    assert sorted(os.listdir(tmp_path / "model")) == ["index.json", *(f"shard-0000{i}.tool" for i in range(3))]
    index = json.loads((tmp_path / "model" / "index.json").read_text())
    assert [(shard["first row"], shard["rows"]) for shard in index["shards"]] == [(0, 30), (30, 20), (50, 40)]
    loaded = cd.KNeighborsCostClassifier.load(tmp_path / "model")
    assert loaded.get_params() == expected.get_params()
    same_answers(loaded, expected, sample(30, 2)[0])
    # An archive is a tool of its own.
    tool = ClassifierTool.load(tmp_path / "model" / "shard-00001.tool")
    assert tool.params == expected.tool_.params and tool.num_patterns == 20
    loaded.recost(None)
    loaded.save(tmp_path / "model")
    same_answers(cd.KNeighborsCostClassifier.load(tmp_path / "model"), expected.recost(None), sample(30, 2)[0])


def test_a_damaged_or_missing_file_is_one_error(tmp_path: Path) -> None:
    saved(tmp_path)
    folder = tmp_path / "model"
    kept = {name: (folder / name).read_bytes() for name in os.listdir(folder)}

    def refused(error: Any, text: str) -> None:
        with pytest.raises(error, match=text):
            cd.KNeighborsCostClassifier.load(folder)
        for name, content in kept.items():
            (folder / name).write_bytes(content)

    shard = folder / "shard-00001.tool"
    shard.unlink()
    refused(ValueError, "shard-00001.tool: cannot be loaded: .*No such file")
    shard.write_bytes(kept["shard-00002.tool"])
    refused(ValueError, "shard-00001.tool: cannot be loaded: it was not written with the index$")
    content = kept["shard-00001.tool"]
    shard.write_bytes(content[:100] + bytes([content[100] ^ 1]) + content[101:])
    refused(ValueError, "shard-00001.tool: cannot be loaded: ")
    shard.write_bytes(b"")
    refused(ValueError, "shard-00001.tool: cannot be loaded: ")
    index = kept["index.json"].decode()
    (folder / "index.json").unlink()
    refused(FileNotFoundError, "index.json")
    for old, new, why in [
        ("{", "", "Expecting|Extra"),
        ('"version": 1', '"version": 2', "it has the unknown version 2$"),
        ('"rows": 20', '"rows": 21', "its rows do not add up$"),
        ('"first row": 30', '"first row": 31', "its shards do not follow each other$"),
        ('"attributes"', '"nothing"', "'attributes'$"),
    ]:
        assert old in index
        (folder / "index.json").write_text(index.replace(old, new, 1))
        refused(ValueError, f"index.json: is not what save wrote: .*({why})")


def test_a_function_as_metric_is_not_saved(tmp_path: Path) -> None:
    X, y = sample(20)
    fitted = cd.KNeighborsCostClassifier(metric=lambda a, b: abs(a - b).max()).fit(*lazy(X, y, [10, 10]))
    with pytest.raises(ValueError, match="^cannot be saved: <function"):
        fitted.save(tmp_path / "model")
    assert os.listdir(tmp_path) == []


# Workers


def test_rows_do_not_pass_through_the_scheduler(client: Any, monkeypatch: Any) -> None:
    X, y = sample(1000)
    fitted = cd.KNeighborsCostClassifier().fit(*lazy(X, y, [400, 600]))
    sizes: list[int] = []

    def compute(tasks: Any) -> Any:
        sizes.extend(len(dumps(dict(task.dask))) for task in tasks)
        return Client.compute(client, tasks)

    monkeypatch.setattr(client, "compute", compute)
    found = fitted.kneighbors(np.tile(X, (4, 1)))
    assert len(found[0]) == 4000 and len(sizes) == 1
    # The rows take 96,000 bytes.
    assert sizes[0] < 10_000


def test_shards_stay_on_workers(client: Any) -> None:
    X, y = sample(30_000)
    expected = KNeighborsCostClassifier().fit(X, y)
    fitted = cd.KNeighborsCostClassifier().fit(*lazy(X, y, [15_000, 15_000]))
    queries = sample(500, 2)[0]
    same_answers(fitted, expected, queries)
    same(fitted.predict(da.from_array(queries, chunks=(100, 3))).compute(), expected.predict(queries))
    # The scheduler chooses the workers.
    held = client.who_has([shard.dask[shard.key] for (shard,) in shards(fitted)])
    assert len(held) == 2 and all(held.values())


def test_copies_are_on_other_workers(client: Any) -> None:
    X, y = sample(5000)
    expected = KNeighborsCostClassifier().fit(X, y)
    fitted = cd.KNeighborsCostClassifier().fit(*lazy(X, y, [2000, 3000])).replicate(5)
    for copies in shards(fitted):
        held = [set(client.who_has([copy.dask[copy.key]])[copy.key]) for copy in copies]
        assert len(held) == 2 and held[0] | held[1] == set(client.scheduler_info()["workers"])
    same_answers(fitted, expected, sample(300, 2)[0])
    assert [len(copies) for copies in shards(fitted.replicate(1))] == [1, 1]
    same_answers(fitted, expected, sample(300, 2)[0])
