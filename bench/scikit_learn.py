"""Times scikit-learn where it goes another way than a scan for each query: batches and a k-d tree.

Writes a file in the form of Google Benchmark's: scikit_learn.py DRAW OUTPUT LEAST_SECONDS [FILTER]. Times are per query. The
program DRAW writes the same data as the other programs have."""

import json
import re
import subprocess
import sys
import time

import numpy
from sklearn.neighbors import KDTree, KNeighborsClassifier

K = 5
CATEGORIES = 5
BATCH = 1000
KINDS = ["separated", "overlapping", "uniform"]
CASES = [(kind, n, d) for kind in KINDS for n, d in [(1000, 2), (100000, 4), (1000000, 4), (100000, 8)]]
CASES += [("overlapping", n, d) for n, d in [(1000, 4), (1000, 16), (1000, 64), (100000, 16), (100000, 64)]]
CASES += [("digits-like", 1000, 64), ("digits-like", 100000, 64)]
# A product of 1000 queries with more patterns takes seconds, and so do 1000 queries of a tree with more measurements.
MOST_BRUTE = 100000
MOST_TREE = 8


def draw(program, kind, patterns, measurements, seed):
    drawn = subprocess.run([program, kind, *map(str, (patterns, measurements, seed))], check=True, capture_output=True)
    return numpy.frombuffer(drawn.stdout).reshape(patterns, measurements)


def microseconds(run, queries, least_seconds):
    """Processor time of a query, from as many calls of `run`, each of `queries`, as take `least_seconds`."""
    run(0)
    calls = 0
    begin = time.process_time()
    while True:
        run(calls)
        calls += 1
        taken = time.process_time() - begin
        if taken >= least_seconds:
            return taken / calls / queries * 1e6


def main():
    program, output, least_seconds = sys.argv[1], sys.argv[2], float(sys.argv[3])
    wanted = re.compile(sys.argv[4] if len(sys.argv) > 4 else "")
    rows = []
    for kind, patterns, measurements in CASES:
        name = f"peers/{kind}/{patterns}x{measurements}/"
        names = [name + who for who in ("sklearn_batch", "sklearn_tree", "sklearn_tree_batch")]
        if not any(wanted.search(each) for each in names):
            continue
        data = draw(program, kind, patterns, measurements, 2)
        batch = draw(program, kind, BATCH, measurements, 3)
        runs = []
        if patterns <= MOST_BRUTE:
            brute = KNeighborsClassifier(K, algorithm="brute").fit(data, numpy.arange(patterns) % CATEGORIES)
            runs.append((names[0], lambda _: brute.predict(batch), BATCH))
        tree = KDTree(data)
        runs.append((names[1], lambda i: tree.query(batch[i % BATCH : i % BATCH + 1], K), 1))
        if measurements <= MOST_TREE:
            runs.append((names[2], lambda _: tree.query(batch, K), BATCH))
        for who, run, queries in runs:
            rows.append({"name": who, "cpu_time": microseconds(run, queries, least_seconds), "time_unit": "us"})
    with open(output, "w", encoding="utf-8") as file:
        json.dump({"benchmarks": rows}, file)


main()
