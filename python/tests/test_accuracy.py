"""Accuracy on data that scikit-learn brings, by five folds, all parameters as they come, beside scikit-learn's own."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest
from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier
from sklearn.datasets import load_breast_cancer, load_digits, load_iris, load_wine
from sklearn.discriminant_analysis import QuadraticDiscriminantAnalysis
from sklearn.model_selection import cross_val_score
from sklearn.naive_bayes import GaussianNB
from sklearn.neighbors import KNeighborsClassifier
from sklearn.pipeline import make_pipeline
from sklearn.preprocessing import StandardScaler


def accuracy(model: Any, X: Any, y: Any) -> float:
    return float(cross_val_score(model, X, y, cv=5).mean())


@pytest.mark.parametrize("load", [load_digits, load_wine, load_iris], ids=["digits", "wine", "iris"])
def test_independent_measurements_are_as_good_as_gaussian_nb(load: Any) -> None:
    X, y = load(return_X_y=True)
    assert accuracy(BayesCostClassifier(), X, y) >= accuracy(GaussianNB(), X, y) - 0.005


def test_independent_measurements_of_one_unit_are_as_good_as_gaussian_nb() -> None:
    # In the units of these data GaussianNB adds to each variance more than the least ones are, which happens to help.
    X, y = load_breast_cancer(return_X_y=True)
    ours, theirs = (make_pipeline(StandardScaler(), model) for model in (BayesCostClassifier(), GaussianNB()))
    assert accuracy(ours, X, y) >= accuracy(theirs, X, y) - 0.005


@pytest.mark.parametrize("load", [load_wine, load_iris], ids=["wine", "iris"])
def test_joint_measurements_are_as_good_as_qda(load: Any) -> None:
    X, y = load(return_X_y=True)
    assert accuracy(BayesCostClassifier(groups="all"), X, y) >= accuracy(QuadraticDiscriminantAnalysis(), X, y) - 0.005


@pytest.mark.parametrize(("load", "least"), [(load_digits, 0.91), (load_breast_cancer, 0.95)], ids=["digits", "breast cancer"])
def test_joint_measurements_that_depend_on_each_other(load: Any, least: float) -> None:
    assert accuracy(BayesCostClassifier(groups="all"), *load(return_X_y=True)) > least


@pytest.mark.parametrize("load", [load_digits, load_wine, load_breast_cancer, load_iris])
def test_neighbors_are_as_good_as_others(load: Any) -> None:
    X, y = load(return_X_y=True)
    assert abs(accuracy(KNeighborsCostClassifier(), X, y) - accuracy(KNeighborsClassifier(), X, y)) < 0.005
    assert np.mean(KNeighborsCostClassifier(1).fit(X, y).predict(X) == y) == 1.0
