"""Times scikit-learn where it goes another way than a scan for each query: batches and a k-d tree.

Writes a file in the form of Google Benchmark's: scikit_learn.py OUTPUT LEAST_SECONDS. Times are per query."""

import json
import sys
import time

import numpy
from sklearn.neighbors import KDTree, KNeighborsClassifier

K = 5
CATEGORIES = 5
BATCH = 1000
BATCH_SIZES = [(1000, 4), (1000, 16), (1000, 64), (10000, 16), (10000, 64), (100000, 4), (100000, 16), (100000, 64)]
TREE_SIZES = [(1000, 4), (100000, 4), (1000000, 4), (100000, 16)]


def draw(patterns, measurements, seed):
    """The recipe of kit/kit.h with another source of random numbers."""
    centres = numpy.random.default_rng(1).normal(0.0, 0.5, (CATEGORIES, measurements))
    labels = numpy.arange(patterns) % CATEGORIES
    return centres[labels] + numpy.random.default_rng(seed).normal(size=(patterns, measurements)), labels


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
    output, least_seconds = sys.argv[1], float(sys.argv[2])
    rows = []

    def note(size, who, run, queries):
        name = "neighbors/order:2/{}x{}/{}".format(*size, who)
        rows.append({"name": name, "cpu_time": microseconds(run, queries, least_seconds), "time_unit": "us"})

    for size in dict.fromkeys(BATCH_SIZES + TREE_SIZES):
        data, labels = draw(*size, seed=2)
        batch, _ = draw(BATCH, size[1], seed=3)
        if size in BATCH_SIZES:
            brute = KNeighborsClassifier(K, algorithm="brute").fit(data, labels)
            note(size, "sklearn_batch", lambda _: brute.predict(batch), BATCH)
        if size in TREE_SIZES:
            tree = KDTree(data)
            note(size, "sklearn_tree", lambda i: tree.query(batch[i % BATCH : i % BATCH + 1], K), 1)
            note(size, "sklearn_tree_batch", lambda _: tree.query(batch, K), BATCH)
    with open(output, "w", encoding="utf-8") as file:
        json.dump({"benchmarks": rows}, file)


main()
