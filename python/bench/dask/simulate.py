#!/usr/bin/env python3
"""Dask's own scheduler under the load of a large cluster: many workers whose tasks sleep.

    simulate.py --workers 1000 --partitions 10000 --seconds 1
    simulate.py --workers 20 --partitions 4000 --fit

The graph is that of learning: a task for each partition, whose results are merged eight at a time. The scheduler is a program of
its own. The workers are Dask's, many of them in a process, and a task only sleeps. So a small machine has room for them.
Printed are what the processor did for scheduler and client, the scheduler's memory, messages and bytes, and the time beside the one that
the sleeping alone takes. With --fit the graph is that of BayesCostClassifier.fit, and its tasks are real, of next to no rows.
"""

from __future__ import annotations

import argparse
import asyncio
import os
import pickle
import resource
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from contextlib import ExitStack, contextmanager
from tempfile import TemporaryDirectory
from typing import Any

from dask.base import tokenize
from dask.distributed import Client, Worker

BRANCHES = 8
# Workers that share a process share its processor: what each does beside its tasks is left out.
SETTINGS = {
    "DASK_DISTRIBUTED__ADMIN__SYSTEM_MONITOR__INTERVAL": "1h",
    "DASK_DISTRIBUTED__ADMIN__SYSTEM_MONITOR__GIL__ENABLED": "False",
    "DASK_DISTRIBUTED__ADMIN__TICK__INTERVAL": "10s",
    "DASK_DISTRIBUTED__WORKER__PROFILE__ENABLED": "False",
    "DASK_DISTRIBUTED__COMM__TIMEOUTS__CONNECT": "120s",
    "DASK_DISTRIBUTED__COMM__TIMEOUTS__TCP": "300s",
    "DASK_DISTRIBUTED__SCHEDULER__WORKER_TTL": "600s",
}


def graph(partitions: int, seconds: float) -> tuple[dict[str, Any], str]:
    name = tokenize(time.time())
    tasks: dict[str, Any] = {f"learn-{name}-{place}": (time.sleep, seconds) for place in range(partitions)}
    level, height = list(tasks), 0
    while len(level) > 1:
        height += 1
        above = [f"merge-{name}-{height}-{first}" for first in range(0, len(level), BRANCHES)]
        for place, key in enumerate(above):
            tasks[key] = (len, level[place * BRANCHES : (place + 1) * BRANCHES])
        level = above
    return tasks, level[0]


async def host(file: str, count: int) -> None:
    """Some workers in this process, until it is ended."""
    for _ in range(count):
        await Worker(scheduler_file=file, nthreads=1, memory_limit=0, dashboard=False)
    await asyncio.Event().wait()


def sent_by_scheduler(dask_scheduler: Any) -> tuple[int, int, float, int]:
    """Messages, bytes, the seconds of the processor, and the most bytes of memory so far."""
    streams = list(dask_scheduler.stream_comms.values())
    memory = 1024 * resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    return sum(s.message_count for s in streams), sum(s.byte_count for s in streams), time.process_time(), memory


def sent_by_worker(dask_worker: Any) -> tuple[int, int]:
    return dask_worker.batched_stream.message_count, dask_worker.batched_stream.byte_count


def state(client: Any) -> list[float]:
    own = client.run_on_scheduler(sent_by_scheduler)
    workers = list(client.run(sent_by_worker).values())
    return [own[0] + sum(w[0] for w in workers), own[1] + sum(w[1] for w in workers), *own[2:]]


@contextmanager
def cluster(workers: int, hosts: int) -> Iterator[Any]:
    with ExitStack() as starts:
        folder = starts.enter_context(TemporaryDirectory())
        file = f"{folder}/address"

        def start(*command: str) -> None:
            command = (sys.executable, *command, "--scheduler-file", file)
            process = subprocess.Popen(
                command, env={**os.environ, **SETTINGS}, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
            )
            starts.callback(process.wait)
            starts.callback(process.kill)

        start("-m", "dask", "scheduler", "--host", "127.0.0.1", "--port", "0", "--no-dashboard")
        for place in range(hosts):
            start(os.path.abspath(__file__), "--workers", str(workers // hosts + (place < workers % hosts)))
        client = starts.enter_context(Client(scheduler_file=file, timeout=120))
        client.wait_for_workers(workers, timeout=300)
        yield client


def tell(client: Any, each: str, count: int, work: Callable[[], object]) -> float:
    """What the work takes of the scheduler and of the client, for each task or partition; returns the time by the clock."""
    before, own, begin = state(client), time.process_time(), time.monotonic()
    work()
    taken, own = time.monotonic() - begin, time.process_time() - own
    messages, size, processor, memory = (now - then for now, then in zip(state(client), before))
    print(f"scheduler: {1000 * processor / count:.3f} ms of the processor a {each}, busy {processor / taken:.0%} of the time")
    print(f"scheduler: {memory / 1024 / count:.1f} KiB of memory a {each}")
    print(f"client: {1000 * own / count:.3f} ms of the processor a {each}")
    print(f"between scheduler and workers: {messages / count:.2f} messages and {size / count:.0f} bytes a {each}")
    return taken


def sleep(client: Any, workers: int, partitions: int, seconds: float) -> None:
    tasks, last = graph(partitions, seconds)
    print(f"{workers} workers, {partitions} partitions that sleep {seconds:g} s, {len(tasks)} tasks")
    taken = tell(client, "task", len(tasks), lambda: client.get(tasks, last))
    print(f"time: {taken:.1f} s; the sleeping alone takes {-(-partitions // workers) * seconds:.1f} s")


def fit(client: Any, workers: int, partitions: int) -> None:
    """A real fit of partitions with hardly a row, so that nearly all is what Dask takes."""
    # Not at the head of the file: workers that only sleep need neither.
    import dask.array as da

    from clastool.dask import BayesCostClassifier

    random = da.random.default_rng(1)
    y = random.integers(0, 10, 100 * partitions, chunks=100)
    X = random.normal(size=(100 * partitions, 16), chunks=(100, 16))
    print(f"{workers} workers, fit of {partitions} partitions of 100 x 16")
    models = []
    tell(client, "partition", partitions, lambda: models.append(BayesCostClassifier().fit(X, y)))
    print(f"a model takes {len(pickle.dumps(models[0].tool_)):,} bytes")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--workers", type=int, default=1000)
    parser.add_argument("--partitions", type=int, default=10000)
    parser.add_argument("--seconds", type=float, default=1.0)
    parser.add_argument("--hosts", type=int, default=1, help="processes that the workers share")
    parser.add_argument("--fit", action="store_true", help="fits a classifier in place of sleeping")
    parser.add_argument("--scheduler-file", help="runs workers of this scheduler")
    options = parser.parse_args()
    if options.scheduler_file:
        asyncio.run(host(options.scheduler_file, options.workers))
    else:
        with cluster(options.workers, min(options.hosts, options.workers)) as client:
            if options.fit:
                fit(client, options.workers, options.partitions)
            else:
                sleep(client, options.workers, options.partitions, options.seconds)


if __name__ == "__main__":
    main()
