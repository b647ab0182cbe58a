"""Progress bars, where tqdm is installed."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Optional

Progress = Optional[Callable[[int, Optional[int]], None]]


@contextmanager
def progress_bar(description: str, verbose: object) -> Iterator[Progress]:
    """A function of two numbers, the rows done and all rows, for the parameter `progress` of a tool's operations.

    The number of all rows may be None. Yields None instead of a function if `verbose` is false or tqdm is not installed.
    """
    if not verbose:
        yield None
        return
    try:
        from tqdm.auto import tqdm
    except ImportError:
        yield None
        return
    with tqdm(desc=description, unit="row") as bar:

        def show(done: int, total: int | None) -> None:
            bar.total = total
            bar.update(done - bar.n)

        yield show
