"""The decision of the estimators, and the reading of their parameters `costs` and `priors`."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from typing import Any

import numpy as np
import numpy.typing as npt

from . import Costs, Frequencies

Floats = npt.NDArray[np.float64]

LARGEST_LABEL = 2**31 - 1


def class_index(classes: npt.NDArray[Any], label: Any, parameter: str) -> int:
    """The place of a label in `classes`. `parameter` names the source of the label in the error."""
    for place, known in enumerate(classes.tolist()):
        if known == label and isinstance(known, bool) == isinstance(label, (bool, np.bool_)):
            return place
    raise ValueError(f"{parameter} names the class {label!r}, which is not among {classes.tolist()!r}")


def cost_matrix(costs: Any, classes: npt.NDArray[Any]) -> Floats:
    """The costs as a matrix cost[true, assigned] over the classes. The diagonal is 0."""
    count = len(classes)
    matrix: Floats
    if costs is None:
        matrix = np.ones((count, count))
        np.fill_diagonal(matrix, 0.0)
    elif isinstance(costs, Mapping):
        matrix = _matrix_of_pairs(costs, classes)
    else:
        matrix = _numbers(costs, "costs", "a matrix of numbers or a dict")
        if matrix.shape != (count, count):
            raise ValueError(f"costs must have a row and a column for each of {count} classes, not the shape {matrix.shape}")
        if _is_named(costs, "index") or _is_named(costs, "columns"):
            places = [[class_index(classes, label, "costs") for label in axis.tolist()] for axis in (costs.index, costs.columns)]
            stated, matrix = matrix, np.full((count, count), np.nan)
            matrix[np.ix_(*places)] = stated
    if not np.all(np.isfinite(matrix)) or np.any(matrix < 0.0):
        raise ValueError("costs must be finite and >= 0")
    if np.any(np.diagonal(matrix) != 0.0):
        raise ValueError("costs of the right decision must be 0")
    return matrix


def _is_named(stated: Any, axis: str) -> bool:
    """Whether this is a table or series of pandas with other labels along the axis than the numbers that pandas gives by itself."""
    labels: Any = getattr(stated, axis, None)
    return hasattr(labels, "tolist") and labels.tolist() != list(range(len(labels)))


def _numbers(stated: Any, parameter: str, wanted: str) -> Floats:
    try:
        return np.array(stated, dtype=np.float64)
    except (TypeError, ValueError):
        raise ValueError(f"{parameter} must be {wanted}, not {stated!r}") from None


def _matrix_of_pairs(costs: Mapping[Any, Any], classes: npt.NDArray[Any]) -> Floats:
    default = _numbers(costs.get("default", 1.0), "costs", "numbers")
    matrix = np.full((len(classes), len(classes)), default)
    np.fill_diagonal(matrix, 0.0)
    for pair, cost in costs.items():
        if isinstance(pair, str) and pair == "default":
            continue
        if not isinstance(pair, tuple) or len(pair) != 2:
            raise ValueError(f'costs must have pairs (true, assigned) and "default" as keys, not {pair!r}')
        true, assigned = (class_index(classes, label, "costs") for label in pair)
        matrix[true, assigned] = _numbers(cost, "costs", "numbers")
    return matrix


def tool_labels(classes: npt.NDArray[Any]) -> npt.NDArray[np.int64]:
    """The tool's labels of the classes: the classes themselves if an archive can hold them, else their places."""
    if classes.dtype.kind in "iu" and 0 <= classes[0] and classes[-1] <= LARGEST_LABEL:
        return classes.astype(np.int64)
    return np.arange(len(classes), dtype=np.int64)


def tool_costs(matrix: Floats, labels: npt.NDArray[np.int64]) -> Costs:
    """The same costs for a tool with these labels. The most frequent cost is the default, because each override takes time in each run."""
    different = ~np.eye(len(labels), dtype=bool)
    values, counts = np.unique(matrix[different], return_counts=True)
    default = float(values[counts.argmax()]) if len(values) else 1.0
    costs = Costs(default)
    for true, assigned in np.argwhere(different & (matrix != default)):
        costs[int(labels[true]), int(labels[assigned])] = float(matrix[true, assigned])
    return costs


def class_priors(priors: Any, classes: npt.NDArray[Any], class_count: npt.NDArray[np.int64]) -> Floats:
    """The prior of each class: its share of the rows, equal, or as stated. They add up to 1."""
    count = len(classes)
    stated: Floats
    if priors is None:
        return np.asarray(class_count / class_count.sum(), dtype=np.float64)
    if isinstance(priors, str):
        if priors != "equal":
            raise ValueError(f'priors must be None, "equal", an array or a dict, not {priors!r}')
        return np.full(count, 1.0 / count)
    if _is_named(priors, "index"):
        priors = priors.to_dict()
    if isinstance(priors, Mapping):
        stated = np.full(count, np.nan)
        for label, prior in priors.items():
            stated[class_index(classes, label, "priors")] = _numbers(prior, "priors", "numbers")
        if np.any(np.isnan(stated)):
            raise ValueError(f"priors must have a number for each of the classes {classes.tolist()!r}")
    else:
        stated = _numbers(priors, "priors", 'None, "equal", numbers or a dict')
        if stated.shape != (count,):
            raise ValueError(f"priors must have a number for each of {count} classes, not the shape {stated.shape}")
    if not np.all(np.isfinite(stated)) or np.any(stated <= 0.0):
        raise ValueError("priors must be finite and > 0")
    return np.asarray(stated / stated.sum(), dtype=np.float64)


def tool_frequencies(class_prior: Floats, labels: npt.NDArray[np.int64]) -> Frequencies:
    """The same priors for a tool with these labels. A class without rows has no frequency, and the tool has no model of it."""
    known = class_prior > 0.0
    return Frequencies(1.0, dict(zip(labels[known].tolist(), class_prior[known].tolist())))


def in_blocks(work: Callable[..., Any], *tables: npt.NDArray[Any]) -> Any:
    """Applies `work` to blocks of rows and joins the results, one row for each row. Ctrl-C acts between calls of NumPy."""
    # Larger blocks are slower where freed memory goes back to the system at once: each intermediate result takes new pages.
    size = 4096
    if len(tables[0]) <= size:
        return work(*tables)
    return np.concatenate([work(*(table[first : first + size] for table in tables)) for first in range(0, len(tables[0]), size)])


def settle_ties(expected: Floats) -> Floats:
    """Sets costs to the least cost of their row if they differ from it by no more than the rounding of the sums.

    Each cost is a sum of one term for each class. No term is negative, so the relative error is at most one rounding for each class, and a
    few more from the terms.
    """
    least = expected.min(axis=1, keepdims=True)
    rounding = 2.0 * (expected.shape[1] + 4) * np.finfo(np.float64).eps
    return np.where(expected <= least * (1.0 + rounding), least, expected)


def decide(expected: Floats, probabilities: Floats) -> npt.NDArray[np.intp]:
    """The class of least expected cost in each row. Of classes of equal cost the more probable one, then the first."""
    cheapest = expected == expected.min(axis=1, keepdims=True)
    return np.asarray(np.where(cheapest, probabilities, -1.0).argmax(axis=1), dtype=np.intp)
