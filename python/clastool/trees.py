"""Tools from trees that scikit-learn learnt. The tools run without scikit-learn."""

from __future__ import annotations

from typing import Any

import numpy as np
import numpy.typing as npt

from . import CategoryResult, ClassifierTool, Leaf, Node, RangePredicate, Result
from ._decision import LARGEST_LABEL, Floats, cost_matrix, settle_ties

__all__ = ["from_sklearn"]


def from_sklearn(tree: Any, costs: Any = None) -> ClassifierTool:
    """A tool that decides as a fitted DecisionTreeClassifier, ExtraTreeClassifier or one tree of a forest.

    costs: as in the estimators of `clastool.sklearn`, over the tree's `classes_`. Without them the decisions are those of the tree:
    the most probable class; of equally probable classes the first.

    The tool's labels are the classes if these are integers from 0 to 2^31 - 1, as numbers of any type. Otherwise they are places in
    `classes_`. The classes of a forest's tree are places in the forest's `classes_`. Class scores are the shares of the classes in a
    leaf. Match scores are these shares divided by the largest one.

    scikit-learn rounds measurements to float32 before it compares them. The tool's thresholds are moved to where that rounding
    changes sides, so that decisions are equal for every float64. The exceptions are values beyond the range of float32, which
    scikit-learn refuses.
    """
    structure = getattr(tree, "tree_", None)
    classes = getattr(tree, "classes_", None)
    if structure is None or not isinstance(classes, np.ndarray):
        raise ValueError(f"a fitted tree that decides among classes is wanted, not {tree!r}")
    if structure.n_outputs != 1:
        raise ValueError(f"a tree with one output is wanted, not one with {structure.n_outputs}")
    leaves = _leaves(structure, classes, cost_matrix(costs, classes))
    nodes: dict[int, Any] = {}
    # Children have larger numbers than their parents, so they are made first.
    for number in range(structure.node_count - 1, -1, -1):
        left, right = int(structure.children_left[number]), int(structure.children_right[number])
        nodes[number] = leaves[number] if left < 0 else _node(structure, number, nodes.pop(left), nodes.pop(right))
    tool = ClassifierTool()
    tool.train(nodes[0])
    return tool


def _node(structure: Any, number: int, left: Any, right: Any) -> Node:
    index = [int(structure.feature[number])]
    last = _last_on_the_left(float(structure.threshold[number]))
    # A missing measurement answers no.
    if structure.missing_go_to_left[number]:
        return Node(RangePredicate(float(np.nextafter(last, np.inf)), np.inf, index), right, left)
    return Node(RangePredicate(-np.inf, last, index), left, right)


def _last_on_the_left(threshold: float) -> float:
    """The largest double that, rounded to float32, is at most the threshold."""
    with np.errstate(over="ignore"):
        below = np.float32(threshold)
        if float(below) > threshold:
            below = np.nextafter(below, np.float32(-np.inf))
        above = np.nextafter(below, np.float32(np.inf))
    middle = (float(below) + float(above)) / 2.0  # exact: it needs one bit more than a float32
    return middle if np.float32(middle) == below else float(np.nextafter(middle, -np.inf))


def _leaves(structure: Any, classes: npt.NDArray[Any], costs: Floats) -> dict[int, Leaf]:
    weights = structure.value[:, 0, :]
    shares = weights / weights.sum(axis=1, keepdims=True)
    expected = settle_ties(shares @ costs)
    # A result keeps the order of equal costs. Weights decide which class is more probable: division may make different weights equal.
    orders = np.lexsort((np.broadcast_to(np.arange(len(classes)), weights.shape), -weights, expected))
    labels = _labels(classes)
    return {
        int(number): _leaf(labels, shares[number], expected[number], orders[number])
        for number in np.flatnonzero(structure.children_left < 0)
    }


def _leaf(labels: list[int], shares: Floats, expected: Floats, order: npt.NDArray[np.intp]) -> Leaf:
    return Leaf(
        Result(
            [
                CategoryResult(labels[place], float(shares[place] / shares.max()), float(shares[place]), float(expected[place]))
                for place in order.tolist()
            ]
        )
    )


def _labels(classes: npt.NDArray[Any]) -> list[int]:
    if classes.dtype.kind in "iuf":
        whole = classes.astype(np.int64)
        if np.array_equal(whole, classes) and whole[0] >= 0 and whole[-1] <= LARGEST_LABEL:
            return [int(label) for label in whole]
    return list(range(len(classes)))
