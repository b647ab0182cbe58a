"""scikit-learn's own checks of estimators: none fails, none is expected to."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier
from sklearn.utils.estimator_checks import parametrize_with_checks


@parametrize_with_checks(
    [
        KNeighborsCostClassifier(),
        KNeighborsCostClassifier(n_neighbors=1, p=1.5, n_jobs=2),
        BayesCostClassifier(),
        BayesCostClassifier(priors="equal", groups="all", n_jobs=2),
    ]
)
def test_scikit_learn_finds_nothing(estimator: Any, check: Callable[[Any], None]) -> None:
    check(estimator)
