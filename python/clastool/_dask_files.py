"""Sharded estimators in files: a folder with `index.json` and an archive for each shard. The workers write and read the archives.

The index holds the rows and the checksum of each archive, so that `load` refuses files that do not belong together. Loading runs no code
from the files.
"""

from __future__ import annotations

import json
import os
from copy import copy
from itertools import accumulate
from typing import Any

from dask.delayed import delayed

from . import ClassifierTool, KNNParams
from ._dask_shards import ShardedTool, persisted, run
from ._files import _ATTRIBUTES, _checksum, _decoded, _encoded

_VERSION = 1


def save_shards(estimator: Any, path: str) -> None:
    tool: ShardedTool = estimator.tool_
    with tool.require_shards():
        _save(estimator, tool, path)


def _save(estimator: Any, tool: ShardedTool, path: str) -> None:
    content = {
        "written by": "clastool.dask",
        "version": _VERSION,
        "parameters": _encoded(estimator.get_params(deep=False)),
        "attributes": _encoded({name: vars(estimator)[name] for name in _ATTRIBUTES if name in vars(estimator)}),
    }
    os.makedirs(path, exist_ok=True)
    params = delayed(tool.params)
    names = [f"shard-{number:05}.tool" for number in range(len(tool.shards))]
    archives = [os.path.join(path, name) for name in names]
    checksums = run([delayed(_saved)(held[0], params, file) for held, file in zip(tool.shards, archives)])
    content["shards"] = [
        {"file": name, "first row": first, "rows": rows, "checksum": checksum}
        for name, first, rows, checksum in zip(names, tool.firsts, tool.counts, checksums)
    ]
    part = os.path.join(path, "index.json.part")
    with open(part, "w", encoding="utf-8") as file:
        json.dump(content, file, indent=1)
    os.replace(part, os.path.join(path, "index.json"))


def load_shards(cls: Any, path: str) -> Any:
    content = _read(os.path.join(path, "index.json"))
    estimator = cls(**content["parameters"])
    vars(estimator).update(content["attributes"])
    columns = estimator.n_features_in_
    shards = [
        delayed(_loaded)(os.path.join(path, shard["file"]), shard["checksum"], shard["rows"], columns)
        for shard in content["shards"]
    ]
    estimator._take_shards(*persisted(shards), *(content["attributes"][name] for name in ("classes_", "costs_", "class_count_")))
    return estimator


def _read(name: str) -> dict[str, Any]:
    with open(name, encoding="utf-8") as file:
        text = file.read()
    try:
        content = json.loads(text)
        if content["version"] != _VERSION:
            raise ValueError(f"it has the unknown version {content['version']!r}")
        read = {key: _decoded(content[key]) for key in ("parameters", "attributes")}
        rows = [shard["rows"] for shard in content["shards"]]
        if sum(rows) != read["attributes"]["class_count_"].sum():
            raise ValueError("its rows do not add up")
        if [shard["first row"] for shard in content["shards"]] != list(accumulate(rows, initial=0))[:-1]:
            raise ValueError("its shards do not follow each other")
    except (ValueError, KeyError, TypeError, AttributeError) as error:
        raise ValueError(f"{name}: is not what save wrote: {error}") from None
    return {**read, "shards": content["shards"]}


def _saved(tool: ClassifierTool, params: KNNParams, file: str) -> str:
    tool = copy(tool)
    tool.retrain(params)
    tool.save(f"{file}.part")
    os.replace(f"{file}.part", file)
    return _checksum(file)


def _loaded(file: str, checksum: str, rows: int, columns: int) -> ClassifierTool:
    try:
        if _checksum(file) != checksum:
            raise ValueError("it was not written with the index")
        tool = ClassifierTool.load(file)
        if tool.technique != "neighbors" or tool.num_patterns != rows or tool.num_measurements != columns:
            raise ValueError("it is not the shard that the index names")
    except Exception as error:
        raise ValueError(f"{file}: cannot be loaded: {error}") from None
    return tool
