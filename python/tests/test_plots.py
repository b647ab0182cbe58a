"""Pictures, by what they hold."""

from __future__ import annotations

from typing import Any

import matplotlib

matplotlib.use("Agg")

import numpy as np
import pandas as pd
import pytest
from clastool import FeatureScoreIgnore, FeatureScoreOneSided, FeatureScoreTwoSided, Rule, RuleTable
from clastool.plots import (
    CostConfusionDisplay,
    CostRatioDisplay,
    DecisionRegionsDisplay,
    RuleTableDisplay,
    ScoringFunctionDisplay,
    TreeDisplay,
)
from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier
from clastool.trees import from_sklearn
from matplotlib import pyplot as plt
from sklearn.datasets import load_iris
from sklearn.tree import DecisionTreeClassifier

IRIS, SPECIES = load_iris(return_X_y=True)
COSTS = [[0, 1, 1], [1, 0, 1], [1, 9, 0]]


@pytest.fixture(autouse=True)
def close_figures() -> Any:
    yield
    plt.close("all")


def test_decision_regions_are_the_decisions_on_the_grid() -> None:
    table = pd.DataFrame(IRIS[:, 2:], columns=["length", "width"])
    model = BayesCostClassifier(costs=COSTS).fit(table, SPECIES)
    display = DecisionRegionsDisplay.from_estimator(model, table, SPECIES, grid_resolution=30, margin=0.5)
    points = pd.DataFrame({"length": display.xx0.ravel(), "width": display.xx1.ravel()})
    assert np.array_equal(display.decided.ravel(), model.predict(points))
    np.testing.assert_allclose(display.expected.ravel(), model.expected_costs(points).min(axis=1))
    assert (display.xx0.min(), display.xx0.max()) == pytest.approx((1.0 - 2.95, 6.9 + 2.95))
    assert display.ax_.get_xlabel() == "length" and display.ax_.get_ylabel() == "width"
    legend: Any = display.ax_.get_legend()
    assert [text.get_text() for text in legend.get_texts()] == ["0", "1", "2"]
    image = display.ax_.images[0].get_array()
    assert image is not None and image.shape == (30, 30, 3) and 0.0 <= image.min() and image.max() <= 1.0
    other = display.plot(ax=plt.subplots()[1])
    assert other is display and len(plt.get_fignums()) == 2


def test_decision_regions_reach_around_measurements_that_do_not_vary() -> None:
    X = np.column_stack([IRIS[:, 2], np.full(len(IRIS), 7.0)])
    display = DecisionRegionsDisplay.from_estimator(KNeighborsCostClassifier().fit(X, SPECIES), X, grid_resolution=5)
    assert display.xx1[:, 0].tolist() == [6.5, 6.75, 7.0, 7.25, 7.5]
    assert display.ax_.get_ylim() == (6.5, 7.5)


def test_decision_regions_show_where_rows_are_rejected() -> None:
    model = KNeighborsCostClassifier(reject_quantile=0.05, reject_label="none").fit(IRIS[:, 2:], np.array(["a", "b", "c"])[SPECIES])
    display = DecisionRegionsDisplay.from_estimator(model, IRIS[:, 2:], grid_resolution=20, margin=1.0)
    assert set(np.unique(display.decided)) == {-1, 0, 1, 2}
    assert display.ax_.get_legend() is None
    with pytest.raises(ValueError) as caught:
        DecisionRegionsDisplay.from_estimator(model, IRIS)
    assert str(caught.value) == "X must have two measurements, not the shape (150, 4)"


def test_cost_confusion_weighs_counts_by_costs() -> None:
    y = np.array(["a", "b", "c"])[SPECIES]
    model = BayesCostClassifier(costs=COSTS).fit(IRIS, y)
    display = CostConfusionDisplay.from_estimator(model, IRIS, y)
    decided = model.predict(IRIS)
    expected = [[int(np.sum((y == true) & (decided == assigned))) for assigned in "abc"] for true in "abc"]
    assert display.counts.tolist() == expected
    assert display.paid.tolist() == (np.array(expected) * COSTS).tolist()
    assert display.paid.sum() == model.paid_cost(IRIS, y, normalize=False)
    assert display.text_[0, 0].get_text() == "50"
    assert display.text_[1, 2].get_text() == f"{expected[1][2]}\ncost {expected[1][2]}"
    assert display.ax_.get_title() == f"cost {display.paid.sum():g} of 150 decisions"
    again = CostConfusionDisplay.from_predictions(["a", "b"], ["b", "unlike"], costs=np.array(COSTS), classes=np.array(["a", "b", "c"]))
    assert again.counts.tolist() == [[0, 1, 0], [0, 0, 0], [0, 0, 0]]
    with pytest.raises(ValueError, match="y_true names the class 'x'"):
        CostConfusionDisplay.from_predictions(["x"], ["b"], costs=np.array(COSTS), classes=np.array(["a", "b", "c"]))


def test_cost_ratio_is_as_estimators_with_these_costs() -> None:
    model = BayesCostClassifier().fit(IRIS, SPECIES)
    display = CostRatioDisplay.from_estimator(model, IRIS, SPECIES, mistake=(2, 1), ratios=[0.1, 1.0, 30.0])
    for i, ratio in enumerate([0.1, 1.0, 30.0]):
        other = BayesCostClassifier(costs={(2, 1): ratio}).fit(IRIS, SPECIES)
        assert display.paid[i] == pytest.approx(other.paid_cost(IRIS, SPECIES))
        assert display.expected[i] == pytest.approx(other.expected_costs(IRIS).min(axis=1).mean())
        assert display.fixed[i] == pytest.approx([2 / 3, (1 + ratio) / 3, 2 / 3])
    labels = [line.get_label() for line in display.ax_.lines]
    assert labels == ["paid", "expected", "always 0", "always 1", "always 2"]
    assert len(CostRatioDisplay.from_estimator(model, IRIS, SPECIES, (0, 1)).ratios) == 41


def test_scoring_functions_and_rule_tables() -> None:
    one, two = FeatureScoreOneSided(2, 3, 4, 1, 0), FeatureScoreTwoSided(1, 1.5, 2, 5, 5.5, 6, 0, 1, 1, 0)
    display = ScoringFunctionDisplay.from_function(one, 0.0, 6.0, name="length")
    line: Any = display.ax_.lines[0]
    assert line.get_xdata()[[0, -1]].tolist() == [0.0, 6.0]
    assert display.scores.tolist() == [one(x) for x in display.x.tolist()]
    table = RuleTable([Rule([one, two], 3), Rule([FeatureScoreIgnore(), one], 7)])
    rules = RuleTableDisplay.from_table(table, [(0, 6), (0, 8)], names=["length", "width"])
    assert rules.axes_.shape == (2, 2)
    assert rules.axes_[1, 0].get_ylabel() == "label 7\nscore" and rules.axes_[0, 1].get_xlabel() == "width"
    assert [text.get_text() for text in rules.axes_[1, 0].texts] == ["ignored"] and not rules.axes_[1, 0].lines
    assert rules.axes_[0, 1].lines[0].get_ydata().tolist() == [two(x) for x in np.linspace(0, 8, 401).tolist()]


def test_tree_shows_questions_and_decisions() -> None:
    tree = DecisionTreeClassifier(max_depth=2, random_state=0).fit(IRIS, SPECIES)
    display = TreeDisplay.from_tool(from_sklearn(tree), feature_names=["a", "b", "c", "d"], class_names=["x", "y", "z"])
    texts = [text.get_text() for text in display.text_]
    assert len(texts) == 5 and sum("cost" in text for text in texts) == 3
    assert texts[0] == "d ≤ 0.8" and "x\ncost 0" in texts
    plain = TreeDisplay.from_tool(from_sklearn(tree))
    assert plain.text_[0].get_text() == "measurement 3 ≤ 0.8"
    x = {text.get_text(): text.get_position()[0] for text in display.text_}
    assert x["x\ncost 0"] < x["d ≤ 0.8"]
    missing = DecisionTreeClassifier(random_state=0).fit([[1.0], [2.0], [np.nan], [np.nan]], [0, 1, 0, 0])
    assert "measurement 0 ≥ 1.5" in [text.get_text() for text in TreeDisplay.from_tool(from_sklearn(missing)).text_]


def test_deep_trees_are_drawn() -> None:
    X, y = np.arange(3000.0).reshape(-1, 1), np.arange(3000) % 2
    tree = DecisionTreeClassifier(splitter="random", max_leaf_nodes=60, random_state=0).fit(X, y)
    assert len(TreeDisplay.from_tool(from_sklearn(tree)).text_) == tree.tree_.node_count
