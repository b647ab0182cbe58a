"""The notebooks say what the pages in docs/ show."""

from __future__ import annotations

import os
import runpy
import subprocess
import sys
from pathlib import Path
from typing import Any

import pytest
from distributed import LocalCluster

FOLDER = Path(__file__).resolve().parents[1] / "notebooks"
RENDER: dict[str, Any] = runpy.run_path(str(FOLDER / "render.py"))


@pytest.mark.usefixtures("patience")
@pytest.mark.parametrize("notebook", RENDER["notebooks"](), ids=lambda path: path.stem)
def test_page_is_what_the_notebook_says(notebook: Path, tmp_path: Path) -> None:
    page = RENDER["page_of"](notebook).read_text(encoding="utf-8")
    assert RENDER["render"](notebook, tmp_path) == page
    drawn = {path.name for path in tmp_path.glob("*.png")}
    shown = {path.name for path in (FOLDER.parents[1] / "docs" / "images" / "python").glob(f"{notebook.stem.replace('_', '-')}-*.png")}
    assert drawn == shown and len(drawn) > 0
    for name in drawn:
        assert f"(images/python/{name})" in page
        assert (tmp_path / name).stat().st_size > 4000


def test_there_are_four_notebooks() -> None:
    assert [path.stem for path in RENDER["notebooks"]()] == ["choose_by_cost", "fuzzy_inspection", "many_parts", "to_a_program"]


@pytest.mark.usefixtures("patience")
def test_many_parts_go_to_the_cluster_that_the_environment_names(tmp_path: Path) -> None:
    picture, parts = tmp_path / "tasks.png", tmp_path / "parts"
    parts.mkdir()
    with LocalCluster(n_workers=1, threads_per_worker=1, dashboard_address=None) as cluster:
        environment = {"SCHEDULER": cluster.scheduler_address, "FOLDER": str(parts), "PARTS": "2000", "PICTURE": str(picture)}
        done = subprocess.run(
            [sys.executable, str(FOLDER / "many_parts.py")],
            env={**os.environ, **environment, "MPLBACKEND": "Agg"},
            cwd=tmp_path,
            capture_output=True,
            text=True,
            timeout=300,
        )
        kinds = [str(name) for name in cluster.scheduler.task_prefixes]
    assert done.returncode == 0, done.stderr
    assert any("learnt" in kind for kind in kinds)
    title, _, _, *rows, survived, _ = done.stdout.splitlines()
    assert title == "2,000 parts in 20 files"
    assert [row.split()[0] for row in rows] == ["cracked", "good", "worn"]
    assert sum(int(count) for row in rows for count in row.split()[1:]) == 2000
    assert survived == "no worker was ended: True"
    assert len(list(parts.glob("*.parquet"))) == 20
    assert picture.stat().st_size > 4000
