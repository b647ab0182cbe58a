"""The notebooks say what the pages in docs/ show."""

from __future__ import annotations

import runpy
from pathlib import Path
from typing import Any

import pytest

FOLDER = Path(__file__).resolve().parents[1] / "notebooks"
RENDER: dict[str, Any] = runpy.run_path(str(FOLDER / "render.py"))


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


def test_there_are_three_notebooks() -> None:
    assert [path.stem for path in RENDER["notebooks"]()] == ["choose_by_cost", "fuzzy_inspection", "to_a_program"]
