"""Classifiers on Dask collections: arrays and data frames that are larger than the memory of one machine.

`predict`, `predict_proba` and `expected_costs` apply a model that was fitted elsewhere. They are lazy and work block by block. The answers
are equal to the bit to those for NumPy arrays. A `dask.array` gives an array, a `dask.dataframe` a series or a data frame with the same
index. The model is one node of the graph, so it is not sent with each block.

An error in a partition is raised when the collection is computed. Its text begins with the partition's number, counted from 0. Of Parquet
files with few of their columns, `predict` and its relatives take several as one partition, as Dask reads them.

Threads: as for the estimators of `clastool.sklearn`.
"""

from __future__ import annotations

import os
from collections.abc import Iterator, Mapping
from contextlib import contextmanager
from copy import copy
from typing import Any, NamedTuple

import dask.array as da
import dask.dataframe as dd
import numpy as np
import numpy.typing as npt
import pandas as pd
from dask import config, is_dask_collection
from dask.delayed import delayed
from dask.highlevelgraph import HighLevelGraph
from distributed.protocol.pickle import dumps, loads
from sklearn.utils.validation import assert_all_finite, check_is_fitted, column_or_1d

from . import BayesParams, ClassifierTool, Costs, FeaturePattern, Frequencies, KNNParams, sklearn
from ._dask_files import load_shards, save_shards
from ._dask_shards import NO_NEIGHBORS, ShardedTool, decided, persisted, run
from ._decision import cost_matrix, decide, settle_ties, tool_labels
from ._tables import Neighbors
from .sklearn import _check_labels, _plain_labels, _to_tool, _total

__all__ = ["BayesCostClassifier", "KNeighborsCostClassifier", "expected_costs", "predict", "predict_proba"]

# How many models, or counts of labels, are merged at once.
_BRANCHES = 8


def predict(model: Any, X: Any) -> Any:
    """The class that the model decides for in each row.

    model: a fitted estimator, or a `ClassifierTool`, which answers with its labels. X: a Dask array or data frame with a column for each
    measurement. Chunk sizes may be unknown, and partitions empty.
    """
    return _applied(model, X, "predict")


def predict_proba(model: Any, X: Any) -> Any:
    """The probability of each class in each row. The columns are those of the model's `classes_`, or of the `categories` of a tool."""
    return _applied(model, X, "predict_proba")


def expected_costs(model: Any, X: Any) -> Any:
    """The expected cost of deciding for each class in each row. The columns are those of `predict_proba`."""
    return _applied(model, X, "expected_costs")


def _applied(model: Any, X: Any, method: str) -> Any:
    if _is_lazy(X) and isinstance(getattr(model, "tool_", None), ShardedTool):
        return _applied_to_shards(model, X, method)
    if isinstance(X, dd.DataFrame):
        return _applied_to_frame(model, X, method)
    if isinstance(X, da.Array):
        return _applied_to_array(model, X, method)
    raise TypeError(f"X must be a Dask array or a Dask data frame, not {type(X).__name__}")


def _applied_to_frame(model: Any, X: Any, method: str) -> Any:
    _require_columns(model, len(X.columns))
    sample = pd.DataFrame(np.zeros((1, len(X.columns))), columns=X.columns)
    empty = _answers(model, sample, method)[:0]
    meta = _table(empty, X._meta.index, model)
    parts = {"model": _on_workers(model), "method": method, "empty": empty, "columns": _columns(X), "meta": meta}
    return X.map_partitions(_answered_table, **parts)


def _applied_to_array(model: Any, X: Any, method: str) -> Any:
    _require_two_dimensions(X)
    _require_columns(model, X.shape[1])
    X = X.rechunk({1: -1})
    empty = _answers(model, np.zeros((1, X.shape[1])), method)[:0]
    shape: dict[str, Any] = {"drop_axis": 1} if empty.ndim == 1 else {"chunks": (X.chunks[0], (empty.shape[1],))}
    return X.map_blocks(_answered, model=_on_workers(model), method=method, empty=empty, dtype=empty.dtype, meta=empty, **shape)


def _on_workers(value: Any) -> Any:
    """The value as a node of a graph. The scheduler passes it on as bytes, which it does not read."""
    return delayed(loads)(dumps(value))


def _applied_to_shards(model: Any, X: Any, method: str) -> Any:
    light, params = _on_workers(_without_tool(model)), _on_workers(model.tool_.params)
    answers = [delayed(_decided)(near, light, params, method) for near in _neighbors_of(model, X)]
    empty = _decided(NO_NEIGHBORS, model, model.tool_.params, method)
    if not isinstance(X, dd.DataFrame):
        return _joined(answers, X, empty)
    tables = [
        delayed(_table)(answer, table.index, light) for answer, table in zip(answers, _parts(X))
    ]
    return dd.from_delayed(tables, meta=_table(empty, X._meta.index, model), divisions=X.divisions, verify_meta=False)


def _neighbors_of(model: Any, X: Any, k: int | None = None) -> list[Any]:
    """The neighbours of the rows of each partition, delayed."""
    _require_two_dimensions(X)
    _require_columns(model, X.shape[1])
    if isinstance(X, da.Array):
        X = X.rechunk({1: -1})
    light, columns, tool = _on_workers(_without_tool(model)), _columns(X), model.tool_
    if not isinstance(tool, ShardedTool):
        tool = ShardedTool([[_on_workers(tool)]], [tool.num_patterns], tool.params, tool.category_counts, tool.num_measurements)
    else:
        tool.require_shards()
    return [
        tool.nearest(delayed(_checked_rows)(table, light, columns, number), k, number)
        for number, table in enumerate(_parts(X))
    ]


def _without_tool(model: Any) -> Any:
    light = copy(model)
    vars(light).pop("tool_", None)
    return light


def _checked_rows(table: Any, model: Any, columns: Any, number: int) -> Any:
    with _in_partition(number):
        _require_two_dimensions(table)
        _require_columns(model, table.shape[1])
        _require_layout(table, columns)
        # The estimators refuse tables without rows.
        return model._checked(table) if len(table) else np.empty((0, table.shape[1]))


def _decided(near: Neighbors, model: Any, params: KNNParams, method: str) -> npt.NDArray[Any]:
    rows = decided(near.labels, params, tool_labels(model.classes_))
    if method == "predict_proba":
        return rows.class_scores
    expected = settle_ties(rows.expected_costs)
    return expected if method == "expected_costs" else np.asarray(model.classes_[decide(expected, rows.class_scores)])


def _joined(parts: list[Any], X: Any, empty: npt.NDArray[Any]) -> Any:
    """The arrays of all partitions as one, in the same partitions."""
    rows = X.chunks[0] if isinstance(X, da.Array) else (np.nan,) * len(parts)
    name = f"joined-{parts[0].key}"
    zeros = (0,) * (empty.ndim - 1)
    graph = {(name, number, *zeros): part.key for number, part in enumerate(parts)}
    layers = HighLevelGraph.from_collections(name, graph, dependencies=parts)
    return da.Array(layers, name, (rows, *((size,) for size in empty.shape[1:])), meta=empty)


def _answered(
    block: Any, model: Any, method: str, empty: npt.NDArray[Any], block_id: tuple[int, ...] = (0,)
) -> npt.NDArray[Any]:
    with _in_partition(block_id[0]):
        _require_two_dimensions(block)
        _require_columns(model, block.shape[1])
        # The estimators refuse tables without rows.
        return np.asarray(_answers(model, block, method)) if len(block) else empty


def _answered_table(
    table: Any,
    model: Any,
    method: str,
    empty: npt.NDArray[Any],
    columns: Any,
    partition_info: dict[str, int] | None = None,
) -> Any:
    number = 0 if partition_info is None else partition_info["number"]
    with _in_partition(number):
        _require_columns(model, table.shape[1])
        _require_layout(table, columns)
    return _table(_answered(table, model, method, empty, (number,)), table.index, model)


def _answers(model: Any, X: Any, method: str) -> npt.NDArray[Any]:
    if not isinstance(model, ClassifierTool):
        return np.asarray(getattr(model, method)(X))
    rows = model.run_rows(X, only_labels=method == "predict")
    return {"predict": rows.labels, "predict_proba": rows.class_scores, "expected_costs": rows.expected_costs}[method]


def _table(answers: npt.NDArray[Any], index: Any, model: Any) -> Any:
    """The answers with the index of the rows."""
    if answers.ndim == 1:
        # Of objects that are all strings pandas would make strings, and of None among them NaN.
        return pd.Series(answers, index=index, dtype=object if answers.dtype == object else None)
    return pd.DataFrame(answers, index=index, columns=model.categories if isinstance(model, ClassifierTool) else model.classes_)


def _require_columns(model: Any, columns: float) -> None:
    if not isinstance(model, ClassifierTool) and not hasattr(model, "n_features_in_"):
        check_is_fitted(model)
    known = model.num_measurements if isinstance(model, ClassifierTool) else model.n_features_in_
    # The number is 0 for a decision tree, which does not know how many measurements a pattern has.
    if known and columns != known:
        raise ValueError(f"X has {columns} columns, but the model was trained on {known}")


def _require_two_dimensions(X: Any) -> None:
    if X.ndim != 2:
        raise ValueError(f"X must have two dimensions, not {X.ndim}")


def _columns(X: Any) -> Any:
    """The names of a data frame's columns; the number of an array's columns."""
    return list(X.columns) if isinstance(X, dd.DataFrame) else X.shape[1]


def _require_layout(table: Any, columns: Any) -> None:
    """Refuses a partition with other columns than the collection declares. Dask does not always check that."""
    _require_two_dimensions(table)
    expected = len(columns) if isinstance(columns, list) else columns
    if table.shape[1] != expected:
        raise ValueError(f"X has {table.shape[1]} columns, but {expected} are expected")
    if isinstance(columns, list) and list(table.columns) != columns:
        raise ValueError(f"columns are {list(table.columns)}, but {columns} are expected")


@contextmanager
def _in_partition(number: int) -> Iterator[None]:
    """Turns an error inside into a ValueError that begins with the number of the partition."""
    try:
        yield
    except Exception as error:
        raise ValueError(f"partition {number}: {error}") from error


class _OnDask(sklearn._CostClassifier):
    """The answers of the estimators to Dask collections. Arrays go to the estimators of `clastool.sklearn`."""

    feature_names_in_: Any

    def predict(self, X: Any) -> Any:
        """The class of least expected cost for each row."""
        return predict(self, X) if _is_lazy(X) else super().predict(X)

    def predict_proba(self, X: Any) -> Any:
        """The probability of each class in each row."""
        return predict_proba(self, X) if _is_lazy(X) else super().predict_proba(X)

    def expected_costs(self, X: Any) -> Any:
        """The expected cost of deciding for each class in each row."""
        return expected_costs(self, X) if _is_lazy(X) else super().expected_costs(X)

    def score(self, X: Any, y: Any, sample_weight: Any = None) -> float:
        """The share of right decisions. Of Dask collections, only the decisions and the labels come to this process."""
        if not _is_lazy(X):
            return super().score(X, y, sample_weight)
        decided, y = _computed(predict(self, X), y)
        return float(np.average(np.asarray(decided) == column_or_1d(_plain_labels(y)), weights=sample_weight))

    def paid_cost(self, X: Any, y: Any, *, normalize: bool = True) -> float:
        """The cost of the decisions on rows of known classes: the mean, or the sum without `normalize`.

        Of Dask collections, only the decisions and the labels come to this process; all rows if rows may be rejected.
        """
        if not _is_lazy(X) or hasattr(self, "_reject_limits"):
            return super().paid_cost(X, y, normalize=normalize)
        decided, y = _computed(predict(self, X), y)
        return _total(self._paid(np.searchsorted(self.classes_, np.asarray(decided)), y), normalize)

    def _take_names(self, X: Any) -> None:
        self.n_features_in_ = X.shape[1]
        if hasattr(self, "feature_names_in_"):
            del self.feature_names_in_
        if isinstance(X, dd.DataFrame) and all(isinstance(name, str) for name in X.columns):
            self.feature_names_in_ = np.asarray(X.columns, dtype=object)


class BayesCostClassifier(_OnDask, sklearn.BayesCostClassifier):
    """Bayes, fitted on Dask collections: a model for each partition, merged as a tree.

    Parameters and methods are those of `clastool.sklearn.BayesCostClassifier`. Up to rounding, the result is what one machine learns from
    all rows, for any partitions. A worker needs memory for a partition and the models. For a Dask collection, `predict`,
    `predict_proba` and `expected_costs` are lazy, as the functions of this module are.
    """

    def fit(self, X: Any, y: Any) -> BayesCostClassifier:
        """Learns from labelled rows. The fit is not lazy.

        X: a Dask array or data frame. y: a Dask array or series with the same partitions. Arrays of known chunk sizes are rechunked to
        fit. Partitions may be empty or lack classes. Each partition is learnt by itself. If the results do not fit together, because
        partitions hold different classes, the partitions are learnt again with the classes of all. Anything else than Dask collections
        goes to the estimator of `clastool.sklearn`. An error leaves the estimator as it was.
        """
        if not _is_lazy(X):
            return super().fit(X, y)
        if self.reject_quantile is not None:
            raise ValueError("reject_quantile needs all training rows at once: fit without Dask")
        before = dict(vars(self))
        try:
            self._fit_partitions(X, y)
        except BaseException:
            self.__dict__ = before
            raise
        return self

    def _fit_partitions(self, X: Any, y: Any) -> None:
        tables, labels = _partitions(X, y)
        self._take_names(X)
        columns = _columns(X)
        alone = self._learnt_alone(tables, labels, columns)
        classes, counts = _classes(alone.counts)
        costs = cost_matrix(self.costs, classes)
        params = self._params(classes, costs, counts)
        tool = alone.tool
        if tool is None:
            params.throw_if_not_ready = False
            shared = _on_workers((params, classes, columns))
            tool = _reduced(_merged, [delayed(_learnt)(*each, shared, number) for number, each in enumerate(zip(tables, labels))])
            params.throw_if_not_ready = True
        tool.retrain(params)
        self._take(tool, classes, costs, counts)

    def _learnt_alone(self, tables: list[Any], labels: list[Any], columns: Any) -> _Learnt:
        """What the partitions teach, each with its own classes."""
        if isinstance(self.groups, Mapping):
            # It may name classes that a partition lacks.
            return _Learnt(_counts(labels), None)
        shared = _on_workers((_without_tool(self), columns))
        parts = [delayed(_learnt_by_itself)(*each, shared, number) for number, each in enumerate(zip(tables, labels))]
        learnt: _Learnt = _reduced(_merged_learnt, parts)
        return learnt

    def predict_log_proba(self, X: Any) -> Any:
        """The logarithm of the probabilities, also of those that are too small for a number."""
        return _applied(self, X, "predict_log_proba") if _is_lazy(X) else super().predict_log_proba(X)

    def log_likelihoods(self, X: Any) -> Any:
        """The logarithm of the density of each row in each class. The columns are those of `classes_`."""
        return _applied(self, X, "log_likelihoods") if _is_lazy(X) else super().log_likelihoods(X)


class KNeighborsCostClassifier(_OnDask, sklearn.KNeighborsCostClassifier):
    """Nearest neighbours, fitted on Dask collections. Each partition becomes a shard, which stays on a worker and is searched there.

    Parameters, methods and answers are those of `clastool.sklearn.KNeighborsCostClassifier`; the answers are equal to the bit. `predict`,
    `predict_proba`, `expected_costs` and `kneighbors` compute answers for arrays at once. For Dask collections they are lazy. A worker
    needs memory for its shards, a partition and a block of rows. When a worker is lost, the others compute its shards again from the
    source of the data.

    Each shard is a `ClassifierTool` on a worker. `tool_` represents all of them. `recost` needs no work on the workers. `partial_fit`
    and `reject_quantile` are refused.
    """

    def fit(self, X: Any, y: Any) -> KNeighborsCostClassifier:
        """Stores labelled rows in shards. The fit is not lazy.

        X, y: as in `BayesCostClassifier.fit`. A partition becomes a shard, unless it is empty.
        """
        if not _is_lazy(X):
            super().fit(X, y)
            return self
        if self.reject_quantile is not None:
            raise ValueError("reject_quantile needs all training rows at once: fit without Dask")
        tables, labels = _partitions(X, y)
        classes, counts = _classes(_counts(labels))
        costs = cost_matrix(self.costs, classes)
        shared = _on_workers((self._params(classes, costs, counts), classes, _columns(X)))
        kind = sklearn.KNeighborsCostClassifier
        stored = [
            delayed(_learnt)(table, part, shared, number, kind) for number, (table, part) in enumerate(zip(tables, labels))
        ]
        shards, rows = persisted(stored)
        self._take_names(X)
        self._take_shards(shards, rows, classes, costs, counts)
        return self

    def kneighbors(self, X: Any, n_neighbors: int | None = None, return_distance: bool = True) -> Any:
        """Distances and places in the training data of the nearest rows, in ascending order of distance.

        Of rows at equal distance the later one comes first. For a Dask collection the result is Dask arrays.
        """
        if not _is_lazy(X):
            return super().kneighbors(X, n_neighbors, return_distance)
        check_is_fitted(self)
        count = self._count(n_neighbors)
        near = _neighbors_of(self, X, count)
        indices = _joined([part.indices for part in near], X, np.empty((0, count), dtype=np.int64))
        if not return_distance:
            return indices
        return _joined([part.distances for part in near], X, np.empty((0, count))), indices

    def replicate(self, copies: int) -> KNeighborsCostClassifier:
        """Keeps each shard on `copies` workers, or on all if these are fewer.

        Blocks of rows go to the copies in turn, so that a search can use more processors. 1 gives the copies up.
        """
        check_is_fitted(self)
        if copies < 1:
            raise ValueError(f"copies must be >= 1, not {copies!r}")
        if isinstance(self.tool_, ShardedTool):
            self.tool_ = self.tool_.replicated(copies)
        return self

    def save(self, path: Any) -> None:
        """Writes the shards into the folder `path`: an archive for each, which C++ programs load, and `index.json`.

        All workers must reach the folder. An estimator that was fitted without Dask writes the files of `clastool.sklearn`.
        """
        check_is_fitted(self)
        if not isinstance(self.tool_, ShardedTool):
            super().save(path)
            return
        save_shards(self, os.fspath(path))

    @classmethod
    def load(cls, path: Any) -> Any:
        """Loads what `save` wrote. From a folder, each worker loads its shards."""
        return load_shards(cls, os.fspath(path)) if os.path.isdir(path) else super().load(path)

    def _take_shards(self, shards: list[Any], rows: list[int], classes: Any, costs: Any, counts: Any) -> None:
        category_counts = dict(zip(tool_labels(classes).tolist(), counts.tolist()))
        params = self._params(classes, costs, counts)
        tool: Any = ShardedTool([[shard] for shard in shards], rows, params, category_counts, self.n_features_in_)
        self._take(tool, classes, costs, counts)


def _is_lazy(X: Any) -> bool:
    return isinstance(X, (da.Array, dd.DataFrame))


def _computed(*values: Any) -> list[Any]:
    """The values, of which Dask collections are computed."""
    done = iter(run([value for value in values if is_dask_collection(value)]))
    return [next(done) if is_dask_collection(value) else value for value in values]


def _partitions(X: Any, y: Any) -> tuple[list[Any], list[Any]]:
    """The partitions of both, as delayed tables and labels."""
    if not isinstance(y, (da.Array, dd.Series)) or y.ndim != 1:
        raise TypeError(f"y must be a Dask array of one dimension or a Dask series, not {type(y).__name__}")
    _require_two_dimensions(X)
    if isinstance(X, da.Array):
        X = X.rechunk({1: -1})
        if isinstance(y, da.Array) and not np.isnan(X.shape[0] + y.shape[0]):
            if X.shape[0] != y.shape[0]:
                raise ValueError(f"X has {X.shape[0]} rows, but y has {y.shape[0]} labels")
            y = y.rechunk({0: X.chunks[0]})
    tables, labels = _parts(X), _parts(y)
    if len(tables) != len(labels):
        raise ValueError(f"X has {len(tables)} partitions, but y has {len(labels)}")
    return tables, labels


def _parts(collection: Any) -> list[Any]:
    """The partitions as delayed values."""
    with _partitions_kept():
        parts: list[Any] = np.ravel(collection.to_delayed()).tolist()
    return parts


def _partitions_kept() -> Any:
    """Stops Dask from reading several Parquet files as one partition when few of their columns are used.

    Otherwise the partitions of X and y would hold different rows.
    """
    return config.set({"optimization.tune.active": False})


class _Counts(NamedTuple):
    """The labels of some partitions, the number of rows of each, and for each kind of labels the first partition that has it.

    Labels of different kinds are refused, so labels and numbers are left out if there is more than one kind.
    """

    labels: npt.NDArray[Any]
    rows: npt.NDArray[np.int64]
    kinds: dict[str, int]


def _counts(labels: list[Any]) -> _Counts:
    """The labels of all partitions."""
    counts: _Counts = _reduced(_counts_joined, [delayed(_counted)(part, number) for number, part in enumerate(labels)])
    return counts


def _classes(counts: _Counts) -> tuple[npt.NDArray[Any], npt.NDArray[np.int64]]:
    """All labels, and the number of rows of each."""
    if not counts.kinds:
        raise ValueError("y has no labels")
    (first_kind, first), *others = counts.kinds.items()
    if others:
        kind, number = others[0]
        raise ValueError(f"partition {number}: labels are {kind}, but those of partition {first} are {first_kind}")
    return counts.labels, counts.rows


def _counted(part: Any, number: int) -> _Counts:
    with _in_partition(number):
        labels = np.asarray(_plain_labels(part))
        # Integers and strings are labels. The check of other types takes twice as long as counting.
        if len(labels) and (labels.ndim != 1 or labels.dtype.kind not in "biuU"):
            assert_all_finite(labels, input_name="y")
            _check_labels(labels)
        known, rows = np.unique(labels, return_counts=True)
        return _Counts(known, rows, {_kind(known): number} if len(known) else {})


def _counts_joined(counted: list[_Counts]) -> _Counts:
    kinds: dict[str, int] = {}
    for part in counted:
        for kind, number in part.kinds.items():
            kinds.setdefault(kind, number)
    if len(kinds) != 1:
        return _Counts(np.empty(0), np.empty(0, dtype=np.int64), kinds)
    shown = [part for part in counted if len(part.labels)]
    labels, places = np.unique(np.concatenate([part.labels for part in shown]), return_inverse=True)
    rows = np.zeros(len(labels), dtype=np.int64)
    np.add.at(rows, places, np.concatenate([part.rows for part in shown]))
    return _Counts(labels, rows, kinds)


def _reduced(work: Any, tasks: list[Any]) -> Any:
    """The results of all tasks, which `work` joins in groups of neighbours until one is left. The workers do it."""
    while len(tasks) > 1:
        tasks = [delayed(work)(tasks[first : first + _BRANCHES]) for first in range(0, len(tasks), _BRANCHES)]
    (result,) = run(tasks)
    return result


def _kind(labels: npt.NDArray[Any]) -> str:
    names = {"b": "booleans", "i": "numbers", "u": "numbers", "f": "numbers", "U": "strings"}
    if labels.dtype.kind in names:
        return names[labels.dtype.kind]
    return "strings" if all(isinstance(label, str) for label in labels) else "objects"


def _learnt(table: Any, part: Any, shared: Any, number: int, kind: Any = sklearn.BayesCostClassifier) -> ClassifierTool:
    """A tool that is trained on a partition; untrained if the partition is empty."""
    params, classes, columns = shared
    tool = ClassifierTool()
    with _in_partition(number):
        _require_layout(table, columns)
        if len(table) != len(part):
            raise ValueError(f"X has {len(table)} rows, but y has {len(part)} labels")
        if len(table):
            X = kind()._checked_table(table, reset=True)
            # The first pass has checked the labels.
            tool.train(X, _to_tool(column_or_1d(_plain_labels(part)), classes), params)
    return tool


class _Learnt(NamedTuple):
    """The labels of some partitions, and a tool that has learnt all their rows; None if there is no such tool."""

    counts: _Counts
    tool: ClassifierTool | None


def _learnt_by_itself(table: Any, part: Any, shared: Any, number: int) -> _Learnt:
    model, columns = shared
    counts = _counted(part, number)
    with _in_partition(number):
        params = _params_of(model, counts.labels) if len(counts.labels) else None
    return _Learnt(counts, _learnt(table, part, (params, counts.labels, columns), number))


def _params_of(model: Any, classes: npt.NDArray[Any]) -> BayesParams:
    """What learning needs. Priors and costs are for the classes of all partitions."""
    types = model._distribution_types(classes, tool_labels(classes))
    params = BayesParams(types, Frequencies(1.0), Costs(1.0), FeaturePattern(model._maxima()))
    params.throw_if_not_ready = False
    return params


def _merged_learnt(parts: list[_Learnt]) -> _Learnt:
    counts = _counts_joined([part.counts for part in parts])
    tools = [part.tool for part in parts if part.tool is not None]
    fit = len(counts.kinds) == 1 and len(tools) == len(parts) and _fit_together(parts, tools, counts.labels)
    return _Learnt(counts, _merged(tools) if fit else None)


def _fit_together(parts: list[_Learnt], tools: list[ClassifierTool], classes: npt.NDArray[Any]) -> bool:
    """Whether the tools name each class by its label among all classes, and have learnt by equal parameters."""
    labels = [part.counts.labels for part in parts]
    params = [tool.params for tool in tools if tool.is_trained]
    same = all(np.array_equal(_to_tool(own, classes), tool_labels(own)) for own in labels if len(own))
    return same and all(each == params[0] for each in params)


def _merged(tools: list[ClassifierTool]) -> ClassifierTool:
    trained = [tool for tool in tools if tool.is_trained]
    if not trained:
        return tools[0]
    first = copy(trained[0])
    for tool in trained[1:]:
        first.merge(tool)
    return first
