"""What scikit-learn's checks do not see."""

from __future__ import annotations

import pickle
import re
import sys
import threading
from datetime import date
from pathlib import Path
from types import ModuleType
from typing import Any

import numpy as np
import pandas as pd
import pytest
from scipy.special import logsumexp
from scipy.stats import multivariate_normal, norm
from sklearn.base import clone
from sklearn.datasets import load_wine
from sklearn.model_selection import GridSearchCV, cross_val_score
from sklearn.neighbors import KNeighborsClassifier
from sklearn.pipeline import make_pipeline
from sklearn.preprocessing import StandardScaler

from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier
from samples import BOTH, COSTS, IRIS, SPECIES, scattered

# Labels


@pytest.mark.parametrize("cls", BOTH)
@pytest.mark.parametrize(
    "labels",
    [
        np.array(["setosa", "versicolor", "virginica"]),
        np.array(["b", "a", "c"], dtype=object),
        np.array([-7, 0, 3]),
        np.array([0, 1, 2**40]),
        np.array([5, 2, 9], dtype=np.uint8),
        np.array([0.0, 1.0, 2.0]),
        np.array([2**31 - 1, 0, 1]),
        np.array([2**31, 0, 1]),
    ],
    ids=str,
)
def test_labels_of_any_kind_come_back(cls: Any, labels: Any, tmp_path: Path) -> None:
    y = labels[SPECIES]
    model = cls().fit(IRIS, y)
    assert model.classes_.dtype == labels.dtype
    assert model.classes_.tolist() == sorted(labels.tolist())
    decided = model.predict(IRIS)
    assert decided.dtype == labels.dtype
    assert np.mean(decided == y) > 0.9
    model.save(tmp_path / "model")
    assert cls.load(tmp_path / "model").predict(IRIS).tolist() == decided.tolist()


@pytest.mark.parametrize("cls", BOTH)
def test_truth_values_are_labels(cls: Any) -> None:
    y = SPECIES == 1
    model = cls(costs={(True, False): 5}).fit(IRIS, y)
    assert model.predict(IRIS).dtype == bool
    assert model.costs_.tolist() == [[0.0, 1.0], [5.0, 0.0]]


@pytest.mark.parametrize("cls", BOTH)
@pytest.mark.parametrize(
    "labels",
    [
        pd.array([7, 2**62 + 1, -3], dtype="Int64"),
        pd.array([7, 8, 9], dtype="UInt8"),
        pd.array([True, False, True], dtype="boolean"),
        np.array([7, np.int8(5), np.uint16(9)], dtype=object),
        np.array([True, np.bool_(False), True], dtype=object),
    ],
    ids=str,
)
def test_objects_that_are_whole_numbers_or_truth_values_come_back(cls: Any, labels: Any, tmp_path: Path) -> None:
    y = labels[SPECIES]
    model = cls().fit(IRIS, y)
    assert model.classes_.tolist() == sorted({*labels.tolist()})
    assert model.classes_.dtype.kind in ("b" if isinstance(labels[0], (bool, np.bool_)) else "iu")
    assert np.mean(model.predict(IRIS) == np.asarray(y)) > 0.9
    assert model.score(IRIS, y) == 1.0 - model.paid_cost(IRIS, y) > 0.9
    model.save(tmp_path / "model")
    assert cls.load(tmp_path / "model").classes_.tolist() == model.classes_.tolist()
    in_parts = cls().partial_fit(IRIS[::2], y[::2], classes=labels).partial_fit(IRIS[1::2], y[1::2], classes=labels)
    assert in_parts.classes_.tolist() == model.classes_.tolist() and in_parts.class_count_.tolist() == model.class_count_.tolist()


@pytest.mark.parametrize("cls", BOTH)
def test_objects_that_can_be_sorted_are_labels(cls: Any) -> None:
    labels = np.array([date(2026, 5, 1), date(2025, 1, 1), date(2026, 2, 28)], dtype=object)
    y = labels[SPECIES]
    model = cls(costs={(labels[0], labels[1]): 2.0}).fit(IRIS, y)
    assert model.classes_.tolist() == sorted(labels)
    assert model.costs_.tolist() == [[0, 1, 1], [1, 0, 1], [2, 1, 0]]
    assert model.score(IRIS, y) > 0.9
    assert model.partial_fit(IRIS, y).class_count_.tolist() == [100, 100, 100]
    with pytest.raises(ValueError, match="^labels cannot be sorted: '<' not supported between instances of"):
        cls().fit(IRIS, np.array([1, "a", 2], dtype=object)[SPECIES])
    with pytest.raises(ValueError, match="^Input y contains NaN"):
        cls().fit(IRIS, pd.array([1, 2, None], dtype="Int64")[SPECIES])


def test_tool_has_the_classes_as_labels_if_an_archive_can_hold_them() -> None:
    assert BayesCostClassifier().fit(IRIS, np.array([4, 9, 2**31 - 1])[SPECIES]).tool_.categories.tolist() == [4, 9, 2**31 - 1]
    assert BayesCostClassifier().fit(IRIS, np.array([4, 9, 2**31])[SPECIES]).tool_.categories.tolist() == [0, 1, 2]
    assert BayesCostClassifier().fit(IRIS, np.array([-1, 0, 1])[SPECIES]).tool_.categories.tolist() == [0, 1, 2]


# Answers, beside others


def test_neighbors_are_those_of_another_library() -> None:
    X, y = scattered(1)
    for p in (1, 2, 3):
        model, other = KNeighborsCostClassifier(7, p=p).fit(X, y), KNeighborsClassifier(7, p=p).fit(X, y)
        distances, indices = model.kneighbors(X + 0.01)
        others = other.kneighbors(X + 0.01)
        assert np.array_equal(indices, others[1])
        np.testing.assert_allclose(distances, others[0], rtol=1e-12)
        np.testing.assert_allclose(model.predict_proba(X), other.predict_proba(X), rtol=1e-14)
    assert model.kneighbors(X[:3], 2, return_distance=False).shape == (3, 2)


def test_metric_of_the_user_decides() -> None:
    X, y = scattered(2, rows=40)

    def second_only(a: Any, b: Any) -> float:
        return float(abs(a[1] - b[1]))

    model = KNeighborsCostClassifier(3, metric=second_only).fit(X, y)
    assert np.array_equal(model.predict(X), KNeighborsClassifier(3).fit(X[:, 1:2], y).predict(X[:, 1:2]))


def by_scipy(X: Any, y: Any, query: Any, groups: list[list[int]], priors: Any) -> tuple[Any, Any]:
    """Log-likelihoods and probabilities by scipy's densities."""
    joint = np.zeros((len(query), 3))
    for c in range(3):
        for group in groups:
            rows = X[y == c][:, group]
            if len(group) == 1:
                joint[:, c] += norm(rows.mean(), rows.std(ddof=1)).logpdf(query[:, group[0]])
            else:
                joint[:, c] += multivariate_normal(rows.mean(axis=0), np.cov(rows.T)).logpdf(query[:, group])
    weighted = joint + np.log(priors)
    return joint, np.exp(weighted - logsumexp(weighted, axis=1, keepdims=True))


@pytest.mark.parametrize(
    ("groups", "sets"),
    [
        (None, [[0], [1], [2], [3]]),
        ("all", [[0, 1, 2, 3]]),
        ([[0, 2]], [[0, 2], [1], [3]]),
        ([["c", "a"], ["b", "d"]], [[0, 2], [1, 3]]),
        ({0: "all", 1: [[0, 1, 2, 3]], 2: [["a", "b", "c", "d"]]}, [[0, 1, 2, 3]]),
    ],
    ids=str,
)
@pytest.mark.parametrize(
    ("priors", "shares"),
    [
        (None, None),
        ("equal", [1 / 3, 1 / 3, 1 / 3]),
        ([1, 2, 5], [0.125, 0.25, 0.625]),
        ({2: 0.625, 0: 0.125, 1: 0.25}, [0.125, 0.25, 0.625]),
    ],
    ids=str,
)
def test_bayes_is_what_its_densities_say(groups: Any, sets: Any, priors: Any, shares: Any) -> None:
    X, y = scattered(3)
    shares = np.bincount(y) / len(y) if shares is None else shares
    table = pd.DataFrame(X, columns=list("abcd"))
    model = BayesCostClassifier(groups=groups, priors=priors, costs=COSTS).fit(table, y)
    likelihoods, probabilities = by_scipy(X, y, X, sets, shares)
    np.testing.assert_allclose(model.class_prior_, shares, rtol=1e-15)
    np.testing.assert_allclose(model.log_likelihoods(table), likelihoods, rtol=1e-9)
    np.testing.assert_allclose(model.predict_proba(table), probabilities, rtol=1e-9)
    np.testing.assert_allclose(model.predict_log_proba(table), np.log(probabilities), rtol=1e-7, atol=1e-11)
    np.testing.assert_allclose(model.expected_costs(table), probabilities @ np.array(COSTS), rtol=1e-9)
    assert np.array_equal(model.predict(table), (probabilities @ np.array(COSTS)).argmin(axis=1))


def test_groups_of_one_class_leave_the_others_independent() -> None:
    X, y = scattered(4)
    model = BayesCostClassifier(groups={1: "all"}).fit(X, y)
    likelihoods = model.log_likelihoods(X)
    np.testing.assert_allclose(likelihoods[:, 0], by_scipy(X, y, X, [[0], [1], [2], [3]], np.ones(3))[0][:, 0])
    np.testing.assert_allclose(likelihoods[:, 1], by_scipy(X, y, X, [[0, 1, 2, 3]], np.ones(3))[0][:, 1])


def test_binomial_measurements_have_maxima() -> None:
    random = np.random.default_rng(5)
    y = np.repeat([0, 1], 200)
    counts = random.binomial(10, np.where(y, 0.7, 0.3)).astype(float)
    X = np.column_stack([counts, random.normal(size=400)])
    for distribution in (["binomial", "normal"], {0: "binomial"}):
        for max_values in (10, [10, 1], {0: 10}):
            model = BayesCostClassifier(distribution=distribution, max_values=max_values).fit(X, y)
            first = next(density for density in model.tool_.densities() if density.label == 0)
            assert first.theta == pytest.approx(counts[y == 0].mean() / 10)
            assert model.score(X, y) > 0.85
    whole = BayesCostClassifier(distribution="binomial", max_values=10).fit(X[:, :1], y)
    assert np.mean(whole.predict(X[:, :1]) == (X[:, 0] >= 5.0)) > 0.9


def test_probabilities_far_out_have_logarithms() -> None:
    X, y = scattered(6)
    model = BayesCostClassifier().fit(X, y)
    far = np.full((1, 4), 1e4)
    assert model.predict_proba(far).min() == 0.0
    logs = model.predict_log_proba(far)
    assert np.all(np.isfinite(logs)) and logs.max() == 0.0 and logs.min() < -1e5


# Missing measurements, infinities


def test_missing_measurements_are_left_out_by_bayes() -> None:
    X, y = scattered(7)
    model = BayesCostClassifier().fit(X, y)
    gaps = X.copy()
    gaps[:, [1, 3]] = np.nan
    others = BayesCostClassifier().fit(X[:, [0, 2]], y)
    np.testing.assert_allclose(model.predict_proba(gaps), others.predict_proba(X[:, [0, 2]]), rtol=1e-12)
    np.testing.assert_allclose(model.predict_proba(np.full((1, 4), np.nan))[0], model.class_prior_, rtol=1e-15)
    learnt = BayesCostClassifier().fit(np.where(X > 2.0, np.nan, X), y)
    first = next(density for density in learnt.tool_.densities() if density.label == 0)
    assert first.mean[0] == pytest.approx(X[(y == 0) & (X[:, 0] <= 2.0), 0].mean())


def test_missing_measurements_are_refused_by_neighbors_by_name() -> None:
    X, y = scattered(8, gaps=0.1)
    with pytest.raises(ValueError, match="Input X contains NaN.\nKNeighborsCostClassifier does not accept missing values"):
        KNeighborsCostClassifier().fit(X, y)
    model = KNeighborsCostClassifier().fit(IRIS, SPECIES)
    with pytest.raises(ValueError, match="Input X contains NaN.\nKNeighborsCostClassifier does not accept missing values"):
        model.predict(X)


@pytest.mark.parametrize("cls", BOTH)
@pytest.mark.parametrize("value", [np.inf, -np.inf])
def test_infinities_are_refused(cls: Any, value: float) -> None:
    X, y = scattered(9)
    model = cls().fit(X, y)
    X[5, 2] = value
    for call in (cls().fit, lambda X, _: model.predict(X), lambda X, _: model.expected_costs(X)):
        with pytest.raises(ValueError, match="Input X contains infinity"):
            call(X, y)


# Parameters


@pytest.mark.parametrize(
    ("costs", "matrix"),
    [
        (None, [[0, 1, 1], [1, 0, 1], [1, 1, 0]]),
        (COSTS, COSTS),
        ({("a", "b"): 4}, [[0, 4, 1], [1, 0, 1], [1, 1, 0]]),
        ({("c", "a"): 0.5, "default": 2}, [[0, 2, 2], [2, 0, 2], [0.5, 2, 0]]),
        ({"default": 0}, [[0, 0, 0], [0, 0, 0], [0, 0, 0]]),
        ({("a", "a"): 0}, [[0, 1, 1], [1, 0, 1], [1, 1, 0]]),
    ],
    ids=str,
)
@pytest.mark.parametrize("cls", BOTH)
def test_costs_may_be_a_matrix_or_a_dict(cls: Any, costs: Any, matrix: Any) -> None:
    model = cls(costs=costs).fit(IRIS, np.array(["a", "b", "c"])[SPECIES])
    assert model.costs_.tolist() == matrix
    np.testing.assert_allclose(model.expected_costs(IRIS), model.predict_proba(IRIS) @ np.array(matrix), rtol=1e-12, atol=1e-15)
    stored = model.tool_.params.costs
    assert [[stored[i, j] if i != j else 0 for j in range(3)] for i in range(3)] == matrix


def test_refusals_say_what_is_wrong() -> None:
    y = np.array(["a", "b", "c"])[SPECIES]
    rows: list[tuple[Any, dict[str, Any], str]] = [
        (KNeighborsCostClassifier, {"n_neighbors": 0}, "n_neighbors must be an integer >= 1, not 0"),
        (KNeighborsCostClassifier, {"n_neighbors": 2.5}, "n_neighbors must be an integer >= 1, not 2.5"),
        (KNeighborsCostClassifier, {"n_neighbors": True}, "n_neighbors must be an integer >= 1, not True"),
        (KNeighborsCostClassifier, {"p": 0}, "p must be finite and > 0, not 0"),
        (KNeighborsCostClassifier, {"p": np.inf}, "p must be finite and > 0, not inf"),
        (KNeighborsCostClassifier, {"p": np.nan}, "p must be finite and > 0, not nan"),
        (KNeighborsCostClassifier, {"p": "2"}, "p must be finite and > 0, not '2'"),
        (KNeighborsCostClassifier, {"metric": "cosine"}, "metric must be None or a function of two arrays, not 'cosine'"),
        (BayesCostClassifier, {"priors": "counts"}, "priors must be None, \"equal\", an array or a dict, not 'counts'"),
        (BayesCostClassifier, {"priors": [0.5, 0.5]}, "priors must have a number for each of 3 classes, not the shape (2,)"),
        (BayesCostClassifier, {"priors": [0.5, 0.5, 0]}, "priors must be finite and > 0"),
        (BayesCostClassifier, {"priors": [1, 1, np.inf]}, "priors must be finite and > 0"),
        (BayesCostClassifier, {"priors": {"a": 1, "b": 1}}, "priors must have a number for each of the classes ['a', 'b', 'c']"),
        (BayesCostClassifier, {"priors": ["a", 1, 1]}, "priors must be None, \"equal\", numbers or a dict, not ['a', 1, 1]"),
        (BayesCostClassifier, {"priors": {"a": "x"}}, "priors must be numbers, not 'x'"),
        (BayesCostClassifier, {"priors": {"d": 1}}, "priors names the class 'd', which is not among ['a', 'b', 'c']"),
        (BayesCostClassifier, {"groups": "some"}, "groups must be None, \"all\", lists of measurements or a dict, not 'some'"),
        (BayesCostClassifier, {"groups": 5}, 'groups must be None, "all", lists of measurements or a dict, not 5'),
        (BayesCostClassifier, {"groups": [None]}, "groups must be lists of measurements, not None"),
        (BayesCostClassifier, {"groups": [0, 1]}, "groups must be lists of measurements, not 0"),
        (BayesCostClassifier, {"groups": [[0, 1], [1, 2]]}, "groups must name each measurement only once"),
        (BayesCostClassifier, {"groups": [[0, 0]]}, "groups must name each measurement only once"),
        (BayesCostClassifier, {"groups": [[0, 4]]}, "groups names the measurement 4 of 4"),
        (BayesCostClassifier, {"groups": [[0, -1]]}, "groups names the measurement -1 of 4"),
        (BayesCostClassifier, {"groups": [[0, 1.5]]}, "groups names the measurement 1.5 of 4"),
        (BayesCostClassifier, {"groups": [[0, None]]}, "groups names the measurement None of 4"),
        (BayesCostClassifier, {"groups": [[True]]}, "groups names the measurement True of 4"),
        (BayesCostClassifier, {"groups": [["x", "y"]]}, "groups names the measurement 'x', which is not among []"),
        (BayesCostClassifier, {"groups": {"d": "all"}}, "groups names the class 'd', which is not among ['a', 'b', 'c']"),
        (BayesCostClassifier, {"distribution": "poisson"}, "distribution must be \"normal\" or \"binomial\", not 'poisson'"),
        (BayesCostClassifier, {"distribution": None}, 'distribution must be "normal" or "binomial", not None'),
        (BayesCostClassifier, {"distribution": ["normal"]}, "distribution must have one for each of 4 measurements, not 1"),
        (BayesCostClassifier, {"distribution": {0: 1}}, 'distribution must be "normal" or "binomial", not 1'),
        (BayesCostClassifier, {"max_values": [1, 2]}, "max_values must have one for each of 4 measurements, not 2"),
    ]
    for cls in BOTH:
        rows += [
            (cls, {"costs": [[0, 1], [1, 0]]}, "costs must have a row and a column for each of 3 classes, not the shape (2, 2)"),
            (cls, {"costs": np.ones((3, 3))}, "costs of the right decision must be 0"),
            (cls, {"costs": {("a", "a"): 1}}, "costs of the right decision must be 0"),
            (cls, {"costs": "equal"}, "costs must be a matrix of numbers or a dict, not 'equal'"),
            (cls, {"costs": {"default": None}}, "costs must be finite and >= 0"),
            (cls, {"costs": {("a", "b"): "x"}}, "costs must be numbers, not 'x'"),
            (cls, {"costs": {"default": -1}}, "costs must be finite and >= 0"),
            (cls, {"costs": {("a", "b"): np.inf}}, "costs must be finite and >= 0"),
            (cls, {"costs": {("a", "b"): np.nan}}, "costs must be finite and >= 0"),
            (cls, {"costs": {("a", "d"): 1}}, "costs names the class 'd', which is not among ['a', 'b', 'c']"),
            (cls, {"costs": {"a": 1}}, "costs must have pairs (true, assigned) and \"default\" as keys, not 'a'"),
            (cls, {"reject_quantile": 1.0}, "reject_quantile must be None or >= 0 and < 1, not 1.0"),
            (cls, {"reject_quantile": "0.1"}, "reject_quantile must be None or >= 0 and < 1, not '0.1'"),
            (cls, {"reject_quantile": -0.1}, "reject_quantile must be None or >= 0 and < 1, not -0.1"),
        ]
    for cls, parameters, text in rows:
        model = cls(**parameters)
        with pytest.raises(ValueError) as caught:
            model.fit(IRIS, y)
        assert str(caught.value) == text
        assert not hasattr(model, "tool_")
    several: Any = KNeighborsCostClassifier().fit(IRIS, y)
    for count, text in [
        (151, "n_neighbors must be >= 1 and at most the number of training rows, 150, not 151"),
        (0, "n_neighbors must be >= 1 and at most the number of training rows, 150, not 0"),
        (2.5, "n_neighbors must be an integer >= 1, not 2.5"),
    ]:
        with pytest.raises(ValueError) as caught:
            several.kneighbors(IRIS, count)
        assert str(caught.value) == text
    for cls in BOTH:
        with pytest.raises(ValueError, match="inconsistent numbers of samples"):
            cls().fit(IRIS, y).score(IRIS, y[:1])


@pytest.mark.parametrize(
    "model",
    [
        KNeighborsCostClassifier(3, p=1.5, costs={("a", "b"): 2, "default": 3}, n_jobs=2, reject_quantile=0.1, reject_label="?"),
        BayesCostClassifier(priors={"a": 1}, costs=np.ones((2, 2)), groups={"a": [[0, 1]]}, distribution=["normal"], max_values=3.0),
    ],
    ids=["neighbors", "bayes"],
)
def test_parameters_clone_set_and_show(model: Any) -> None:
    parameters = model.get_params()
    twin = clone(model)
    assert twin is not model and repr(twin) == repr(model)
    assert type(model)().set_params(**parameters).get_params() == parameters
    for name in ("costs", "groups") if "groups" in parameters else ("costs", "p"):
        assert f"{name}=" in repr(model)
    html = model._repr_html_()
    assert type(model).__name__ in html and "costs" in html


@pytest.mark.parametrize("cls", BOTH)
def test_recost_is_as_a_new_fit(cls: Any) -> None:
    model = cls().fit(IRIS, SPECIES)
    before = model.predict_proba(IRIS)
    assert model.recost(costs=COSTS) is model
    other = cls(costs=COSTS).fit(IRIS, SPECIES)
    assert np.array_equal(model.expected_costs(IRIS), other.expected_costs(IRIS))
    assert np.array_equal(model.predict_proba(IRIS), before)
    assert model.get_params()["costs"] == COSTS
    with pytest.raises(ValueError, match="finite"):
        model.recost(costs={"default": -1})
    assert model.get_params()["costs"] == COSTS
    assert np.array_equal(model.expected_costs(IRIS), other.expected_costs(IRIS))
    model.recost(costs=None)
    assert np.array_equal(model.expected_costs(IRIS), cls().fit(IRIS, SPECIES).expected_costs(IRIS))
    model.recost()
    assert model.costs is None and np.array_equal(model.costs_, 1 - np.eye(3))


def test_names_of_tables_say_which_class_is_meant() -> None:
    X, y = IRIS, np.array(list("abc"))[SPECIES]
    priors, costs = np.array([0.5, 0.3, 0.2]), np.array([[0.0, 1.0, 2.0], [3.0, 0.0, 4.0], [5.0, 6.0, 0.0]])
    expected = BayesCostClassifier(priors=priors, costs=costs).fit(X, y)
    table = pd.DataFrame(costs, index=list("abc"), columns=list("abc"))
    for order in (list("abc"), list("cab")):
        named = BayesCostClassifier(priors=pd.Series(priors, list("abc"))[order], costs=table.loc[order, order[::-1]]).fit(X, y)
        np.testing.assert_array_equal(named.class_prior_, expected.class_prior_)
        np.testing.assert_array_equal(named.costs_, costs)
    by_place = BayesCostClassifier(priors=pd.Series(priors), costs=pd.DataFrame(costs)).fit(X, y)
    np.testing.assert_array_equal(by_place.expected_costs(X), expected.expected_costs(X))
    shares = BayesCostClassifier(priors=pd.Series(y).value_counts()).fit(X, y)
    np.testing.assert_array_equal(shares.class_prior_, BayesCostClassifier().fit(X, y).class_prior_)

    def refused(text: str, **parameters: Any) -> None:
        with pytest.raises(ValueError, match=f"^{re.escape(text)}$"):
            BayesCostClassifier(**parameters).fit(X, y)

    refused("priors names the class 'd', which is not among ['a', 'b', 'c']", priors=pd.Series(priors, list("abd")))
    refused("priors must have a number for each of the classes ['a', 'b', 'c']", priors=pd.Series(priors[:2], list("ab")))
    refused("costs names the class 'd', which is not among ['a', 'b', 'c']", costs=table.rename(columns={"c": "d"}))
    refused("costs must be finite and >= 0", costs=table.rename(index={"c": "b"}))
    refused("costs must have a row and a column for each of 3 classes, not the shape (2, 3)", costs=table.loc[["a", "b"]])


def test_recost_takes_priors() -> None:
    X, y = scattered(10)
    model = BayesCostClassifier(costs=COSTS).fit(X, y).recost(priors=[1, 2, 7])
    other = BayesCostClassifier(costs=COSTS, priors=[1, 2, 7]).fit(X, y)
    assert np.array_equal(model.predict_proba(X), other.predict_proba(X))
    assert np.array_equal(model.expected_costs(X), other.expected_costs(X))
    assert model.class_prior_.tolist() == [0.1, 0.2, 0.7]
    with pytest.raises(ValueError, match="priors must be finite"):
        model.recost(costs=None, priors=[0, 1, 1])
    assert model.priors == [1, 2, 7] and model.costs == COSTS
    assert np.array_equal(model.expected_costs(X), other.expected_costs(X))
    model.recost(priors=None)
    assert np.array_equal(model.predict_proba(X), BayesCostClassifier(costs=COSTS).fit(X, y).predict_proba(X))


# Learning further


@pytest.mark.parametrize(
    "model", [KNeighborsCostClassifier(3, costs=COSTS), BayesCostClassifier(costs=COSTS), BayesCostClassifier(groups="all")], ids=str
)
def test_parts_teach_what_the_whole_does(model: Any) -> None:
    X, y = scattered(11)
    whole = clone(model).fit(X, y)
    for part in np.array_split(np.arange(len(X)), 4):
        model.partial_fit(X[part], y[part], classes=[0, 1, 2])
    assert np.array_equal(model.predict_proba(X), whole.predict_proba(X))
    assert np.array_equal(model.expected_costs(X), whole.expected_costs(X))
    assert model.class_count_.tolist() == whole.class_count_.tolist()
    assert model.tool_ == whole.tool_


@pytest.mark.parametrize("cls", BOTH)
def test_class_that_no_row_has_shown_has_probability_0(cls: Any) -> None:
    costs = {("a", "c"): 0.01, ("b", "c"): 0.01}
    model = cls(costs=costs).partial_fit([[0.0], [1.0], [8.0], [9.0]], list("aabb"), classes=list("abcd"))
    probabilities = model.predict_proba([[0.5], [4.6]])
    assert probabilities.shape == (2, 4) and not probabilities[:, 2:].any()
    np.testing.assert_allclose(model.expected_costs([[0.5], [4.6]]), probabilities @ model.costs_, rtol=1e-12)
    assert model.predict([[4.6]]).tolist() == ["c"]
    model.partial_fit([[4.4], [4.6]], ["c", "c"])
    assert model.predict_proba([[4.5]])[0, 2] > 0.0


@pytest.mark.parametrize("cls", BOTH)
def test_refusals_of_partial_fit(cls: Any) -> None:
    X, y = scattered(12)
    model = cls()
    with pytest.raises(ValueError) as caught:
        model.partial_fit(X, y)
    assert str(caught.value) == "classes must be passed on the first call to partial_fit."
    with pytest.raises(ValueError) as caught:
        model.partial_fit(X, y, classes=[0, 1])
    assert str(caught.value) == "y has the label 2, which is not among the classes [0, 1]"
    model.partial_fit(X, y, classes=[0, 1, 2])
    answers = model.predict_proba(X)
    with pytest.raises(ValueError) as caught:
        model.partial_fit(X, y, classes=[0, 1])
    assert str(caught.value) == "classes [0, 1] are not those of the first call, [0, 1, 2]"
    with pytest.raises(ValueError) as caught:
        model.partial_fit(X, y + 1)
    assert str(caught.value) == "y has the label 3, which is not among the classes [0, 1, 2]"
    assert np.array_equal(model.predict_proba(X), answers)
    with pytest.raises(AttributeError):
        cls(reject_quantile=0.1).partial_fit(X, y, classes=[0, 1, 2])


# Threads, bars, and other parts of scikit-learn


@pytest.mark.parametrize("cls", BOTH)
def test_number_of_threads_does_not_change_a_bit(cls: Any) -> None:
    X, y = scattered(18, rows=3000)
    one, two, all_ = (cls(costs=COSTS, n_jobs=n).fit(X, y) for n in (None, 2, -1))
    for other in (two, all_):
        assert np.array_equal(one.expected_costs(X), other.expected_costs(X))
        assert np.array_equal(one.predict_proba(X), other.predict_proba(X))
    assert np.array_equal(cls().fit(np.asfortranarray(X), y).predict_proba(X), cls().fit(X, y).predict_proba(X))
    narrow = X.astype(np.float32)
    assert np.array_equal(cls().fit(narrow, y).predict_proba(narrow), cls().fit(narrow.astype(float), y).predict_proba(narrow.astype(float)))


@pytest.mark.parametrize("cls", BOTH)
def test_predictions_run_on_several_threads_while_others_learn(cls: Any) -> None:
    X, y = scattered(19, rows=500)
    model = cls().fit(X, y)
    expected = model.predict_proba(X)
    wrong: list[int] = []

    def predict() -> None:
        wrong.extend(1 for _ in range(20) if not np.array_equal(model.predict_proba(X), expected))

    def learn() -> None:
        for _ in range(20):
            cls().fit(X, y).recost(costs=COSTS)
            pickle.dumps(model)

    threads = [threading.Thread(target=work) for work in (predict, predict, learn)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert wrong == []


class Bar:
    """Takes the place of tqdm's."""

    seen: list[Bar] = []

    def __init__(self, desc: str, unit: str) -> None:
        self.desc, self.unit, self.n, self.total = desc, unit, 0, 0
        Bar.seen.append(self)

    def __enter__(self) -> Bar:
        return self

    def __exit__(self, *_: object) -> None:
        pass

    def update(self, n: int) -> None:
        self.n += n


@pytest.mark.parametrize("cls", BOTH)
def test_bars_show_if_wanted_and_there(cls: Any, monkeypatch: pytest.MonkeyPatch) -> None:
    auto = ModuleType("tqdm.auto")
    vars(auto)["tqdm"] = Bar
    monkeypatch.setitem(sys.modules, "tqdm", ModuleType("tqdm"))
    monkeypatch.setitem(sys.modules, "tqdm.auto", auto)
    X, y = scattered(20, rows=2000)
    Bar.seen = []
    cls().fit(X, y).predict(X)
    assert Bar.seen == []
    model = cls(verbose=True).fit(X, y)
    quiet = model.predict(X)
    assert [(bar.desc, bar.n, bar.total) for bar in Bar.seen] == [("fit", 2000, 2000), ("predict", 2000, 2000)]
    monkeypatch.setitem(sys.modules, "tqdm.auto", None)
    assert np.array_equal(model.predict(X), quiet)


@pytest.mark.parametrize("cls", BOTH)
def test_estimators_work_in_pipelines_and_searches(cls: Any) -> None:
    pipeline = make_pipeline(StandardScaler(), cls())
    assert cross_val_score(pipeline, *load_wine(return_X_y=True)).mean() > 0.94
    key = f"{cls.__name__.lower()}__costs"
    search = GridSearchCV(pipeline, {key: [None, COSTS]}, cv=3).fit(IRIS, SPECIES)
    assert key in search.best_params_ and search.score(IRIS, SPECIES) > 0.9
