#!/usr/bin/env python3
"""Runs the notebooks and compares what they say with the pages in docs/. With --update it writes pages and pictures anew.

A notebook is a file in the percent format, which editors open as a notebook: cells begin with `# %%`, and those of text with
`# %% [markdown]`. On its page each cell of code is followed by what it prints and draws. Pictures are not compared, because their
bytes hang on versions of matplotlib and of fonts; their number is.
"""

from __future__ import annotations

import contextlib
import io
import re
import sys
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot as plt

HERE = Path(__file__).resolve().parent
DOCS = HERE.parents[1] / "docs"
CELL = re.compile(r"^# %%(.*)\n", flags=re.MULTILINE)


def cells(text: str) -> list[tuple[bool, str]]:
    """Whether a cell is text, and what stands in it."""
    parts = CELL.split(text)
    return [("[markdown]" in kind, body.strip("\n")) for kind, body in zip(parts[1::2], parts[2::2])]


def prose(body: str) -> str:
    return "\n".join(re.sub(r"^# ?", "", line) for line in body.splitlines())


def run(body: str, names: dict[str, object]) -> str:
    """What a cell of code prints."""
    printed = io.StringIO()
    with contextlib.redirect_stdout(printed):
        exec(compile(body, "a cell", "exec"), names)
    return printed.getvalue().rstrip("\n")


def render(notebook: Path, pictures: Path) -> str:
    """The page of a notebook; its pictures go into a folder."""
    names: dict[str, object] = {"__name__": "__main__"}
    stem = notebook.stem.replace("_", "-")
    page: list[str] = []
    count = 0
    plt.rcParams.update({"figure.dpi": 90, "savefig.dpi": 90})
    for is_text, body in cells(notebook.read_text(encoding="utf-8")):
        if is_text:
            page.append(prose(body))
            continue
        printed = run(body, names)
        page.append(f"```python\n{body}\n```")
        if printed:
            page.append(f"```text\n{printed}\n```")
        for number in plt.get_fignums():
            count += 1
            plt.figure(number).savefig(pictures / f"{stem}-{count}.png", metadata={"Software": None})
            page.append(f"![Picture {count}](images/python/{stem}-{count}.png)")
        plt.close("all")
    page.append(f"This page is the notebook `python/notebooks/{notebook.name}`, run.")
    return "\n\n".join(page) + "\n"


def page_of(notebook: Path) -> Path:
    return DOCS / f"python-{notebook.stem.replace('_', '-')}.md"


def notebooks() -> list[Path]:
    return [path for path in sorted(HERE.glob("*.py")) if path.name != "render.py"]


def main() -> None:
    import tempfile

    for notebook in notebooks():
        if "--update" in sys.argv:
            (DOCS / "images" / "python").mkdir(exist_ok=True)
            page_of(notebook).write_text(render(notebook, DOCS / "images" / "python"), encoding="utf-8")
        else:
            with tempfile.TemporaryDirectory() as folder:
                if render(notebook, Path(folder)) != page_of(notebook).read_text(encoding="utf-8"):
                    sys.exit(f"{page_of(notebook)} is not what {notebook.name} says; --update writes it anew")


if __name__ == "__main__":
    main()
