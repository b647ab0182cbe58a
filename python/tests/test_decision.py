"""The decision of the estimators beside the rule as it is defined, computed with exact fractions."""

from __future__ import annotations

from collections import Counter
from fractions import Fraction
from typing import Any

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from clastool._decision import in_blocks
from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier

DECIMALS = ["0", "0.1", "0.2", "0.3", "0.6", "0.7", "1", "3", "10"]


def exact_votes(rows: Any, labels: Any, query: Any, k: int) -> dict[int, Fraction]:
    """Votes of the k nearest rows by the city-block distance, as the search is defined: a row goes before those at its distance."""
    nearest: list[tuple[int, int]] = []
    for row, label in zip(rows, labels):
        distance = sum(abs(a - b) for a, b in zip(row, query))
        if len(nearest) < k or distance < nearest[-1][0]:
            place = next((j for j, (other, _) in enumerate(nearest) if distance <= other), len(nearest))
            nearest.insert(place, (distance, label))
            del nearest[k:]
    votes = Counter(label for _, label in nearest)
    return {label: Fraction(count, len(nearest)) for label, count in votes.items()}


def exact_decision(shares: dict[int, Fraction], costs: list[list[Fraction]]) -> int:
    """Least expected cost, then most probable, then first."""
    expected = [sum(shares.get(true, Fraction(0)) * row[j] for true, row in enumerate(costs)) for j in range(len(costs))]
    return min(range(len(costs)), key=lambda j: (expected[j], -shares.get(j, Fraction(0)), j))


@st.composite
def votes_with_ties(draw: st.DrawFn) -> tuple[Any, Any, Any, int, Any]:
    classes = draw(st.integers(2, 6))
    point = st.tuples(st.integers(0, 3), st.integers(0, 3))
    rows = draw(st.lists(point, min_size=classes, max_size=20))
    labels = [*range(classes), *draw(st.lists(st.integers(0, classes - 1), min_size=20, max_size=20))][: len(rows)]
    costs = draw(st.lists(st.lists(st.sampled_from(DECIMALS), min_size=classes, max_size=classes), min_size=classes, max_size=classes))
    return rows, labels, draw(point), draw(st.integers(1, 12)), costs


@settings(max_examples=150, deadline=None, derandomize=True)
@given(votes_with_ties(), st.booleans())
def test_neighbors_decide_as_exact_arithmetic_does(case: tuple[Any, Any, Any, int, Any], are_costs_equal: bool) -> None:
    rows, labels, query, k, texts = case
    exact = [[Fraction(0 if i == j else "0.7" if are_costs_equal else cost) for j, cost in enumerate(row)] for i, row in enumerate(texts)]
    costs = [[float(cost) for cost in row] for row in exact]
    model = KNeighborsCostClassifier(k, p=1, costs=costs).fit(np.array(rows, dtype=float), labels)
    shares = exact_votes(rows, labels, query, k)
    assert model.predict([query])[0] == exact_decision(shares, exact)
    assert model.predict_proba([query])[0] == pytest.approx([float(shares.get(i, 0)) for i in range(len(costs))], abs=1e-15)
    expected = [sum(shares.get(i, Fraction(0)) * exact[i][j] for i in range(len(costs))) for j in range(len(costs))]
    assert model.expected_costs([query])[0] == pytest.approx([float(cost) for cost in expected], rel=1e-14)


def test_decision_is_the_least_of_the_costs_that_are_given() -> None:
    random = np.random.default_rng(1)
    rows, labels = random.integers(0, 4, (300, 3)).astype(float), random.integers(0, 5, 300)
    costs = random.choice([0.1, 0.2, 0.3, 0.7], (5, 5)) * (1 - np.eye(5))
    for model in (KNeighborsCostClassifier(7, costs=costs), BayesCostClassifier(costs=costs)):
        model.fit(rows, labels)
        expected, shares = model.expected_costs(rows), model.predict_proba(rows)
        order = np.lexsort((np.broadcast_to(np.arange(5), shares.shape), -shares, expected))
        assert np.array_equal(model.predict(rows), order[:, 0])


def test_equal_costs_decide_for_the_most_probable_class() -> None:
    # Six votes among four classes: sums of three shares in different orders differ by a rounding.
    random = np.random.default_rng(2)
    rows, labels = random.integers(0, 3, (400, 2)).astype(float), random.integers(0, 6, 400)
    for cost in (0.1, 1.0, 3.7):
        model = KNeighborsCostClassifier(6, costs=cost * (1 - np.eye(6))).fit(rows, labels)
        assert np.array_equal(model.predict(rows), model.predict_proba(rows).argmax(axis=1))
        bayes = BayesCostClassifier(costs=cost * (1 - np.eye(6))).fit(rows, labels)
        assert np.array_equal(bayes.predict(rows), bayes.predict_proba(rows).argmax(axis=1))


def test_class_without_votes_is_decided_for_if_it_is_the_cheapest() -> None:
    rows, labels = [[0.0], [0.1], [9.0]], ["good", "bad", "look"]
    costs = {("good", "look"): 0.2, ("bad", "look"): 0.2, ("look", "bad"): 1, "default": 1}
    model = KNeighborsCostClassifier(2, costs=costs).fit(rows, labels)
    assert model.predict_proba([[0.05]]).tolist() == [[0.5, 0.5, 0.0]]
    assert model.expected_costs([[0.05]])[0] == pytest.approx([0.5, 0.5, 0.2], rel=1e-15)
    assert model.predict([[0.05]]).tolist() == ["look"]
    assert KNeighborsCostClassifier(2).fit(rows, labels).predict([[0.05]]).tolist() == ["bad"]


@pytest.mark.parametrize(
    ("votes", "costs", "decision"),
    [
        ([0, 1], [[0, 1], [1, 0]], 0),  # costs and shares are equal: the first class
        ([0, 0, 0, 1], [[0, 1], [3, 0]], 0),  # costs are equal: the more probable one
        ([0, 1, 1, 1], [[0, 3], [1, 0]], 1),
        ([0, 0, 0, 1], [[0, 0.1], [0.3, 0]], 0),  # 3 times 0.1 is not 0.3 in floating point
        ([0, 0, 0, 1], [[0, 0.7], [2.1, 0]], 0),  # and 3 times 0.7 is less than 2.1
        ([0, 0, 0, 1], [[0, 0.099999], [0.3, 0]], 1),  # a small difference counts
        ([0, 1], [[0, 0], [0, 0]], 0),  # nothing costs anything
    ],
)
def test_ties_go_to_the_more_probable_class_then_to_the_first(votes: list[int], costs: Any, decision: int) -> None:
    rows = np.zeros((len(votes), 1))
    model = KNeighborsCostClassifier(len(votes), costs=costs).fit(rows, votes)
    assert model.predict([[0.0]]).tolist() == [decision]


def test_bayes_between_two_equal_classes_decides_for_the_first() -> None:
    model = BayesCostClassifier().fit([[-2.0], [-1.0], [1.0], [2.0]], ["b", "b", "a", "a"])
    assert model.predict_proba([[0.0]]).tolist() == [[0.5, 0.5]]
    assert model.predict([[0.0]]).tolist() == ["a"]


@pytest.mark.parametrize("share", range(1, 10))
def test_bayes_decides_ties_of_costs_for_the_more_probable_class(share: int) -> None:
    model = BayesCostClassifier(priors=[share, 10 - share], costs=[[0, 10 - share], [share, 0]])
    model.fit([[-2.0], [-1.0], [1.0], [2.0]], [0, 0, 1, 1])
    cost = share * (10 - share) / 10
    assert model.expected_costs([[0.0]])[0] == pytest.approx([cost, cost], rel=1e-15)
    assert model.predict([[0.0]]).tolist() == [0 if share >= 5 else 1]


def test_many_rows_are_decided_in_blocks_as_all_at_once() -> None:
    sizes = []

    def doubled(table: Any, other: Any) -> Any:
        sizes.append(len(table))
        return table + other

    rows = np.arange(50_001)
    assert in_blocks(doubled, rows, rows).tolist() == (2 * rows).tolist()
    assert sum(sizes) == len(rows) and max(sizes) <= 4096
    assert in_blocks(doubled, rows[:0], rows[:0]).tolist() == []
    X = np.random.default_rng(1).normal(size=(20_000, 2))
    y = (X[:, 0] > 0.3).astype(int)
    for model in (BayesCostClassifier(costs={(1, 0): 2.5}), KNeighborsCostClassifier(4, costs={(1, 0): 2.5})):
        model.fit(X[:500], y[:500])
        pieces = np.concatenate([model.predict(part) for part in np.array_split(X, 7)])
        assert np.array_equal(model.predict(X), pieces)


def test_bayes_decides_by_the_priors_far_from_everything() -> None:
    # The likelihoods are equal, and so large that a logarithm of a prior added to them would lose its digits.
    model = BayesCostClassifier(priors=[3, 7], costs=[[0, 2.36], [1, 0]]).fit([[-1.0], [1.0], [-1.0], [1.0]], [0, 0, 1, 1])
    far = [[5.657e7]]
    assert model.log_likelihoods(far)[0, 0] == model.log_likelihoods(far)[0, 1] < -7e14
    assert model.expected_costs(far)[0] == pytest.approx([0.7, 0.708])
    assert model.predict(far).tolist() == [0]
