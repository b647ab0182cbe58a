"""The results of runs on many rows, and the function that restores tools from pickles."""

from __future__ import annotations

from typing import TYPE_CHECKING, NamedTuple

import numpy as np
from numpy.typing import NDArray

if TYPE_CHECKING:
    from typing_extensions import Buffer

    from ._clastool import ClassifierTool, KNNParams

_none = np.empty((0, 0))


class RowResults(NamedTuple):
    """The answers to many patterns: a row for each pattern, a column for each of `categories`, the labels in ascending order.

    If a category takes no part in the answer to a row, its scores are 0 there. Its expected cost is that of deciding for it; for a
    decision tree it is NaN. With `only_labels` the arrays are empty, except labels and categories.
    """

    labels: NDArray[np.int64]
    categories: NDArray[np.int64]
    match_scores: NDArray[np.float64] = _none
    class_scores: NDArray[np.float64] = _none
    expected_costs: NDArray[np.float64] = _none
    match_score_factor_logs: NDArray[np.float64] = np.empty(0)


class Neighbors(NamedTuple):
    """The nearest neighbours of many patterns: a row for each pattern, nearest first.

    `indices` count the kept patterns: the rows of the training data without those of unknown category.
    """

    distances: NDArray[np.float64]
    indices: NDArray[np.int64]
    labels: NDArray[np.int64]


def remade(kind: type[ClassifierTool], data: Buffer, params: KNNParams | None) -> ClassifierTool:
    """A tool from a pickle. `params` are given if their metric is a function, because archives cannot hold functions."""
    tool = kind.from_bytes(data)
    if params is not None:
        tool.retrain(params)
    return tool
