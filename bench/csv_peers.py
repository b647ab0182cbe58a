#!/usr/bin/env python3
"""Times pandas' C reader on the table that kit_times left: csv_peers.py FILE [ROUNDS]."""

import sys
import time

import pandas

rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 3
best = float("inf")
for _ in range(rounds):
    begin = time.perf_counter()
    table = pandas.read_csv(sys.argv[1], engine="c")
    best = min(best, time.perf_counter() - begin)
print(f"pandas {pandas.__version__}, {table.shape[0]} x {table.shape[1]}: {1000 * best:.1f} ms")
