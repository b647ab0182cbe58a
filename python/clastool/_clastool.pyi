from collections.abc import Sequence
import enum
import os
from typing import Any, Literal, SupportsIndex, overload

import numpy


import typing
from collections.abc import Callable, Mapping

from numpy.typing import ArrayLike, NDArray
from typing_extensions import Buffer

from ._tables import Neighbors, RowResults

__version__: str

_Metric: typing.TypeAlias = Norm | Callable[[NDArray[numpy.float64], NDArray[numpy.float64]], float]

class FeaturePattern:
    """
    One object to be classified: its measurements, each of them valid or missing. It does not change.
    """

    def __init__(self, values: ArrayLike, invalid: Sequence[int] = ()) -> None:
        """
        Measurements. Those that are NaN or infinite, and those at the indices `invalid`, are missing.
        """

    @property
    def values(self) -> NDArray[numpy.float64]:
        """The measurements, NaN where missing: a new array."""

    @property
    def valid(self) -> NDArray[numpy.bool_]:
        """Which measurements are there: a new array."""

    @property
    def num_invalid(self) -> int:
        """How many measurements are missing."""

    def __len__(self) -> int: ...

    def __getitem__(self, index: int) -> float:
        """A measurement, NaN if it is missing."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class Costs:
    """What it costs to assign a pattern of one category to another."""

    def __init__(self, default: float = 1.0, overrides: Mapping[tuple[int, int], float] | None = None) -> None:
        """
        A cost for every mistake, and others for pairs of a true and an assigned label.
        """

    @staticmethod
    def from_matrix(matrix: Sequence[Sequence[float]], labels: Sequence[int] = ()) -> Costs:
        """
        Costs from a square matrix: row i, column j is what it costs to assign a pattern of category labels[i] to labels[j]. Without labels these are 0, 1, 2, ...
        """

    @property
    def default(self) -> float:
        """What a mistake costs that has no override."""

    @default.setter
    def default(self, arg: float, /) -> None: ...

    @property
    def overrides(self) -> dict[tuple[int, int], float]:
        """A copy of the overrides, in the order in which they were entered."""

    def __getitem__(self, pair: tuple[int, int]) -> float:
        """The cost for a pair of a true and an assigned label."""

    def __setitem__(self, pair: tuple[int, int], cost: float) -> None: ...

    def clear(self) -> None:
        """Drops the overrides."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class Frequencies:
    """
    How frequent each category is, before anything is measured: relative weights.
    """

    def __init__(self, default: float = 1.0, overrides: Mapping[int, float] | None = None) -> None:
        """A frequency for every category, and others for some labels."""

    @staticmethod
    def from_values(values: Sequence[float], labels: Sequence[int] = ()) -> Frequencies:
        """A frequency for each label. Without labels these are 0, 1, 2, ..."""

    @property
    def default(self) -> float:
        """The frequency of every category without an override."""

    @default.setter
    def default(self, arg: float, /) -> None: ...

    @property
    def overrides(self) -> dict[int, float]:
        """A copy of the overrides, in the order in which they were entered."""

    def __getitem__(self, label: int) -> float:
        """The frequency of a category."""

    def __setitem__(self, label: int, frequency: float) -> None: ...

    def clear(self) -> None:
        """Drops the overrides."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class CategoryResult:
    """One category's verdict on a pattern. It does not change."""

    def __init__(self, label: int, match_score: float, class_score: float = 0.0, expected_cost: float = 0.0) -> None: ...

    @property
    def label(self) -> int:
        """The category."""

    @property
    def match_score(self) -> float:
        """
        How well the pattern fits the category, in [0, 1]; what that means, the technique says.
        """

    @property
    def class_score(self) -> float:
        """The category's share of the result: its posterior probability."""

    @property
    def expected_cost(self) -> float:
        """What deciding for the category is expected to cost."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class Result:
    """
    The answer of a run: category results by ascending expected cost. It does not change.
    """

    def __init__(self, category_results: Sequence[CategoryResult], match_score_factor_log: float = 0.0) -> None:
        """
        Takes the results as they are, sorts them by expected cost, and divides the class scores by their sum.
        """

    @staticmethod
    def from_match_scores(category_results: Sequence[CategoryResult], frequencies: Frequencies, costs: Costs, match_score_factor_log: float = 0.0) -> Result:
        """
        The decision rule: class scores and expected costs from match scores, frequencies and costs.
        """

    @property
    def category_results(self) -> list[CategoryResult]:
        """The category results by ascending expected cost: a new list."""

    @property
    def match_score_factor_log(self) -> float:
        """ln of the factor by which the technique scaled its match scores."""

    @property
    def decision(self) -> CategoryResult:
        """The first category result, that of least expected cost."""

    @property
    def label(self) -> int:
        """The category that is decided for."""

    def log_likelihood(self, label: int) -> float:
        """
        ln of the unscaled likelihood of a category, by which a pattern that fits no category can be told.
        """

    def __len__(self) -> int: ...

    def __getitem__(self, index: int) -> CategoryResult: ...

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class DistributionType(enum.Enum):
    """Which distribution models a measurement."""

    NORMAL = 0
    """Normal, of several measurements jointly too."""

    BINOMIAL = 1
    """Binomial, of one measurement between 0 and a maximum."""

    POISSON = 2
    """Not supported: training with it fails."""

    UNIFORM = 3
    """Not supported: training with it fails."""

class DistributionTypes:
    """
    Which distribution models each measurement of each category, and which measurements are modelled jointly.
    """

    def __init__(self, default: DistributionType = DistributionType.NORMAL) -> None: ...

    @property
    def default(self) -> DistributionType:
        """The type of every measurement without an override."""

    @default.setter
    def default(self, arg: DistributionType, /) -> None: ...

    def __getitem__(self, place: tuple[int, int]) -> DistributionType:
        """The type at a pair of a label and the index of a measurement."""

    def __setitem__(self, place: tuple[int, int], type: DistributionType) -> None: ...

    @property
    def overrides(self) -> dict[tuple[int, int], DistributionType]:
        """A copy of the overrides, by label and index."""

    def set_dependent(self, label: int, indices: Sequence[int]) -> None:
        """
        Makes these measurements of a category a joint group, together with the groups that they touch.
        """

    def is_dependent(self, label: int, indices: Sequence[int]) -> bool:
        """Whether these measurements of a category are in one joint group."""

    @property
    def dependent_sets(self) -> list[tuple[int, list[int]]]:
        """A copy of the joint groups: pairs of a label and its members."""

    def clear(self) -> None:
        """Drops overrides and joint groups."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class Norm:
    """
    The Minkowski distance of order p: (sum of |a_i - b_i|^p)^(1/p). It does not change.
    """

    def __init__(self, order: float = 2.0) -> None: ...

    @property
    def order(self) -> float:
        """The order p."""

    def __call__(self, a: FeaturePattern | ArrayLike, b: FeaturePattern | ArrayLike) -> float:
        """The distance of two patterns."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class KNNParams:
    """Choose nearest neighbours: their number, the metric, the costs."""

    def __init__(self, k: int = 1, metric: _Metric | None = None, costs: Costs | None = None, *, throw_if_not_ready: bool = True) -> None:
        """
        The metric is a Norm, or a function of two arrays that returns their distance; None is the Euclidean norm.
        """

    @property
    def k(self) -> int:
        """The number of neighbours that vote."""

    @k.setter
    def k(self, arg: int, /) -> None: ...

    @property
    def metric(self) -> _Metric:
        """A copy of the Norm, or the function."""

    @metric.setter
    def metric(self, metric: _Metric | None) -> None: ...

    @property
    def costs(self) -> Costs:
        """A copy of what each mistake costs: assign it to change it."""

    @costs.setter
    def costs(self, arg: Costs, /) -> None: ...

    @property
    def throw_if_not_ready(self) -> bool:
        """Whether training checks that the tool can run."""

    @throw_if_not_ready.setter
    def throw_if_not_ready(self, arg: bool, /) -> None: ...

    def __repr__(self) -> str: ...

    def __getstate__(self) -> tuple[int, _Metric, Costs, bool]: ...

    def __setstate__(self, arg: tuple[int, object, Costs, bool], /) -> None: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

class BayesParams:
    """
    Choose Bayes: distributions, prior frequencies, costs, and maxima of binomial measurements.
    """

    def __init__(self, distribution_types: DistributionTypes | None = None, frequencies: Frequencies | None = None, costs: Costs | None = None, max_values: FeaturePattern | ArrayLike | None = None, *, throw_if_not_ready: bool = True) -> None:
        """
        Independent normal distributions, equal frequencies and equal costs, unless given. A maximum that is missing is 1.
        """

    @property
    def distribution_types(self) -> DistributionTypes:
        """A copy of the distributions: assign it to change it."""

    @distribution_types.setter
    def distribution_types(self, arg: DistributionTypes, /) -> None: ...

    @property
    def frequencies(self) -> Frequencies:
        """A copy of the prior frequencies: assign it to change it."""

    @frequencies.setter
    def frequencies(self, arg: Frequencies, /) -> None: ...

    @property
    def costs(self) -> Costs:
        """A copy of what each mistake costs: assign it to change it."""

    @costs.setter
    def costs(self, arg: Costs, /) -> None: ...

    @property
    def max_values(self) -> FeaturePattern:
        """The largest value of each binomial measurement."""

    @max_values.setter
    def max_values(self, values: FeaturePattern | ArrayLike) -> None: ...

    @property
    def throw_if_not_ready(self) -> bool:
        """Whether training checks that the tool can run."""

    @throw_if_not_ready.setter
    def throw_if_not_ready(self, arg: bool, /) -> None: ...

    def __repr__(self) -> str: ...

    def __getstate__(self) -> tuple[bytes, bool]: ...

    def __setstate__(self, arg: tuple[bytes, bool], /) -> None: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

class Predicate:
    """Answers yes or no for a pattern. It does not change."""

    def __call__(self, pattern: FeaturePattern | ArrayLike) -> bool:
        """The answer: no where a measurement is missing."""

class ComparisonPredicate(Predicate):
    """Whether one measurement is greater than another."""

    def __init__(self, index1: int, index2: int) -> None: ...

    @property
    def index1(self) -> int:
        """The measurement that is to be greater."""

    @property
    def index2(self) -> int:
        """The measurement that it is compared with."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class RangePredicate(Predicate):
    """Whether all of these measurements lie in a range, both ends included."""

    def __init__(self, low: float, high: float, indices: Sequence[int]) -> None: ...

    @property
    def low(self) -> float:
        """The low end."""

    @property
    def high(self) -> float:
        """The high end."""

    @property
    def indices(self) -> list[int]:
        """The measurements that are looked at."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class ValidityPredicate(Predicate):
    """Whether all of these measurements are there."""

    def __init__(self, indices: Sequence[int]) -> None: ...

    @property
    def indices(self) -> list[int]:
        """The measurements that are looked at."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class DecisionTree:
    """A tree of nodes that ask and leaves that answer. It does not change."""

    @property
    def category_labels(self) -> list[int]:
        """The labels that the tree can answer with."""

class Leaf(DecisionTree):
    """The result for every pattern that gets here."""

    def __init__(self, result: Result) -> None: ...

    @property
    def result(self) -> Result:
        """The answer."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class Node(DecisionTree):
    """
    A question, and the trees for its two answers, which it shares. Trees may be of any depth; archives take 1000.
    """

    def __init__(self, predicate: Predicate, true_tree: DecisionTree, false_tree: DecisionTree) -> None: ...

    @property
    def predicate(self) -> Predicate:
        """The question."""

    @property
    def true_tree(self) -> Node | Leaf:
        """Where the walk goes on if the answer is yes."""

    @property
    def false_tree(self) -> Node | Leaf:
        """Where the walk goes on if the answer is no."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class FeatureScore:
    """Maps one measured value to a score between 0 and 1."""

    def __call__(self, x: float) -> float:
        """The score; -1 leaves the value out of a rule's score."""

class FeatureScoreIgnore(FeatureScore):
    """Leaves its feature out of a rule's score."""

    def __init__(self) -> None: ...

    def __repr__(self) -> str: ...

    def __getstate__(self) -> tuple[()]: ...

    def __setstate__(self, state: tuple[()], /) -> None: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

class FeatureScoreOneSided(FeatureScore):
    """
    A ramp: y0 on the outer side of x0, from y0 to y1 between x0 and x1, y1 up to xc, and 0 past xc. It does not change.
    """

    def __init__(self, x0: float = 0.0, x1: float = 1.0, xc: float = 1.0, y0: float = 1.0, y1: float = 0.0) -> None: ...

    @property
    def x0(self) -> float:
        """Where the ramp begins."""

    @property
    def x1(self) -> float:
        """Where the ramp ends."""

    @property
    def xc(self) -> float:
        """Past it the score is 0."""

    @property
    def y0(self) -> float:
        """The score on the outer side of x0."""

    @property
    def y1(self) -> float:
        """The score from x1 to xc."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class FeatureScoreTwoSided(FeatureScore):
    """
    Two ramps side by side, the low one below the smallest x of the high one. It does not change.
    """

    def __init__(self, x0: float, x1: float, xc: float, x0h: float, x1h: float, xch: float, y0: float, y1: float, y0h: float, y1h: float) -> None: ...

    @property
    def low(self) -> FeatureScoreOneSided:
        """The half below the split point."""

    @property
    def high(self) -> FeatureScoreOneSided:
        """The half at and above the split point."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class Rule:
    """
    A fuzzy rule: a scoring function for each feature, and the label that it stands for. It does not change.
    """

    def __init__(self, scores: Sequence[FeatureScore], label: int) -> None: ...

    @property
    def scores(self) -> list[FeatureScoreIgnore | FeatureScoreOneSided | FeatureScoreTwoSided]:
        """A copy of the scoring functions, in feature order."""

    @property
    def label(self) -> int:
        """What the rule stands for."""

    def score(self, values: ArrayLike) -> float:
        """The geometric mean of the scores that count."""

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class RuleTable:
    """Rules in the order in which they are tried. It does not change."""

    def __init__(self, rules: Sequence[Rule]) -> None: ...

    @property
    def rules(self) -> list[Rule]:
        """A copy of the rules."""

    def classify(self, values: ArrayLike, threshold: float) -> int:
        """
        The label of the first rule whose score is greater than the threshold, or -1.
        """

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __getstate__(self) -> bytes: ...

    def __setstate__(self, arg: bytes, /) -> None: ...

class ClassDataGenerator:
    """
    Draws the patterns of one category from independent normal distributions.
    """

    def __init__(self, distribution: Sequence[tuple[float, float]], num_patterns: int) -> None:
        """
        Mean and standard deviation of each measurement, and the number of patterns.
        """

    def generate(self) -> tuple[NDArray[numpy.float64], NDArray[numpy.int64]]:
        """
        Rows and labels: the same numbers on every platform, and at every call. All labels are 0.
        """

class TotalDataGenerator:
    """
    Puts the data of class generators together. As many patterns as measurements are taken of each, and returned.
    """

    def __init__(self, class_generators: Sequence[ClassDataGenerator]) -> None: ...

    def generate(self) -> tuple[NDArray[numpy.float64], NDArray[numpy.int64]]:
        """
        Rows and labels, which are the positions of the generators, in a random order, the same at every call.
        """

class Density:
    """
    What a Bayesian tool has learnt of one group of measurements in one category: a copy.
    """

    @property
    def label(self) -> int:
        """The category."""

    @property
    def measurements(self) -> list[int]:
        """The measurements of the group."""

    @property
    def type(self) -> DistributionType:
        """Normal or binomial."""

    @property
    def mean(self) -> NDArray[numpy.float64]:
        """Normal: the mean of each measurement."""

    @property
    def covariance(self) -> NDArray[numpy.float64]:
        """Normal: the unbiased covariance, square."""

    @property
    def count(self) -> int:
        """
        How many patterns were learnt; 0 for a binomial density from a plain archive.
        """

    @property
    def num_trials(self) -> int:
        """Binomial: n."""

    @property
    def theta(self) -> float:
        """Binomial: the probability of a trial."""

    def __repr__(self) -> str: ...

class ClassifierTool:
    """
    Trains a classifier from labelled patterns, or takes a decision tree, and runs it.

    Any method may be called on several threads at once: a run goes on with what was there when it began.
    """

    def __init__(self) -> None:
        """Untrained."""

    @overload
    def train(self, X: ArrayLike, y: ArrayLike, params: KNNParams | BayesParams, *, progress: Callable[[int, int], object] | None = None) -> None:
        """
        Trains on the rows of X, whose labels are y; -1 is an unknown category. X is read where it is if it is an array of float32 or float64. What is NaN or infinite is missing. If anything is raised the tool stays as it was.
        """

    @overload
    def train(self, tree: Node | Leaf) -> None:
        """Takes a decision tree."""

    def retrain(self, params: KNNParams | BayesParams) -> None:
        """
        Takes new parameters without training again, for example other costs, frequencies or another k.
        """

    def add(self, X: ArrayLike, y: ArrayLike) -> None:
        """
        Trains further: afterwards it is as if these rows had stood behind those of the training.
        """

    def merge(self, other: ClassifierTool) -> None:
        """
        Joins what another Bayesian tool has learnt: afterwards it is as if this one had been trained on the rows of both.
        """

    def untrain(self) -> None:
        """Forgets the training."""

    def run(self, pattern: FeaturePattern | ArrayLike) -> Result:
        """Classifies a pattern."""

    def run_rows(self, X: ArrayLike, *, threads: int = 1, only_labels: bool = False, progress: Callable[[int, int], object] | None = None) -> RowResults:
        """Classifies each row of X: the answers of `run`, to the bit, as arrays."""

    def log_likelihoods(self, X: ArrayLike, *, threads: int = 1, progress: Callable[[int, int], object] | None = None) -> NDArray[numpy.float64]:
        """
        Bayes: ln of the unscaled likelihood of each row of X in each of `categories`.
        """

    def neighbors(self, X: ArrayLike, k: int | None = None, *, threads: int = 1, progress: Callable[[int, int], object] | None = None) -> Neighbors:
        """
        Nearest neighbours: those by which each row of X is decided on, or the nearest k.
        """

    def first_within(self, X: ArrayLike, distances: ArrayLike, count: int, *, threads: int = 1, progress: Callable[[int, int], object] | None = None) -> Neighbors:
        """
        Nearest neighbours: of the kept patterns no farther from each row of X than its distance, the first ones in the order of the training, up to count. Where there are fewer, NaN and -1 fill up.
        """

    @property
    def is_trained(self) -> bool:
        """Whether there is something to run with."""

    @property
    def technique(self) -> Literal['neighbors', 'bayes', 'tree'] | None:
        """What the tool was trained for, None if it was not."""

    @property
    def categories(self) -> NDArray[numpy.int64]:
        """The labels that a run can answer with, ascending."""

    @property
    def category_counts(self) -> dict[int, int]:
        """
        How many patterns of each category were learnt; empty for a decision tree.
        """

    @property
    def params(self) -> Any:
        """A copy of the parameters in use: KNNParams or BayesParams."""

    @property
    def tree(self) -> Node | Leaf:
        """The decision tree."""

    @property
    def num_measurements(self) -> int:
        """How many measurements the tool was trained on; 0 for a decision tree."""

    @property
    def num_patterns(self) -> int:
        """How many patterns are kept: nearest neighbours."""

    def densities(self) -> list[Density]:
        """Bayes: a density for each group of measurements of each category."""

    def to_bytes(self, *, plain: bool = False) -> bytes:
        """The bytes of a file of `save`."""

    @staticmethod
    def from_bytes(data: Buffer) -> ClassifierTool:
        """The tool in such bytes, plain or not."""

    def save(self, path: str | os.PathLike[str], *, plain: bool = False) -> None:
        """
        Stores the tool in a file, with all that runs and further training depend on: C++ loads it by `ktKit::load`. If it is plain, the file is what C++ stores and loads by `archive || tool`: nearest neighbours then take a `retrain` in C++, and binomial densities cannot learn further.
        """

    @staticmethod
    def load(path: str | os.PathLike[str]) -> ClassifierTool:
        """The tool in such a file, plain or not."""

    def __copy__(self) -> ClassifierTool: ...

    def __deepcopy__(self, memo: object) -> ClassifierTool: ...

    def __reduce_ex__(self, protocol: SupportsIndex) -> tuple[object, ...]: ...

    def __repr__(self) -> str: ...

    def __eq__(self, other: object, /) -> bool: ...

    def __ne__(self, other: object, /) -> bool: ...

    __hash__: typing.ClassVar[None]  # type: ignore[assignment]
