"""Classifiers that decide by expected cost: Bayes, nearest neighbours, decision trees and fuzzy rules.

An archive that is stored here is loaded by a C++ program, which gives the same answers to the bit, and the other way round.
"""

from __future__ import annotations

from . import _clastool
from ._clastool import *  # noqa: F403
from ._clastool import __version__ as __version__
from ._tables import Neighbors as Neighbors
from ._tables import RowResults as RowResults
from .errors import *  # noqa: F403
