#!/usr/bin/env python3
"""What Dask costs and gains: overhead beside NumPy, one worker and two, bytes moved, and a fit of data that no memory holds.

Without arguments every case runs, and a table is printed. --only NAME runs one case. --scale 0.01 takes that share of the rows, to
try the program out. The exit status is 1 if a row does not have what is wanted.

Workers are processes with one thread each. Linear algebra has one thread, too. Times are the shortest of several rounds. In each round
Dask and NumPy do the same work, one after the other.
"""

from __future__ import annotations

import argparse
import datetime
import os
import platform
import sys
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any, NamedTuple

for name in ("OPENBLAS_NUM_THREADS", "OMP_NUM_THREADS", "MKL_NUM_THREADS"):
    os.environ[name] = "1"

import dask
import dask.array as da
import distributed
import numpy as np
from dask.delayed import delayed
from dask.distributed import Client, LocalCluster, wait

import clastool.dask as cd
from clastool import sklearn as cs

GIB = 2**30


class Row(NamedTuple):
    what: str
    found: str
    demand: str = ""
    is_met: bool = True


@contextmanager
def workers(count: int, memory_limit: Any = 0) -> Iterator[Any]:
    with (
        LocalCluster(
            n_workers=count, threads_per_worker=1, processes=True, memory_limit=memory_limit, dashboard_address=None
        ) as cluster,
        Client(cluster) as client,
    ):
        yield client


def scattered(rows: int, seed: int, classes: int = 10) -> tuple[Any, Any]:
    random = np.random.default_rng(seed)
    centres = np.random.default_rng(0).normal(scale=2.0, size=(classes, 16))
    y = random.integers(0, classes, rows)
    return centres[y] + random.normal(size=(rows, 16)), y


def persisted(blocks: int, rows: int) -> tuple[Any, Any]:
    """The same rows as those of `scattered`, made where they lie."""
    parts = [delayed(scattered, nout=2)(rows, seed) for seed in range(blocks)]
    X = da.concatenate([da.from_delayed(part[0], (rows, 16), dtype=float) for part in parts])
    y = da.concatenate([da.from_delayed(part[1], (rows,), dtype=np.int64) for part in parts])
    X, y = dask.persist(X, y)
    wait([X, y])
    return X, y


def seconds(work: Callable[[], object]) -> float:
    # Dask's client waits up to 10 ms for more to send after it has released the results of the work before.
    time.sleep(0.02)
    begin = time.perf_counter()
    work()
    return time.perf_counter() - begin


def shortest(rounds: int, *works: Callable[[], object]) -> list[float]:
    """The shortest time of each work. The first round is left out, because it loads modules."""
    times = [[seconds(work) for work in works] for _ in range(rounds + 1)]
    return [min(column) for column in zip(*times[1:])]


def overhead(blocks: int, rows: int, rounds: int) -> list[Row]:
    """One worker beside NumPy in this process; the data lie where the work is done, and answers stay there."""
    own = [scattered(rows, seed) for seed in range(blocks)]
    X, y = (np.concatenate(parts) for parts in zip(*own))
    stored = min(10_000, len(X))
    bayes, neighbors = cs.BayesCostClassifier().fit(X, y), cs.KNeighborsCostClassifier().fit(X[:stored], y[:stored])
    size = f"{blocks} block{'s' * (blocks > 1)} of {rows:,} x 16"
    found = []

    def compare(what: str, ours: Callable[[], object], numpy: Callable[[], object]) -> None:
        dask_time, numpy_time = shortest(rounds, ours, numpy)
        more = dask_time / numpy_time - 1
        text = f"NumPy {1000 * numpy_time:.1f} ms, Dask {1000 * dask_time:.1f} ms: {more:+.0%}"
        found.append(Row(f"{what}, {size}", text, "at most +20%", more <= 0.2))

    def predictions(what: str, model: Any) -> None:
        compare(what, lambda: wait(cd.predict(model, lazy_X).persist()), lambda: [model.predict(part) for part, _ in own])

    with workers(1):
        lazy_X, lazy_y = persisted(blocks, rows)
        predictions("Bayes, predict", bayes)
        predictions(f"neighbours among {stored:,}, predict", neighbors)
        compare("Bayes, fit", lambda: cd.BayesCostClassifier().fit(lazy_X, lazy_y), lambda: cs.BayesCostClassifier().fit(X, y))
        one, all_blocks = shortest(rounds, lambda: empty(1), lambda: empty(blocks))
        found.append(Row("a task that does nothing, from the call to the result", f"{1000 * one:.1f} ms"))
        if blocks > 1:
            found.append(Row(f"{blocks} tasks that do nothing, and one that takes their results", f"{1000 * all_blocks:.1f} ms"))
        lazy_X = lazy_y = None
    # By a setting of Dask, workers give freed memory back at once, and each large array takes new pages. The first cluster has left the
    # setting in the environment of this process.
    os.environ.pop("MALLOC_TRIM_THRESHOLD_", None)
    with dask.config.set({"distributed.nanny.pre-spawn-environ.MALLOC_TRIM_THRESHOLD_": None}), workers(1):
        lazy_X, lazy_y = persisted(blocks, rows)
        predictions("Bayes, predict, `MALLOC_TRIM_THRESHOLD_` not set for workers", bayes)
        predictions(f"neighbours among {stored:,}, predict, `MALLOC_TRIM_THRESHOLD_` not set for workers", neighbors)
        lazy_X = lazy_y = None
    return found


def empty(count: int) -> None:
    nothing = delayed(int, pure=False)
    work = nothing() if count == 1 else delayed(len)([nothing() for _ in range(count)])
    work.compute()


def fit_of_generated(rows: int, limit: int) -> list[Row]:
    """Rows that are made on the fly, at no time all there."""
    chunk = min(500_000, rows // 50)
    with workers(2, memory_limit=limit) as client:
        random = da.random.default_rng(7)
        y = random.integers(0, 10, rows, chunks=chunk)
        X = random.normal(size=(rows, 16), chunks=(chunk, 16)) + y[:, np.newaxis]
        started = client.run(os.getpid)
        before = sum(client.run(time.process_time).values())
        fitted: Any = cd.BayesCostClassifier()
        taken = seconds(lambda: fitted.fit(X, y))
        worked = sum(client.run(time.process_time).values()) - before
        if client.run(os.getpid) != started:
            raise SystemExit("a worker was ended")
        peaks = client.run(peak_memory).values()
    assert fitted.class_count_.sum() == rows
    means = {(d.label, *d.measurements): d.mean[0] for d in fitted.tool_.densities()}
    worst = max(abs(mean - label) for (label, _), mean in means.items())
    assert len(means) == 160 and worst < 6.0 / np.sqrt(rows / 10), worst
    what = f"Bayes, fit of {rows:,} x 16 ({rows * 128 / GIB:.1f} GiB) that are generated on the fly, 2 workers with {limit / GIB:g} GiB each"
    return [
        Row(
            what,
            f"{taken:.0f} s by the clock, {worked:.0f} s of the workers' processors; peak of a worker {max(peaks) / GIB:.2f} GiB",
            f"within {limit / GIB:g} GiB",
            max(peaks) < limit,
        )
    ]


def neighbours(rows: int, queries: int, k: int = 5) -> list[Row]:
    """The same two shards on one worker and on two: what the processors do, and what the two workers send each other.

    The gain is in the processor's time of the busiest worker, which other programs on the machine change less than the clock's.
    """
    (X, y), (asked, _) = scattered(rows, 2), scattered(queries, 3)
    chunk = -(-rows // 2)
    expected = cs.KNeighborsCostClassifier(k).fit(X, y).predict(asked[:200])
    busy, clock, moved = [], [], []
    for count in (1, 2):
        with workers(count) as client:
            model = cd.KNeighborsCostClassifier(k).fit(da.from_array(X, chunks=(chunk, 16)), da.from_array(y, chunks=chunk))
            if not np.array_equal(model.predict(asked[:200]), expected):
                raise SystemExit("the answers differ")
            before = client.run(state)
            clock.append(seconds(lambda: model.predict(asked)))
            after = client.run(state)
            busy.append(sorted(after[worker][0] - before[worker][0] for worker in after))
            moved.append(sum(after[worker][1] - before[worker][1] for worker in after) / queries)
    gain = busy[0][-1] / busy[1][-1]
    between = (moved[1] - moved[0]) / 2
    bound = k * (16 + 16)
    what = f"neighbours, {queries:,} predictions, k = {k}, {rows:,} x 16 in 2 shards"
    times = " and ".join(f"{each:.1f}" for each in busy[1])
    return [
        Row(
            f"{what}: time of the processor of 1 worker, of 2",
            f"{busy[0][0]:.1f} s; {times} s: {gain:.2f} times; by the clock {clock[0]:.1f} s, {clock[1]:.1f} s",
            "1.6 times",
            gain >= 1.6,
        ),
        Row(
            f"{what}: bytes between 2 workers, for a query and a shard",
            f"{between:.0f}; the workers send {moved[0]:.0f} a query if there is one, {moved[1]:.0f} if there are two",
            f"at most k (16 + m) = {bound}",
            between <= bound,
        ),
    ]


def state(dask_worker: Any) -> tuple[float, int]:
    """The processor's seconds and the bytes sent of a worker."""
    return time.process_time(), int(dask_worker.transfer_outgoing_bytes_total)


def peak_memory() -> int:
    for line in Path("/proc/self/status").read_text(encoding="ascii").splitlines():
        if line.startswith("VmHWM"):
            return int(line.split()[1]) * 1024
    raise SystemExit("/proc/self/status has no VmHWM")


def cases(scale: float, memory: float, rounds: int) -> dict[str, Callable[[], list[Row]]]:
    def scaled(rows: int) -> int:
        return max(int(rows * scale), 1000)

    return {
        "block": lambda: overhead(1, scaled(100_000), rounds),
        "blocks": lambda: overhead(10, scaled(100_000), rounds),
        "neighbours": lambda: neighbours(scaled(1_000_000), scaled(10_000)),
        "fit": lambda: fit_of_generated(scaled(100_000_000), int(memory * GIB)),
    }


def processor() -> str:
    for line in Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            return " ".join(line.split(":")[1].split())
    return platform.processor()


def met(row: Row) -> str:
    return ("yes" if row.is_met else "no") if row.demand else ""


def table(rows: list[Row]) -> str:
    return "\n".join(
        [
            f"Measured on {datetime.datetime.now(datetime.timezone.utc).date()} on {os.cpu_count()} cores of {processor()}, Python "
            f"{platform.python_version()}, Dask {dask.__version__},",
            f"Distributed {distributed.__version__}, NumPy {np.__version__}. Workers are processes with one thread.",
            "",
            "| What | Found | Wanted | Met |",
            "|---|---|---|---|",
            *(f"| {row.what} | {row.found} | {row.demand} | {met(row)} |" for row in rows),
        ]
    )


def main(arguments: list[str]) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", choices=list(cases(1.0, 1.0, 1)))
    parser.add_argument("--scale", type=float, default=1.0)
    parser.add_argument("--memory", type=float, default=2.0, help="GiB for each worker that fits generated rows")
    parser.add_argument("--rounds", type=int, default=9, help="of which the shortest time counts")
    options = parser.parse_args(arguments)
    rows: list[Row] = []
    for name, case in cases(options.scale, options.memory, options.rounds).items():
        if options.only in (None, name):
            rows += case()
    print(table(rows))
    sys.exit(0 if all(row.is_met for row in rows) else 1)


if __name__ == "__main__":
    main(sys.argv[1:])
