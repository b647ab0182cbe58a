"""Nearest neighbours among patterns in shards: tools on the workers of a Dask cluster, or in the memory of this process.

Each shard sends the rows that may be neighbours, and the answers are merged. The result must be that of a plain scan of all rows, with its
ties. Take the distance of the k-th neighbour. Of the rows at that distance, a plain scan keeps those that it met first. But for each nearer
row that it meets after the first k, it drops the earliest of them. So two kinds of rows decide: the nearer rows, and the first k rows
within that distance. A shard sends these rows; in most cases they are k. Merging the answers of several shards keeps the same rows as one
shard with all their rows would send, for any grouping of neighbouring shards.
"""

from __future__ import annotations

from concurrent.futures import CancelledError
from contextlib import nullcontext
from copy import copy
from itertools import accumulate
from time import monotonic, sleep
from typing import Any, NamedTuple

import dask
import numpy as np
import numpy.typing as npt
from dask.delayed import delayed
from dask.sizeof import sizeof
from distributed import Client, Future, KilledWorker, TimeoutError, default_client, get_client, get_worker, wait

from . import ClassifierTool, KNNParams, Norm
from ._tables import Neighbors, RowResults

# How many answers are merged at once, how many rows a block has, and how many blocks are searched for at once.
_BRANCHES = 8
_BLOCK = 4096
_WAVE = 32
# How often work is tried if its data are lost, and how many seconds the cluster may be without a worker.
_ATTEMPTS = 3
_PATIENCE = 30.0


NO_NEIGHBORS = Neighbors(np.empty((0, 1)), np.empty((0, 1), dtype=np.int64), np.empty((0, 1), dtype=np.int64))


class Found(NamedTuple):
    """Possible neighbours of several query rows: those of the first row, then those of the next. `counts` has their number for each row."""

    counts: npt.NDArray[Any]
    distances: npt.NDArray[np.float64]
    indices: npt.NDArray[Any]
    labels: npt.NDArray[Any]


class _Lost(RuntimeError):
    """Data were lost with their workers."""


class ShardedTool:
    """Takes the place of a `ClassifierTool` for nearest neighbours that was trained on the rows of all shards, in their order.

    shards: for each shard the list of its copies: delayed tools, which the cluster holds. No shard is empty.
    counts: the number of rows in each shard.
    """

    technique = "neighbors"
    is_trained = True

    def __init__(
        self, shards: list[list[Any]], counts: list[int], params: KNNParams, category_counts: dict[int, int], columns: int
    ) -> None:
        self.shards = shards
        self.counts = counts
        self.params = params
        self.category_counts = category_counts
        self.categories = np.array(sorted(category_counts), dtype=np.int64)
        self.num_measurements = columns
        self.num_patterns = sum(counts)
        self.firsts = list(accumulate(counts, initial=0))[:-1]

    def retrain(self, params: KNNParams) -> None:
        """Takes other parameters, which cost nothing on the workers."""
        self.params = params

    def add(self, X: Any, y: Any) -> None:
        """Raises ValueError: shards stay as they were fitted."""
        raise ValueError("shards on Dask learn nothing further: fit anew")

    def require_shards(self) -> Any:
        """A context in which the client that holds the shards is the current one. Raises an error if it is closed or lost its scheduler."""
        shards = [shard.dask[shard.key] for held in self.shards for shard in held]
        futures = [shard for shard in shards if isinstance(shard, Future)]
        if not futures:
            return nullcontext()
        # Futures from a pickle have no client.
        unbound = [future for future in futures if future.client is None]
        try:
            for future in unbound:
                future.bind_client(get_client())
        except ValueError as error:
            raise _Lost("the shards are on the workers of a cluster, and this process has no client of it") from error
        if any(future.cancelled() for future in futures):
            raise _Lost("the client that held the shards is closed or has lost its scheduler: fit or load anew")
        return futures[0].client.as_current()

    def neighbors(self, X: Any, k: int | None = None, *, threads: int = 1, progress: Any = None) -> Neighbors:
        """The nearest neighbours of each row of X, found by the workers. `threads` is ignored: the workers choose."""
        X = np.asarray(X)
        copies = min(len(self.shards[0]), max(len(X), 1))
        blocks = np.array_split(X, max(copies, -(-len(X) // _BLOCK)))
        found: list[Neighbors] = []
        with self.require_shards():
            for first in range(0, len(blocks), _WAVE):
                found += run_on(blocks[first : first + _WAVE], lambda block, number: self.nearest(block, k, number))
                if progress is not None:
                    progress(sum(len(near.indices) for near in found), len(X))
        return Neighbors(*(np.concatenate(parts) for parts in zip(*found)))

    def nearest(self, block: Any, k: int | None = None, number: int = 0) -> Any:
        """The nearest neighbours of the rows of a block, delayed. The number of the block chooses the copy of each shard."""
        k = self.params.k if k is None else k
        found = [
            delayed(_searched)(copies[number % len(copies)], block, k, self.params.metric, first)
            for copies, first in zip(self.shards, self.firsts)
        ]
        while len(found) > _BRANCHES:
            found = [delayed(_merged)(found[first : first + _BRANCHES], k) for first in range(0, len(found), _BRANCHES)]
        return delayed(_nearest)(found, k)

    def run_rows(self, X: Any, *, threads: int = 1, only_labels: bool = False, progress: Any = None) -> RowResults:
        """Classifies each row of X by its neighbours."""
        labels = self.neighbors(X, threads=threads, progress=progress).labels
        return decided(labels, self.params, self.categories)

    def replicated(self, copies: int) -> ShardedTool:
        """The same tool with each shard on `copies` workers, or on all if these are fewer. 1 gives copies up."""
        with self.require_shards():
            return self._replicated(copies)

    def _replicated(self, copies: int) -> ShardedTool:
        client = _client()
        if client is None:
            return self
        workers = sorted(client.scheduler_info(n_workers=-1)["workers"])
        shards = []
        for place, (shard, *_) in enumerate(self.shards):
            (holders,) = client.who_has([shard.dask[shard.key]]).values()
            first = workers.index(holders[0]) if holders and holders[0] in workers else place
            more = [workers[(first + step) % len(workers)] for step in range(1, min(copies, len(workers)))]
            made = [client.persist(delayed(_same)(shard), workers=[worker], allow_other_workers=True) for worker in more]
            shards.append([shard, *made])
        run([delayed(_rows)(shard) for held in shards for shard in held])
        again = copy(self)
        again.shards = shards
        return again


@sizeof.register(ClassifierTool)  # type: ignore[untyped-decorator]
def _size_of_tool(tool: ClassifierTool) -> int:
    """The bytes of a tool, so that Dask avoids moving shards: a kept pattern is an object, with its measurements twice."""
    return 1000 + tool.num_patterns * (150 + 12 * tool.num_measurements)


def _same(tool: ClassifierTool) -> ClassifierTool:
    return tool


def _searched(tool: ClassifierTool, X: Any, k: int, metric: Any, first: int) -> Found:
    """The rows of a shard that may be among the k nearest of all rows. `first` is the number of the shard's first row."""
    tool = copy(tool)
    tool.retrain(KNNParams(k, metric))
    kept = tool.num_patterns
    # The scan of all rows drops the same rows by the end of the first shard as the scan of the first shard.
    if kept <= k or first == 0:
        near = tool.neighbors(X)
        keep = np.ones(near.indices.shape, dtype=bool)
    else:
        near = tool.neighbors(X, k + 1)
        keep = np.ones(near.indices.shape, dtype=bool)
        keep[:, k:] = False
        tied = near.distances[:, k] == near.distances[:, k - 1]
        if tied.any():
            near, keep = _with_ties(tool, X, near, keep, tied)
    rows = near.indices[keep] + first
    labels = near.labels[keep]
    return Found(
        _small(keep.sum(axis=1)), near.distances[keep], rows.astype(_row_type(first + kept)), _small(labels)
    )


def _with_ties(
    tool: ClassifierTool, X: Any, near: Neighbors, keep: npt.NDArray[np.bool_], tied: npt.NDArray[np.bool_]
) -> tuple[Neighbors, npt.NDArray[np.bool_]]:
    """The neighbours, and which of them to keep. Further columns hold the first k rows within the distance of the last neighbour."""
    reach = near.distances[tied, -1]
    k = keep.shape[1] - 1
    ties = _first_within(tool, X[tied], reach, k)
    wide = _of_each(lambda part: np.pad(part, ((0, 0), (0, k))), near)
    for part, new in zip(wide, ties):
        part[tied, k + 1 :] = new
    keep = np.pad(keep, ((0, 0), (0, k)))
    keep[tied, : k + 1] = near.distances[tied] < reach[:, np.newaxis]
    keep[tied, k + 1 :] = ties.distances == reach[:, np.newaxis]
    return wide, keep


def _first_within(tool: ClassifierTool, X: Any, reach: npt.NDArray[np.float64], k: int) -> Neighbors:
    """The first k rows that are at most `reach` away. Requires: there are k such rows."""
    # A search is faster with few ties. With many ties a scan is faster, because it ends at the k-th row.
    near = tool.neighbors(X, min(8 * k, tool.num_patterns))
    inside = near.distances <= reach[:, np.newaxis]
    order = np.argsort(np.where(inside, near.indices, tool.num_patterns), axis=1)[:, :k]
    first = _of_each(lambda part: np.take_along_axis(part, order, axis=1), near)
    unsure = inside[:, -1] & (near.indices.shape[1] < tool.num_patterns)
    if unsure.any():
        scanned = tool.first_within(X[unsure], reach[unsure], k)
        for part, new in zip(first, scanned):
            part[unsure] = new
    return first


def _of_each(work: Any, near: Neighbors) -> Neighbors:
    return Neighbors(work(near.distances), work(near.indices), work(near.labels))


def _small(values: npt.NDArray[np.int64]) -> npt.NDArray[Any]:
    """The same numbers in fewer bytes. Requires: no number is negative."""
    return values.astype(np.min_scalar_type(int(values.max(initial=0))))


def _row_type(count: int) -> Any:
    return np.uint32 if count <= 2**32 else np.int64


class _Sorted(NamedTuple):
    """The rows within the distance of the k-th, sorted by query and then by index."""

    queries: npt.NDArray[np.int64]
    distances: npt.NDArray[np.float64]
    indices: npt.NDArray[np.int64]
    labels: npt.NDArray[np.int64]
    # The number of rows of each query; whether a row is nearer than the k-th; whether it is among the first k rows.
    counts: npt.NDArray[np.int64]
    nearer: npt.NDArray[np.bool_]
    early: npt.NDArray[np.bool_]


def _sorted(found: list[Found], k: int) -> _Sorted:
    count = len(found[0].counts)
    queries = np.concatenate([np.repeat(np.arange(count), part.counts) for part in found])
    distances = np.concatenate([part.distances for part in found])
    indices = np.concatenate([part.indices.astype(np.int64) for part in found])
    labels = np.concatenate([part.labels.astype(np.int64) for part in found])
    counts = np.bincount(queries, minlength=count)
    last = np.cumsum(counts) - counts + np.minimum(counts, k) - 1
    reach = distances[np.lexsort((distances, queries))][last]
    order = np.lexsort((indices, queries))
    order = order[distances[order] <= reach[queries[order]]]
    queries = queries[order]
    counts = np.bincount(queries, minlength=count)
    nearer = distances[order] < reach[queries]
    early = _places(np.ones(len(queries), dtype=np.int64), counts) <= k
    return _Sorted(queries, distances[order], indices[order], labels[order], counts, nearer, early)


def _places(ones: npt.NDArray[np.int64], counts: npt.NDArray[np.int64]) -> npt.NDArray[np.int64]:
    """For each row the number of ones from the first row of its query up to it."""
    sums = np.cumsum(ones)
    before = np.concatenate([[0], sums])[np.cumsum(counts) - counts]
    return np.asarray(sums - np.repeat(before, counts))


def _merged(found: list[Found], k: int) -> Found:
    """The rows of these shards that may be among the k nearest of all rows."""
    rows = _sorted(found, k)
    keep = rows.nearer | rows.early
    counts = np.bincount(rows.queries[keep], minlength=len(rows.counts))
    indices = rows.indices[keep]
    return Found(
        _small(counts),
        rows.distances[keep],
        indices.astype(_row_type(int(indices.max(initial=0)) + 1)),
        _small(rows.labels[keep]),
    )


def _nearest(found: list[Found], k: int) -> Neighbors:
    """The k nearest rows, or all if these are fewer. Nearest first; of rows at equal distance the last first."""
    rows = _sorted(found, k)
    count = len(rows.counts)
    nearer = np.bincount(rows.queries[rows.nearer], minlength=count)
    early = np.bincount(rows.queries[rows.nearer & rows.early], minlength=count)
    width = np.minimum(rows.counts, k)
    ties = _places((~rows.nearer).astype(np.int64), rows.counts)
    # Each nearer row after the first k takes the place of the earliest remaining tie.
    first, last = (nearer - early)[rows.queries], (width - early)[rows.queries]
    keep = rows.nearer | ((first < ties) & (ties <= last))
    order = np.flatnonzero(keep)
    order = order[np.lexsort((-rows.indices[order], rows.distances[order], rows.queries[order]))]
    shape = (count, int(width.max()) if count else k)
    return _of_each(lambda part: part[order].reshape(shape), Neighbors(rows.distances, rows.indices, rows.labels))


def decided(labels: npt.NDArray[np.int64], params: KNNParams, categories: npt.NDArray[np.int64]) -> RowResults:
    """The answers that a tool gives to rows whose neighbours have these labels."""
    if not len(labels):
        none = np.empty((0, len(categories)))
        return RowResults(np.empty(0, dtype=np.int64), categories, none, none, none, np.empty(0))
    votes, which = np.unique(np.sort(labels, axis=1), axis=0, return_inverse=True)
    count, k = votes.shape
    # A small tool decides. All neighbours of the i-th different vote lie at i. A row of each category lies far from all queries.
    tool = ClassifierTool()
    places = np.concatenate([np.repeat(np.arange(count), k), np.full(len(categories), -count)])
    tool.train(places[:, np.newaxis], np.concatenate([votes.ravel(), categories]), KNNParams(k, Norm(2.0), params.costs))
    rows = tool.run_rows(np.arange(count)[:, np.newaxis])
    which = which.reshape(-1)
    return RowResults(
        rows.labels[which],
        rows.categories,
        rows.match_scores[which],
        rows.class_scores[which],
        rows.expected_costs[which],
        rows.match_score_factor_logs[which],
    )


def _client() -> Client | None:
    """The current client. None without one, and inside a task: there Dask itself lets other tasks run while this one waits."""
    try:
        get_worker()
    except ValueError:
        pass
    else:
        return None
    try:
        client = default_client()
    except ValueError:
        return None
    if client.asynchronous:
        raise RuntimeError("a client that is asynchronous cannot fit: only what is lazy works with it")
    return client


def persisted(shards: list[Any]) -> tuple[list[Any], list[int]]:
    """Computes the shards on the workers that keep them. Returns those that have rows, and their numbers of rows."""
    held = dask.persist(*shards)
    counts = run([delayed(_rows)(shard) for shard in held])
    return [shard for shard, count in zip(held, counts) if count], [count for count in counts if count]


def _rows(tool: ClassifierTool) -> int:
    return tool.num_patterns


def run(tasks: list[Any]) -> list[Any]:
    """Computes delayed results. Raises an error if the cluster stays without workers."""
    client = _client()
    if client is None:
        return list(dask.compute(*tasks))
    try:
        return list(_gathered(client, client.compute(tasks)))
    except KilledWorker as error:
        raise _Lost(f"one worker after the other died during the task {error.task!r}: it may need more memory than they have") from error
    except CancelledError as error:
        _require_scheduler(client)
        raise _Lost("the workers lost data that cannot be computed again: fit or load anew") from error


def run_on(blocks: list[Any], task: Any) -> list[Any]:
    """Computes `task(block, number)` for each block. The blocks go to the workers directly, not through the scheduler."""
    client = _client()
    if client is None:
        return run([task(block, number) for number, block in enumerate(blocks)])
    for attempt in range(_ATTEMPTS):
        try:
            return run([task(block, number) for number, block in enumerate(_sent(client, blocks))])
        except _Lost:
            # A lost worker may have held blocks, so all are sent again.
            if attempt == _ATTEMPTS - 1:
                raise
    raise AssertionError


def _sent(client: Client, blocks: list[Any]) -> list[Any]:
    """Sends the blocks to workers. Tries again, because for a moment the scheduler still names workers that have died."""
    deadline = 0.0
    while True:
        try:
            return list(client.scatter(blocks, direct=True, hash=False, timeout=_PATIENCE))
        except TimeoutError as error:
            raise _without_workers() from error
        # The scheduler raises KeyError if a worker has died since it took a block.
        except (OSError, KeyError) as error:
            # The time runs from the first failure on, because connecting to a dead worker may take as long.
            now = monotonic()
            deadline = deadline or now + _PATIENCE
            if now > deadline:
                raise _without_workers() from error
            sleep(0.2)


def _gathered(client: Client, futures: list[Any]) -> Any:
    idle = 0.0
    while idle < _PATIENCE:
        try:
            wait(futures, timeout=2.0)
            return client.gather(futures, direct=True)
        except TimeoutError:
            _require_scheduler(client)
            idle = 0.0 if client.scheduler_info(n_workers=-1).get("workers") else idle + 2.0
    client.cancel(futures)
    raise _without_workers()


def _require_scheduler(client: Client) -> None:
    if client.status != "running":
        raise RuntimeError("the client has lost its scheduler")


def _without_workers() -> RuntimeError:
    return RuntimeError(f"the cluster has been without a worker for {_PATIENCE:g} seconds")
