"""Estimators for scikit-learn that decide by expected cost.

Both learn a `ClassifierTool`, `tool_`, which `save` writes into a file for C++ programs. They decide for the class of least
expected cost among all of `classes_`. Of classes of equal cost the more probable one wins, then the first. Costs that differ by no more
than the rounding of their sums count as equal. The tool alone decides among the classes in its result. For nearest neighbours these
are the classes with a vote.

Threads: predictions may run on several threads at once, also while another thread fits or recosts another estimator. While `fit` runs,
no other thread may use that estimator.
"""

from __future__ import annotations

from abc import abstractmethod
from collections.abc import Iterable, Mapping
from copy import copy
from numbers import Real
from os import PathLike
from typing import Any, TypeVar, Union

import numpy as np
import numpy.typing as npt
from joblib import effective_n_jobs
from sklearn.base import BaseEstimator, ClassifierMixin
from sklearn.utils.metaestimators import available_if
from sklearn.utils.multiclass import check_classification_targets, type_of_target
from sklearn.utils.validation import check_consistent_length, check_is_fitted, column_or_1d

from . import BayesParams, ClassifierTool, DistributionType, DistributionTypes, FeaturePattern, KNNParams, Norm
from ._decision import (
    Floats,
    class_index,
    class_priors,
    cost_matrix,
    decide,
    in_blocks,
    settle_ties,
    tool_costs,
    tool_frequencies,
    tool_labels,
)
from ._files import load_estimator, save_estimator
from ._progress import progress_bar

try:
    from sklearn.utils.validation import validate_data
except ImportError:  # before scikit-learn 1.6

    def validate_data(_estimator: Any, /, *arrays: Any, ensure_all_finite: Any = True, **options: Any) -> Any:
        return _estimator._validate_data(*arrays, force_all_finite=ensure_all_finite, **options)


__all__ = ["BayesCostClassifier", "KNeighborsCostClassifier", "fit_stream"]

Self = TypeVar("Self", bound="_CostClassifier")
Path = Union[str, "PathLike[str]"]

_KEEP: Any = "keep"
_TYPES = {"normal": DistributionType.NORMAL, "binomial": DistributionType.BINOMIAL}


def _learns_further(estimator: Any) -> bool:
    if estimator.reject_quantile is not None:
        raise AttributeError("reject_quantile needs all training rows at once: use fit")
    return True


class _CostClassifier(ClassifierMixin, BaseEstimator):
    """The common part of the estimators: labels, costs, the decision, rejection, files."""

    _technique: str
    _finite: Any = True

    costs: Any
    n_jobs: Any
    reject_quantile: Any
    reject_label: Any
    verbose: Any

    # Set by fit.
    tool_: ClassifierTool
    classes_: npt.NDArray[Any]
    class_count_: npt.NDArray[np.int64]
    costs_: Floats
    n_features_in_: int
    _reject_limits: Floats

    @abstractmethod
    def _params(self, classes: npt.NDArray[Any], costs: Floats, counts: npt.NDArray[np.int64]) -> Any:
        """The parameters of a tool for these classes."""

    @abstractmethod
    def _typicality(self, X: Any, is_training: bool) -> Floats:
        """How typical rows are, with a column for each limit. Higher is more typical."""

    @abstractmethod
    def _limits(self, typicality: Floats, y: npt.NDArray[Any], share: float) -> Floats:
        """For each column the typicality below which this share of the training rows lies."""

    def fit(self: Self, X: Any, y: Any) -> Self:
        """Learns from labelled rows.

        X: rows of measurements. float32 and float64 are read in place, with any strides.
        y: a label for each row: numbers, strings, truth values, or other objects that can be sorted.
        """
        X, y = self._checked_training(X, y, reset=True)
        classes, counts = np.unique(y, return_counts=True)
        costs = cost_matrix(self.costs, classes)
        share = self._checked_share()
        tool = ClassifierTool()
        with progress_bar("fit", self.verbose) as progress:
            tool.train(X, _to_tool(y, classes), self._params(classes, costs, counts), progress=progress)
        self._take(tool, classes, costs, counts)
        if share is not None:
            self._reject_limits = self._limits(self._typicality(X, True), y, share)
        return self

    @available_if(_learns_further)
    def partial_fit(self: Self, X: Any, y: Any, classes: Any = None) -> Self:
        """Learns further rows, as if they had followed the earlier ones in one call.

        classes: all labels that will ever occur. The first call needs them. A class without rows so far has probability 0.
        An estimator with reject_quantile has no such method.
        """
        is_first = not hasattr(self, "tool_")
        known = self._checked_classes(classes, is_first)
        X, y = self._checked_training(X, y, reset=is_first)
        unknown = np.setdiff1d(y, known)
        if len(unknown):
            raise ValueError(f"y has the label {unknown.tolist()[0]!r}, which is not among the classes {known.tolist()!r}")
        counts = np.searchsorted(known, y)
        counts = np.bincount(counts, minlength=len(known)) + (0 if is_first else self.class_count_)
        costs = cost_matrix(self.costs, known) if is_first else self.costs_
        params = self._params(known, costs, counts)
        if is_first:
            tool = ClassifierTool()
            tool.train(X, _to_tool(y, known), params)
        else:
            tool = copy(self.tool_)
            tool.add(X, _to_tool(y, known))
            tool.retrain(params)
        self._take(tool, known, costs, counts)
        return self

    def predict(self, X: Any) -> npt.NDArray[Any]:
        """The class of least expected cost for each row; `reject_label` for a row that is unlike all training rows."""
        X = self._checked(X)
        decided = self.classes_[self._decisions(X)]
        if not hasattr(self, "_reject_limits"):
            return decided
        decided = decided.astype(_common_dtype(self.classes_, self.reject_label))
        decided[self._rejects(X)] = self.reject_label
        return decided

    def predict_proba(self, X: Any) -> Floats:
        """The probability of each class in each row: the tool's class scores. The columns are those of `classes_`."""
        return self._answers(self._checked(X))[0]

    def predict_log_proba(self, X: Any) -> Floats:
        """The logarithm of the probabilities."""
        with np.errstate(divide="ignore"):
            return np.log(self.predict_proba(X))

    def expected_costs(self, X: Any) -> Floats:
        """The expected cost of deciding for each class in each row: the sum over the true classes of probability * cost."""
        return self._answers(self._checked(X))[1]

    def score(self, X: Any, y: Any, sample_weight: Any = None) -> float:
        """The share of right decisions. A rejected row is not right."""
        y = column_or_1d(_plain_labels(y))
        check_consistent_length(X, y, sample_weight)
        right = self.predict(X) == y
        return float(np.average(right, weights=sample_weight))

    def paid_cost(self, X: Any, y: Any, *, normalize: bool = True) -> float:
        """The cost of the decisions on rows of known classes: the mean, or the sum without `normalize`.

        Rejected rows are left out, because `costs` has no cost of rejection. If all are rejected, the result is 0.
        """
        X = self._checked(X)
        paid = self._paid(self._decisions(X), y)
        if hasattr(self, "_reject_limits"):
            paid = paid[~self._rejects(X)]
        return _total(paid, normalize)

    def save(self, path: Path) -> None:
        """Writes the tool into the file `path`, which C++ programs load, and the rest of the estimator into `path` + ".json".

        The tool's labels are the classes if these are integers from 0 to 2^31 - 1. Otherwise they are places in `classes_`, which the
        second file lists.
        """
        check_is_fitted(self)
        save_estimator(self, path)

    @classmethod
    def load(cls: type[Self], path: Path) -> Self:
        """Loads what `save` wrote. The answers are equal to the bit.

        A file without a JSON file beside it comes from a C++ program. Its labels are the classes.
        """
        loaded: Self = load_estimator(cls, path)
        return loaded

    def _checked_training(self, X: Any, y: Any, reset: bool) -> tuple[Any, npt.NDArray[Any]]:
        X, y = validate_data(
            self, X, _plain_labels(y), reset=reset, dtype=[np.float64, np.float32], ensure_all_finite=self._finite
        )
        _check_labels(y)
        return X, y

    def _checked(self, X: Any) -> Any:
        check_is_fitted(self)
        return self._checked_table(X, reset=False)

    def _checked_table(self, X: Any, reset: bool) -> Any:
        return validate_data(
            self, X, reset=reset, dtype=[np.float64, np.float32], ensure_all_finite=self._finite
        )

    def _checked_classes(self, classes: Any, is_first: bool) -> npt.NDArray[Any]:
        if is_first and classes is None:
            raise ValueError("classes must be passed on the first call to partial_fit.")
        stated: npt.NDArray[Any] = self.classes_ if classes is None else np.unique(_plain_labels(classes))
        if is_first:
            return stated
        if not np.array_equal(self.classes_, stated):
            raise ValueError(f"classes {classes!r} are not those of the first call, {self.classes_.tolist()!r}")
        return self.classes_

    def _checked_share(self) -> float | None:
        share = self.reject_quantile
        if share is None:
            return None
        if not _is_number(share) or not 0.0 <= share < 1.0:
            raise ValueError(f"reject_quantile must be None or >= 0 and < 1, not {share!r}")
        return float(share)

    def _take(
        self, tool: ClassifierTool, classes: npt.NDArray[Any], costs: Floats, counts: npt.NDArray[np.int64]
    ) -> None:
        self.tool_ = tool
        self.classes_ = classes
        self.costs_ = costs
        self.class_count_ = np.asarray(counts, dtype=np.int64)
        if hasattr(self, "_reject_limits"):
            del self._reject_limits

    def _retrain(self, costs: Floats) -> None:
        """Replaces the tool by one with the present parameters and these costs."""
        tool = copy(self.tool_)
        tool.retrain(self._params(self.classes_, costs, self.class_count_))
        self.tool_ = tool
        self.costs_ = costs

    def _threads(self) -> int:
        return int(effective_n_jobs(self.n_jobs))

    def _answers(self, X: Any) -> tuple[Floats, Floats]:
        """Probabilities and expected costs of all classes."""
        with progress_bar("predict", self.verbose) as progress:
            rows = self.tool_.run_rows(X, threads=self._threads(), progress=progress)
        probabilities, expected = rows.class_scores, rows.expected_costs
        if len(rows.categories) < len(self.classes_):
            known = np.searchsorted(tool_labels(self.classes_), rows.categories)
            probabilities = np.zeros((len(X), len(self.classes_)))
            probabilities[:, known] = rows.class_scores
            expected = probabilities @ self.costs_
            expected[:, known] = rows.expected_costs
        return probabilities, in_blocks(settle_ties, expected)

    def _decisions(self, X: Any) -> npt.NDArray[np.intp]:
        """The decisions, as places in `classes_`."""
        probabilities, expected = self._answers(X)
        decided: npt.NDArray[np.intp] = in_blocks(decide, expected, probabilities)
        return decided

    def _paid(self, assigned: npt.NDArray[np.intp], y: Any) -> Floats:
        """The cost of each decision. Decisions are places in `classes_`."""
        y = column_or_1d(_plain_labels(y))
        if len(y) != len(assigned):
            raise ValueError(f"X has {len(assigned)} rows, but y has {len(y)} labels")
        true = np.array([class_index(self.classes_, label, "y") for label in y.tolist()], dtype=np.intp)
        return np.asarray(self.costs_[true, assigned])

    def _rejects(self, X: Any) -> npt.NDArray[np.bool_]:
        return np.asarray(np.all(self._typicality(X, False) < self._reject_limits, axis=1))


def _plain_labels(y: Any) -> Any:
    """Whole numbers and truth values of their own type if y holds them as objects or in a nullable type of pandas."""
    dtype = getattr(y, "dtype", None)
    if dtype is None or (isinstance(dtype, np.dtype) and dtype.kind != "O"):
        return y
    labels = np.asarray(y)
    if labels.dtype.kind == "O" and labels.ndim == 1:
        items = labels.tolist()
        # Only then: NumPy would take a truth value among numbers for a number.
        if len({isinstance(item, (bool, np.bool_)) for item in items if isinstance(item, (int, np.integer, np.bool_))}) == 1:
            labels = np.array(items)
    return labels if labels.ndim == 1 and labels.dtype.kind in "biu" else y


def _check_labels(y: npt.NDArray[Any]) -> None:
    """Of objects scikit-learn takes only strings for labels. Here all are labels that can be sorted."""
    try:
        if y.dtype.kind != "O" or type_of_target(y) != "unknown":
            check_classification_targets(y)
        else:
            np.unique(y)
    except TypeError as error:
        raise ValueError(f"labels cannot be sorted: {error}") from None


def _total(paid: Floats, normalize: bool) -> float:
    return float(paid.mean() if normalize and len(paid) else paid.sum())


def _to_tool(y: npt.NDArray[Any], classes: npt.NDArray[Any]) -> npt.NDArray[np.int64]:
    labels = tool_labels(classes)
    if np.array_equal(labels, classes):
        return np.asarray(y, dtype=np.int64)
    return labels[np.searchsorted(classes, y)]


def _common_dtype(classes: npt.NDArray[Any], label: Any) -> np.dtype[Any]:
    """A type that holds the classes and the label unchanged."""
    other = np.asarray(label).dtype
    if classes.dtype.kind == other.kind or {classes.dtype.kind, other.kind} <= set("iuf"):
        return np.result_type(classes.dtype, other)
    return np.dtype(object)


class KNeighborsCostClassifier(_CostClassifier):
    """Votes of the nearest neighbours, decided by expected cost.

    n_neighbors: the number of neighbours that vote. All training rows vote if these are fewer.
    p: the order of the norm that measures distances, any finite number > 0.
    metric: None for that norm, or a function of two arrays that returns a distance (slow, and not stored by `save`).
    costs: None, every mistake costs 1; a matrix cost[true, assigned] over `classes_`, or in the order of its names if it is a data frame
        with names; or a dict {(true, assigned): cost}. Its key "default" gives the cost of all other mistakes, 1 if it is absent.
    n_jobs: the number of threads of predictions. None is 1, -1 all processors.
    reject_quantile: None, or a share. A row is rejected if its last neighbour is farther away than the last neighbours of all but this
        share of the training rows. A training row is not its own neighbour.
    reject_label: the answer of `predict` for rejected rows.
    verbose: shows progress bars if tqdm is installed.

    Missing measurements are refused.
    """

    _technique = "neighbors"

    def __init__(
        self,
        n_neighbors: int = 5,
        *,
        p: float = 2,
        metric: Any = None,
        costs: Any = None,
        n_jobs: int | None = None,
        reject_quantile: float | None = None,
        reject_label: Any = None,
        verbose: bool = False,
    ) -> None:
        self.n_neighbors = n_neighbors
        self.p = p
        self.metric = metric
        self.costs = costs
        self.n_jobs = n_jobs
        self.reject_quantile = reject_quantile
        self.reject_label = reject_label
        self.verbose = verbose

    def recost(self, costs: Any = _KEEP) -> KNeighborsCostClassifier:
        """Takes other costs without a new fit."""
        check_is_fitted(self)
        if not _is_kept(costs):
            self._retrain(cost_matrix(costs, self.classes_))
            self.costs = costs
        return self

    def kneighbors(self, X: Any, n_neighbors: int | None = None, return_distance: bool = True) -> Any:
        """Distances and places in the training data of the nearest rows, in ascending order of distance.

        Of rows at equal distance the later one comes first.
        """
        X = self._checked(X)
        near = self.tool_.neighbors(X, self._count(n_neighbors), threads=self._threads())
        return (near.distances, near.indices) if return_distance else near.indices

    def _count(self, n_neighbors: int | None) -> int:
        count = self.n_neighbors if n_neighbors is None else n_neighbors
        kept = self.tool_.num_patterns
        if not isinstance(count, (int, np.integer)):
            raise ValueError(f"n_neighbors must be an integer >= 1, not {count!r}")
        if not 1 <= count <= kept:
            raise ValueError(f"n_neighbors must be >= 1 and at most the number of training rows, {kept}, not {count}")
        return int(count)

    def _params(self, classes: npt.NDArray[Any], costs: Floats, counts: npt.NDArray[np.int64]) -> KNNParams:
        if isinstance(self.n_neighbors, bool) or not isinstance(self.n_neighbors, (int, np.integer)) or self.n_neighbors < 1:
            raise ValueError(f"n_neighbors must be an integer >= 1, not {self.n_neighbors!r}")
        if not _is_number(self.p) or not 0.0 < self.p < np.inf:
            raise ValueError(f"p must be finite and > 0, not {self.p!r}")
        if self.metric is not None and not callable(self.metric):
            raise ValueError(f"metric must be None or a function of two arrays, not {self.metric!r}")
        metric = Norm(float(self.p)) if self.metric is None else self.metric
        return KNNParams(int(self.n_neighbors), metric, tool_costs(costs, tool_labels(classes)))

    def _typicality(self, X: Any, is_training: bool) -> Floats:
        # A training row is its own nearest neighbour, or one of several at distance 0. It does not count.
        count = min(self.n_neighbors + int(is_training), self.tool_.num_patterns)
        near = self.tool_.neighbors(X, count, threads=self._threads())
        return np.asarray(-near.distances[:, -1:])

    def _limits(self, typicality: Floats, y: npt.NDArray[Any], share: float) -> Floats:
        return np.asarray(np.sort(typicality, axis=0)[int(share * len(y))])


class BayesCostClassifier(_CostClassifier):
    """Bayes with normal or binomial densities, decided by expected cost. NaN is a missing measurement.

    priors: None, the shares of the classes in the training data; "equal"; an array over `classes_`; a dict {class: prior}; or a
        series of pandas with the classes as index.
    costs: as in KNeighborsCostClassifier.
    groups: the measurements that are modelled jointly, by index or name. None, each separately; "all" together; a list of lists; or a
        dict {class: one of these}, where a class that is not named has no groups.
    distribution: "normal" or "binomial" for all measurements, a list with one for each, or a dict {index or name: one}.
    max_values: the largest value of binomial measurements. None is 1; a number, a list with one for each measurement, or a dict
        {index or name: one}.
    n_jobs: the number of threads of predictions. None is 1, -1 all processors.
    reject_quantile: None, or a share. A row is rejected if, for each class, it is less typical than all but this share of the class's
        training rows. The measure is the difference between its log-likelihood and that of the class's mean. This is turned into a
        normal deviate, so that rows with different gaps can be compared (E. B. Wilson, M. M. Hilferty, "The distribution of
        chi-square", 1931).
    reject_label: the answer of `predict` for rejected rows.
    verbose: shows progress bars if tqdm is installed.
    """

    _technique = "bayes"
    _finite = "allow-nan"

    class_prior_: Floats

    def __init__(
        self,
        *,
        priors: Any = None,
        costs: Any = None,
        groups: Any = None,
        distribution: Any = "normal",
        max_values: Any = None,
        n_jobs: int | None = None,
        reject_quantile: float | None = None,
        reject_label: Any = None,
        verbose: bool = False,
    ) -> None:
        self.priors = priors
        self.costs = costs
        self.groups = groups
        self.distribution = distribution
        self.max_values = max_values
        self.n_jobs = n_jobs
        self.reject_quantile = reject_quantile
        self.reject_label = reject_label
        self.verbose = verbose

    def __sklearn_tags__(self) -> Any:
        tags = super().__sklearn_tags__()
        tags.input_tags.allow_nan = True
        return tags

    def _more_tags(self) -> dict[str, bool]:  # before scikit-learn 1.6
        return {"allow_nan": True}

    def recost(self, costs: Any = _KEEP, priors: Any = _KEEP) -> BayesCostClassifier:
        """Takes other costs, other priors or both without a new fit."""
        check_is_fitted(self)
        matrix = self.costs_ if _is_kept(costs) else cost_matrix(costs, self.classes_)
        before = self.priors
        if not _is_kept(priors):
            self.priors = priors
        try:
            self._retrain(matrix)
        except BaseException:
            self.priors = before
            raise
        if not _is_kept(costs):
            self.costs = costs
        self._set_class_prior()
        return self

    def predict_log_proba(self, X: Any) -> Floats:
        """The logarithm of the probabilities, also of those that are too small for a number."""
        joint = self.log_likelihoods(X)
        with np.errstate(divide="ignore"):
            joint += np.log(self.class_prior_)
        joint -= joint.max(axis=1, keepdims=True)
        return np.asarray(joint - np.log(np.exp(joint).sum(axis=1, keepdims=True)))

    def log_likelihoods(self, X: Any) -> Floats:
        """The logarithm of the density of each row in each class. The columns are those of `classes_`."""
        return self._log_likelihoods(self._checked(X))

    def _decisions(self, X: Any) -> npt.NDArray[np.intp]:
        # Log-likelihoods take a third of the time of whole answers. They decide a row if its two least costs differ by more than a part
        # in a million, and if rounding errors of its likelihoods are smaller than that. Whole answers decide the other rows.
        with progress_bar("predict", self.verbose) as progress:
            joint = self._log_likelihoods(X, progress)
        decided: npt.NDArray[np.intp] = in_blocks(self._clear_decisions, joint)
        unclear = decided < 0
        if unclear.any():
            probabilities, expected = self._answers(X[unclear])
            decided[unclear] = in_blocks(decide, expected, probabilities)
        return decided

    def _clear_decisions(self, joint: Floats) -> npt.NDArray[np.intp]:
        """The decisions by log-likelihoods, as places in `classes_`; -1 for rows without a clear decision. Overwrites `joint`."""
        with np.errstate(divide="ignore"):
            joint += np.log(self.class_prior_)
        highest = joint.max(axis=1, keepdims=True)
        joint -= highest
        costs = np.exp(joint, out=joint) @ self.costs_
        decided: npt.NDArray[np.intp] = costs.argmin(axis=1)
        rows = np.arange(len(costs))
        least = costs[rows, decided]
        costs[rows, decided] = np.inf
        unclear = (costs.min(axis=1) <= least * (1.0 + 1e-6)) | ~(np.abs(highest[:, 0]) < 1e6)
        return np.where(unclear, -1, decided)

    def _log_likelihoods(self, X: Any, progress: Any = None) -> Floats:
        known: Floats = self.tool_.log_likelihoods(X, threads=self._threads(), progress=progress)
        if known.shape[1] == len(self.classes_):
            return known
        likelihoods = np.full((len(known), len(self.classes_)), -np.inf)
        likelihoods[:, np.searchsorted(tool_labels(self.classes_), self.tool_.categories)] = known
        return likelihoods

    def _take(
        self, tool: ClassifierTool, classes: npt.NDArray[Any], costs: Floats, counts: npt.NDArray[np.int64]
    ) -> None:
        super()._take(tool, classes, costs, counts)
        self._set_class_prior()

    def _set_class_prior(self) -> None:
        self.class_prior_ = class_priors(self.priors, self.classes_, self.class_count_)

    def _params(self, classes: npt.NDArray[Any], costs: Floats, counts: npt.NDArray[np.int64]) -> BayesParams:
        labels = tool_labels(classes)
        frequencies = tool_frequencies(class_priors(self.priors, classes, counts), labels)
        return BayesParams(
            self._distribution_types(classes, labels), frequencies, tool_costs(costs, labels), FeaturePattern(self._maxima())
        )

    def _distribution_types(self, classes: npt.NDArray[Any], labels: npt.NDArray[np.int64]) -> DistributionTypes:
        default, overrides = self._distributions()
        types = DistributionTypes(default)
        for label in labels.tolist():
            for index in overrides:
                types[label, index] = overrides[index]
        groups = self.groups
        if isinstance(groups, Mapping):
            for name, groups_of_class in groups.items():
                label = int(labels[class_index(classes, name, "groups")])
                self._set_dependent(types, label, groups_of_class)
        else:
            for label in labels.tolist():
                self._set_dependent(types, label, groups)
        return types

    def _set_dependent(self, types: DistributionTypes, label: int, groups: Any) -> None:
        if groups is None:
            return
        if isinstance(groups, str) and groups == "all":
            groups = [range(self.n_features_in_)]
        if isinstance(groups, str) or not isinstance(groups, Iterable):
            raise ValueError(f'groups must be None, "all", lists of measurements or a dict, not {groups!r}')
        grouped: set[int] = set()
        for group in groups:
            if isinstance(group, str) or not isinstance(group, Iterable):
                raise ValueError(f"groups must be lists of measurements, not {group!r}")
            indices = [self._measurement(name, "groups") for name in group]
            if grouped & set(indices) or len(set(indices)) < len(indices):
                raise ValueError("groups must name each measurement only once")
            grouped.update(indices)
            types.set_dependent(label, indices)

    def _distributions(self) -> tuple[DistributionType, dict[int, DistributionType]]:
        """The default type, and the types of the measurements that differ from it."""
        stated = self.distribution
        if isinstance(stated, str) or not isinstance(stated, Iterable):
            return _type(stated), {}
        per_measurement = self._per_measurement(stated, "distribution")
        types = {index: _type(name) for index, name in per_measurement.items()}
        return _TYPES["normal"], {index: type for index, type in types.items() if type != _TYPES["normal"]}

    def _maxima(self) -> Floats:
        """The largest value of each measurement. Only those of binomial measurements matter."""
        maxima = np.ones(self.n_features_in_)
        if self.max_values is not None and np.ndim(self.max_values) == 0 and not isinstance(self.max_values, Mapping):
            maxima[:] = self.max_values
        elif self.max_values is not None:
            for index, value in self._per_measurement(self.max_values, "max_values").items():
                maxima[index] = value
        return maxima

    def _per_measurement(self, stated: Any, parameter: str) -> dict[int, Any]:
        if isinstance(stated, Mapping):
            return {self._measurement(name, parameter): value for name, value in stated.items()}
        values = list(stated)
        if len(values) != self.n_features_in_:
            raise ValueError(f"{parameter} must have one for each of {self.n_features_in_} measurements, not {len(values)}")
        return dict(enumerate(values))

    def _measurement(self, name: Any, parameter: str) -> int:
        """The index of a measurement that is given by name or index."""
        if isinstance(name, str):
            names = getattr(self, "feature_names_in_", np.array([])).tolist()
            if name not in names:
                raise ValueError(f"{parameter} names the measurement {name!r}, which is not among {names!r}")
            return int(names.index(name))
        if not _is_number(name) or name not in range(self.n_features_in_):
            raise ValueError(f"{parameter} names the measurement {name!r} of {self.n_features_in_}")
        return int(name)

    def _typicality(self, X: Any, is_training: bool) -> Floats:
        gaps, which = np.unique(np.isnan(X), axis=0, return_inverse=True)
        highest = self._highest_likelihoods(gaps)[which.reshape(-1)]
        squared = np.maximum(2.0 * (highest - self._log_likelihoods(X)), 0.0)
        valid = (~gaps).sum(axis=1)[which.reshape(-1)].reshape(-1, 1)
        with np.errstate(divide="ignore", invalid="ignore"):
            deviates = (np.cbrt(squared / valid) - 1.0 + 2.0 / (9.0 * valid)) / np.sqrt(2.0 / (9.0 * valid))
        # NaN for a row without measurements. It is below no limit, and sorts behind all numbers in training.
        return np.asarray(-deviates)

    def _highest_likelihoods(self, gaps: npt.NDArray[np.bool_]) -> Floats:
        """The log-likelihood of each class's mean, for each row of `gaps` without its missing measurements."""
        means = np.full((len(self.classes_), self.n_features_in_), np.nan)
        maxima = self._maxima()
        places = dict(zip(tool_labels(self.classes_).tolist(), range(len(self.classes_))))
        for density in self.tool_.densities():
            measurements = list(density.measurements)
            is_normal = density.type == DistributionType.NORMAL
            mean = density.mean if is_normal else density.theta * maxima[measurements]
            means[places[density.label], measurements] = mean
        highest = np.empty((len(gaps), len(means)))
        for place, mean in enumerate(means):
            highest[:, place] = self._log_likelihoods(np.where(gaps, np.nan, mean))[:, place]
        return highest

    def _limits(self, typicality: Floats, y: npt.NDArray[Any], share: float) -> Floats:
        own = [np.sort(typicality[y == label, place]) for place, label in enumerate(self.classes_)]
        return np.array([values[int(share * len(values))] for values in own])


def _is_kept(value: Any) -> bool:
    return isinstance(value, str) and value == _KEEP


def _is_number(value: Any) -> bool:
    return isinstance(value, Real) and not isinstance(value, bool)


def _type(name: Any) -> DistributionType:
    if not isinstance(name, str) or name not in _TYPES:
        raise ValueError(f'distribution must be "normal" or "binomial", not {name!r}')
    return _TYPES[name]


def fit_stream(estimator: Self, batches: Iterable[tuple[Any, Any]], classes: Any, *, rows: int | None = None) -> Self:
    """Learns batch after batch by `partial_fit`, so the rows need not fit into memory together.

    batches: pairs of X and y, for example from a generator that reads a file. Pairs without rows are skipped.
    classes: all labels that will ever occur.
    rows: the number of all rows, for the progress bar of `verbose`. With None the bar shows only the rows done.

    If a batch is refused, a ValueError is raised that begins with the batch's number, counted from 0. The batches before it, or before
    Ctrl-C, stay learnt.
    """
    learn, done = estimator.partial_fit, 0
    with progress_bar("fit", estimator.verbose) as progress:
        for number, (X, y) in enumerate(batches):
            if len(X) == 0:
                continue
            try:
                learn(X, y, classes)
            except Exception as error:
                raise ValueError(f"batch {number}: {error}") from error
            done += len(X)
            if progress is not None:
                progress(done, rows)
    check_is_fitted(estimator, msg="the batches have no rows")
    return estimator
