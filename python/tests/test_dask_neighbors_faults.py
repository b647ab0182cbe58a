"""Workers that die: the answer is the same, or one clear error; nothing waits for ever."""

from __future__ import annotations

import itertools
import os
import signal
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import dask
import dask.array as da
import numpy as np
import pytest
from distributed import Client, TimeoutError

import clastool.dask as cd
from clastool import _dask_shards
from clastool.sklearn import KNeighborsCostClassifier

# Seconds that nothing here takes, unless it waits for ever.
LIMIT = 600


@contextmanager
def programs(folder: Path, workers: int) -> Iterator[Any]:
    """A scheduler and workers without anybody who starts them again, as programs; gives the client and the processes."""
    file = str(folder / "scheduler.json")
    dask_command = [sys.executable, "-m", "dask"]
    quiet: Any = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    scheduler = [*dask_command, "scheduler", "--host", "127.0.0.1", "--port", "0", "--no-dashboard", "--scheduler-file", file]
    worker = [*dask_command, "worker", "--scheduler-file", file, "--nthreads", "1", "--no-nanny", "--no-dashboard"]
    started = [subprocess.Popen(command, cwd=folder, **quiet) for command in [scheduler, *[worker] * workers]]
    try:
        with Client(scheduler_file=file, timeout=LIMIT) as client:
            client.wait_for_workers(workers, timeout=LIMIT)
            yield client, started
    finally:
        for process in started:
            process.kill()
            process.wait()


@pytest.fixture
def client(client_to_kill: Any) -> Any:
    return client_to_kill


def sample(rows: int, seed: int = 1) -> Any:
    random = np.random.default_rng(seed)
    y = random.integers(0, 3, rows)
    return random.normal(size=(rows, 3)) + y[:, np.newaxis], y


def in_time(work: Callable[[], Any]) -> Any:
    with ThreadPoolExecutor(1) as pool:
        return pool.submit(work).result(LIMIT)


def pids(client: Any) -> list[int]:
    return sorted(client.run(os.getpid).values())


def kill_one_that_works(folder: Path) -> None:
    """Waits until a worker has left its number in a file, and kills it."""
    deadline = time.monotonic() + LIMIT
    while time.monotonic() < deadline:
        names = [name for name in os.listdir(folder) if name.isdigit()]
        if names:
            os.kill(int(names[0]), signal.SIGKILL)
            return
        time.sleep(0.02)
    raise AssertionError("no worker began")


def same(found: Any, expected: Any) -> None:
    for part, known in zip(found, expected):
        np.testing.assert_array_equal(part, known)


@pytest.mark.parametrize("queries", [lambda X: X, lambda X: da.from_array(X, chunks=(50, 3))], ids=["array", "blocks"])
def test_a_worker_with_a_shard_is_killed(queries: Callable[[Any], Any], client: Any) -> None:
    X, y = sample(2000)
    expected = KNeighborsCostClassifier().fit(X, y).kneighbors(X[:200])
    fitted = cd.KNeighborsCostClassifier().fit(da.from_array(X, chunks=(1000, 3)), da.from_array(y, chunks=1000))
    os.kill(pids(client)[0], signal.SIGKILL)
    same(in_time(lambda: dask.compute(*fitted.kneighbors(queries(X[:200])))), expected)


def test_a_worker_is_killed_during_predict(client: Any, tmp_path: Path) -> None:
    X, y = sample(100)
    begun = str(tmp_path)

    def metric(a: Any, b: Any) -> float:
        open(os.path.join(begun, str(os.getpid())), "w").close()
        time.sleep(0.001)
        return float(np.abs(a - b).max())

    expected = KNeighborsCostClassifier(metric=lambda a, b: float(np.abs(a - b).max())).fit(X, y).kneighbors(X[:30])
    fitted = cd.KNeighborsCostClassifier(metric=metric).fit(da.from_array(X, chunks=(50, 3)), da.from_array(y, chunks=50))
    with ThreadPoolExecutor(1) as pool:
        killed = pool.submit(kill_one_that_works, tmp_path)
        same(in_time(lambda: fitted.kneighbors(X[:30])), expected)
        killed.result()


def test_a_worker_is_killed_during_fit(client: Any, tmp_path: Path) -> None:
    X, y = sample(300)
    begun = str(tmp_path)

    def slow(block: Any) -> Any:
        open(os.path.join(begun, str(os.getpid())), "w").close()
        time.sleep(0.3)
        return block

    blocks = da.from_array(X, chunks=(100, 3)).map_blocks(slow, meta=X[:0])
    with ThreadPoolExecutor(1) as pool:
        killed = pool.submit(kill_one_that_works, tmp_path)
        fitted = in_time(lambda: cd.KNeighborsCostClassifier().fit(blocks, da.from_array(y, chunks=100)))
        killed.result()
    same(in_time(lambda: fitted.kneighbors(X[:30])), KNeighborsCostClassifier().fit(X, y).kneighbors(X[:30]))


def test_a_worker_with_a_loaded_shard_is_killed(client: Any, tmp_path: Path) -> None:
    X, y = sample(300)
    cd.KNeighborsCostClassifier().fit(da.from_array(X, chunks=(100, 3)), da.from_array(y, chunks=100)).save(tmp_path / "model")
    loaded = cd.KNeighborsCostClassifier.load(tmp_path / "model")
    expected = KNeighborsCostClassifier().fit(X, y).kneighbors(X[:30])
    os.kill(pids(client)[0], signal.SIGKILL)
    same(in_time(lambda: loaded.kneighbors(X[:30])), expected)


def test_data_that_nothing_computes_again_are_one_error(client: Any, monkeypatch: Any) -> None:
    # The workers are started again, however long that takes.
    monkeypatch.setattr(_dask_shards, "_PATIENCE", LIMIT)
    X, y = sample(100)
    workers = sorted(client.scheduler_info()["workers"])
    parts = [client.scatter(X[:50], workers=workers[:1]), client.scatter(X[50:], workers=workers[1:])]
    blocks = da.concatenate([da.from_delayed(part, (50, 3), dtype=float) for part in map(dask.delayed, parts)])
    fitted = cd.KNeighborsCostClassifier().fit(blocks, da.from_array(y, chunks=50))
    for pid in pids(client):
        os.kill(pid, signal.SIGKILL)
    with pytest.raises(RuntimeError, match="^the workers lost data that cannot be computed again: fit or load anew$"):
        in_time(lambda: fitted.predict(X))


class _Client:
    """Fails to send blocks, with one error after the other."""

    def __init__(self, *errors: Exception) -> None:
        self.errors = list(errors)

    def scatter(self, blocks: Any, **_: Any) -> Any:
        if self.errors:
            raise self.errors.pop(0)
        return blocks


def test_blocks_are_sent_again_if_a_worker_dies_before_or_after_it_takes_them(monkeypatch: Any) -> None:
    # It takes longer than the patience to find out that a worker is dead.
    clock = itertools.count(100, 100)
    monkeypatch.setattr(_dask_shards, "monotonic", lambda: float(next(clock)))
    monkeypatch.setattr(_dask_shards, "sleep", lambda _: None)
    monkeypatch.setattr(_dask_shards, "_PATIENCE", 90.0)
    dead = OSError("Timed out trying to connect"), KeyError("tcp://127.0.0.1:1")
    for error in dead:
        assert _dask_shards._sent(_Client(error), [1, 2]) == [1, 2]
    for errors in (dead, (TimeoutError("No valid workers found"),)):
        with pytest.raises(RuntimeError, match="^the cluster has been without a worker for 90 seconds$"):
            _dask_shards._sent(_Client(*errors), [1, 2])


def test_the_client_is_closed(cluster: Any, tmp_path: Path) -> None:
    X, y = sample(100)
    blocks = da.from_array(X, chunks=(50, 3))
    with Client(cluster):
        fitted = cd.KNeighborsCostClassifier().fit(blocks, da.from_array(y, chunks=50))
    for work in (
        lambda: fitted.predict(X),
        lambda: fitted.predict(blocks),
        lambda: fitted.kneighbors(blocks),
        lambda: fitted.save(tmp_path / "model"),
    ):
        with pytest.raises(RuntimeError, match="^the client that held the shards is closed or has lost its scheduler: fit or load anew$"):
            in_time(work)


def test_workers_as_programs(tmp_path: Path, monkeypatch: Any) -> None:
    X, y = sample(2000)
    expected = KNeighborsCostClassifier().fit(X, y)
    with programs(tmp_path, 2) as (client, (_, first, second)):
        fitted = cd.KNeighborsCostClassifier().fit(da.from_array(X, chunks=(500, 3)), da.from_array(y, chunks=500))
        same(in_time(lambda: fitted.kneighbors(X[:100])), expected.kneighbors(X[:100]))
        first.kill()
        same(in_time(lambda: fitted.kneighbors(X[:100])), expected.kneighbors(X[:100]))
        second.kill()
        monkeypatch.setattr(_dask_shards, "_PATIENCE", 3.0)
        with pytest.raises(RuntimeError, match="^the cluster has been without a worker for 3 seconds$"):
            in_time(lambda: fitted.predict(X[:100]))
        with pytest.raises(RuntimeError, match="^the cluster has been without a worker for 3 seconds$"):
            in_time(lambda: fitted.save(tmp_path / "model"))


def test_the_scheduler_is_lost(tmp_path: Path) -> None:
    X, y = sample(300)
    begun = str(tmp_path / "begun")

    def slow(block: Any) -> Any:
        open(begun, "w").close()
        time.sleep(LIMIT)

    with programs(tmp_path, 1) as (client, (scheduler, _)):
        lazy_y = da.from_array(y, chunks=100)
        fitted = cd.KNeighborsCostClassifier().fit(da.from_array(X, chunks=(100, 3)), lazy_y)
        blocks = da.from_array(X, chunks=(100, 3)).map_blocks(slow, meta=X[:0])
        with ThreadPoolExecutor(1) as pool:
            fit = pool.submit(lambda: cd.BayesCostClassifier().fit(blocks, lazy_y))
            while not os.path.exists(begun):
                time.sleep(0.02)
            scheduler.kill()
            with pytest.raises(RuntimeError, match="^the client has lost its scheduler$"):
                fit.result(LIMIT)
        with pytest.raises(RuntimeError, match="^the client that held the shards is closed or has lost its scheduler: "):
            in_time(lambda: fitted.predict(X))


def test_a_task_that_kills_all_its_workers_is_named(client: Any) -> None:
    client.cluster.scheduler.allowed_failures = 0

    def deadly(block: Any, block_id: Any = None) -> Any:
        if block_id == (2, 0):
            os.kill(os.getpid(), signal.SIGKILL)
        return block

    X, y = sample(300)
    blocks = da.from_array(X, chunks=(100, 3)).map_blocks(deadly, meta=X[:0])
    text = r"^one worker after the other died during the task .*: it may need more memory than they have$"
    with pytest.raises(RuntimeError, match=text):
        in_time(lambda: cd.BayesCostClassifier().fit(blocks, da.from_array(y, chunks=100)))
