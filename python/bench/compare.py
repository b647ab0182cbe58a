#!/usr/bin/env python3
"""The estimators beside scikit-learn's: times and memory as ratios in one run, and accuracy.

Without arguments every case runs in a process of its own, on one processor and with one thread, and a table is printed. --record
also writes it into docs/python-benchmarks.md. --case NAME runs one case and prints its row.

In each round both sides do the same work one after the other, in changing order. A ratio is that of the medians of the rounds.
"""

from __future__ import annotations

import argparse
import datetime
import os
import platform
import subprocess
import sys
import time
from collections.abc import Callable
from pathlib import Path
from statistics import median
from typing import Any, NamedTuple

THREADS = {name: "1" for name in ("OPENBLAS_NUM_THREADS", "OMP_NUM_THREADS", "MKL_NUM_THREADS")}
PAGE = Path(__file__).resolve().parents[2] / "docs" / "python-benchmarks.md"


class Row(NamedTuple):
    what: str
    found: str
    demand: str
    is_met: bool


def seconds(work: Callable[[], object]) -> float:
    """The time of the processor: with one thread it is that of the clock on an idle machine, and means something on a busy one."""
    begin = time.process_time()
    work()
    return time.process_time() - begin


def medians(ours: Callable[[], object], theirs: Callable[[], object], rounds: int) -> tuple[float, float]:
    times: list[tuple[float, float]] = []
    for number in range(rounds):
        if number % 2:
            other = seconds(theirs)
            times.append((seconds(ours), other))
        else:
            times.append((seconds(ours), seconds(theirs)))
    return median(t[0] for t in times), median(t[1] for t in times)


def scattered(rows: int, measurements: int, classes: int, seed: int) -> tuple[Any, Any]:
    import numpy as np

    random = np.random.default_rng(seed)
    centres = random.normal(scale=2.0, size=(classes, measurements))
    y = random.integers(0, classes, rows)
    return centres[y] + random.normal(size=(rows, measurements)), y


def neighbors_case(rows: int, measurements: int, algorithm: str, times: float, rounds: int, kernels: str | None = None) -> list[Row]:
    import numpy as np
    from clastool.sklearn import KNeighborsCostClassifier
    from sklearn.neighbors import KNeighborsClassifier
    from threadpoolctl import threadpool_info

    X, y = scattered(rows + 10_000, measurements, 10, 1)
    X, y, query = X[:rows], y[:rows], X[rows:]
    ours = KNeighborsCostClassifier(5).fit(X, y)
    theirs = KNeighborsClassifier(5, algorithm=algorithm).fit(X, y)
    if not np.array_equal(ours.predict(query[:500]), theirs.predict(query[:500])):
        raise SystemExit("the answers differ")
    own, other = medians(lambda: ours.predict(query), lambda: theirs.predict(query), rounds)
    used = {info.get("architecture", "") for info in threadpool_info()} - {""}
    note = f", BLAS kernels {'/'.join(sorted(used))}" if algorithm == "brute" else ""
    what = f"10,000 predictions, k = 5, {rows:,} x {measurements}, beside `{algorithm}`{note}"
    is_met = other / own >= times
    return [Row(what, f"{1000 * own:.0f} ms: {other / own:.1f} times as fast", f"{times:g} times" if times > 1 else "faster", is_met)]


def bayes_case(is_joint: bool) -> list[Row]:
    import numpy as np
    from clastool.sklearn import BayesCostClassifier
    from sklearn.discriminant_analysis import QuadraticDiscriminantAnalysis
    from sklearn.naive_bayes import GaussianNB

    X, y = scattered(100_000, 16, 10, 2)
    ours = BayesCostClassifier(groups="all" if is_joint else None).fit(X, y)
    theirs = (QuadraticDiscriminantAnalysis() if is_joint else GaussianNB()).fit(X, y)
    if np.mean(ours.predict(X) != theirs.predict(X)) > 1e-4:
        raise SystemExit("the answers differ")
    name = "joint, beside QDA" if is_joint else "independent, beside GaussianNB"
    own, other = medians(lambda: ours.predict(X), lambda: theirs.predict(X), 7)
    limit = 1.0 if is_joint else 1.15
    found = [
        Row(
            f"Bayes {name}: predict 100,000 x 16, 10 classes",
            f"{1000 * own:.0f} ms: {own / other:.2f} of its time",
            "faster" if is_joint else "at most 1.15 of its time",
            own / other <= limit,
        )
    ]
    own, other = medians(lambda: ours.fit(X, y), lambda: theirs.fit(X, y), 7)
    found.append(Row(f"Bayes {name}: fit", f"{1000 * own:.0f} ms: {own / other:.2f} of its time", "faster", own < other))
    return found


def status(name: str) -> int:
    for line in Path("/proc/self/status").read_text(encoding="ascii").splitlines():
        if line.startswith(name):
            return int(line.split()[1]) * 1024
    raise SystemExit(f"/proc/self/status has no {name}")


def memory_case(what: str, is_bayes: bool, dtype: str, order: Any, limit: float) -> list[Row]:
    import numpy as np
    from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier

    X, y = scattered(400_000, 16, 10, 3)
    X = np.array(X, dtype=dtype, order=order)
    cls: Any = BayesCostClassifier if is_bayes else KNeighborsCostClassifier
    cls().fit(X[:1000], y[:1000])
    # What was used before does not count: the peak begins anew.
    Path("/proc/self/clear_refs").write_text("5", encoding="ascii")
    before = status("VmRSS")
    model = cls().fit(X, y)
    taken = (status("VmHWM") - before) / X.nbytes
    assert len(model.classes_) == 10
    return [Row(f"peak memory of fit, {what}", f"{taken:.2f} of X", f"{limit} of X", taken <= limit)]


def accuracy_case() -> list[Row]:
    import warnings

    from clastool.sklearn import BayesCostClassifier
    from sklearn.datasets import load_breast_cancer, load_digits, load_iris, load_wine
    from sklearn.discriminant_analysis import QuadraticDiscriminantAnalysis
    from sklearn.model_selection import StratifiedKFold, cross_val_score
    from sklearn.naive_bayes import GaussianNB

    def accuracies(model: Any, X: Any, y: Any) -> list[float]:
        """In the folds as the data lie, and in the mean of ten shuffles."""
        shuffles = [StratifiedKFold(5, shuffle=True, random_state=seed) for seed in range(10)]
        folds = [cross_val_score(model, X, y, cv=cv, error_score="raise").mean() for cv in [5, *shuffles]]
        return [folds[0], sum(folds[1:]) / len(shuffles)]

    found = []
    for load in (load_digits, load_wine, load_breast_cancer, load_iris):
        X, y = load(return_X_y=True)
        for ours, theirs in (
            (BayesCostClassifier(), GaussianNB()),
            (BayesCostClassifier(groups="all"), QuadraticDiscriminantAnalysis()),
        ):
            own = accuracies(ours, X, y)
            with warnings.catch_warnings():
                warnings.simplefilter("ignore")  # collinear measurements
                try:
                    other = accuracies(theirs, X, y)
                except Exception as error:  # newer versions of QDA refuse what is not of full rank
                    other = []
                    print(f"{load.__name__}: {theirs!r}: {error}", file=sys.stderr)
            name = f"{load.__name__[5:].replace('_', ' ')}, {'joint' if ours.groups else 'independent'}"
            beside = f"{type(theirs).__name__} {other[0]:.4f}; {other[1]:.4f}" if other else f"{type(theirs).__name__} refuses the data"
            is_met = all(mine >= yours - 0.005 for mine, yours in zip(own, other))
            found.append(Row(f"accuracy, five-fold: {name}", f"{own[0]:.4f}; {own[1]:.4f}", f"{beside}, less 0.005", is_met))
    return found


CASES: dict[str, Callable[[], list[Row]]] = {
    "accuracy": accuracy_case,
    "brute-1e4x16": lambda: neighbors_case(10_000, 16, "brute", 3.0, 5),
    "brute-1e5x16": lambda: neighbors_case(100_000, 16, "brute", 5.0, 3),
    "kd_tree-1e6x3": lambda: neighbors_case(1_000_000, 3, "kd_tree", 1.0, 7),
    "kd_tree-1e5x4": lambda: neighbors_case(100_000, 4, "kd_tree", 1.0, 7),
    "independent": lambda: bayes_case(False),
    "joint": lambda: bayes_case(True),
    "memory-bayes": lambda: memory_case("Bayes", True, "float64", "C", 0.4),
    "memory-bayes-f": lambda: memory_case("Bayes, F order", True, "float64", "F", 0.4),
    "memory-bayes-32": lambda: memory_case("Bayes, float32 (X is half as large)", True, "float32", "C", 0.4),
    "memory-neighbors": lambda: memory_case("neighbours", False, "float64", "C", 2.8),
    "memory-neighbors-f": lambda: memory_case("neighbours, F order", False, "float64", "F", 2.8),
}


def fitting_kernels() -> list[str | None]:
    """BLAS picks its kernels by the processor. On one that it does not know it takes those of AVX2; with AVX-512 there are better ones."""
    flags = Path("/proc/cpuinfo").read_text(encoding="utf-8") if Path("/proc/cpuinfo").exists() else ""
    return [None, "SkylakeX"] if "avx512vl" in flags else [None]


def run(case: str, kernels: str | None) -> list[Row]:
    environment = {**os.environ, **THREADS}
    if kernels is not None:
        environment["OPENBLAS_CORETYPE"] = kernels
    done = subprocess.run(
        [sys.executable, __file__, "--case", case], env=environment, stdout=subprocess.PIPE, text=True, check=True
    )
    rows = [line.split("\t") for line in done.stdout.splitlines()]
    return [Row(what, found, demand, is_met == "True") for what, found, demand, is_met in rows]


def processor() -> str:
    for line in Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            return " ".join(line.split(":")[1].split())
    return platform.processor()


def page(rows: list[Row]) -> str:
    import numpy
    import scipy
    import sklearn

    lines = [f"| {row.what} | {row.found} | {row.demand} | {'yes' if row.is_met else 'no'} |" for row in rows]
    return "\n".join(
        [
            "# Benchmarks of the Python estimators",
            "",
            "`python/bench/compare.py --record` measures both sides in one run and writes this page. Each case is a process of its own on",
            "one processor, with one thread. In each round both sides do the same work, one after the other; a ratio is that of the medians.",
            "Times are those that the processor works for the process.",
            "",
            f"Measured on {datetime.datetime.now(datetime.timezone.utc).date()} on one core of {processor()}, Python {platform.python_version()},",
            f"NumPy {numpy.__version__}, SciPy {scipy.__version__}, scikit-learn {sklearn.__version__}.",
            "",
            "| What | Found | Wanted | Met |",
            "|---|---|---|---|",
            *lines,
            "",
            "Accuracy is that of five folds as the data lie, then the mean of ten shuffles.",
            "",
            "The time of `brute` is mostly that of a matrix product, so it hangs on the BLAS kernels. OpenBLAS chooses them by the processor,",
            "and `OPENBLAS_CORETYPE` overrides the choice. Where the processor has AVX-512, `brute` is measured with these kernels too.",
            "",
            "Peak memory is what the process takes in `fit` beyond what it had before, X among it. Nearest neighbours keep each row as a",
            "pattern, an object of its own, and a copy of all rows to search in, which is put in order where it lies.",
            "",
            "GaussianNB adds 1e-9 of the largest variance of any measurement to every variance. In the units of the breast cancer data that",
            "is more than several of the variances, and it happens to help there. With each measurement divided by its standard deviation",
            "both are right equally often; see [Bayes](bayes.md).",
            "",
        ]
    )


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--case", choices=CASES)
    parser.add_argument("--only", default="", help="runs the cases whose names begin so")
    parser.add_argument("--record", action="store_true")
    options = parser.parse_args()
    if hasattr(os, "sched_setaffinity"):
        os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})
    if options.case:
        for row in CASES[options.case]():
            print(*row, sep="\t")
        return
    rows: list[Row] = []
    for case in CASES:
        if case.startswith(options.only):
            for kernels in fitting_kernels() if case.startswith("brute") else [None]:
                # The kernels that BLAS chose by itself are measured once.
                found = [row for row in run(case, kernels) if row.what not in {other.what for other in rows}]
                rows += found
                for row in found:
                    print(f"{row.what}: {row.found} (wanted: {row.demand}) {'' if row.is_met else '  NOT MET'}", flush=True)
    if options.record:
        PAGE.write_text(page(rows), encoding="utf-8")
    sys.exit(0 if all(row.is_met for row in rows) else 1)


if __name__ == "__main__":
    main()
