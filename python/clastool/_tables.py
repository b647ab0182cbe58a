"""What runs on many rows return, and how tools are made again from pickles."""

from __future__ import annotations

from typing import TYPE_CHECKING, NamedTuple

import numpy as np
from numpy.typing import NDArray

if TYPE_CHECKING:
    from typing_extensions import Buffer

    from ._clastool import ClassifierTool, KNNParams

_none = np.empty((0, 0))


class RowResults(NamedTuple):
    """The answers to many patterns, a row each; a column for each of `categories`, the labels in ascending order.

    A category that did not take part in a row's answer has scores 0 there. Its expected cost is what deciding for it would cost, or
    NaN for a decision tree, whose leaves do not say. With `only_labels` all but labels and categories are empty.
    """

    labels: NDArray[np.int64]
    categories: NDArray[np.int64]
    match_scores: NDArray[np.float64] = _none
    class_scores: NDArray[np.float64] = _none
    expected_costs: NDArray[np.float64] = _none
    match_score_factor_logs: NDArray[np.float64] = np.empty(0)


class Neighbors(NamedTuple):
    """The nearest neighbours of many patterns, a row each, nearest first.

    `indices` count the kept patterns: the rows of the training data, less those of unknown category.
    """

    distances: NDArray[np.float64]
    indices: NDArray[np.int64]
    labels: NDArray[np.int64]


def remade(kind: type[ClassifierTool], data: Buffer, params: KNNParams | None) -> ClassifierTool:
    """A tool from a pickle. Archives know no functions, so the parameters are given if their metric is one."""
    tool = kind.from_bytes(data)
    if params is not None:
        tool.retrain(params)
    return tool
