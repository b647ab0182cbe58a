"""Estimators in files: a file with the tool, which C++ programs load, and a JSON file with the other attributes of the estimator.

The JSON file holds the checksum from the end of the tool's file, so that `load` refuses files that do not belong together. Loading runs no
code from the files.
"""

from __future__ import annotations

import json
import os
from collections.abc import Mapping
from typing import Any

import numpy as np

from . import ClassifierTool, DistributionType
from ._decision import tool_labels

_VERSION = 1
_ATTRIBUTES = ("classes_", "class_count_", "costs_", "class_prior_", "n_features_in_", "feature_names_in_", "_reject_limits")


def save_estimator(estimator: Any, path: Any) -> None:
    path = os.fsdecode(path)
    content = {
        "written by": "clastool.sklearn",
        "version": _VERSION,
        "parameters": _encoded(estimator.get_params(deep=False)),
        "attributes": _encoded({name: vars(estimator)[name] for name in _ATTRIBUTES if name in vars(estimator)}),
    }
    estimator.tool_.save(path)
    content["checksum"] = _checksum(path)
    part = f"{path}.json.part"
    with open(part, "w", encoding="utf-8") as file:
        json.dump(content, file, indent=1)
    os.replace(part, f"{path}.json")


def load_estimator(cls: Any, path: Any) -> Any:
    path = os.fsdecode(path)
    tool = ClassifierTool.load(path)
    if tool.technique != cls._technique:
        raise ValueError(f"{path}: the tool is not one of a {cls.__name__}")
    content = _read(path)
    if content is None:
        return _of_tool(cls, tool)
    attributes = content["attributes"]
    if (
        attributes["n_features_in_"] != tool.num_measurements
        or ("class_prior_" in attributes) != (tool.technique == "bayes")
        or not np.isin(tool.categories, tool_labels(attributes["classes_"])).all()
    ):
        raise ValueError(f"{path}.json: tells of another tool than that in {path}")
    try:
        estimator = cls(**content["parameters"])
    except TypeError as error:
        raise ValueError(f"{path}.json: is not what save wrote: {error}") from None
    vars(estimator).update(attributes, tool_=tool)
    return estimator


def saved_estimator(path: str) -> Any:
    """The estimator in a file; None if there is no JSON file beside it."""
    if _read(path) is None:
        return None
    from . import sklearn

    is_bayes = ClassifierTool.load(path).technique == "bayes"
    return load_estimator(sklearn.BayesCostClassifier if is_bayes else sklearn.KNeighborsCostClassifier, path)


def saved_classes(path: str) -> list[Any] | None:
    """The classes of the estimator in a file, by their places; None if there is no JSON file beside it."""
    content = _read(path)
    return None if content is None else list(content["attributes"]["classes_"].tolist())


def saved_feature_names(path: str) -> list[str] | None:
    """The names of the measurements; None if the JSON file is missing or does not name them."""
    content = _read(path)
    if content is None or "feature_names_in_" not in content["attributes"]:
        return None
    return list(content["attributes"]["feature_names_in_"].tolist())


def _read(path: str) -> dict[str, Any] | None:
    """The content of the JSON file beside the tool's file; None without one."""
    name = f"{path}.json"
    if not os.path.exists(name):
        return None
    with open(name, "rb") as file:
        text = file.read()
    try:
        content = json.loads(text.decode("utf-8"))
        if content["version"] != _VERSION:
            raise ValueError(f"it has the unknown version {content['version']!r}")
        checksum = content["checksum"]
        read: dict[str, Any] = {key: _decoded(content[key]) for key in ("parameters", "attributes")}
        if not all(isinstance(key, str) for key in read["parameters"]):
            raise ValueError("a parameter has no name")
        _check_attributes(read["attributes"])
    except (ValueError, KeyError, TypeError, AttributeError, OverflowError, RecursionError) as error:
        raise ValueError(f"{name}: is not what save wrote: {error}") from None
    if checksum != _checksum(path):
        raise ValueError(f"{name}: was not written with {path}")
    return read


def _check_attributes(attributes: dict[str, Any]) -> None:
    """Raises KeyError for a missing or unknown attribute, ValueError for one of the wrong kind or size."""
    count, width = len(attributes["classes_"]), attributes["n_features_in_"]
    kinds: dict[str, tuple[str, list[tuple[Any, ...]]]] = {
        "classes_": ("biufOUS", [(count,)]),
        "class_count_": ("iu", [(count,)]),
        "costs_": ("f", [(count, count)]),
        "class_prior_": ("f", [(count,)]),
        "feature_names_in_": ("OU", [(width,)]),
        "_reject_limits": ("f", [(1,), (count,)]),
    }
    optional = {"class_prior_", "feature_names_in_", "_reject_limits"}
    # Sorted, because a set has another order in each process: of two mistakes the same one is named everywhere.
    for name in sorted({*kinds, *attributes} - (optional - {*attributes}) - {"n_features_in_"}):
        array, (letters, shapes) = attributes[name], kinds[name]
        if count == 0 or not isinstance(array, np.ndarray) or array.dtype.kind not in letters or array.shape not in shapes:
            raise ValueError(f"{name} is of the wrong kind or size")


def _checksum(path: str) -> str:
    with open(path, "rb") as file:
        file.seek(-4, os.SEEK_END)
        return file.read(4).hex()


def _of_tool(cls: Any, tool: ClassifierTool) -> Any:
    """An estimator with the tool of a C++ program."""
    classes = tool.categories
    params: Any = tool.params
    estimator = cls()
    matrix = np.zeros((len(classes), len(classes)))
    for true, assigned in np.argwhere(~np.eye(len(classes), dtype=bool)):
        matrix[true, assigned] = params.costs[int(classes[true]), int(classes[assigned])]
    vars(estimator).update(
        tool_=tool,
        classes_=classes,
        class_count_=np.array([tool.category_counts[label] for label in classes.tolist()], dtype=np.int64),
        costs_=matrix,
        n_features_in_=tool.num_measurements,
        costs=matrix,
    )
    if tool.technique == "neighbors":
        vars(estimator).update(n_neighbors=params.k, p=params.metric.order)
        return estimator
    frequencies = np.array([params.frequencies[label] for label in classes.tolist()])
    vars(estimator).update(
        priors=frequencies / frequencies.sum(),
        class_prior_=frequencies / frequencies.sum(),
        groups=_groups(params.distribution_types),
        distribution=_distribution(params.distribution_types, classes, tool.num_measurements),
    )
    stated = min(len(params.max_values), tool.num_measurements)
    if stated:
        estimator.max_values = np.ones(tool.num_measurements)
        valid = params.max_values.valid[:stated]
        estimator.max_values[:stated][valid] = params.max_values.values[:stated][valid]
    return estimator


def _groups(types: Any) -> Any:
    groups: dict[int, list[Any]] = {}
    for label, indices in types.dependent_sets:
        groups.setdefault(label, []).append(list(indices))
    return groups or None


def _distribution(types: Any, classes: Any, num_measurements: int) -> Any:
    by_class = {
        tuple(types[label, index] == DistributionType.BINOMIAL for index in range(num_measurements))
        for label in classes.tolist()
    }
    if len(by_class) > 1:
        raise ValueError("the distribution of a measurement must be the same in all classes of an estimator")
    names = ["binomial" if is_binomial else "normal" for is_binomial in by_class.pop()]
    return names[0] if len(set(names)) == 1 else names


def _encoded(value: Any) -> Any:
    if value is None or isinstance(value, (bool, int, float, str)):
        return value
    if isinstance(value, np.generic):
        return _encoded(value.item())
    if isinstance(value, np.ndarray):
        return {"array": _encoded(value.tolist()), "type": value.dtype.str}
    if isinstance(value, (list, range)):
        return [_encoded(item) for item in value]
    if isinstance(value, tuple):
        return {"tuple": [_encoded(item) for item in value]}
    if isinstance(value, Mapping):
        return {"dict": [[_encoded(key), _encoded(item)] for key, item in value.items()]}
    raise ValueError(f"cannot be saved: {value!r}")


def _decoded(value: Any) -> Any:
    if isinstance(value, list):
        return [_decoded(item) for item in value]
    if not isinstance(value, dict):
        return value
    if "array" in value:
        return np.array(_decoded(value["array"]), dtype=np.dtype(value["type"]))
    if "tuple" in value:
        return tuple(_decoded(item) for item in value["tuple"])
    return {_decoded(key): _decoded(item) for key, item in value["dict"]}
