"""What all tests share."""

from __future__ import annotations

from hypothesis import settings

# No test fails because the machine is busy.
settings.register_profile("clastool", deadline=None)
settings.load_profile("clastool")
