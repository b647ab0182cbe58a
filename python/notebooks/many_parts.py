# %% [markdown]
# # Many parts
#
# Parts are measured in sixteen places and stored in Parquet files. The workers of a Dask cluster train a Bayes classifier on these files
# and classify the parts in them. A worker holds one file at a time, so the data may be larger than its memory.
#
# `PARTS` in the environment is the number of parts. This page was made with 200,000, whose measurements take 24 MiB.
# The script also ran with 20,000,000 on two cores, in 86 seconds: their measurements take 2.4 GiB, and each worker stayed below 512 MiB.

# %%
import os
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from tempfile import TemporaryDirectory
from typing import Any

import dask
import dask.dataframe as dd
import numpy as np
import pandas as pd
from dask.distributed import Client, LocalCluster, get_task_stream
from matplotlib import pyplot as plt

import clastool.dask

PARTS = int(os.environ.get("PARTS", 200_000))
FILES = max(20, -(-PARTS // 100_000))
MEASUREMENTS = [f"place {place}" for place in range(1, 17)]

# %% [markdown]
# ## The parts
#
# The workers write files of at most 100,000 parts. One part in five is worn, and one in fifty is cracked. Worn parts are a little too
# small in every place, and cracked ones are far too small in two places.


# %%
def write(folder: str, number: int, rows: int) -> int:
    random = np.random.default_rng(number)
    state = random.choice(["good", "worn", "cracked"], size=rows, p=[0.78, 0.2, 0.02])
    X = 20.0 + 0.1 * random.normal(size=(rows, len(MEASUREMENTS)))
    X[state == "worn"] -= 0.12
    X[state == "cracked", 3:5] -= 0.4
    pd.DataFrame(X, columns=MEASUREMENTS).assign(state=state).to_parquet(f"{folder}/parts-{number:04}.parquet")
    return rows


# %% [markdown]
# ## The workers
#
# The cluster is two processes on this machine. Dask ends a worker that takes more than 512 MiB. If `SCHEDULER` is in the environment, the
# same script runs on that cluster:
#
#     dask scheduler                                       # on one machine: it prints its address
#     dask worker tcp://192.168.0.5:8786                   # on each of the others
#     export SCHEDULER=tcp://192.168.0.5:8786 FOLDER=/shared/parts PARTS=20000000 PICTURE=tasks.png
#     python many_parts.py
#
# All machines need the package and the folder.


# %%
@contextmanager
def cluster() -> Iterator[Any]:
    if "SCHEDULER" in os.environ:
        with Client(os.environ["SCHEDULER"]) as client:
            yield client
    else:
        with LocalCluster(n_workers=2, threads_per_worker=1, memory_limit="512MiB", dashboard_address=":0") as local:
            with Client(local) as client:
                yield client


@contextmanager
def place_for_files() -> Iterator[str]:
    if "FOLDER" in os.environ:
        yield os.environ["FOLDER"]
    else:
        with TemporaryDirectory() as folder:
            yield folder


# %% [markdown]
# ## Learning and classifying
#
# A cracked part that is delivered costs 200 times as much as a good part that is thrown away. In `fit`, a worker reads a file and learns a
# model from it, and the models are merged. The workers also count the decisions, so that only counts are sent to this script.


# %%
def peak_memory() -> int:
    """The most memory that this process has taken, in bytes."""
    for line in Path("/proc/self/status").read_text().splitlines():
        if line.startswith("VmHWM"):
            return int(line.split()[1]) * 1024
    return 0


def work(folder: str) -> Any:
    with cluster() as client, get_task_stream(client) as stream:
        started = client.run(os.getpid)
        written = dask.compute(*(dask.delayed(write)(folder, number, PARTS // FILES) for number in range(FILES)))
        parts = dd.read_parquet(f"{folder}/parts-*.parquet")
        costs = {("cracked", "good"): 200, ("cracked", "worn"): 40, ("worn", "good"): 5, "default": 1}
        model = clastool.dask.BayesCostClassifier(costs=costs).fit(parts[MEASUREMENTS], parts["state"])
        classified = parts.assign(decided=model.predict(parts[MEASUREMENTS]))
        counts = classified.groupby(["state", "decided"]).size(split_out=1).compute()
        peaks = client.run(peak_memory).values()
        survived = client.run(os.getpid) == started
    print(f"{sum(written):,} parts in {FILES} files")
    print(counts.unstack(fill_value=0).loc[model.classes_, model.classes_].to_string())
    print("no worker was ended:", survived)
    print("each worker stayed below 512 MiB:", max(peaks) < 512 * 2**20)
    return stream.data


# Each worker process imports this file, and must not start the work again.
if __name__ == "__main__":
    with place_for_files() as folder:
        tasks = work(folder)

# %% [markdown]
# ## What the workers did
#
# Dask records when each task ran, and on which worker. If Bokeh is installed, the page at the client's `dashboard_link` shows the
# tasks while they run.

# %%
KINDS = {"write": "#7f8c8d", "merged": "#111111", "learnt": "#0b5fa5", "answered": "#a63a00"}


def kind_of(key: Any) -> str:
    return next((kind for kind in KINDS if kind in str(key)), "others")


def draw(tasks: list[Any]) -> None:
    workers = sorted({task["worker"] for task in tasks})
    steps = [(task, step) for task in tasks for step in task["startstops"] if step["action"] == "compute"]
    begin = min(step["start"] for _, step in steps)
    _, ax = plt.subplots(figsize=(8, 2.4), layout="constrained")
    for kind, color in {**KINDS, "others": "#c9d6df"}.items():
        own = [(workers.index(task["worker"]), step) for task, step in steps if kind_of(task["key"]) == kind]
        if own:
            places, lengths = [place for place, _ in own], [step["stop"] - step["start"] for _, step in own]
            ax.barh(places, lengths, left=[step["start"] - begin for _, step in own], color=color, label=kind)
    ax.set(xlabel="seconds", yticks=range(len(workers)), yticklabels=[f"worker {place + 1}" for place in range(len(workers))])
    ax.legend(loc="upper center", bbox_to_anchor=(0.5, 1.3), ncols=6, frameon=False)


if __name__ == "__main__":
    draw(tasks)
    if "PICTURE" in os.environ:
        plt.savefig(os.environ["PICTURE"])
