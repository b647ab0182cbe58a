"""Dask collections: the answers are those of one machine."""

from __future__ import annotations

import doctest
import os
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
from sklearn.exceptions import NotFittedError

import clastool.dask as cd
from clastool import CategoryResult, ClassifierTool, ComparisonPredicate, KNNParams, Leaf, Node, Result
from clastool._dask_shards import run
from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier

IRIS, SPECIES = load_iris(return_X_y=True)
NAMES = np.array(["setosa", "versicolor", "virginica"])[SPECIES]
COSTS = [[0, 1, 2], [5, 0, 3], [8, 2, 0]]
METHODS = ["predict", "predict_proba", "expected_costs"]


@pytest.fixture(autouse=True)
def threads() -> Iterator[None]:
    with dask.config.set(num_workers=2):
        yield


def models() -> list[Any]:
    tool = ClassifierTool()
    tool.train(IRIS, SPECIES, KNNParams(3))
    return [
        BayesCostClassifier(costs=COSTS, groups="all").fit(IRIS, NAMES),
        BayesCostClassifier(reject_quantile=0.1, reject_label="none").fit(IRIS, NAMES),
        KNeighborsCostClassifier(costs=COSTS).fit(IRIS, SPECIES),
        tool,
        ClassifierTool.from_bytes(tool.to_bytes()),
    ]


def of_numpy(model: Any, X: Any, method: str) -> Any:
    if not isinstance(model, ClassifierTool):
        return getattr(model, method)(X)
    rows = model.run_rows(X)
    return {"predict": rows.labels, "predict_proba": rows.class_scores, "expected_costs": rows.expected_costs}[method]


def same(found: Any, expected: Any) -> None:
    assert found.dtype == expected.dtype
    np.testing.assert_array_equal(found, expected)


# Applying what was fitted


@pytest.mark.parametrize("method", METHODS)
@pytest.mark.parametrize("place", range(5))
def test_arrays_are_answered_as_numpy(place: int, method: str) -> None:
    model = models()[place]
    lazy = getattr(cd, method)(model, da.from_array(IRIS, chunks=((1, 60, 0, 89), (2, 2))))
    expected = of_numpy(model, IRIS, method)
    assert isinstance(lazy, da.Array) and lazy.shape == expected.shape and lazy.dtype == expected.dtype
    assert lazy.chunks[0] == (1, 60, 0, 89) and lazy._meta.ndim == expected.ndim
    same(lazy.compute(), expected)


@pytest.mark.parametrize("method", METHODS)
def test_float32_and_unknown_chunk_sizes(method: str) -> None:
    model = KNeighborsCostClassifier().fit(IRIS, NAMES)
    X = da.from_array(IRIS.astype(np.float32), chunks=(40, 4))
    X = X[X[:, 0] > 5.0]
    assert np.isnan(X.shape[0])
    small = IRIS.astype(np.float32)
    same(getattr(cd, method)(model, X).compute(), of_numpy(model, small[small[:, 0] > 5.0], method))


@pytest.mark.parametrize("method", METHODS)
@pytest.mark.parametrize("is_tool", [False, True])
def test_frames_keep_index_and_names(method: str, is_tool: bool) -> None:
    table = pd.DataFrame(IRIS, columns=["a", "b", "c", "d"], index=np.arange(150) * 2)
    model: Any = BayesCostClassifier(costs=COSTS).fit(table, NAMES)
    if is_tool:
        model = model.tool_
    X = dd.from_pandas(table, npartitions=4)
    X = X.map_partitions(lambda part: part[(part.index < 70) | (part.index > 160)])
    X = X[X.a > 4.6]
    kept = X.compute()
    lazy = getattr(cd, method)(model, X)
    expected = of_numpy(model, kept, method)
    found = lazy.compute()
    # Strings are pandas' own in a series.
    same(found.to_numpy().astype(expected.dtype), expected)
    np.testing.assert_array_equal(found.index, kept.index)
    assert lazy.npartitions == 4 and found.ndim == expected.ndim
    if method == "predict":
        assert lazy.dtype == found.dtype
    else:
        columns = model.categories if is_tool else model.classes_
        assert list(lazy.columns) == list(found.columns) == columns.tolist()
        assert list(lazy.dtypes) == list(found.dtypes)


def test_empty_partitions_of_frames() -> None:
    table = pd.DataFrame(IRIS, columns=["a", "b", "c", "d"])
    model = BayesCostClassifier().fit(table, NAMES)
    X = dd.from_pandas(table, npartitions=3)
    X = X.map_partitions(lambda part: part[part.index < 20])
    np.testing.assert_array_equal(cd.predict(model, X).compute(), model.predict(table[:20]))


def test_objects_stay_what_they_are_in_a_series() -> None:
    table = pd.DataFrame(IRIS, columns=["a", "b", "c", "d"])
    X = dd.from_pandas(table, npartitions=5)
    X = X.map_partitions(lambda part: part[part.index < 100])
    for model in (
        BayesCostClassifier(reject_quantile=0.3).fit(table, NAMES),
        BayesCostClassifier().fit(table, NAMES.astype(object)),
    ):
        lazy, expected = cd.predict(model, X), model.predict(table[:100])
        assert lazy.dtype == object
        parts = [part.compute() for part in lazy.to_delayed()]
        assert [part.dtype for part in parts] == [object] * 5
        assert lazy.compute().tolist() == expected.tolist()


def test_a_tree_is_applied() -> None:
    def leaf(label: int) -> Leaf:
        return Leaf(Result([CategoryResult(label, 1.0, 1.0)]))

    tool = ClassifierTool()
    tool.train(Node(ComparisonPredicate(1, 2), leaf(3), leaf(8)))
    same(cd.predict(tool, da.from_array(IRIS, chunks=(50, 4))).compute(), tool.run_rows(IRIS).labels)


def test_nothing_is_computed_before_it_is_asked_for() -> None:
    def fail() -> Any:
        raise RuntimeError("computed")

    X = da.from_delayed(dask.delayed(fail)(), shape=(5, 4), dtype=float)
    lazy = cd.predict(BayesCostClassifier().fit(IRIS, NAMES), X)
    with pytest.raises(RuntimeError, match="^computed$"):
        lazy.compute()


def test_refusals_before_anything_is_computed() -> None:
    model = BayesCostClassifier().fit(IRIS, NAMES)
    with pytest.raises(TypeError, match="^X must be a Dask array or a Dask data frame, not ndarray$"):
        cd.predict(model, IRIS)
    with pytest.raises(ValueError, match="^X must have two dimensions, not 1$"):
        cd.predict(model, da.zeros(4))
    with pytest.raises(ValueError, match="^X has 3 columns, but the model was trained on 4$"):
        cd.predict(model, da.zeros((6, 3)))
    with pytest.raises(ValueError, match="^X has 2 columns, but the model was trained on 4$"):
        cd.predict(model.tool_, dd.from_pandas(pd.DataFrame(IRIS[:, :2]), npartitions=1))
    for unfitted in (BayesCostClassifier(), cd.BayesCostClassifier(), cd.KNeighborsCostClassifier()):
        with pytest.raises(NotFittedError, match="instance is not fitted yet"):
            cd.predict(unfitted, da.zeros((6, 4)))


def blocks(*parts: Any) -> Any:
    """An array that says that each block has four columns."""
    return da.concatenate([da.from_delayed(dask.delayed(part), (len(part), 4), dtype=float) for part in parts])


def test_an_error_names_the_partition() -> None:
    model = BayesCostClassifier().fit(IRIS, NAMES)
    with pytest.raises(ValueError, match="^partition 1: X has 3 columns, but the model was trained on 4$"):
        cd.predict(model, blocks(IRIS, IRIS[:, :3], IRIS)).compute()
    with pytest.raises(ValueError, match="^partition 2: Input X contains infinity"):
        cd.predict_proba(model, blocks(IRIS, IRIS, np.full_like(IRIS, np.inf))).compute()
    table = pd.DataFrame(IRIS)
    X = dd.from_pandas(table, npartitions=3)
    X = X.map_partitions(lambda part: part / (part.index[0] < 100), meta=table[:0])
    with pytest.raises(ValueError, match="^partition 2: Input X contains infinity"):
        cd.predict(BayesCostClassifier().fit(IRIS, NAMES), X).compute()


class Counted(BayesCostClassifier):
    """Counts in a file how often it comes out of a pickle."""

    log: str

    def __setstate__(self, state: Any) -> None:
        super().__setstate__(state)
        with open(self.log, "a") as file:
            file.write(f"{os.getpid()}\n")


def test_a_worker_gets_the_model_but_not_with_each_block(tmp_path: Any, client: Any) -> None:
    log = tmp_path / "loads"
    model = Counted().fit(IRIS, NAMES)
    model.log = str(log)
    X = da.from_array(np.tile(IRIS, (4, 1)), chunks=(20, 4))
    found = cd.predict(model, X).compute()
    same(found, model.predict(np.tile(IRIS, (4, 1))))
    loads = log.read_text().split()
    workers = {str(pid) for pid in client.run(os.getpid).values()}
    # Of thirty blocks, most go to a worker that has the model.
    for pid in workers:
        assert loads.count(pid) <= 2, loads
    assert workers & set(loads)


# Bayes


def scattered(rows: int = 400, gaps: float = 0.1) -> Any:
    random = np.random.default_rng(3)
    y = np.array(["a", "b", "c"])[random.integers(0, 3, rows)]
    X = random.normal(size=(rows, 4)) + (y == "b")[:, None] * 2.0 + 1000.0
    X[random.random(X.shape) < gaps] = np.nan
    return X, y


def of_parts(X: Any, y: Any, cuts: Any) -> Any:
    """Dask arrays whose blocks end at the cuts."""
    chunks = tuple(int(size) for size in np.diff([0, *cuts, len(X)]))
    return da.from_array(X, chunks=(chunks, X.shape[1])), da.from_array(y, chunks=(chunks,))


def close(fitted: Any, expected: Any, X: Any) -> None:
    np.testing.assert_array_equal(fitted.classes_, expected.classes_)
    np.testing.assert_array_equal(fitted.class_count_, expected.class_count_)
    np.testing.assert_array_equal(fitted.class_prior_, expected.class_prior_)
    assert fitted.tool_.params == expected.tool_.params
    for density, other in zip(fitted.tool_.densities(), expected.tool_.densities()):
        assert density.count == other.count
        np.testing.assert_allclose(density.mean, other.mean, rtol=1e-12)
        np.testing.assert_allclose(density.covariance, other.covariance, rtol=1e-12, atol=1e-12)
    np.testing.assert_array_equal(fitted.predict(X), expected.predict(X))


@pytest.mark.parametrize("cuts", [(), (1,), (13, 13, 200), tuple(range(5, 400, 5))], ids=len)
@pytest.mark.parametrize("groups", [None, "all"])
def test_bayes_learns_what_one_machine_learns(cuts: Any, groups: Any) -> None:
    X, y = scattered()
    expected = BayesCostClassifier(costs=COSTS, groups=groups).fit(X, y)
    fitted = cd.BayesCostClassifier(costs=COSTS, groups=groups).fit(*of_parts(X, y, cuts))
    close(fitted, expected, X)
    lazy = fitted.predict(da.from_array(X, chunks=(90, 4)))
    assert isinstance(lazy, da.Array)
    same(lazy.compute(), expected.predict(X))
    for method in ("predict_proba", "expected_costs"):
        lazy = getattr(fitted, method)(da.from_array(X, chunks=(90, 4)))
        same(lazy.compute(), getattr(fitted, method)(X))


def test_partitions_without_a_class_empty_or_all_missing() -> None:
    X, y = scattered()
    order = np.argsort(y, kind="stable")
    X, y = X[order], y[order]
    X[100:150] = np.nan
    close(cd.BayesCostClassifier().fit(*of_parts(X, y, (50, 50, 100, 150, 400))), BayesCostClassifier().fit(X, y), X)


def test_spreads_are_borrowed_from_the_whole() -> None:
    X, y = scattered(gaps=0.0)
    y = y.copy()
    y[7] = "single"
    expected = BayesCostClassifier().fit(X, y)
    close(cd.BayesCostClassifier().fit(*of_parts(X, y, (5, 20, 210))), expected, X)


def test_bayes_of_a_frame() -> None:
    X, y = scattered()
    table = pd.DataFrame(X, columns=["a", "b", "c", "d"]).assign(label=y)
    lazy = dd.from_pandas(table, npartitions=5)
    groups = [["a", "c"]]
    expected = BayesCostClassifier(groups=groups).fit(table[["a", "b", "c", "d"]], y)
    fitted = cd.BayesCostClassifier(groups=groups).fit(lazy[["a", "b", "c", "d"]], lazy["label"])
    close(fitted, expected, table[["a", "b", "c", "d"]])
    assert fitted.feature_names_in_.tolist() == ["a", "b", "c", "d"]


def test_bayes_of_one_machine_is_the_same_estimator() -> None:
    close(cd.BayesCostClassifier().fit(IRIS, NAMES), BayesCostClassifier().fit(IRIS, NAMES), IRIS)


def no_rows(*_: Any, **__: Any) -> Any:
    raise AssertionError("the rows come to this process")


@pytest.mark.parametrize("kind", [cd.BayesCostClassifier, cd.KNeighborsCostClassifier])
def test_scores_of_collections(kind: Any, monkeypatch: Any) -> None:
    table = pd.DataFrame(IRIS, columns=["a", "b", "c", "d"])
    frame, array = dd.from_pandas(table, npartitions=3), da.from_array(IRIS, chunks=(70, 2))
    names, y = dd.from_pandas(pd.Series(NAMES), npartitions=3), da.from_array(NAMES, chunks=70)
    weights, some = np.arange(1.0, 151.0), IRIS[:, 0] > 5.5
    fitted = kind(costs=COSTS).fit(table, NAMES)
    expected = fitted.score(table, NAMES), fitted.score(table, NAMES, weights), fitted.paid_cost(table, NAMES)
    few = fitted.score(table[some], NAMES[some]), fitted.paid_cost(table[some], NAMES[some], normalize=False)
    for kind_of_rows in (da.Array, dd.DataFrame):
        monkeypatch.setattr(kind_of_rows, "__array__", no_rows)
    for X, labels in ((frame, names), (array, y), (array, NAMES), (frame, NAMES.tolist())):
        assert expected == (fitted.score(X, labels), fitted.score(X, labels, weights), fitted.paid_cost(X, labels))
    kept = array[:, 0] > 5.5
    assert few == (fitted.score(array[kept], y[kept]), fitted.paid_cost(array[kept], y[kept], normalize=False))
    for score in (fitted.score, fitted.paid_cost):
        with pytest.raises(ValueError, match=r"150\D+149"):
            score(array, y[1:])
    with pytest.raises(ValueError, match="^y names the class 'rose', which is not among "):
        fitted.paid_cost(array, np.full(150, "rose"))


def test_the_cost_of_collections_with_rejected_rows() -> None:
    for label in (None, "setosa"):
        fitted = cd.BayesCostClassifier(costs=COSTS, reject_quantile=0.2, reject_label=label).fit(IRIS, NAMES)
        X, y = da.from_array(IRIS, chunks=(70, 4)), da.from_array(NAMES, chunks=70)
        assert fitted.paid_cost(X, y) == fitted.paid_cost(IRIS, NAMES)
        assert fitted.score(X, y) == fitted.score(IRIS, NAMES)


@pytest.mark.parametrize("method", ["predict_log_proba", "log_likelihoods"])
def test_logarithms_of_collections_are_lazy(method: str) -> None:
    fitted = cd.BayesCostClassifier().fit(IRIS, NAMES)
    lazy, expected = getattr(fitted, method)(da.from_array(IRIS, chunks=((1, 60, 0, 89), (2, 2)))), getattr(fitted, method)(IRIS)
    assert isinstance(lazy, da.Array) and lazy.shape == expected.shape
    same(lazy.compute(), expected)
    frame = getattr(fitted, method)(dd.from_pandas(pd.DataFrame(IRIS), npartitions=3))
    assert list(frame.columns) == fitted.classes_.tolist()
    same(frame.compute().to_numpy(), expected)


def labels(*parts: Any) -> Any:
    return da.concatenate([da.from_delayed(dask.delayed(part), (len(part),), dtype=object) for part in parts])


def test_bayes_refuses_and_names_the_partition() -> None:
    def refused(error: Any, text: str, X: Any, y: Any, **parameters: Any) -> None:
        with pytest.raises(error, match=text):
            cd.BayesCostClassifier(**parameters).fit(X, y)

    two = blocks(IRIS, IRIS)
    refused(ValueError, "^partition 1: X has 3 columns, but 4 are expected$", blocks(IRIS, IRIS[:, :3]), labels(NAMES, NAMES))
    refused(ValueError, "^partition 1: labels are numbers, but those of partition 0 are strings$", two, labels(NAMES, SPECIES))
    refused(ValueError, "^partition 1: Unknown label type", two, labels(SPECIES, IRIS[:, 0]))
    lying = da.concatenate([labels(NAMES), da.from_delayed(dask.delayed(NAMES[:9]), (150,), dtype=object)])
    refused(ValueError, "^partition 1: X has 150 rows, but y has 9 labels$", two, lying)
    refused(ValueError, "^partition 1: Input X contains infinity", blocks(IRIS, np.full_like(IRIS, np.inf)), labels(NAMES, NAMES))
    refused(ValueError, "^X has 300 rows, but y has 150 labels$", two, labels(NAMES))
    unknown = labels(NAMES, NAMES, NAMES)
    refused(ValueError, "^X has 2 partitions, but y has 3$", two, unknown[unknown != "none"])
    refused(ValueError, "^X must have two dimensions, not 1$", da.zeros(300), labels(NAMES, NAMES))
    refused(ValueError, "^X must have two dimensions, not 3$", da.zeros((300, 2, 2)), labels(NAMES, NAMES))
    refused(ValueError, "^y has no labels$", two[:0], labels(NAMES)[:0])
    refused(TypeError, "^y must be a Dask array of one dimension or a Dask series, not ndarray$", two, NAMES)
    refused(ValueError, "^reject_quantile needs all training rows at once", two, unknown, reject_quantile=0.1)


@pytest.mark.parametrize(("first", "other"), [(0, 1), (0, 8), (2, 7), (2, 17), (9, 10), (9, 30)])
def test_the_first_partition_with_labels_of_another_kind_is_named(first: int, other: int) -> None:
    """Among 40 partitions, of which the first ones are empty."""
    kinds = [NAMES[:0]] * first + [NAMES] * (40 - first)
    kinds[other] = SPECIES
    kinds[other + 3] = SPECIES > 0
    y = da.concatenate([da.from_delayed(dask.delayed(part), (150,), dtype=object) for part in kinds])
    X = da.concatenate([da.from_delayed(dask.delayed(IRIS[: len(part)]), (150, 4), dtype=float) for part in kinds])
    text = f"^partition {other}: labels are numbers, but those of partition {first} are strings$"
    with pytest.raises(ValueError, match=text):
        cd.BayesCostClassifier().fit(X, y)


@pytest.mark.filterwarnings("ignore:invalid value encountered in cast")
def test_labels_that_are_none_are_refused() -> None:
    def refused(text: str, part: Any) -> None:
        with pytest.raises(ValueError, match=f"^partition 1: {text}"):
            cd.BayesCostClassifier().fit(blocks(IRIS, IRIS), labels(NAMES, part))

    refused("labels cannot be sorted: ", np.array([None] * 150))
    refused("labels cannot be sorted: ", np.array(["a", None] * 75, dtype=object))
    refused("Input contains NaN", np.array([1.0, np.nan] * 75, dtype=object))
    refused("Unknown label type: continuous-multioutput", IRIS)
    missing = SPECIES.astype(float)
    missing[3] = np.nan
    refused("Input y contains NaN", missing)
    text = "^partition 1: y should be a 1d array, got an array of shape \\(150, 2\\) instead"
    with pytest.raises(ValueError, match=text):
        cd.BayesCostClassifier().fit(blocks(IRIS, IRIS), labels(SPECIES, np.stack([SPECIES, SPECIES], axis=1)))


def test_numbers_and_truth_values_that_are_objects_keep_their_type() -> None:
    for y in (SPECIES, SPECIES > 0):
        fitted = cd.BayesCostClassifier().fit(blocks(IRIS, IRIS), labels(y.astype(object), y.astype(object)))
        same(fitted.classes_, BayesCostClassifier().fit(IRIS, y).classes_)
        assert fitted.score(blocks(IRIS), y.astype(object)) == fitted.score(IRIS, y)


@pytest.fixture
def requests(monkeypatch: Any) -> list[int]:
    """The number of results that each request to the workers asks for."""
    asked: list[int] = []

    def counting(tasks: Any) -> Any:
        asked.append(len(tasks))
        return run(tasks)

    monkeypatch.setattr("clastool.dask.run", counting)
    return asked


@pytest.mark.parametrize("kind", [np.uint8, np.int64, np.float64, bool, str, object])
@pytest.mark.parametrize("groups", [None, "all"])
def test_partitions_are_read_once_if_each_has_all_classes(kind: Any, groups: Any, requests: list[int]) -> None:
    X, y = scattered()
    y = {str: y, object: y.astype(object)}.get(kind, (y == "b").astype(kind))
    fitted = cd.BayesCostClassifier(groups=groups).fit(*of_parts(X, y, range(25, 400, 25)))
    close(fitted, BayesCostClassifier(groups=groups).fit(X, y), X)
    same(fitted.classes_, BayesCostClassifier().fit(X, y).classes_)
    assert requests == [1]


@pytest.mark.parametrize(
    ("first", "second", "groups", "passes"),
    [
        ([3, 5], [5, 7], None, 1),
        ([3, 5], [5, 7], "all", 2),
        ([-3, 5], [5, 7], None, 2),
        ([-3, 5], [-3, 5], "all", 1),
        (["a", "b"], ["b", "c"], None, 2),
        (["a", "b"], ["a", "b", "c"], None, 1),
        (["a", "b"], ["a", "b"], {"a": "all"}, 2),
        ([5, 7], [5.0, 7.0], None, 2),
        ([0, 1], [0.0, 1.0], None, 1),
        (np.array([5, 7], dtype=np.uint64), [5, 7], None, 2),
        ([False, True], [True, True], None, 2),
        ([False, True], [False, False], None, 1),
        ([0, 2**31 - 1], [5, 2**31 - 1], None, 1),
        ([0, 2**31], [0, 2**31], None, 1),
        ([0, 2**31 - 1], [0, 2**31], None, 2),
    ],
)
def test_a_second_pass_if_tools_of_partitions_do_not_fit_together(
    first: Any, second: Any, groups: Any, passes: int, requests: list[int]
) -> None:
    X, _ = scattered()
    one, other = (np.resize(np.asarray(values), 40) for values in (first, second))
    parts = [one, other, one, other[:0], other]
    cuts = np.cumsum([len(part) for part in parts])
    blocks_of_X = np.split(X[: cuts[-1]], cuts[:-1])
    y = np.concatenate(parts)
    expected = BayesCostClassifier(groups=groups).fit(X[: len(y)], y)
    fitted = cd.BayesCostClassifier(groups=groups).fit(blocks(*blocks_of_X), labels(*parts))
    close(fitted, expected, X)
    same(fitted.classes_, expected.classes_)
    assert requests == [1] * passes


def test_results_of_many_partitions_are_joined_on_the_workers(requests: list[int]) -> None:
    X, y = scattered()
    close(cd.BayesCostClassifier().fit(*of_parts(X, y, range(4, 400, 4))), BayesCostClassifier().fit(X, y), X)
    assert requests == [1, 1]


def test_bayes_on_worker_processes(client: Any) -> None:
    X, y = scattered()
    close(cd.BayesCostClassifier().fit(*of_parts(X, y, (30, 100, 250))), BayesCostClassifier().fit(X, y), X)


# The page


def test_page_shows_what_is_answered() -> None:
    page = Path(__file__).resolve().parents[2] / "docs" / "python-dask.md"
    outcome = doctest.testfile(str(page), module_relative=False)
    assert outcome.failed == 0 and outcome.attempted == 29
