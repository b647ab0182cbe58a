"""Pictures by matplotlib, in the manner of scikit-learn's Display classes.

Each class has a function that computes and draws (`from_estimator`, `from_tool`, ...), and `plot`, which draws the computed values once
more. Both take the axes to draw into. Without axes they make a figure. After drawing, `ax_` or `axes_` and `figure_` hold the axes and
the figure.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
import numpy.typing as npt
from matplotlib import colormaps
from matplotlib import pyplot as plt
from matplotlib.axes import Axes
from matplotlib.figure import Figure

from . import ClassifierTool, Leaf, Node, RangePredicate, RuleTable
from ._decision import Floats, class_index, decide, settle_ties

__all__ = [
    "CostConfusionDisplay",
    "CostRatioDisplay",
    "DecisionRegionsDisplay",
    "RuleTableDisplay",
    "ScoringFunctionDisplay",
    "TreeDisplay",
]


# The score of a function that its rule ignores.
_IGNORED = -1.0


def _axes(ax: Axes | None, width: float = 5.0, height: float = 4.0) -> Axes:
    return plt.subplots(figsize=(width, height), layout="constrained")[1] if ax is None else ax


def _colors(count: int) -> Any:
    return colormaps["tab10" if count <= 10 else "tab20"](np.arange(count) % 20)[:, :3]


class DecisionRegionsDisplay:
    """The decision at each point of a plane of two measurements. Paler points have a higher expected cost.

    xx0, xx1: the grid. classes: the classes. decided: the place of the class at each point of the grid, -1 where the estimator rejects.
    expected: the expected cost at each point.
    """

    def __init__(
        self,
        *,
        xx0: Floats,
        xx1: Floats,
        classes: npt.NDArray[Any],
        decided: npt.NDArray[np.intp],
        expected: Floats,
        names: Sequence[str] = ("measurement 0", "measurement 1"),
    ) -> None:
        self.xx0 = xx0
        self.xx1 = xx1
        self.classes = classes
        self.decided = decided
        self.expected = expected
        self.names = names

    @classmethod
    def from_estimator(
        cls, estimator: Any, X: Any, y: Any = None, *, grid_resolution: int = 200, margin: float = 0.1, ax: Axes | None = None
    ) -> DecisionRegionsDisplay:
        """The plane around rows X of two measurements. The margin is a share of their range. With y the rows are drawn too."""
        names = [str(name) for name in getattr(X, "columns", ["measurement 0", "measurement 1"])]
        rows = np.asarray(X, dtype=np.float64)
        if rows.ndim != 2 or rows.shape[1] != 2:
            raise ValueError(f"X must have two measurements, not the shape {rows.shape}")
        low, high = np.nanmin(rows, axis=0), np.nanmax(rows, axis=0)
        reach = np.where(high > low, margin * (high - low), 0.5)
        low, high = low - reach, high + reach
        xx0, xx1 = np.meshgrid(
            np.linspace(low[0], high[0], grid_resolution), np.linspace(low[1], high[1], grid_resolution)
        )
        points = np.column_stack([xx0.ravel(), xx1.ravel()])
        table = type(X)(points, columns=X.columns) if hasattr(X, "columns") else points
        expected = estimator.expected_costs(table)
        answers = estimator.predict(table)
        decided = np.full(len(points), -1)
        for place, label in enumerate(estimator.classes_):
            decided[answers == label] = place
        display = cls(
            xx0=xx0,
            xx1=xx1,
            classes=estimator.classes_,
            decided=decided.reshape(xx0.shape),
            expected=expected.min(axis=1).reshape(xx0.shape),
            names=names,
        )
        display.plot(ax=ax)
        if y is not None:
            display._scatter(rows, np.asarray(y))
        return display

    def plot(self, *, ax: Axes | None = None) -> DecisionRegionsDisplay:
        """Draws the regions."""
        self.ax_ = _axes(ax)
        self.figure_ = self.ax_.figure
        colors = np.vstack([_colors(len(self.classes)), [0.5, 0.5, 0.5]])
        highest = self.expected.max()
        paleness = 0.35 + 0.6 * (self.expected / highest if highest > 0.0 else self.expected)
        image = paleness[..., np.newaxis] + (1.0 - paleness[..., np.newaxis]) * colors[self.decided]
        extent = (self.xx0.min(), self.xx0.max(), self.xx1.min(), self.xx1.max())
        self.ax_.imshow(image, origin="lower", extent=extent, aspect="auto", interpolation="nearest")
        self.ax_.set(xlabel=self.names[0], ylabel=self.names[1])
        return self

    def _scatter(self, rows: Floats, y: npt.NDArray[Any]) -> None:
        for place, label in enumerate(self.classes):
            own = rows[y == label]
            color = _colors(len(self.classes))[place]
            self.ax_.scatter(own[:, 0], own[:, 1], s=14, color=color, edgecolor="white", linewidth=0.5, label=str(label))
        self.ax_.legend()


class CostConfusionDisplay:
    """The counts and costs of all pairs of a true and an assigned class. The darker a cell, the higher its cost.

    counts: counts[true, assigned]. costs: cost[true, assigned]. classes: the names of both.
    """

    def __init__(self, *, counts: npt.NDArray[np.int64], costs: Floats, classes: npt.NDArray[Any]) -> None:
        self.counts = counts
        self.costs = costs
        self.classes = classes

    @property
    def paid(self) -> Floats:
        """The total cost of each cell."""
        return np.asarray(self.counts * self.costs)

    @classmethod
    def from_estimator(cls, estimator: Any, X: Any, y: Any, *, ax: Axes | None = None) -> CostConfusionDisplay:
        """The decisions of a fitted estimator on rows of known classes. Rejected rows are left out."""
        return cls.from_predictions(y, estimator.predict(X), costs=estimator.costs_, classes=estimator.classes_, ax=ax)

    @classmethod
    def from_predictions(
        cls, y_true: Any, y_pred: Any, *, costs: Floats, classes: npt.NDArray[Any], ax: Axes | None = None
    ) -> CostConfusionDisplay:
        """Decisions and the true classes. A decision that is not among the classes is left out."""
        counts = np.zeros((len(classes), len(classes)), dtype=np.int64)
        known = classes.tolist()
        for true, assigned in zip(np.asarray(y_true).tolist(), np.asarray(y_pred).tolist(), strict=True):
            if assigned in known:
                counts[class_index(classes, true, "y_true"), known.index(assigned)] += 1
        return cls(counts=counts, costs=np.asarray(costs, dtype=np.float64), classes=classes).plot(ax=ax)

    def plot(self, *, ax: Axes | None = None) -> CostConfusionDisplay:
        """Draws the matrix: in each cell the count, and below it the total cost."""
        self.ax_ = _axes(ax)
        self.figure_ = self.ax_.figure
        paid = self.paid
        self.ax_.imshow(paid, cmap="Reds", vmin=0.0)
        self.text_ = np.empty(paid.shape, dtype=object)
        for (true, assigned), cost in np.ndenumerate(paid):
            count = self.counts[true, assigned]
            text = f"{count}" if true == assigned else f"{count}\ncost {cost:g}"
            color = "white" if cost > 0.6 * paid.max() > 0.0 else "black"
            self.text_[true, assigned] = self.ax_.text(assigned, true, text, ha="center", va="center", color=color)
        ticks = range(len(self.classes))
        names = [str(label) for label in self.classes]
        self.ax_.set(xticks=ticks, yticks=ticks, xticklabels=names, yticklabels=names)
        self.ax_.set(xlabel="assigned", ylabel="true", title=f"cost {paid.sum():g} of {self.counts.sum()} decisions")
        return self


class CostRatioDisplay:
    """The mean cost of decisions, over the cost of one mistake in relation to all others.

    ratios: the costs of the mistake. expected: the mean expected cost by the estimator's probabilities. paid: the mean cost of the
    same decisions by the true classes. fixed: for each class the mean cost of always deciding for it.
    """

    def __init__(
        self,
        *,
        ratios: Floats,
        expected: Floats,
        paid: Floats,
        fixed: Floats,
        classes: npt.NDArray[Any],
        mistake: tuple[Any, Any],
    ) -> None:
        self.ratios = ratios
        self.expected = expected
        self.paid = paid
        self.fixed = fixed
        self.classes = classes
        self.mistake = mistake

    @classmethod
    def from_estimator(
        cls,
        estimator: Any,
        X: Any,
        y: Any,
        mistake: tuple[Any, Any],
        *,
        ratios: Any = None,
        ax: Axes | None = None,
    ) -> CostRatioDisplay:
        """The mistake is a pair (true class, assigned class). Every other mistake costs 1. The estimator is not fitted again."""
        classes = estimator.classes_
        ratios = np.geomspace(0.01, 100.0, 41) if ratios is None else np.asarray(ratios, dtype=np.float64)
        true = np.array([class_index(classes, label, "y") for label in np.asarray(y).tolist()], dtype=np.intp)
        place = tuple(class_index(classes, label, "mistake") for label in mistake)
        probabilities = estimator.predict_proba(X)
        expected, paid, fixed = np.empty(len(ratios)), np.empty(len(ratios)), np.empty((len(ratios), len(classes)))
        for i, ratio in enumerate(ratios):
            costs = 1.0 - np.eye(len(classes))
            costs[place] = ratio
            means = settle_ties(probabilities @ costs)
            expected[i] = means.min(axis=1).mean()
            paid[i] = costs[true, decide(means, probabilities)].mean()
            fixed[i] = costs[true].mean(axis=0)
        display = cls(ratios=ratios, expected=expected, paid=paid, fixed=fixed, classes=classes, mistake=mistake)
        return display.plot(ax=ax)

    def plot(self, *, ax: Axes | None = None) -> CostRatioDisplay:
        """Draws the curves."""
        self.ax_ = _axes(ax)
        self.figure_ = self.ax_.figure
        self.ax_.plot(self.ratios, self.paid, label="paid")
        self.ax_.plot(self.ratios, self.expected, "--", label="expected")
        for place, label in enumerate(self.classes):
            self.ax_.plot(self.ratios, self.fixed[:, place], ":", label=f"always {label}")
        self.ax_.set(xscale="log", xlabel=f"cost of {self.mistake[0]} taken for {self.mistake[1]}", ylabel="mean cost")
        highest = max(self.paid.max(), self.expected.max(), self.fixed.min(axis=1).max())
        self.ax_.set_ylim(0.0, 1.2 * highest if highest > 0.0 else 1.0)
        self.ax_.legend()
        return self


class ScoringFunctionDisplay:
    """A scoring function of a fuzzy rule over its measurement."""

    def __init__(self, *, x: Floats, scores: Floats, name: str = "measurement") -> None:
        self.x = x
        self.scores = scores
        self.name = name

    @classmethod
    def from_function(
        cls, function: Any, low: float, high: float, *, name: str = "measurement", ax: Axes | None = None
    ) -> ScoringFunctionDisplay:
        """The scores between two values of the measurement."""
        x: Floats = np.linspace(low, high, 401, dtype=np.float64)
        return cls(x=x, scores=np.array([function(value) for value in x.tolist()]), name=name).plot(ax=ax)

    def plot(self, *, ax: Axes | None = None) -> ScoringFunctionDisplay:
        """Draws the scores."""
        self.ax_ = _axes(ax)
        self.figure_ = self.ax_.figure
        if np.all(self.scores == _IGNORED):
            self.ax_.text(0.5, 0.5, "ignored", transform=self.ax_.transAxes, ha="center", va="center", color="0.5")
            self.ax_.set_xlim(self.x[0], self.x[-1])
        else:
            self.ax_.plot(self.x, self.scores)
        self.ax_.set(xlabel=self.name, ylabel="score", ylim=(-0.05, 1.05))
        return self


class RuleTableDisplay:
    """The scoring functions of a rule table: a row for each rule, a column for each measurement."""

    def __init__(self, *, table: RuleTable, ranges: Sequence[tuple[float, float]], names: Sequence[str]) -> None:
        self.table = table
        self.ranges = ranges
        self.names = names

    @classmethod
    def from_table(
        cls, table: RuleTable, ranges: Sequence[tuple[float, float]], *, names: Sequence[str] | None = None
    ) -> RuleTableDisplay:
        """The functions of a table. Each measurement has a range, (low, high)."""
        stated = [f"measurement {i}" for i in range(len(ranges))] if names is None else names
        return cls(table=table, ranges=ranges, names=stated).plot()

    def plot(self, *, axes: npt.NDArray[Any] | None = None) -> RuleTableDisplay:
        """Draws the table into an array of axes: a row for each rule, a column for each measurement."""
        rules = list(self.table.rules)
        shape = (len(rules), len(self.ranges))
        if axes is None:
            axes = plt.subplots(
                *shape, figsize=(2.6 * shape[1], 1.9 * shape[0]), squeeze=False, sharey=True, layout="constrained"
            )[1]
        self.axes_: npt.NDArray[Any] = np.asarray(axes, dtype=object).reshape(shape)
        self.figure_: Figure = self.axes_[0, 0].figure
        for row, rule in zip(self.axes_, rules):
            for ax, function, (low, high), name in zip(row, rule.scores, self.ranges, self.names, strict=True):
                ScoringFunctionDisplay.from_function(function, low, high, name=name, ax=ax)
                ax.set_ylabel("")
            row[0].set_ylabel(f"label {rule.label}\nscore")
        return self


class TreeDisplay:
    """A decision tree: questions, and decisions with their expected costs. The answer yes goes to the left."""

    def __init__(self, *, tree: Any, feature_names: Sequence[str] | None, class_names: Sequence[str] | None) -> None:
        self.tree = tree
        self.feature_names = feature_names
        self.class_names = class_names

    @classmethod
    def from_tool(
        cls,
        tool: ClassifierTool,
        *,
        feature_names: Sequence[str] | None = None,
        class_names: Sequence[str] | None = None,
        ax: Axes | None = None,
    ) -> TreeDisplay:
        """The tree of a tool. `class_names` lists the names by label."""
        return cls(tree=tool.tree, feature_names=feature_names, class_names=class_names).plot(ax=ax)

    def plot(self, *, ax: Axes | None = None) -> TreeDisplay:
        """Draws the tree."""
        places, parents, texts = self._layout()
        width, depth = max(x for x, _ in places) + 1.0, max(-y for _, y in places) + 1.0
        self.ax_ = _axes(ax, max(4.0, 1.3 * width), max(2.5, 1.1 * depth))
        self.figure_ = self.ax_.figure
        for number, (parent, answer) in enumerate(parents):
            if parent >= 0:
                (x0, y0), (x1, y1) = places[parent], places[number]
                self.ax_.plot([x0, x1], [y0, y1], color="0.6", zorder=1)
                self.ax_.text((x0 + x1) / 2, (y0 + y1) / 2, answer, ha="center", va="center", fontsize=7, color="0.4")
        self.text_ = [
            self.ax_.text(x, y, text, ha="center", va="center", fontsize=8, bbox={"boxstyle": "round", "fc": "white"})
            for (x, y), text in zip(places, texts)
        ]
        self.ax_.set(xlim=(-0.6, width - 0.4), ylim=(-depth + 0.4, 0.6))
        self.ax_.set_axis_off()
        return self

    def _layout(self) -> tuple[list[tuple[float, float]], list[tuple[int, str]], list[str]]:
        """Place, parent and text of each node. Leaves are side by side, a node between its children. A loop, because trees may be deep."""
        nodes: list[Any] = []
        parents: list[tuple[int, str]] = []
        depths: list[int] = []
        waiting: list[tuple[Any, int, str, int]] = [(self.tree, -1, "", 0)]
        while waiting:
            node, parent, answer, depth = waiting.pop()
            number = len(nodes)
            nodes.append(node)
            parents.append((parent, answer))
            depths.append(depth)
            if isinstance(node, Node):
                waiting.append((node.false_tree, number, "no", depth + 1))
                waiting.append((node.true_tree, number, "yes", depth + 1))
        children: list[list[float]] = [[] for _ in nodes]
        x = [0.0] * len(nodes)
        leaves = sum(isinstance(node, Leaf) for node in nodes)
        for number in range(len(nodes) - 1, -1, -1):
            if isinstance(nodes[number], Node):
                x[number] = sum(children[number]) / 2.0
            else:
                leaves -= 1
                x[number] = float(leaves)
            if parents[number][0] >= 0:
                children[parents[number][0]].append(x[number])
        return [(x[i], -float(depths[i])) for i in range(len(nodes))], parents, [self._text(node) for node in nodes]

    def _text(self, node: Any) -> str:
        if isinstance(node, Leaf):
            best = node.result.decision
            name = str(best.label) if self.class_names is None else self.class_names[best.label]
            return f"{name}\ncost {best.expected_cost:.3g}"
        predicate = node.predicate
        if not isinstance(predicate, RangePredicate) or len(predicate.indices) != 1:
            return repr(predicate)
        index = predicate.indices[0]
        name = f"measurement {index}" if self.feature_names is None else self.feature_names[index]
        if predicate.low == -np.inf:
            return f"{name} ≤ {predicate.high:.4g}"
        if predicate.high == np.inf:
            return f"{name} ≥ {predicate.low:.4g}"
        return f"{predicate.low:.4g} ≤ {name} ≤ {predicate.high:.4g}"
