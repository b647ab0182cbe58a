"""Rows that the estimators reject, and what decisions cost."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest

from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier
from samples import BOTH, COSTS, IRIS, SPECIES, scattered

# Rejection


@pytest.mark.parametrize("cls", BOTH)
def test_rows_like_nothing_seen_are_rejected(cls: Any) -> None:
    y = np.array(["a", "b", "c"])[SPECIES]
    model = cls(reject_quantile=0.02, reject_label="unlike").fit(IRIS, y)
    decided = model.predict(np.vstack([IRIS, [[50.0, 3.0, 1.0, 0.2]]]))
    assert decided[-1] == "unlike"
    assert 0 <= np.sum(decided[:-1] == "unlike") <= 0.06 * len(y)
    kept = decided[:-1] != "unlike"
    assert np.array_equal(decided[:-1][kept], cls().fit(IRIS, y).predict(IRIS)[kept])
    assert model.score(IRIS, y) == np.mean(decided[:-1] == y)


def test_share_of_rejected_training_rows_is_as_stated() -> None:
    X, y = np.random.default_rng(13).normal(size=(1000, 3)), np.zeros(1000, dtype=int)
    assert np.sum(BayesCostClassifier(reject_quantile=0.05, reject_label=9).fit(X, y).predict(X) == 9) == 50
    for share in (0.0, 0.1):
        model = KNeighborsCostClassifier(4, reject_quantile=share, reject_label=9).fit(X, y)
        own = np.sort(np.linalg.norm(X[:, np.newaxis] - X, axis=2), axis=1)[:, 4]  # column 0 is the row itself
        assert -model._reject_limits[0] == pytest.approx(np.sort(own)[::-1][int(share * 1000)])
        near = np.array([[0.0, 0.0, 0.0], [30.0, 0.0, 0.0]])
        assert model.predict(near).tolist() == [0, 9]


def test_rejection_by_bayes_goes_by_likelihood() -> None:
    X, y = scattered(14, rows=600)
    model = BayesCostClassifier(groups="all", reject_quantile=0.1, reject_label=-1).fit(X, y)
    likelihoods = model.log_likelihoods(X)
    limits = [np.sort(likelihoods[y == c, c])[int(0.1 * np.sum(y == c))] for c in range(3)]
    assert np.array_equal(model.predict(X) == -1, np.all(likelihoods < limits, axis=1))
    assert np.sum(model.predict(X) == -1) > 10


def test_rows_with_gaps_are_rejected_as_often_as_whole_ones() -> None:
    random = np.random.default_rng(15)
    X, y = random.normal(size=(4000, 5)), np.zeros(4000, dtype=int)
    for groups in (None, "all"):
        model = BayesCostClassifier(groups=groups, reject_quantile=0.1, reject_label=1).fit(X, y)
        for missing in ([0], [1, 2], [0, 1, 2, 3]):
            gaps = X.copy()
            gaps[:, missing] = np.nan
            assert model.predict(gaps).mean() == pytest.approx(0.1, abs=0.02)
        assert model.predict(np.full((1, 5), np.nan)).tolist() == [0]
        learnt = np.where(random.random(X.shape) < 0.2, np.nan, X)
        model = BayesCostClassifier(groups=groups, reject_quantile=0.1, reject_label=1).fit(learnt, y)
        assert model.predict(X).mean() == pytest.approx(0.1, abs=0.02)


@pytest.mark.parametrize(
    ("labels", "reject_label", "dtype", "answers"),
    [
        (np.array([0, 1]), -1, np.int64, [0, -1]),
        (np.array([0, 1]), None, object, [0, None]),
        (np.array([0, 1]), "unlike", object, [0, "unlike"]),
        (np.array(["a", "b"]), "unlike", np.dtype("<U6"), ["a", "unlike"]),
        (np.array(["a", "b"]), None, object, ["a", None]),
        (np.array([0, 1]), 0.5, np.float64, [0.0, 0.5]),
        (np.array([False, True]), 2, object, [False, 2]),
        (np.array([0, 1]), 1, np.int64, [0, 1]),
    ],
    ids=str,
)
def test_reject_label_may_be_of_another_kind(labels: Any, reject_label: Any, dtype: Any, answers: Any) -> None:
    X = np.concatenate([np.linspace(0, 1, 20), np.linspace(10, 11, 20)]).reshape(-1, 1)
    model = BayesCostClassifier(reject_quantile=0.0, reject_label=reject_label).fit(X, np.repeat(labels, 20))
    for query, expected in (([[0.5], [90.0]], answers), ([[0.5]], answers[:1])):
        decided = model.predict(query)
        assert decided.dtype == dtype and decided.tolist() == expected


@pytest.mark.parametrize("cls", BOTH)
def test_new_fit_forgets_what_was_rejected(cls: Any) -> None:
    far = [[90.0, 3.0, 5.0, 2.0]]
    model = cls(reject_quantile=0.0, reject_label=-1).fit(IRIS, SPECIES)
    assert model.predict(far).tolist() == [-1]
    assert model.set_params(reject_quantile=None).fit(IRIS, SPECIES).predict(far).tolist() == [2]


# Costs paid


def test_paid_cost_is_the_mean_of_what_decisions_cost() -> None:
    X, y = scattered(16)
    for cls in BOTH:
        model = cls(costs=COSTS).fit(X, y)
        paid = [COSTS[true][assigned] for true, assigned in zip(y, model.predict(X))]
        assert model.paid_cost(X, y) == pytest.approx(np.mean(paid))
        assert model.paid_cost(X, y, normalize=False) == sum(paid)
        with pytest.raises(ValueError) as caught:
            model.paid_cost(X, y + 1)
        assert str(caught.value) == "y names the class 3, which is not among [0, 1, 2]"
        with pytest.raises(ValueError) as caught:
            model.paid_cost(X, y[:-1])
        assert str(caught.value) == "X has 120 rows, but y has 119 labels"


def test_paid_cost_leaves_rejected_rows_out() -> None:
    X, y = scattered(17)
    model = BayesCostClassifier(costs=COSTS, reject_quantile=0.2, reject_label=-1).fit(X, y)
    decided = model.predict(X)
    paid = [COSTS[true][assigned] for true, assigned in zip(y, decided) if assigned >= 0]
    assert 0 < len(paid) < len(y)
    assert model.paid_cost(X, y) == pytest.approx(np.mean(paid))
    assert model.paid_cost(np.full((2, 4), 1e6), [0, 1]) == 0.0
