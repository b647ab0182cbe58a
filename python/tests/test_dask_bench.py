"""The programs of bench/dask run, on few rows, and find right answers."""

from __future__ import annotations

import re
import runpy
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import pytest

FOLDER = Path(__file__).resolve().parents[1] / "bench" / "dask"


@pytest.fixture
def measure(client: Any) -> Any:
    """The program, with the workers of all tests in place of its own."""

    @contextmanager
    def workers(count: int, memory_limit: Any = 0) -> Iterator[Any]:
        yield client

    program = runpy.run_path(str(FOLDER / "measure.py"))
    program["main"].__globals__["workers"] = workers
    return program["main"]


@pytest.mark.parametrize(
    ("case", "rows"),
    [
        ("block", ["Bayes, predict", "neighbours among 1,000", "Bayes, fit", "a task", "Bayes, predict", "neighbours among 1,000"]),
        ("neighbours", ["neighbours, 1,000 predictions", "neighbours, 1,000 predictions"]),
        ("fit", ["Bayes, fit of 20,000 x 16"]),
    ],
)
def test_each_case_gives_its_rows(case: str, rows: list[str], measure: Any, capsys: Any) -> None:
    with pytest.raises(SystemExit) as end:
        measure(["--only", case, "--scale", "0.0002", "--rounds", "1"])
    lines = capsys.readouterr().out.splitlines()
    table = [line.strip("| ").split(" | ") for line in lines if line.startswith("| ")][1:]
    assert [what for (what, *_), begin in zip(table, rows, strict=True) if not what.startswith(begin)] == []
    # Whether times are short enough is for a machine that does nothing else.
    assert end.value.code == (1 if any(row[-1] == "no" for row in table) else 0)


def test_the_simulation_tells_what_the_scheduler_does(capsys: Any) -> None:
    simulate = runpy.run_path(str(FOLDER / "simulate.py"))
    with simulate["cluster"](3, 1) as client:
        assert len(client.scheduler_info(n_workers=-1)["workers"]) == 3
        simulate["sleep"](client, 3, 20, 0.01)
        simulate["fit"](client, 3, 10)
    told = capsys.readouterr().out
    # A merge of eight takes 3 tasks for 20 partitions, and one for these.
    assert "3 workers, 20 partitions that sleep 0.01 s, 24 tasks\n" in told
    assert "3 workers, fit of 10 partitions of 100 x 16\n" in told
    assert len(re.findall(r"scheduler: \d+\.\d+ ms of the processor", told)) == 2
    assert len(re.findall(r"scheduler: \d+\.\d+ KiB of memory", told)) == 2
    # Each task is sent to a worker and its end is told.
    messages = [float(found) for found in re.findall(r"workers: (\d+\.\d+) messages", told)]
    assert len(messages) == 2 and messages[0] > 0.5
    assert re.search(r"a model takes \d,\d{3} bytes\n", told)
