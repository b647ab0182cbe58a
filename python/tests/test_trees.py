"""Trees of scikit-learn beside the tools made of them."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import numpy as np
import pytest
from clastool import ClassifierTool
from clastool.trees import from_sklearn
from hypothesis import given, settings
from hypothesis import strategies as st
from sklearn.datasets import load_breast_cancer, load_iris
from sklearn.ensemble import ExtraTreesClassifier, RandomForestClassifier
from sklearn.tree import DecisionTreeClassifier, DecisionTreeRegressor, ExtraTreeClassifier

IRIS, SPECIES = load_iris(return_X_y=True)


def around_thresholds(tree: Any, X: Any) -> Any:
    """Rows with each threshold in its measurement, the doubles and floats beside it, and what lies half way between floats."""
    structure = tree.tree_
    random = np.random.default_rng(1)
    rows = []
    for node in np.flatnonzero(structure.children_left >= 0):
        threshold = structure.threshold[node]
        if not np.isfinite(threshold):
            continue
        single = np.float32(threshold)
        values = [threshold, np.nextafter(threshold, -np.inf), np.nextafter(threshold, np.inf)]
        for a, b in ((np.nextafter(single, np.float32(-np.inf)), single), (single, np.nextafter(single, np.float32(np.inf)))):
            middle = (float(a) + float(b)) / 2
            values += [float(a), float(b), middle, np.nextafter(middle, -np.inf), np.nextafter(middle, np.inf)]
        for value in values:
            row = X[random.integers(len(X))].copy()
            row[structure.feature[node]] = value
            rows.append(row)
    return np.array(rows).reshape(-1, X.shape[1])


def assert_equal_decisions(tree: Any, X: Any) -> None:
    tool = from_sklearn(tree)
    rows = np.vstack([X, around_thresholds(tree, X)])
    assert np.array_equal(tool.run_rows(rows).labels, tree.predict(rows))
    shares = tool.run_rows(rows)
    np.testing.assert_allclose(shares.class_scores, tree.predict_proba(rows), rtol=1e-15)


@pytest.mark.parametrize("data", [load_iris, load_breast_cancer], ids=["iris", "breast cancer"])
@pytest.mark.parametrize("cls", [DecisionTreeClassifier, ExtraTreeClassifier])
@pytest.mark.parametrize("depth", [1, 3, None])
def test_decisions_are_equal_at_and_beside_every_threshold(data: Any, cls: Any, depth: Any) -> None:
    X, y = data(return_X_y=True)
    assert_equal_decisions(cls(max_depth=depth, random_state=0).fit(X, y), X)


@pytest.mark.parametrize("forest", [RandomForestClassifier, ExtraTreesClassifier])
def test_one_tree_of_a_forest_decides_by_places_in_its_classes(forest: Any) -> None:
    fitted = forest(n_estimators=3, random_state=0).fit(IRIS, np.array(["a", "b", "c"])[SPECIES])
    for tree in fitted.estimators_:
        assert_equal_decisions(tree, IRIS)


def test_values_that_float32_makes_equal() -> None:
    # Neighbouring floats, so that thresholds lie between them and rounding to even matters on both sides.
    single = np.float32(1000.1)
    for _ in range(6):  # scikit-learn splits no values closer than 1e-7
        following = np.nextafter(single, np.float32(np.inf))
        X = np.array([[single], [following]], dtype=np.float32)
        assert_equal_decisions(DecisionTreeClassifier().fit(X, [0, 1]), X.astype(np.float64))
        single = following


@settings(max_examples=60, deadline=None, derandomize=True)
@given(st.lists(st.floats(-(2.0**100), 2.0**100, width=32), min_size=4, max_size=12, unique=True), st.integers(0, 10**6))
def test_thresholds_of_any_size(values: list[float], seed: int) -> None:
    X = np.array(values).reshape(-1, 1)
    y = np.random.default_rng(seed).integers(0, 3, len(X))
    assert_equal_decisions(DecisionTreeClassifier(random_state=0).fit(X, y), X)


def test_ties_in_leaves_go_to_the_first_class() -> None:
    random = np.random.default_rng(2)
    X, y = random.integers(0, 3, (300, 2)).astype(float), random.integers(0, 6, 300)
    for size in (2, 6, 30):
        tree = DecisionTreeClassifier(min_samples_leaf=size, random_state=0).fit(X, y)
        assert_equal_decisions(tree, X)
        weighted = DecisionTreeClassifier(min_samples_leaf=size, random_state=0, class_weight="balanced").fit(X, y)
        assert_equal_decisions(weighted, X)
    even = DecisionTreeClassifier().fit(np.zeros((4, 1)), [3, 1, 3, 1])
    assert from_sklearn(even).run([0.0]).label == 1
    uneven = DecisionTreeClassifier().fit(np.zeros((4, 1)), [0, 1, 1, 1])
    assert from_sklearn(uneven, [[0, 3], [1, 0]]).run([0.0]).label == 1  # equal costs: the more probable class


def test_missing_measurements_take_the_same_side() -> None:
    random = np.random.default_rng(3)
    X, y = random.normal(size=(300, 3)), random.integers(0, 3, 300)
    X[random.random(X.shape) < 0.3] = np.nan
    for seed in range(4):
        tree = DecisionTreeClassifier(max_depth=6, random_state=seed).fit(X, y)
        assert tree.tree_.missing_go_to_left.any()
        assert_equal_decisions(tree, X)


def test_costs_decide_in_the_leaves() -> None:
    tree = DecisionTreeClassifier(max_depth=2, random_state=0).fit(IRIS, SPECIES)
    costs = np.array([[0, 1, 1], [1, 0, 1], [1, 20, 0.0]])
    rows = from_sklearn(tree, costs).run_rows(IRIS)
    expected = tree.predict_proba(IRIS) @ costs
    assert np.array_equal(rows.labels, expected.argmin(axis=1))
    assert not np.array_equal(rows.labels, tree.predict(IRIS))
    np.testing.assert_allclose(rows.expected_costs, expected, rtol=1e-14)
    assert np.array_equal(from_sklearn(tree, {(2, 1): 20}).run_rows(IRIS).labels, rows.labels)


@pytest.mark.parametrize(
    ("labels", "answers"),
    [
        ([4, 7, 9], [4, 7, 9]),
        ([-1, 0, 1], [0, 1, 2]),
        ([0, 1, 2**31], [0, 1, 2]),
        ([0.0, 1.0, 5.0], [0, 1, 5]),
        ([0.5, 1.0, 5.0], [0, 1, 2]),
        (["a", "b", "c"], [0, 1, 2]),
    ],
    ids=str,
)
def test_labels_are_the_classes_or_their_places(labels: Any, answers: Any) -> None:
    # scikit-learn takes no labels such as 0.5 in training.
    tree = DecisionTreeClassifier(random_state=0).fit(IRIS, SPECIES)
    tree.classes_ = np.array(labels)
    assert from_sklearn(tree).categories.tolist() == answers


def test_tool_keeps_its_decisions_in_a_file(tmp_path: Path) -> None:
    tool = from_sklearn(DecisionTreeClassifier(random_state=0).fit(IRIS, SPECIES))
    tool.save(str(tmp_path / "tree"))
    loaded = ClassifierTool.load(str(tmp_path / "tree"))
    assert loaded == tool and np.array_equal(loaded.run_rows(IRIS).labels, tool.run_rows(IRIS).labels)


def test_deep_tree_becomes_a_tool() -> None:
    X = np.arange(1200.0).reshape(-1, 1)
    y = np.arange(1200) % 2
    tree = DecisionTreeClassifier(splitter="random", max_features=1, random_state=0, max_leaf_nodes=900).fit(X, y)
    assert_equal_decisions(tree, X)


@pytest.mark.parametrize(
    "model",
    [DecisionTreeClassifier(), DecisionTreeRegressor().fit(IRIS, SPECIES), RandomForestClassifier(2).fit(IRIS, SPECIES), None],
    ids=["not fitted", "regressor", "forest", "None"],
)
def test_what_is_no_tree_is_refused(model: Any) -> None:
    with pytest.raises(ValueError) as caught:
        from_sklearn(model)
    assert str(caught.value) == f"a fitted tree that decides among classes is wanted, not {model!r}"


def test_trees_of_several_outputs_are_refused() -> None:
    tree = DecisionTreeClassifier().fit(IRIS, np.column_stack([SPECIES, SPECIES]))
    tree.classes_ = np.array([0, 1, 2])
    with pytest.raises(ValueError) as caught:
        from_sklearn(tree)
    assert str(caught.value) == "a tree with one output is wanted, not one with 2"
