"""Searches for parameters and cross-validation on Dask workers tell what they tell on one machine, to the bit."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import joblib
import numpy as np
import pytest
from sklearn.datasets import load_wine
from sklearn.model_selection import GridSearchCV, cross_val_score, cross_validate

from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier

X, CLASSES = load_wine(return_X_y=True)
y = np.array(["barbera", "barolo", "grignolino"])[CLASSES]
COSTS = [[0, 1, 2], [5, 0, 3], [8, 2, 0]]
SEARCHES: list[Any] = [
    (BayesCostClassifier(), {"groups": [None, "all", [[0, 1]]], "costs": [None, COSTS]}),
    (KNeighborsCostClassifier(), {"n_neighbors": [1, 4, 9], "p": [1, 2, 2.5], "costs": [None, COSTS]}),
]
NAMES = ["bayes", "neighbors"]


def same(found: dict[str, Any], expected: dict[str, Any]) -> None:
    assert found.keys() == expected.keys()
    for key, values in expected.items():
        if not key.endswith("_time"):
            np.testing.assert_array_equal(found[key], values, err_msg=key)


@pytest.mark.parametrize(("model", "grid"), SEARCHES, ids=NAMES)
def test_a_grid_search(model: Any, grid: Any, client: Any) -> None:
    expected = GridSearchCV(model, grid, cv=4).fit(X, y)
    with joblib.parallel_config(backend="dask"):
        found = GridSearchCV(model, grid, cv=4).fit(X, y)
    same(found.cv_results_, expected.cv_results_)
    assert found.best_params_ == expected.best_params_
    assert found.best_estimator_.tool_ == expected.best_estimator_.tool_
    np.testing.assert_array_equal(found.predict_proba(X), expected.predict_proba(X))


@pytest.mark.parametrize("model", [model for model, _ in SEARCHES], ids=NAMES)
def test_cross_validation(model: Any, client: Any) -> None:
    expected = cross_validate(model, X, y, cv=4, return_train_score=True, return_estimator=True, scoring=minus_cost)
    with joblib.parallel_config(backend="dask"):
        scores = cross_val_score(model, X, y, cv=4, scoring=minus_cost)
        found = cross_validate(model, X, y, cv=4, return_train_score=True, return_estimator=True, scoring=minus_cost)
    np.testing.assert_array_equal(scores, expected["test_score"])
    for own, other in zip(found.pop("estimator"), expected.pop("estimator"), strict=True):
        assert own.tool_ == other.tool_
    same(found, expected)


def minus_cost(model: Any, X: Any, y: Any) -> float:
    return -float(model.paid_cost(X, y))


class Witness(BayesCostClassifier):
    """Leaves the number of the process that fits it."""

    def __init__(self, folder: Any = None) -> None:
        super().__init__()
        self.folder = folder

    def fit(self, X: Any, y: Any) -> Witness:
        (self.folder / str(os.getpid())).touch()
        super().fit(X, y)
        return self


def test_the_workers_do_the_work(client: Any, tmp_path: Path) -> None:
    with joblib.parallel_config(backend="dask"):
        cross_val_score(Witness(tmp_path), X, y, cv=20)
    fitted = {path.name for path in tmp_path.iterdir()}
    # If the machine is busy, one worker may do all.
    assert fitted and fitted <= {str(pid) for pid in client.run(os.getpid).values()}


def test_what_a_model_refuses_is_told(client: Any) -> None:
    with joblib.parallel_config(backend="dask"), pytest.raises(ValueError, match="n_neighbors must be an integer >= 1, not 0"):
        cross_val_score(KNeighborsCostClassifier(0), X, y, cv=4, error_score="raise")
