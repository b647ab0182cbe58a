#!/usr/bin/env python3
"""Seven of the measurements of examples/data/cell_nuclei.csv as JSON for the page; last in each row 1 for malignant."""

import csv
import json
import sys

NAMES = [
    "worst_radius",
    "worst_texture",
    "worst_area",
    "worst_smoothness",
    "worst_concavity",
    "worst_concave_points",
    "worst_symmetry",
]
rows = [
    [float(row[name]) for name in NAMES] + [1 if row["diagnosis"] == "malignant" else 0]
    for row in csv.DictReader(sys.stdin)
]
json.dump({"names": NAMES, "rows": rows}, sys.stdout, separators=(",", ":"))
