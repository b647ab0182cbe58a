"""Values: what they hold, how they compare, copy, pickle and write themselves."""

from __future__ import annotations

import copy
import math
import pickle
from collections.abc import Callable
from typing import Any

import clastool as ct
import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st


def manhattan(a: Any, b: Any) -> float:
    return float(np.abs(a - b).sum())


def types_with_all() -> ct.DistributionTypes:
    types = ct.DistributionTypes(ct.DistributionType.BINOMIAL)
    types[3, 1] = ct.DistributionType.NORMAL
    types[3, 2] = ct.DistributionType.NORMAL
    types.set_dependent(3, [2, 1])
    return types


def leaf(label: int) -> ct.Leaf:
    return ct.Leaf(ct.Result([ct.CategoryResult(label, 1.0, 1.0, 0.0)]))


# Each with another that is not equal, and what it writes.
VALUES: dict[str, tuple[Callable[[], Any], Callable[[], Any], str]] = {
    "pattern": (
        lambda: ct.FeaturePattern([1.5, math.nan, -3]),
        lambda: ct.FeaturePattern([1.5, 2, -3]),
        "FeaturePattern([1.5, nan, -3.0])",
    ),
    "costs": (
        lambda: ct.Costs(2.0, {(0, 1): 5.0, (1, 0): 0.25}),
        lambda: ct.Costs(2.0),
        "Costs(2.0, {(0, 1): 5.0, (1, 0): 0.25})",
    ),
    "frequencies": (
        lambda: ct.Frequencies(2.0, {4: 5.0}),
        lambda: ct.Frequencies(2.0, {4: 6.0}),
        "Frequencies(2.0, {4: 5.0})",
    ),
    "types": (
        types_with_all,
        ct.DistributionTypes,
        "<DistributionTypes: DistributionType.BINOMIAL, (3, 1): DistributionType.NORMAL, (3, 2): DistributionType.NORMAL, "
        "dependent in 3: [2, 1]>",
    ),
    "norm": (lambda: ct.Norm(1.5), ct.Norm, "Norm(1.5)"),
    "neighbors": (
        lambda: ct.KNNParams(3, ct.Norm(1.0), ct.Costs(4.0), throw_if_not_ready=False),
        lambda: ct.KNNParams(3, ct.Norm(1.0), ct.Costs(5.0), throw_if_not_ready=False),
        "KNNParams(3, Norm(1.0), Costs(4.0), throw_if_not_ready=False)",
    ),
    "neighbors by a function": (
        lambda: ct.KNNParams(3, manhattan),
        lambda: ct.KNNParams(3),
        f"KNNParams(3, {manhattan!r}, Costs(1.0))",
    ),
    "bayes": (
        lambda: ct.BayesParams(types_with_all(), ct.Frequencies(2.0), ct.Costs(3.0), [4.0, 5.0]),
        ct.BayesParams,
        f"BayesParams({types_with_all()!r}, Frequencies(2.0), Costs(3.0), FeaturePattern([4.0, 5.0]))",
    ),
    "category": (
        lambda: ct.CategoryResult(7, 0.5, 0.25, 3.0),
        lambda: ct.CategoryResult(7, 0.5, 0.25, 4.0),
        "CategoryResult(7, 0.5, 0.25, 3.0)",
    ),
    "result": (
        lambda: ct.Result([ct.CategoryResult(7, 0.5, 0.75, 3.0), ct.CategoryResult(2, 0.5, 0.25, 1.0)], -2.0),
        lambda: ct.Result([ct.CategoryResult(7, 0.5, 0.75, 3.0)], -2.0),
        "Result([CategoryResult(2, 0.5, 0.25, 1.0), CategoryResult(7, 0.5, 0.75, 3.0)], -2.0)",
    ),
    "comparison": (
        lambda: ct.ComparisonPredicate(3, 1),
        lambda: ct.ComparisonPredicate(1, 3),
        "ComparisonPredicate(3, 1)",
    ),
    "range": (
        lambda: ct.RangePredicate(-math.inf, 2.5, [0, 2]),
        lambda: ct.RangePredicate(-math.inf, 2.5, [2, 0]),
        "RangePredicate(-inf, 2.5, [0, 2])",
    ),
    "validity": (lambda: ct.ValidityPredicate([1]), lambda: ct.ValidityPredicate([]), "ValidityPredicate([1])"),
    "leaf": (
        lambda: leaf(4),
        lambda: leaf(5),
        "Leaf(Result([CategoryResult(4, 1.0, 1.0, 0.0)], 0.0))",
    ),
    "node": (
        lambda: ct.Node(ct.ValidityPredicate([1]), leaf(4), leaf(5)),
        lambda: ct.Node(ct.ValidityPredicate([1]), leaf(5), leaf(4)),
        "<Node: ValidityPredicate([1]), category labels [5, 4]>",
    ),
    "ignore": (ct.FeatureScoreIgnore, ct.FeatureScoreOneSided, "FeatureScoreIgnore()"),
    "one-sided": (
        lambda: ct.FeatureScoreOneSided(1, 2, 3, 0, 0.5),
        ct.FeatureScoreOneSided,
        "FeatureScoreOneSided(1.0, 2.0, 3.0, 0.0, 0.5)",
    ),
    "two-sided": (
        lambda: ct.FeatureScoreTwoSided(-1, 0, 0, 1, 0, 0, 0, 1, 0, 0.5),
        lambda: ct.FeatureScoreTwoSided(-1, 0, 0, 1, 0, 0, 0, 1, 0, 1),
        "FeatureScoreTwoSided(-1.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.5)",
    ),
    "rule": (
        lambda: ct.Rule([ct.FeatureScoreIgnore(), ct.FeatureScoreOneSided()], 6),
        lambda: ct.Rule([ct.FeatureScoreIgnore(), ct.FeatureScoreOneSided()], 7),
        "Rule([FeatureScoreIgnore(), FeatureScoreOneSided(0.0, 1.0, 1.0, 1.0, 0.0)], 6)",
    ),
    "rules": (
        lambda: ct.RuleTable([ct.Rule([ct.FeatureScoreIgnore()], 6), ct.Rule([ct.FeatureScoreIgnore()], 7)]),
        lambda: ct.RuleTable([ct.Rule([ct.FeatureScoreIgnore()], 6)]),
        "RuleTable([Rule([FeatureScoreIgnore()], 6), Rule([FeatureScoreIgnore()], 7)])",
    ),
}


@pytest.mark.parametrize("name", VALUES)
def test_values_compare_as_values(name: str) -> None:
    make, other, _ = VALUES[name]
    assert make() == make()
    assert not make() != make()
    assert make() != other()
    assert not make() == other()
    assert make() != "another thing"
    assert make() != 1


@pytest.mark.parametrize("name", VALUES)
def test_equal_values_have_no_hash(name: str) -> None:
    with pytest.raises(TypeError, match="unhashable"):
        hash(VALUES[name][0]())


@pytest.mark.parametrize("name", VALUES)
@pytest.mark.parametrize(
    "again",
    [copy.copy, copy.deepcopy, *(lambda v, p=p: pickle.loads(pickle.dumps(v, p)) for p in range(6))],
    ids=["copy", "deepcopy", "pickle 0", "pickle 1", "pickle 2", "pickle 3", "pickle 4", "pickle 5"],
)
def test_values_copy_and_pickle(name: str, again: Callable[[Any], Any]) -> None:
    value = VALUES[name][0]()
    other = again(value)
    assert other == value
    assert other is not value
    assert type(other) is type(value)
    assert repr(other) == repr(value)


@pytest.mark.parametrize("name", VALUES)
def test_values_write_themselves(name: str) -> None:
    make, _, written = VALUES[name]
    assert repr(make()) == written
    if not written.startswith("<") and "<" not in written:
        names: dict[str, Any] = {**vars(ct), "nan": math.nan, "inf": math.inf}
        assert eval(written, names) == make()


def test_a_pattern_lacks_what_is_no_number() -> None:
    pattern = ct.FeaturePattern([1, math.nan, math.inf, 4], [3])
    assert len(pattern) == 4
    assert pattern.num_invalid == 3
    assert pattern.valid.tolist() == [True, False, False, False]
    np.testing.assert_array_equal(pattern.values, [1, math.nan, math.nan, math.nan])
    assert pattern[0] == pattern[-4] == 1
    assert math.isnan(pattern[-1])
    for index in (4, -5):
        with pytest.raises(IndexError, match="measurement index out of range"):
            pattern[index]


@given(st.lists(st.floats(), max_size=20))
def test_a_pattern_holds_the_numbers_given(values: list[float]) -> None:
    pattern = ct.FeaturePattern(values)
    finite = [v if math.isfinite(v) else math.nan for v in values]
    np.testing.assert_array_equal(pattern.values, finite)
    assert pickle.loads(pickle.dumps(pattern)).values.tobytes() == pattern.values.tobytes()


def test_what_a_pattern_gives_is_a_copy() -> None:
    pattern = ct.FeaturePattern([1, 2])
    pattern.values[0] = 7
    pattern.valid[0] = False
    assert pattern == ct.FeaturePattern([1, 2])


def test_costs() -> None:
    costs = ct.Costs.from_matrix([[0, 2], [3, 0]], [5, 7])
    assert costs.overrides == {(5, 7): 2, (7, 5): 3}
    assert costs[5, 7] == 2
    assert costs[7, 8] == 1
    costs[7, 8] = 4
    costs.default = 9
    assert (costs[7, 8], costs[1, 2]) == (4, 9)
    costs.clear()
    assert costs == ct.Costs(9)


def test_frequencies() -> None:
    frequencies = ct.Frequencies.from_values([2, 3], [5, 7])
    assert frequencies.overrides == {5: 2, 7: 3}
    frequencies[8] = 4
    frequencies.default = 9
    assert (frequencies[5], frequencies[8], frequencies[0]) == (2, 4, 9)
    frequencies.clear()
    assert frequencies == ct.Frequencies(9)


def test_distribution_types() -> None:
    types = types_with_all()
    assert types.default == ct.DistributionType.BINOMIAL
    assert types[3, 1] == ct.DistributionType.NORMAL
    assert types[4, 1] == ct.DistributionType.BINOMIAL
    assert types.overrides == {(3, 1): ct.DistributionType.NORMAL, (3, 2): ct.DistributionType.NORMAL}
    assert types.dependent_sets == [(3, [2, 1])]
    assert types.is_dependent(3, [1, 2])
    assert not types.is_dependent(4, [1, 2])
    types.default = ct.DistributionType.NORMAL
    types.clear()
    assert types == ct.DistributionTypes()


def test_what_parameters_give_is_a_copy() -> None:
    params = ct.BayesParams()
    params.costs.default = 5
    params.frequencies.default = 5
    params.distribution_types.default = ct.DistributionType.BINOMIAL
    assert params == ct.BayesParams()
    params.costs = ct.Costs(5)
    params.frequencies = ct.Frequencies(6)
    params.distribution_types = types_with_all()
    params.max_values = [7, 8]
    params.throw_if_not_ready = False
    assert params == ct.BayesParams(types_with_all(), ct.Frequencies(6), ct.Costs(5), [7, 8])
    assert not params.throw_if_not_ready
    neighbors = ct.KNNParams()
    neighbors.k, neighbors.metric, neighbors.costs = 4, manhattan, ct.Costs(5)
    neighbors.throw_if_not_ready = False
    assert neighbors == ct.KNNParams(4, manhattan, ct.Costs(5))
    assert neighbors.metric is manhattan
    neighbors.metric = None
    assert neighbors.metric == ct.Norm(2)


@pytest.mark.parametrize("order", [0.5, 1.0, 2.0, 3.7])
def test_a_norm_measures(order: float) -> None:
    a, b = np.array([1.0, 2.0, 5.0]), [3.0, -1.0, 5.5]
    expected = (np.abs(a - b) ** order).sum() ** (1 / order)
    assert ct.Norm(order)(a, b) == pytest.approx(expected, rel=1e-14)
    assert ct.Norm(order)(ct.FeaturePattern(a), ct.FeaturePattern(b)) == ct.Norm(order)(a, b)
    assert ct.Norm(order).order == order


def test_the_decision_rule() -> None:
    scores = [ct.CategoryResult(0, 0.5), ct.CategoryResult(1, 1.0)]
    result = ct.Result.from_match_scores(scores, ct.Frequencies(1, {0: 3}), ct.Costs(1, {(0, 1): 10.0}), -4.0)
    # Posteriors 0.6 and 0.4; deciding for 1 costs 0.6 * 10, for 0 it costs 0.4.
    assert [c.label for c in result.category_results] == [0, 1]
    assert result.label == result.decision.label == 0
    assert result[0].class_score == pytest.approx(0.6, rel=1e-15)
    assert result[0].expected_cost == pytest.approx(0.4, rel=1e-15)
    assert result[-1].expected_cost == pytest.approx(6.0, rel=1e-15)
    assert result[1].match_score == 1.0
    assert len(result) == 2
    assert result.match_score_factor_log == -4.0
    assert result.log_likelihood(0) == math.log(0.5) + 4.0
    for index in (2, -3):
        with pytest.raises(IndexError, match="category result index out of range"):
            result[index]


def test_predicates_answer() -> None:
    pattern = ct.FeaturePattern([1, 3, math.nan])
    assert ct.ComparisonPredicate(1, 0)(pattern)
    assert not ct.ComparisonPredicate(0, 1)([1, 3])
    assert not ct.ComparisonPredicate(1, 2)(pattern)
    assert ct.RangePredicate(1, 3, [0, 1])(pattern)
    assert not ct.RangePredicate(1, 2, [0, 1])(pattern)
    assert ct.ValidityPredicate([0, 1])(pattern)
    assert not ct.ValidityPredicate([0, 2])(pattern)
    comparison, between, validity = ct.ComparisonPredicate(1, 0), ct.RangePredicate(1, 3, [0]), ct.ValidityPredicate([2])
    assert (comparison.index1, comparison.index2) == (1, 0)
    assert (between.low, between.high, between.indices, validity.indices) == (1, 3, [0], [2])
    assert all(isinstance(p, ct.Predicate) for p in (comparison, between, validity))


def test_trees_hold_what_they_were_given() -> None:
    node = ct.Node(ct.ValidityPredicate([1]), leaf(4), ct.Node(ct.ComparisonPredicate(0, 1), leaf(5), leaf(4)))
    assert node.predicate == ct.ValidityPredicate([1])
    assert node.true_tree == leaf(4)
    inner = node.false_tree
    assert isinstance(inner, ct.Node)
    assert inner.predicate == ct.ComparisonPredicate(0, 1)
    assert inner.true_tree == leaf(5)
    assert node.category_labels == [4, 5]
    assert leaf(4).result.label == 4
    assert isinstance(node, ct.DecisionTree)
    assert isinstance(node.true_tree, ct.Leaf)


def test_trees_of_any_depth() -> None:
    tree: ct.Node | ct.Leaf = leaf(0)
    for depth in range(100_000):
        tree = ct.Node(ct.RangePredicate(depth, math.inf, [0]), leaf(depth % 3), tree)
    assert tree == ct.Node(tree.predicate, tree.true_tree, tree.false_tree)  # type: ignore[union-attr]
    tool = ct.ClassifierTool()
    tool.train(tree)
    assert tool.run([50_000.5]).label == 50_000 % 3
    assert tool.categories.tolist() == [0, 1, 2]
    with pytest.raises(ct.TooDeep):
        tool.to_bytes()


def test_scores() -> None:
    one = ct.FeatureScoreOneSided(0, 10, 20, 0, 1)
    assert [one(x) for x in (-1, 5, 10, 20, 21)] == [0, 0.5, 1, 1, 0]
    assert (one.x0, one.x1, one.xc, one.y0, one.y1) == (0, 10, 20, 0, 1)
    two = ct.FeatureScoreTwoSided(-1, 0, 0, 1, 0, 0, 0, 1, 0, 1)
    assert [two(x) for x in (-2, -0.5, 0, 0.25, 2)] == [0, 0.5, 1, 0.75, 0]
    assert two.low == ct.FeatureScoreOneSided(-1, 0, 0, 0, 1)
    assert two.high == ct.FeatureScoreOneSided(1, 0, 0, 0, 1)
    assert ct.FeatureScoreIgnore()(3) == -1


def test_rules_classify() -> None:
    low, high = ct.FeatureScoreOneSided(10, 0, 0, 0, 1), ct.FeatureScoreOneSided(0, 10, 20, 0, 1)
    table = ct.RuleTable([ct.Rule([low, ct.FeatureScoreIgnore()], 3), ct.Rule([high, high], 8)])
    assert [table.classify([x, 10], 0.3) for x in (5, 8, 1)] == [3, 8, 3]
    assert table.classify([5, 10], 0.95) == -1
    assert table.rules[1].label == 8
    assert table.rules[0].scores == [low, ct.FeatureScoreIgnore()]
    assert table.rules[1].score([5, 10]) == math.sqrt(0.5)


def test_generated_data_are_the_same_everywhere() -> None:
    X, y = ct.ClassDataGenerator([(0.0, 1.0), (10.0, 2.0)], 1000).generate()
    assert X.shape == (1000, 2)
    assert y.tolist() == [0] * 1000
    np.testing.assert_allclose(X.mean(0), [0, 10], atol=0.2)
    np.testing.assert_allclose(X.std(0), [1, 2], atol=0.2)
    again = ct.ClassDataGenerator([(0.0, 1.0), (10.0, 2.0)], 1000).generate()[0]
    assert again.tobytes() == X.tobytes()
    classes = [ct.ClassDataGenerator([(10.0 * i, 1.0)] * 3, 5) for i in range(2)]
    rows, labels = ct.TotalDataGenerator(classes).generate()
    # As many as measurements, all of the first class.
    assert rows.shape == (3, 3)
    assert labels.tolist() == [0, 0, 0]


def test_versions_agree() -> None:
    from importlib.metadata import version

    assert ct.__version__ == version("clastool")
