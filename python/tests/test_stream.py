"""Rows that do not fit into memory are learnt batch after batch."""

from __future__ import annotations

import os
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from types import ModuleType
from typing import Any

import numpy as np
import pandas as pd
import pytest
from sklearn.exceptions import NotFittedError
from sklearn.utils import gen_batches

from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier, fit_stream
from samples import IRIS, SPECIES

NAMES = np.array(["setosa", "versicolor", "virginica"])[SPECIES]
CLASSES = ["setosa", "versicolor", "virginica"]


def batches(size: int) -> Iterator[Any]:
    return ((IRIS[rows], NAMES[rows]) for rows in gen_batches(len(IRIS), size))


def states(model: Any) -> Any:
    return model.tool_.to_bytes(), model.classes_.tolist(), model.class_count_.tolist(), model.costs_.tolist()


@pytest.mark.parametrize("model", [BayesCostClassifier(groups="all"), KNeighborsCostClassifier()], ids=["bayes", "neighbors"])
def test_batches_are_learnt_as_partial_fit_learns_them(model: Any) -> None:
    by_hand = type(model)(**model.get_params())
    for X, y in batches(40):
        by_hand.partial_fit(X, y, CLASSES)
    assert fit_stream(model, batches(40), CLASSES) is model
    assert states(model) == states(by_hand)
    np.testing.assert_array_equal(model.predict(IRIS), type(model)(**model.get_params()).fit(IRIS, NAMES).predict(IRIS))


def test_a_stream_goes_on_where_another_ended() -> None:
    model = fit_stream(BayesCostClassifier(), list(batches(40))[:2], CLASSES)
    fit_stream(model, list(batches(40))[2:], CLASSES)
    assert states(model) == states(fit_stream(BayesCostClassifier(), batches(40), CLASSES))


def test_batches_without_rows_are_passed_over() -> None:
    none = (IRIS[:0], NAMES[:0])
    model = fit_stream(BayesCostClassifier(), [none, *batches(40), none], CLASSES)
    assert states(model) == states(fit_stream(BayesCostClassifier(), batches(40), CLASSES))
    for nothing in ([], [none]):
        with pytest.raises(NotFittedError, match="^the batches have no rows$"):
            fit_stream(BayesCostClassifier(), nothing, CLASSES)


def test_an_error_names_the_batch_and_keeps_what_was_learnt() -> None:
    whole = fit_stream(BayesCostClassifier(), list(batches(40))[:2], CLASSES)
    for batch, text in [
        ((IRIS[:, :3], NAMES), "^batch 2: X has 3 features, but BayesCostClassifier is expecting 4 features as input.$"),
        ((IRIS, NAMES[:9]), "^batch 2: Found input variables with inconsistent numbers of samples"),
        ((np.full_like(IRIS, np.inf), NAMES), "^batch 2: Input X contains infinity"),
        ((IRIS, np.full(150, "rose")), "^batch 2: y has the label 'rose', which is not among the classes"),
    ]:
        model = BayesCostClassifier()
        with pytest.raises(ValueError, match=text):
            fit_stream(model, [*list(batches(40))[:2], batch], CLASSES)
        assert states(model) == states(whole)


def test_an_error_of_the_reader_is_its_own() -> None:
    def broken() -> Iterator[Any]:
        yield IRIS, NAMES
        raise OSError("the disk has gone")

    model = BayesCostClassifier()
    with pytest.raises(OSError, match="^the disk has gone$"):
        fit_stream(model, broken(), CLASSES)
    assert model.class_count_.sum() == 150


def test_rejection_needs_all_rows() -> None:
    with pytest.raises(AttributeError, match="has no attribute 'partial_fit'"):
        fit_stream(BayesCostClassifier(reject_quantile=0.1), batches(40), CLASSES)


class Bar:
    """Takes the place of tqdm's."""

    shown: list[Any] = []

    def __init__(self, desc: str, unit: str) -> None:
        self.n, self.total = 0, None

    def __enter__(self) -> Bar:
        return self

    def __exit__(self, *_: object) -> None:
        self.shown.append("closed")

    def update(self, more: int) -> None:
        self.n += more
        self.shown.append((self.n, self.total))


@pytest.mark.parametrize("rows", [150, None])
def test_a_bar_shows_rows(rows: Any, monkeypatch: pytest.MonkeyPatch) -> None:
    auto = ModuleType("tqdm.auto")
    vars(auto)["tqdm"] = Bar
    monkeypatch.setitem(sys.modules, "tqdm", ModuleType("tqdm"))
    monkeypatch.setitem(sys.modules, "tqdm.auto", auto)
    monkeypatch.setattr(Bar, "shown", [])
    fit_stream(BayesCostClassifier(verbose=True), batches(60), CLASSES, rows=rows)
    assert Bar.shown == [(60, rows), (120, rows), (150, rows), "closed"]
    Bar.shown.clear()
    fit_stream(BayesCostClassifier(), batches(60), CLASSES, rows=rows)
    assert Bar.shown == []


# What does not fit into memory

ROWS = 500_000
# Learns from files that hold 64 MB; says by how many MB the process grew, and how many rows each class has.
STREAM = """
import sys
from pathlib import Path

import numpy as np
import pandas
import pyarrow.parquet
from sklearn.utils import gen_batches
from clastool.sklearn import BayesCostClassifier, fit_stream


def parquet(path, rows):
    for batch in pyarrow.parquet.ParquetFile(path, pre_buffer=False).iter_batches(batch_size=rows):
        table = batch.to_pandas()
        yield table.drop(columns="label"), table["label"]


def mapped(folder, rows):
    X, y = np.load(folder / "X.npy", mmap_mode="r"), np.load(folder / "y.npy", mmap_mode="r")
    for part in gen_batches(len(X), rows):
        yield X[part], y[part]


def whole(path):
    table = pandas.read_parquet(path)
    yield table.drop(columns="label"), table["label"]


def status(name):
    for line in Path("/proc/self/status").read_text().splitlines():
        if line.startswith(name):
            return int(line.split()[1]) / 1024


def watched(batches):
    for batch in batches:
        grown.append(status("RssAnon") - before)
        yield batch


what, folder = sys.argv[1], Path(sys.argv[2])
fit_stream(BayesCostClassifier(), parquet(folder / "small.parquet", 1000), [0, 1, 2])
start = {"parquet": lambda: parquet(folder / "rows.parquet", 20_000), "mapped": lambda: mapped(folder, 20_000),
         "whole": lambda: whole(folder / "rows.parquet")}
grown, before = [], status("RssAnon")
Path("/proc/self/clear_refs").write_text("5")
model = fit_stream(BayesCostClassifier(), watched(start[what]()), [0, 1, 2])
# The pages of a mapped file count in the peak, but the system takes them back when it needs them.
peak = max(grown) if what == "mapped" else status("VmHWM") - before - status("RssFile")
print(peak, *model.class_count_)
"""


@pytest.fixture(scope="module")
def files(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Path]:
    folder = tmp_path_factory.mktemp("stream")
    random = np.random.default_rng(1)
    y = random.integers(0, 3, ROWS)
    X = random.normal(size=(ROWS, 16)) + y[:, np.newaxis]
    np.save(folder / "X.npy", X)
    np.save(folder / "y.npy", y)
    table = pd.DataFrame(X, columns=[f"m{place}" for place in range(16)]).assign(label=y)
    table.to_parquet(folder / "rows.parquet", row_group_size=20_000)
    table[:1000].to_parquet(folder / "small.parquet")
    yield folder
    for path in folder.iterdir():
        path.unlink()


@pytest.mark.skipif(not Path("/proc/self/clear_refs").exists(), reason="the peak of memory is read as Linux tells it")
@pytest.mark.parametrize("what", ["parquet", "mapped", "whole"])
def test_peak_memory_is_that_of_a_batch(what: str, files: Path) -> None:
    # Else the peak holds what allocators keep for later too, which differs between versions.
    frugal = {"ARROW_DEFAULT_MEMORY_POOL": "system", "MALLOC_ARENA_MAX": "1", "MALLOC_TRIM_THRESHOLD_": "0"}
    command = [sys.executable, "-c", STREAM, what, str(files)]
    said = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True, env={**os.environ, **frugal}).stdout
    peak, *counts = map(float, said.split())
    assert counts == np.bincount(np.load(files / "y.npy")).tolist()
    # A batch takes 2.7 MB, several times over while it is read. The whole shows that the measure sees what is taken.
    assert peak > 100 if what == "whole" else peak < 50, peak
