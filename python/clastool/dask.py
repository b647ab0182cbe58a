"""Classifiers on Dask collections: arrays and data frames that are larger than the memory of one machine.

`predict`, `predict_proba` and `expected_costs` apply what was fitted elsewhere. They are lazy and go block by block; the answers are those
of NumPy arrays to the bit. Of a `dask.array` they make arrays, of a `dask.dataframe` a series or a data frame with the same index. The
model is one node of the graph, so that it is not sent with each block.

An error in a partition is raised when the collection is computed; its text begins with the partition's number, counted from 0.

Threads: as for the estimators of `clastool.sklearn`.
"""

from __future__ import annotations

from collections.abc import Iterator
from contextlib import contextmanager
from copy import copy
from typing import Any

import dask.array as da
import dask.dataframe as dd
import numpy as np
import numpy.typing as npt
import pandas as pd
from dask import compute
from dask.delayed import delayed
from sklearn.utils.multiclass import check_classification_targets

from . import ClassifierTool, sklearn
from ._decision import cost_matrix
from .sklearn import _to_tool

__all__ = ["BayesCostClassifier", "expected_costs", "predict", "predict_proba"]

# How many models are merged at once.
_BRANCHES = 8


def predict(model: Any, X: Any) -> Any:
    """The class that the model decides for in each row.

    model: a fitted estimator, or a `ClassifierTool`, whose labels are the answer. X: a Dask array with a column for each measurement,
    also of unknown chunk sizes, or a Dask data frame; partitions may be empty.
    """
    return _applied(model, X, "predict")


def predict_proba(model: Any, X: Any) -> Any:
    """The probability of each class in each row, columns as in the model's `classes_`, or the `categories` of a tool."""
    return _applied(model, X, "predict_proba")


def expected_costs(model: Any, X: Any) -> Any:
    """What deciding for each class costs on average in each row, columns as in `predict_proba`."""
    return _applied(model, X, "expected_costs")


def _applied(model: Any, X: Any, method: str) -> Any:
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
    return X.map_partitions(_answered_table, model=delayed(model), method=method, empty=empty, meta=meta)


def _applied_to_array(model: Any, X: Any, method: str) -> Any:
    if X.ndim != 2:
        raise ValueError(f"X must have two dimensions, not {X.ndim}")
    _require_columns(model, X.shape[1])
    X = X.rechunk({1: -1})
    empty = _answers(model, np.zeros((1, X.shape[1])), method)[:0]
    shape: dict[str, Any] = {"drop_axis": 1} if empty.ndim == 1 else {"chunks": (X.chunks[0], (empty.shape[1],))}
    return X.map_blocks(_answered, model=delayed(model), method=method, empty=empty, dtype=empty.dtype, meta=empty, **shape)


def _answered(
    block: Any, model: Any, method: str, empty: npt.NDArray[Any], block_id: tuple[int, ...] = (0,)
) -> npt.NDArray[Any]:
    with _in_partition(block_id[0]):
        _require_columns(model, block.shape[1])
        # The estimators refuse tables without rows.
        return np.asarray(_answers(model, block, method)) if len(block) else empty


def _answered_table(
    table: Any, model: Any, method: str, empty: npt.NDArray[Any], partition_info: dict[str, int] | None = None
) -> Any:
    number = 0 if partition_info is None else partition_info["number"]
    return _table(_answered(table, model, method, empty, (number,)), table.index, model)


def _answers(model: Any, X: Any, method: str) -> npt.NDArray[Any]:
    if not isinstance(model, ClassifierTool):
        return np.asarray(getattr(model, method)(X))
    rows = model.run_rows(X, only_labels=method == "predict")
    return {"predict": rows.labels, "predict_proba": rows.class_scores, "expected_costs": rows.expected_costs}[method]


def _table(answers: npt.NDArray[Any], index: Any, model: Any) -> Any:
    """The answers with the index of the rows."""
    if answers.ndim == 1:
        return pd.Series(answers, index=index)
    return pd.DataFrame(answers, index=index, columns=model.categories if isinstance(model, ClassifierTool) else model.classes_)


def _require_columns(model: Any, columns: float) -> None:
    known = model.num_measurements if isinstance(model, ClassifierTool) else model.n_features_in_
    # A decision tree does not say how many it looks at.
    if known and columns != known:
        raise ValueError(f"X has {columns} columns, but the model was trained on {known}")


@contextmanager
def _in_partition(number: int) -> Iterator[None]:
    """Whatever is refused inside is refused with the number of the partition."""
    try:
        yield
    except Exception as error:
        raise ValueError(f"partition {number}: {error}") from error


class BayesCostClassifier(sklearn.BayesCostClassifier):
    """Bayes, fitted on Dask collections: a model for each partition, merged as a tree.

    Parameters and methods are those of `clastool.sklearn.BayesCostClassifier`. The result is what one machine learns from all rows,
    up to rounding, however they are partitioned. A worker needs memory for a partition and the models. `predict`, `predict_proba`
    and `expected_costs` of a Dask collection are lazy, as the functions of this module.
    """

    feature_names_in_: Any

    def fit(self, X: Any, y: Any) -> BayesCostClassifier:
        """Learns from labelled rows, at once.

        X: a Dask array or data frame. y: a Dask array or series with as many partitions, whose rows belong together; arrays of known
        chunk sizes are made to fit. Partitions may be empty or lack classes. y is read first, on its own. Anything else goes to the
        estimator of `clastool.sklearn`.
        """
        if not _is_lazy(X):
            return super().fit(X, y)
        if self.reject_quantile is not None:
            raise ValueError("reject_quantile needs all training rows at once: fit without Dask")
        tables, labels = _partitions(X, y)
        classes, counts = _classes(labels)
        self._take_names(X)
        costs = cost_matrix(self.costs, classes)
        params = self._params(classes, costs, counts)
        params.throw_if_not_ready = False
        shared = delayed((params, classes, self.n_features_in_))
        learnt = [delayed(_learnt)(table, part, shared, number) for number, (table, part) in enumerate(zip(tables, labels))]
        while len(learnt) > 1:
            learnt = [delayed(_merged)(learnt[first : first + _BRANCHES]) for first in range(0, len(learnt), _BRANCHES)]
        tool = learnt[0].compute()
        params.throw_if_not_ready = True
        tool.retrain(params)
        self._take(tool, classes, costs, counts)
        return self

    def predict(self, X: Any) -> Any:
        """The class of least expected cost for each row."""
        return predict(self, X) if _is_lazy(X) else super().predict(X)

    def predict_proba(self, X: Any) -> Any:
        """The probability of each class in each row."""
        return predict_proba(self, X) if _is_lazy(X) else super().predict_proba(X)

    def expected_costs(self, X: Any) -> Any:
        """What deciding for each class costs on average in each row."""
        return expected_costs(self, X) if _is_lazy(X) else super().expected_costs(X)

    def _take_names(self, X: Any) -> None:
        self.n_features_in_ = X.shape[1]
        if hasattr(self, "feature_names_in_"):
            del self.feature_names_in_
        if isinstance(X, dd.DataFrame) and all(isinstance(name, str) for name in X.columns):
            self.feature_names_in_ = np.asarray(X.columns, dtype=object)


def _is_lazy(X: Any) -> bool:
    return isinstance(X, (da.Array, dd.DataFrame))


def _partitions(X: Any, y: Any) -> tuple[list[Any], list[Any]]:
    """The partitions of both, as delayed tables and labels."""
    if not isinstance(y, (da.Array, dd.Series)) or y.ndim != 1:
        raise TypeError(f"y must be a Dask array of one dimension or a Dask series, not {type(y).__name__}")
    if isinstance(X, da.Array):
        X = X.rechunk({1: -1})
        if isinstance(y, da.Array) and not np.isnan(X.shape[0] + y.shape[0]):
            if X.shape[0] != y.shape[0]:
                raise ValueError(f"X has {X.shape[0]} rows, but y has {y.shape[0]} labels")
            y = y.rechunk({0: X.chunks[0]})
    tables = np.ravel(X.to_delayed()).tolist()
    labels = np.ravel(y.to_delayed()).tolist()
    if len(tables) != len(labels):
        raise ValueError(f"X has {len(tables)} partitions, but y has {len(labels)}")
    return tables, labels


def _classes(labels: list[Any]) -> tuple[npt.NDArray[Any], npt.NDArray[np.int64]]:
    """All labels, and how many rows each has."""
    counted = compute(*(delayed(_counted)(part, number) for number, part in enumerate(labels)))
    shown = [number for number, (known, _) in enumerate(counted) if len(known)]
    if not shown:
        raise ValueError("y has no labels")
    first = _kind(counted[shown[0]][0])
    for number in shown:
        kind = _kind(counted[number][0])
        if kind != first:
            raise ValueError(f"partition {number}: labels are {kind}, but those of partition {shown[0]} are {first}")
    classes, places = np.unique(np.concatenate([counted[number][0] for number in shown]), return_inverse=True)
    counts = np.zeros(len(classes), dtype=np.int64)
    np.add.at(counts, places, np.concatenate([counted[number][1] for number in shown]))
    return classes, counts


def _counted(part: Any, number: int) -> Any:
    with _in_partition(number):
        labels = np.asarray(part)
        if len(labels):
            check_classification_targets(labels)
        return np.unique(labels, return_counts=True)


def _kind(labels: npt.NDArray[Any]) -> str:
    names = {"b": "booleans", "i": "numbers", "u": "numbers", "f": "numbers", "U": "strings"}
    if labels.dtype.kind in names:
        return names[labels.dtype.kind]
    return "strings" if all(isinstance(label, str) for label in labels) else "objects"


def _learnt(table: Any, part: Any, shared: Any, number: int) -> ClassifierTool:
    """What a partition tells: an untrained tool if nothing."""
    params, classes, columns = shared
    tool = ClassifierTool()
    with _in_partition(number):
        if table.shape[1] != columns:
            raise ValueError(f"X has {table.shape[1]} columns, but {columns} are expected")
        if len(table) != len(part):
            raise ValueError(f"X has {len(table)} rows, but y has {len(part)} labels")
        if len(table):
            X, y = sklearn.BayesCostClassifier()._checked_training(table, part, reset=True)
            tool.train(X, _to_tool(y, classes), params)
    return tool


def _merged(tools: list[ClassifierTool]) -> ClassifierTool:
    trained = [tool for tool in tools if tool.is_trained]
    if not trained:
        return tools[0]
    first = copy(trained[0])
    for tool in trained[1:]:
        first.merge(tool)
    return first
