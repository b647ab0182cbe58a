"""The code on the page of the estimators answers what stands there."""

from __future__ import annotations

import doctest
from pathlib import Path

PAGE = Path(__file__).resolve().parents[2] / "docs" / "python-estimators.md"


def test_page_shows_what_is_answered() -> None:
    outcome = doctest.testfile(str(PAGE), module_relative=False)
    assert outcome.failed == 0 and outcome.attempted == 26
