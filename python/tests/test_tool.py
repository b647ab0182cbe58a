"""The tool: training, runs, storing, and arrays of every kind."""

from __future__ import annotations

import copy
import math
import pickle
from pathlib import Path
from typing import Any

import clastool as ct
import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st


def sample(size: int, width: int, categories: int, seed: int = 1) -> tuple[Any, Any]:
    """Rows around a center for each category."""
    random = np.random.default_rng(seed)
    y = random.integers(0, categories, size)
    return random.normal(size=(size, width)) + 2 * np.eye(categories, width)[y], y


def trained(params: ct.KNNParams | ct.BayesParams, size: int = 300, width: int = 4, categories: int = 3) -> ct.ClassifierTool:
    tool = ct.ClassifierTool()
    tool.train(*sample(size, width, categories), params)
    return tool


def manhattan(a: Any, b: Any) -> float:
    return float(np.abs(a - b).sum())


def by_parts() -> ct.Node:
    leaves = [
        ct.Leaf(ct.Result([ct.CategoryResult(label, 1.0, 0.75, 0.25), ct.CategoryResult(9, 0.5, 0.25, 0.75)]))
        for label in (4, 5)
    ]
    return ct.Node(ct.RangePredicate(0.0, math.inf, [0]), *leaves)


def tree_tool() -> ct.ClassifierTool:
    tool = ct.ClassifierTool()
    tool.train(by_parts())
    return tool


def binomial() -> ct.ClassifierTool:
    random = np.random.default_rng(5)
    y = random.integers(0, 2, 200)
    X = random.binomial(20, np.where(y == 0, 0.3, 0.6)[:, None], size=(200, 2)) + random.uniform(0, 0.2, (200, 2))
    tool = ct.ClassifierTool()
    types = ct.DistributionTypes(ct.DistributionType.BINOMIAL)
    tool.train(X, y, ct.BayesParams(types, max_values=[30, 30]))
    return tool


TOOLS = {
    "untrained": ct.ClassifierTool,
    "neighbors": lambda: trained(ct.KNNParams(5, ct.Norm(1.0), ct.Costs(1, {(0, 1): 7.0}))),
    "neighbors by a function": lambda: trained(ct.KNNParams(3, manhattan), 60),
    "bayes": lambda: trained(ct.BayesParams(frequencies=ct.Frequencies(1, {2: 3.0}), costs=ct.Costs(2))),
    "binomial": binomial,
    "tree": tree_tool,
}


def assert_same_answers(a: ct.ClassifierTool, b: ct.ClassifierTool) -> None:
    X = sample(50, 2 if a.num_measurements == 2 else 4, 2, 77)[0] + (3 if a.num_measurements == 2 else 0)
    X = np.clip(X, 0.01, 29) if a.num_measurements == 2 else X
    for one, other in zip(a.run_rows(X), b.run_rows(X)):
        assert one.tobytes() == other.tobytes()


@pytest.mark.parametrize("name", TOOLS)
@pytest.mark.parametrize(
    "again",
    [
        copy.copy,
        copy.deepcopy,
        *(lambda tool, p=p: pickle.loads(pickle.dumps(tool, p)) for p in range(2, 6)),
        lambda tool: ct.ClassifierTool.from_bytes(tool.to_bytes()),
        lambda tool: ct.ClassifierTool.from_bytes(memoryview(tool.to_bytes(plain=True))),
    ],
    ids=["copy", "deepcopy", *(f"pickle {p}" for p in range(2, 6)), "bytes", "plain"],
)
def test_tools_copy_and_pickle(name: str, again: Any, request: pytest.FixtureRequest) -> None:
    tool = TOOLS[name]()
    if name == "neighbors by a function" and request.node.callspec.id.startswith(("bytes", "plain")):
        with pytest.raises(ct.Corrupt, match="PythonMetric"):
            again(tool)
        return
    other = again(tool)
    assert other == tool
    assert other is not tool
    assert repr(other) == repr(tool)
    assert other.technique == tool.technique
    if tool.is_trained:
        assert_same_answers(tool, other)
    if tool.technique in ("bayes", "neighbors"):
        assert other.params == tool.params


@pytest.mark.parametrize("plain", [False, True])
@pytest.mark.parametrize("name", [name for name in TOOLS if name != "neighbors by a function"])
def test_tools_go_into_files(name: str, plain: bool, tmp_path: Path) -> None:
    tool = TOOLS[name]()
    tool.save(tmp_path / "tool.kt", plain=plain)
    assert (tmp_path / "tool.kt").read_bytes() == tool.to_bytes(plain=plain)
    other = ct.ClassifierTool.load(str(tmp_path / "tool.kt"))
    assert other == tool
    if tool.is_trained:
        assert_same_answers(tool, other)
    assert [file.name for file in tmp_path.iterdir()] == ["tool.kt"]


def test_protocol_5_leaves_the_bytes_out() -> None:
    tool = TOOLS["bayes"]()
    buffers: list[pickle.PickleBuffer] = []
    pickled = pickle.dumps(tool, 5, buffer_callback=buffers.append)
    assert bytes(buffers[0]) == tool.to_bytes()
    assert len(pickled) < 200
    assert pickle.loads(pickled, buffers=buffers) == tool


def test_a_copy_goes_its_own_way() -> None:
    tool = TOOLS["neighbors"]()
    other = copy.copy(tool)
    other.retrain(ct.KNNParams(1))
    assert tool.params == TOOLS["neighbors"]().params
    assert other.params == ct.KNNParams(1)
    other.untrain()
    assert tool.is_trained
    assert not other.is_trained


def test_binomial_densities_learn_on_after_a_file() -> None:
    X, y = np.full((3, 2), 12.0), [0, 0, 1]
    tool = binomial()
    other = ct.ClassifierTool.from_bytes(tool.to_bytes())
    tool.add(X, y)
    other.add(X, y)
    assert other == tool
    plain = ct.ClassifierTool.from_bytes(binomial().to_bytes(plain=True))
    with pytest.raises(ct.BadMethod, match="A binomial density from an archive cannot learn further"):
        plain.add(X, y)


@pytest.mark.parametrize("name", TOOLS)
@pytest.mark.parametrize("threads", [1, 3])
def test_rows_are_run_as_patterns_are(name: str, threads: int) -> None:
    tool = TOOLS[name]()
    X = np.clip(sample(400, tool.num_measurements or 2, 2, 9)[0], 0.01, None)
    if not tool.is_trained:
        with pytest.raises(ct.NotTrained, match=r"Classifier tool must be trained before running\."):
            tool.run_rows(X, threads=threads)
        return
    rows = tool.run_rows(X, threads=threads)
    np.testing.assert_array_equal(rows.categories, tool.categories)
    for i, row in enumerate(X):
        result = tool.run(row)
        assert rows.labels[i] == result.label
        assert rows.match_score_factor_logs[i] == result.match_score_factor_log
        found = {c.label: c for c in result.category_results}
        for j, label in enumerate(rows.categories.tolist()):
            if label in found:
                assert rows.match_scores[i, j] == found[label].match_score
                assert rows.class_scores[i, j] == found[label].class_score
                assert rows.expected_costs[i, j] == found[label].expected_cost
            else:
                assert rows.match_scores[i, j] == rows.class_scores[i, j] == 0
                if tool.technique == "tree":
                    assert math.isnan(rows.expected_costs[i, j])
                else:
                    costs = tool.params.costs
                    expected = sum(costs[c.label, label] * c.class_score for c in result.category_results)
                    assert rows.expected_costs[i, j] == pytest.approx(expected, rel=1e-14)
    only = tool.run_rows(X, threads=threads, only_labels=True)
    np.testing.assert_array_equal(only.labels, rows.labels)
    assert only.expected_costs.size == only.match_scores.size == only.class_scores.size == 0


def test_no_rows_are_no_answers() -> None:
    rows = TOOLS["bayes"]().run_rows(np.empty((0, 4)))
    assert rows.labels.shape == (0,)
    assert rows.match_scores.shape == (0, 3)


def variants(X: Any) -> dict[str, Any]:
    import pandas as pd

    wide = np.zeros((2 * len(X), 3 * X.shape[1]))
    wide[::2, ::3] = X
    record = np.zeros(len(X), dtype=[("before", "u1"), *((f"m{j}", "f8") for j in range(X.shape[1]))])
    for j in range(X.shape[1]):
        record[f"m{j}"] = X[:, j]
    frozen = X.copy()
    frozen.flags.writeable = False
    return {
        "C order": np.ascontiguousarray(X),
        "Fortran order": np.asfortranarray(X),
        "strided": wide[::2, ::3],
        "backwards": np.ascontiguousarray(X[::-1, ::-1])[::-1, ::-1],
        "read-only": frozen,
        "foreign byte order": X.astype(">f8"),
        "unaligned": np.ndarray(X.shape, "f8", b"x" + X.tobytes(), 1),
        "list": X.tolist(),
        "data frame": pd.DataFrame(X),
        "mixed data frame": pd.DataFrame({j: X[:, j].astype("f8" if j % 2 else object) for j in range(X.shape[1])}),
        "data frame of pandas' own types": pd.DataFrame(X).astype("Float64"),
    }


@pytest.mark.parametrize("name", variants(np.ones((2, 2))))
def test_measurements_may_be_any_array(name: str) -> None:
    X, y = sample(100, 4, 3)
    X[3, 2] = np.nan if "own types" not in name else X[3, 2]
    tool, expected = ct.ClassifierTool(), ct.ClassifierTool()
    given = variants(X)[name]
    tool.train(given, y, ct.BayesParams())
    expected.train(X, y, ct.BayesParams())
    assert tool == expected
    assert tool.run_rows(given).match_scores.tobytes() == expected.run_rows(X).match_scores.tobytes()


@pytest.mark.parametrize("order", ["C", "F"])
def test_floats_are_the_doubles_that_equal_them(order: Any) -> None:
    X, y = sample(100, 4, 3)
    single = np.asarray(X, "f4", order=order)
    tool, expected = ct.ClassifierTool(), ct.ClassifierTool()
    tool.train(single, y, ct.BayesParams())
    expected.train(single.astype("f8"), y, ct.BayesParams())
    assert tool == expected
    assert tool.run_rows(single).match_scores.tobytes() == expected.run_rows(single.astype("f8")).match_scores.tobytes()


@pytest.mark.parametrize("kind", ["i1", "u1", "i2", "u2", "i4", "u4", "i8", "u8", ">i4", "bool", "object", "list"])
def test_labels_may_be_any_whole_numbers(kind: str) -> None:
    X, y = sample(100, 4, 2)
    tool, expected = ct.ClassifierTool(), ct.ClassifierTool()
    labels: Any = y.astype(kind) if kind != "list" else y.tolist()
    tool.train(X, labels, ct.BayesParams())
    expected.train(X, y, ct.BayesParams())
    assert tool == expected
    assert tool.categories.tolist() == [0, 1]


@pytest.mark.parametrize("as_objects", [False, True])
def test_labels_may_be_whole_numbers_of_several_types(as_objects: bool) -> None:
    X, _ = sample(99, 4, 2)
    mixed = [np.int8(1), np.uint64(2**40), 3] * 33
    tool = ct.ClassifierTool()
    labels: Any = np.array(mixed, dtype=object) if as_objects else mixed
    tool.train(X, labels, ct.KNNParams())
    assert tool.run_rows(X).labels.tolist() == [1, 2**40, 3] * 33


def test_what_a_mask_hides_is_missing() -> None:
    X, y = sample(100, 4, 2)
    hidden = X > 1.5
    masked_array: Any = np.ma.array  # NumPy 2.2 gives it no types
    tool, expected = ct.ClassifierTool(), ct.ClassifierTool()
    tool.train(masked_array(np.where(hidden, 7.0, X), mask=hidden), y, ct.BayesParams())
    expected.train(np.where(hidden, np.nan, X), y, ct.BayesParams())
    assert tool == expected
    assert ct.FeaturePattern(masked_array([1.0, 2.0], mask=[False, True])) == ct.FeaturePattern([1.0, np.nan])
    whole = masked_array(np.rint(X).astype(int), mask=False)
    assert tool.run_rows(whole).labels.tolist() == tool.run_rows(np.rint(X)).labels.tolist()


def test_missing_numbers_of_pandas_are_missing() -> None:
    import pandas as pd

    frame = pd.DataFrame({"a": pd.array([1.0, None, 3.0], "Float64"), "b": pd.array([1, 2, None], "Int64")})
    tool, expected = ct.ClassifierTool(), ct.ClassifierTool()
    tool.train(frame, [0, 0, 0], ct.BayesParams())
    expected.train([[1.0, 1.0], [np.nan, 2.0], [3.0, np.nan]], [0, 0, 0], ct.BayesParams())
    assert tool == expected
    assert tool.categories.tolist() == [0]


@given(
    st.integers(1, 40).flatmap(
        lambda n: st.lists(st.lists(st.floats(-1e6, 1e6), min_size=2, max_size=2), min_size=n, max_size=n)
    ),
    st.integers(1, 6),
    st.sampled_from([0.5, 1.0, 2.0, 3.0]),
)
@settings(deadline=None, max_examples=60)
def test_neighbors_are_the_nearest(rows: list[list[float]], k: int, order: float) -> None:
    X = np.array(rows)
    y = np.arange(len(X)) % 3
    tool = ct.ClassifierTool()
    tool.train(X, y, ct.KNNParams(1, ct.Norm(order)))
    found = tool.neighbors(X[:1], k)
    norm = ct.Norm(order)
    expected = sorted(norm(X[0], row) for row in X)[:k]
    assert found.distances[0].tolist() == expected
    assert found.distances.shape == found.indices.shape == found.labels.shape == (1, min(k, len(X)))
    assert [norm(X[0], X[i]) for i in found.indices[0]] == expected
    assert found.labels[0].tolist() == y[found.indices[0]].tolist()
    assert tool.params.k == 1


def test_neighbors_count_rows_of_known_category() -> None:
    tool = ct.ClassifierTool()
    tool.train([[0.0], [1.0], [2.0], [3.0]], [-1, 5, -1, 6], ct.KNNParams(2))
    assert tool.categories.tolist() == [5, 6]
    assert tool.category_counts == {5: 1, 6: 1}
    assert tool.num_patterns == 2
    found = tool.neighbors([[2.9]])
    assert found.indices.tolist() == [[1, 0]]
    assert found.labels.tolist() == [[6, 5]]


@pytest.mark.parametrize("metric", [ct.Norm(2), ct.Norm(1), lambda a, b: float(np.abs(a - b).max())])
def test_the_first_rows_within_a_distance(metric: Any) -> None:
    random = np.random.default_rng(5)
    X, y = random.integers(0, 4, (60, 2)).astype(float), random.integers(0, 3, 60)
    tool = ct.ClassifierTool()
    tool.train(X, y, ct.KNNParams(1, metric))
    queries = random.integers(0, 4, (9, 2)).astype(float)
    limits = np.array([0.0, 1.0, 2.0, np.sqrt(2.0), np.inf, -1.0, np.nan, 1.0, 0.5])
    found = tool.first_within(queries, limits, 6, threads=2)
    for place, (query, limit) in enumerate(zip(queries, limits)):
        distances = [metric(query, row) for row in X]
        rows = [i for i, distance in enumerate(distances) if distance <= limit][:6]
        filled = 6 - len(rows)
        assert found.indices[place].tolist() == rows + [-1] * filled
        assert found.labels[place].tolist() == y[rows].tolist() + [-1] * filled
        np.testing.assert_array_equal(found.distances[place], [distances[i] for i in rows] + [np.nan] * filled)
    assert tool.first_within(queries, limits, 0).indices.shape == (9, 0)


def test_the_first_rows_where_no_number_holds_a_distance() -> None:
    tool = ct.ClassifierTool()
    tool.train([[0.0], [1.0]], [4, 5], ct.KNNParams(1, lambda a, b: float("nan")))
    found = tool.first_within([[0.0], [0.0]], [1e308, np.inf], 2)
    np.testing.assert_array_equal(found.distances, [[np.nan, np.nan], [np.inf, np.inf]])
    assert found.indices.tolist() == [[-1, -1], [0, 1]]


def test_the_first_rows_are_refused_where_runs_are() -> None:
    tool = ct.ClassifierTool()
    with pytest.raises(ct.errors.NotTrained, match="^Classifier tool must be trained before running.$"):
        tool.first_within([[0.0]], [1.0], 1)
    tool.train([[0.0], [1.0]], [0, 1], ct.BayesParams(throw_if_not_ready=False))
    with pytest.raises(ct.errors.BadMethod, match="^Classifier tool was not trained for nearest neighbors$"):
        tool.first_within([[0.0]], [1.0], 1)
    tool.train([[0.0], [1.0]], [0, 1], ct.KNNParams())
    for row in ([np.nan], [0.0, 0.0]):
        with pytest.raises(ct.errors.BadFeatures, match="^K-nearest neighbor classification does not support invalid"):
            tool.first_within([row], [1.0], 1)
    with pytest.raises(ValueError, match="^distances must have one for each row of X$"):
        tool.first_within([[0.0]], [1.0, 2.0], 1)


def test_log_likelihoods_reach_where_scores_are_zero() -> None:
    X, y = sample(300, 4, 3)
    tool = trained(ct.BayesParams())
    far = np.vstack([X[:5], X[:5] + 1e4])
    values = tool.log_likelihoods(far)
    rows = tool.run_rows(far)
    with np.errstate(divide="ignore"):
        told = np.log(rows.match_scores) - rows.match_score_factor_logs[:, None]
    np.testing.assert_allclose(values[told > -np.inf], told[told > -np.inf], rtol=1e-12, atol=1e-9)
    assert (told == -np.inf).any()
    for label in range(3):
        mean, variance = X[y == label].mean(0), X[y == label].var(0, ddof=1)
        expected = (-((far - mean) ** 2) / (2 * variance) - np.log(2 * np.pi * variance) / 2).sum(1)
        np.testing.assert_allclose(values[:, label], expected, rtol=1e-9)


def test_densities_are_what_numpy_computes() -> None:
    X, y = sample(300, 4, 3)
    types = ct.DistributionTypes()
    types.set_dependent(1, [0, 2])
    densities = trained(ct.BayesParams(types)).densities()
    joint = [d for d in densities if d.label == 1 and len(d.measurements) == 2]
    assert [d.measurements for d in joint] == [[0, 2]]
    np.testing.assert_allclose(joint[0].mean, X[y == 1][:, [0, 2]].mean(0), rtol=1e-12)
    np.testing.assert_allclose(joint[0].covariance, np.cov(X[y == 1][:, [0, 2]].T), rtol=1e-11)
    assert joint[0].count == (y == 1).sum()
    assert joint[0].type == ct.DistributionType.NORMAL
    assert len(densities) == 4 + 3 + 4
    assert trained(ct.BayesParams()).category_counts == {label: int((y == label).sum()) for label in range(3)}
    theta = binomial().densities()[0]
    assert theta.type == ct.DistributionType.BINOMIAL
    assert theta.num_trials > 0
    assert 0 < theta.theta < 1


@pytest.mark.parametrize("params", [ct.BayesParams(), ct.KNNParams(3)], ids=["bayes", "neighbors"])
def test_adding_is_as_if_trained_on_all(params: Any) -> None:
    X, y = sample(300, 4, 3)
    tool, expected = ct.ClassifierTool(), ct.ClassifierTool()
    tool.train(X[:100], y[:100], params)
    tool.add(X[100:], y[100:])
    expected.train(X, y, params)
    assert tool == expected


def test_merging_is_as_if_trained_on_both() -> None:
    X, y = sample(300, 4, 3)
    tool, other, both = (ct.ClassifierTool() for _ in range(3))
    tool.train(X[:100], y[:100], ct.BayesParams())
    other.train(X[100:], y[100:], ct.BayesParams())
    both.train(X, y, ct.BayesParams())
    tool.merge(other)
    for one, expected in zip(tool.densities(), both.densities()):
        np.testing.assert_allclose(one.mean, expected.mean, rtol=1e-12)
        np.testing.assert_allclose(one.covariance, expected.covariance, rtol=1e-12)
        assert one.count == expected.count


def test_retraining_changes_costs_and_frequencies() -> None:
    tool = trained(ct.BayesParams())
    X = sample(100, 4, 3, 8)[0]
    before = tool.run_rows(X)
    tool.retrain(ct.BayesParams(frequencies=ct.Frequencies(1, {0: 5.0}), costs=ct.Costs(1, {(0, 1): 50.0})))
    after = tool.run_rows(X)
    assert before.match_scores.tobytes() == after.match_scores.tobytes()
    weights = before.match_scores * [5, 1, 1]
    np.testing.assert_allclose(after.class_scores, weights / weights.sum(1, keepdims=True), rtol=1e-13)
    matrix = np.array([[0, 50, 1], [1, 0, 1], [1, 1, 0]])
    np.testing.assert_allclose(after.expected_costs, after.class_scores @ matrix, rtol=1e-12, atol=1e-300)
    np.testing.assert_array_equal(after.labels, after.expected_costs.argmin(1))


def test_progress_is_told() -> None:
    told: list[tuple[int, int]] = []
    X, y = sample(3000, 4, 3)
    tool = ct.ClassifierTool()
    tool.train(X, y, ct.KNNParams(3, manhattan), progress=lambda done, all: told.append((done, all)))
    assert told[-1] == (3000, 3000)
    told.clear()
    tool.run_rows(X[:30], progress=lambda done, all: told.append((done, all)))
    assert len(told) > 3
    assert told == sorted(told)
    assert told[-1] == (30, 30)


def test_progress_may_end_the_work() -> None:
    def refuse(done: int, all: int) -> None:
        raise InterruptedError("enough")

    tool = TOOLS["bayes"]()
    before = copy.copy(tool)
    with pytest.raises(InterruptedError, match="enough"):
        tool.train(*sample(1000, 4, 3), ct.KNNParams(), progress=refuse)
    assert tool == before
    with pytest.raises(InterruptedError, match="enough"):
        before.run_rows(sample(1000, 4, 3)[0], progress=refuse)


def test_what_a_metric_raises_is_raised() -> None:
    def broken(a: Any, b: Any) -> float:
        raise LookupError("no distance")

    tool = trained(ct.KNNParams(1, broken))
    for call in (lambda: tool.run([1, 2, 3, 4]), lambda: tool.run_rows(np.ones((100, 4)), threads=2)):
        with pytest.raises(LookupError, match="no distance"):
            call()
    tool.retrain(ct.KNNParams(1, lambda a, b: "far"))  # type: ignore[arg-type]
    with pytest.raises(TypeError, match="must be real number"):
        tool.run([1, 2, 3, 4])
    with pytest.raises(TypeError, match="a metric is a Norm or a function of two arrays"):
        ct.KNNParams(1, 5)  # type: ignore[arg-type]


def test_a_trained_tool_tells_what_it_is() -> None:
    told = {name: repr(make()) for name, make in TOOLS.items()}
    assert told == {
        "untrained": "<ClassifierTool: untrained>",
        "neighbors": "<ClassifierTool: neighbors, 3 categories>",
        "neighbors by a function": "<ClassifierTool: neighbors, 3 categories>",
        "bayes": "<ClassifierTool: bayes, 3 categories>",
        "binomial": "<ClassifierTool: bayes, 2 categories>",
        "tree": "<ClassifierTool: tree, 3 categories>",
    }
    assert [make().technique for make in TOOLS.values()] == [None, "neighbors", "neighbors", "bayes", "bayes", "tree"]
    assert [make().num_measurements for make in TOOLS.values()] == [0, 4, 4, 4, 2, 0]
    assert tree_tool().tree == by_parts()


def test_training_reads_arrays_in_place() -> None:
    import tracemalloc

    X, y = sample(50_000, 16, 3)
    for rows in (X, np.asfortranarray(X), X.astype("f4")):
        tool = ct.ClassifierTool()
        tracemalloc.start()
        tool.train(rows, y, ct.BayesParams())
        labels = tool.run_rows(rows, only_labels=True).labels
        peak = tracemalloc.get_traced_memory()[1]
        tracemalloc.stop()
        assert peak < rows.nbytes // 4 + labels.nbytes
