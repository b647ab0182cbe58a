"""Data that the tests of the estimators share."""

from __future__ import annotations

from typing import Any

import numpy as np
from sklearn.datasets import load_iris

from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier

IRIS, SPECIES = load_iris(return_X_y=True)
COSTS = [[0, 1, 2], [5, 0, 3], [8, 2, 0]]
BOTH = [KNeighborsCostClassifier, BayesCostClassifier]


def scattered(seed: int, rows: int = 120, gaps: float = 0.0) -> tuple[Any, Any]:
    random = np.random.default_rng(seed)
    y = random.integers(0, 3, rows)
    X = random.normal(size=(rows, 4)) + y[:, np.newaxis] * [1.0, 0.5, -0.5, 0.0]
    X[random.random(X.shape) < gaps] = np.nan
    return X, y
