"""Runs the programs in build/compare round by round and writes docs/benchmarks.md. Started by bench/compare."""

import argparse
import json
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import time

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402

TOP = pathlib.Path(__file__).resolve().parent.parent
BUILD = TOP / "build" / "compare"
FIGURES = BUILD / "figures.json"
PROGRAMS = ["neighbors", "peers", "bayes", "tree", "archive"]
PACKAGES = [
    "libopencv-ml-dev",
    "libnanoflann-dev",
    "libfaiss-dev",
    "python3-sklearn",
    "python3-numpy",
    "libopenblas0-pthread",
    "libcereal-dev",
    "libboost-serialization-dev",
    "libbenchmark-dev",
    "libc6",
]
SIZES = ["1000x4", "1000x16", "1000x64", "10000x16", "10000x64", "100000x4", "100000x16", "100000x64", "1000000x16"]
PATTERNS = [1000, 3000, 10000, 30000, 100000, 300000, 1000000]
MEASUREMENTS = [1, 2, 4, 8, 16, 32, 64, 128, 256]

# The ratios that this library is meant to reach.
AIM_OPENCV = dict(zip(SIZES, [1, 1.5, 1.5, 4, 4, 7, 10, 10]))
AIM_BARE = {"100000x16": 1, "100000x64": 1}
AIM_LITERAL = {"1": 100, "2": 100, "3": 30, "1.5": 30, "0.5": 50, "0.7": 15}
LARGE = ["10000x16", "10000x64", "100000x4", "100000x16", "100000x64", "1000000x16"]
AIM_TREE = {
    **{"1000x2": 0.8, "10000x2": 0.8, "1000000x2": 1.5, "1000000x3": 1.8},
    **{"1000x4": 1.4, "10000x4": 1.4, "100000x4": 2, "1000000x4": 2.5},
    **{"1000x8": 2, "10000x8": 2, "100000x8": 4, "1000000x8": 4},
}
AIM_BATCH = {"100000x16": 3, "100000x64": 1.6, "10000x128": 1, "1000x16": 1.1, "1000x64": 0.9}
AIM_VNNI = {"100000x64": 2.5, "10000x128": 1.2}

# Kinds of data, and the kernels that OpenBLAS may have for this processor besides the ones it takes by itself.
KINDS = ["separated", "overlapping", "uniform", "digits-like"]
FEW_SIZES = [f"{n}x{d}" for d in (2, 4, 8, 16) for n in (1000, 10000, 100000, 1000000)] + ["1000000x3"]
MANY_SIZES = ["1000x64", "10000x64", "100000x64", "10000x128", "10000x784"]
PEER_SIZES = sorted(FEW_SIZES + MANY_SIZES, key=lambda size: [int(number) for number in reversed(size.split("x"))])
PICTURE_MEASUREMENTS = [2, 4, 8, 16, 64]
PEERS = {"nanoflann": "nanoflann", "faiss": "FAISS", "sklearn_tree": "scikit-learn"}
EXACT_PEERS = ["nanoflann", "sklearn_tree"]
BLAS_KERNELS = ["", "Nehalem", "Sandybridge", "Haswell", "Zen", "SkylakeX", "Cooperlake"]
BLAS_PRODUCT = """
import numpy, time
a = numpy.random.default_rng(1).normal(size=(1000, 64)).astype("f")
b = numpy.random.default_rng(2).normal(size=(64, 20000)).astype("f")
times = []
for _ in range(6):
    begin = time.process_time()
    a @ b
    times.append(time.process_time() - begin)
print(2e-9 * 1000 * 64 * 20000 / min(times))
"""


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


def fastest_blas():
    """The speed in Gflop/s of each kind of kernels that OpenBLAS has and this processor can run, and the fastest kind."""
    speeds = {}
    for kernels in BLAS_KERNELS:
        environment = dict(os.environ, OPENBLAS_NUM_THREADS="1", OPENBLAS_CORETYPE=kernels)
        done = subprocess.run([sys.executable, "-c", BLAS_PRODUCT], env=environment, capture_output=True, text=True)
        if done.returncode == 0:
            speeds[kernels] = float(done.stdout)
    return speeds, max(speeds, key=speeds.get)


def has_cases(program, only):
    listed = subprocess.run([program, f"--benchmark_filter={only}", "--benchmark_list_tests"], capture_output=True)
    return listed.stdout.strip() != b""


def measure(rounds, least_seconds, only, blas):
    """All programs once a round, all on one core; one dictionary of name -> row for each round."""
    core = str(max(os.sched_getaffinity(0)))
    environment = dict(os.environ, OMP_NUM_THREADS="1", OPENBLAS_NUM_THREADS="1", OPENBLAS_CORETYPE=blas)
    result = BUILD / "round.json"
    options = [f"--benchmark_min_time={least_seconds}", f"--benchmark_out={result}", "--benchmark_out_format=json"]
    options.append(f"--benchmark_filter={only}")
    programs = {name: BUILD / "bench" / f"bench_{name}" for name in PROGRAMS}
    commands = [(name, [program, *options]) for name, program in programs.items() if has_cases(program, only)]
    draw = BUILD / "bench" / "bench_draw"
    python = [sys.executable, TOP / "bench" / "scikit_learn.py", draw, result, str(least_seconds), only]
    commands.append(("scikit_learn", python))
    measured = []
    for number in range(1, rounds + 1):
        rows = {}
        for name, command in commands:
            begin = time.monotonic()
            pinned = ["taskset", "-c", core, *command]
            done = subprocess.run(pinned, env=environment, capture_output=True, text=True)
            if done.returncode != 0:
                sys.exit(f"{name} failed: {done.stderr}")
            for row in json.loads(result.read_text())["benchmarks"]:
                rows[row["name"]] = row
            print(f"round {number} of {rounds}: {name}, {time.monotonic() - begin:.0f} s", file=sys.stderr)
        measured.append(rows)
    return measured


def machine(blas_speeds):
    """What the figures depend on, besides the sources."""
    cpu = {}
    for line in output_of("lscpu").splitlines():
        key, _, value = line.partition(":")
        cpu[key.strip()] = value.strip()
    memory = int(re.search(r"MemTotal:\s+(\d+)", pathlib.Path("/proc/meminfo").read_text()).group(1))
    flags = {}
    for entry in json.loads((BUILD / "compile_commands.json").read_text()):
        words = entry["command"].split()
        kept = [word for word in words[1:] if re.match(r"-(O|m|f(?!visibility)|std|DNDEBUG)", word)]
        flags.setdefault(" ".join(sorted(set(kept))), []).append(pathlib.Path(entry["file"]))
        compiler = words[0]
    system = dict(line.split("=", 1) for line in pathlib.Path("/etc/os-release").read_text().splitlines() if "=" in line)
    caches = [cpu[f"{level} cache"] for level in ("L1d", "L2", "L3") if f"{level} cache" in cpu]
    return {
        "date": time.strftime("%Y-%m-%d"),
        "processor": f"{cpu['Model name']}, family {cpu['CPU family']}, model {cpu['Model']}",
        "cores": cpu["CPU(s)"],
        "virtual": cpu.get("Hypervisor vendor", "no"),
        "caches": " / ".join(caches),
        "memory": f"{memory / 2**20:.0f} GiB",
        "kernel": platform.release(),
        "system": system["PRETTY_NAME"].strip('"'),
        "compiler": output_of(compiler, "--version").splitlines()[0],
        "flags": {key: sorted({file.name for file in files}) for key, files in flags.items()},
        "blas_speeds": blas_speeds,
        "has_vnni": "avx512_vnni" in cpu["Flags"] or "avx_vnni" in cpu["Flags"],
        "packages": [output_of("dpkg-query", "-W", "-f=${Package} ${Version}", name) for name in PACKAGES],
    }


class Figures:
    """The rounds, and the numbers that the document is made of."""

    def __init__(self, rounds):
        self.rounds = rounds
        self.missed = []

    def times(self, name):
        units = {"ns": 1e-3, "us": 1.0, "ms": 1e3}
        found = [rows[name] for rows in self.rounds]
        return [row["cpu_time"] * units[row["time_unit"]] / row.get("queries", 1) for row in found]

    def median(self, name):
        return statistics.median(self.times(name))

    def counter(self, name, counter):
        return statistics.median(rows[name][counter] for rows in self.rounds)

    def has(self, name):
        return all(name in rows for rows in self.rounds)

    def ratio(self, other, own):
        """How many times the own time goes into the other one, round by round."""
        return [b / a for a, b in zip(self.times(own), self.times(other))]

    def held_against(self, what, ratios, aim):
        """The cells of a ratio and of its aim."""
        middle = statistics.median(ratios)
        if aim is None:
            return [spread(ratios), ""]
        if middle < aim:
            self.missed.append(f"{what}: {short(middle)} instead of {short(aim)}")
        return [spread(ratios), short(aim)]


def short(number):
    """Three digits, fewer only where they are zeros behind the point."""
    if number >= 100:
        return f"{number:.0f}"
    text = f"{number:.1f}" if number >= 10 else f"{number:.2f}" if number >= 0.1 else f"{number:.3f}"
    return text.rstrip("0").rstrip(".")


def spread(ratios):
    return f"{short(statistics.median(ratios))} ({short(min(ratios))} – {short(max(ratios))})"


def table(heading, rows):
    lines = [heading, ["---"] + ["---:"] * (len(heading) - 1), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def spelled(size):
    patterns, measurements = size.split("x")
    return f"{int(patterns):,} x {measurements}"


def result_table(figures):
    """What the page opens with. docs/site/result_picture.py draws it."""
    neighbors, peers, archive = "neighbors/order:2/", "peers/overlapping/", "archive/{}/100000x16/"
    lines = [
        ("neighbours, 1,000 x 4", neighbors + "1000x4/", "library", "opencv", "OpenCV"),
        ("neighbours, 100,000 x 16", neighbors + "100000x16/", "library", "opencv", "OpenCV"),
        ("neighbours, 100,000 x 4", peers + "100000x4/", "library", "nanoflann", "nanoflann, k-d tree"),
        ("neighbours, 1,000,000 x 4", peers + "1000000x4/", "library", "nanoflann", "nanoflann, k-d tree"),
        ("neighbours, 1,000,000 x 2", peers + "1000000x2/", "library", "nanoflann", "nanoflann, k-d tree"),
        ("neighbours, 100,000 x 16, batch", peers + "100000x16/", "library_batch", "faiss_batch", "FAISS, flat"),
        ("neighbours, 100,000 x 16, batch", peers + "100000x16/", "library_batch", "sklearn_batch", "scikit-learn, brute"),
        ("neighbours, separated data, 10,000 x 784, batch", "peers/separated/10000x784/", "library_batch", "faiss_batch", "FAISS, flat"),
        ("Bayes, joint run", "bayes/joint/10x16/", "library", "opencv", "OpenCV"),
        ("Bayes, training, 100,000 x 16", "bayes/training_joint/100000x16/", "library", "opencv", "OpenCV"),
        ("decision tree, depth 8", "tree/run/depth8/", "library", "opencv", "OpenCV"),
        ("archive stored, 100,000 x 16", archive.format("store"), "library", "cereal", "cereal"),
        ("archive loaded, 100,000 x 16", archive.format("load"), "library", "cereal", "cereal"),
    ]
    rows = []
    for what, case, own, who, label in lines:
        ratios = figures.ratio(case + who, case + own)
        cells = [what, label, short(figures.median(case + own)), short(figures.median(case + who))]
        rows.append(cells + [short(statistics.median(ratios)), f"{short(min(ratios))} – {short(max(ratios))}"])
    return table(["what", "beside", "this library, µs", "the other, µs", "times as fast", "in the rounds"], rows)


def euclidean_table(figures):
    rows = []
    for size in SIZES:
        case = f"neighbors/order:2/{size}/"
        own = case + "library"
        cells = [spelled(size)] + [short(figures.median(case + who)) for who in ("library", "opencv", "literal")]
        ratios = figures.ratio(case + "opencv", own)
        cells += figures.held_against(f"{size} against OpenCV", ratios, AIM_OPENCV.get(size))
        cells += figures.held_against(
            f"{size} against the literal implementation",
            figures.ratio(case + "literal", own),
            AIM_LITERAL["2"] if size in LARGE else None,
        )
        rows.append(cells)
    return table(
        ["patterns x measurements", "this library", "OpenCV", "literal"]
        + ["OpenCV ratio", "aim", "literal ratio", "aim"],
        rows,
    )


def bare_table(figures):
    rows = []
    for size in SIZES:
        case = f"neighbors/order:2/{size}/"
        own = case + "library"
        cells = [spelled(size), short(figures.median(own))]
        for who in ("bare", "bare_avx2"):
            if figures.has(case + who):
                cells.append(short(figures.median(case + who)))
                cells += figures.held_against(f"{size}, {who}", figures.ratio(case + who, own), AIM_BARE.get(size))
            else:
                cells += ["–", "–", ""]
        rows.append(cells)
    return table(
        ["patterns x measurements", "this library"]
        + ["bare scan, baseline", "ratio", "aim", "bare scan, AVX2", "ratio", "aim"],
        rows,
    )


def orders_table(figures):
    rows = []
    for size in ("1000x4", "10000x16", "100000x16"):
        for order, aim in AIM_LITERAL.items():
            case = f"neighbors/order:{order}/{size}/"
            ratios = figures.ratio(case + "literal", case + "library")
            cells = [order, spelled(size)] + [short(figures.median(case + who)) for who in ("library", "literal")]
            what = f"order {order}, {size} against the literal implementation"
            # The row of order 2 stands in the first table too, where its aim is counted.
            rows.append(cells + figures.held_against(what, ratios, aim if size in LARGE and order != "2" else None))
    return table(["order", "patterns x measurements", "this library", "literal", "ratio", "aim"], rows)


def peer_cases(figures):
    """Of each kind of data and size that was measured: kind, size and the beginning of the names."""
    for kind in KINDS:
        for size in PEER_SIZES:
            case = f"peers/{kind}/{size}/"
            if figures.has(case + "library"):
                yield kind, size, case


def faster_peers(figures, case, own, peers):
    """The cells of those who took less time."""
    ratios = [(statistics.median(figures.ratio(case + who, case + own)), name) for who, name in peers.items()
              if figures.has(case + who)]
    return [f"{name} {short(ratio)}" for ratio, name in sorted(ratios) if ratio < 1]


def index_table(figures):
    rows = []
    for kind, size, case in peer_cases(figures):
        cells = [kind, spelled(size), short(figures.median(case + "library"))]
        for who in PEERS:
            cells.append(short(figures.median(case + who)) if figures.has(case + who) else "")
        ratios = figures.ratio(case + "nanoflann", case + "library")
        rows.append(cells + figures.held_against(f"{kind} {size} against nanoflann", ratios, AIM_TREE.get(size)))
    return table(["data", "patterns x measurements", "this library", *PEERS.values(), "nanoflann ratio", "aim"], rows)


def batch_table(figures, has_vnni):
    rows = []
    for kind, size, case in peer_cases(figures):
        cells = [kind, spelled(size)]
        for who in ("library_batch", "faiss_batch", "sklearn_batch", "sklearn_tree_batch", "library_each"):
            cells.append(short(figures.median(case + who)) if figures.has(case + who) else "")
        aims = {**AIM_BATCH, **(AIM_VNNI if has_vnni else {})}
        ratios = figures.ratio(case + "faiss_batch", case + "library_batch")
        cells += figures.held_against(f"{kind} {size}, a batch against FAISS", ratios, aims.get(size))
        ratios = figures.ratio(case + "library_each", case + "library_batch")
        aim = 2.5 if size == "10000x784" else 0.95
        rows.append(cells + figures.held_against(f"{kind} {size}, a batch against runs one by one", ratios, aim))
    return table(
        ["data", "patterns x measurements", "this library", "FAISS", "scikit-learn, brute", "scikit-learn, k-d tree"]
        + ["one by one", "FAISS ratio", "aim", "one by one ratio", "aim"],
        rows,
    )


def elsewhere_table(figures):
    rows = []
    for kind, size, case in peer_cases(figures):
        single = faster_peers(figures, case, "library", PEERS)
        batches = {who + "_batch": PEERS[who] for who in ("faiss", "sklearn_tree")}
        batch = faster_peers(figures, case, "library_batch", {**batches, "sklearn_batch": "scikit-learn, brute"})
        if single or batch:
            rows.append([kind, spelled(size), ", ".join(single), ", ".join(batch)])
    if not rows:
        return "None was found among those measured."
    return table(["data", "patterns x measurements", "one by one", "in batches"], rows)


def copy_table(figures):
    case = "neighbors/training/100000x16/"
    pairs = list(zip(figures.times(case + "library"), figures.times(case + "library_without_copy")))
    copies = [whole - rest for whole, rest in pairs]
    literal = figures.times("neighbors/order:2/100000x16/literal")
    # A copy that took no measurable time would divide by zero.
    ratios = [query / max(copy, 1e-3) for query, copy in zip(literal, copies)]
    compact = figures.counter(case + "library", "bytes") - figures.counter(case + "library_without_copy", "bytes")
    if compact <= 0:
        sys.exit("Training makes no compact copy, or makes one of any data")
    measurements = 100000 * 16 * 8
    rows = [
        ["training", short(statistics.median(whole for whole, _ in pairs)), "", ""],
        ["training without the compact copy", short(statistics.median(rest for _, rest in pairs)), "", ""],
        ["so the compact copy", short(statistics.median(copies)), "", ""],
        ["one literal query", short(statistics.median(literal))]
        + figures.held_against("a literal query against the compact copy", ratios, 1),
        ["OpenCV's training", short(figures.median(case + "opencv"))]
        + [spread(figures.ratio(case + "opencv", case + "library")), ""],
    ]
    if compact / measurements > 2 / 3:
        figures.missed.append(f"memory of the compact copy: {compact / measurements:.2f} instead of 0.67")
    memory = (
        f"The compact copy takes {compact / 1e6:.1f} MB, {compact / measurements:.2f} of the {measurements / 1e6:.1f} MB "
        "of the measurements; the aim is at most 0.67."
    )
    return table(["100,000 x 16", "µs", "ratio", "aim"], rows) + "\n\n" + memory


def bayes_table(figures):
    joint, independent, decision = (f"bayes/{what}/10x16/" for what in ("joint", "independent", "decision"))
    lines = [
        ("joint run", joint, "opencv", "OpenCV", 3),
        ("joint run", joint, "literal", "literal", None),
        ("independent run", independent, "literal", "literal", None),
        ("decision rule alone", decision, "literal", "literal", None),
        ("training, joint, 100,000 x 16", "bayes/training_joint/100000x16/", "opencv", "OpenCV", 1),
    ]
    rows = []
    for what, case, who, label, aim in lines:
        cells = [what, short(figures.median(case + "library")), label, short(figures.median(case + who))]
        ratios = figures.ratio(case + who, case + "library")
        rows.append(cells + figures.held_against(f"{what} against {label}", ratios, aim))
    for what, own, whole, base, aim in (
        ("independent run", independent + "library", "joint run", joint, 1),
        ("decision rule alone", decision + "library", "joint run", joint, 2),
        ("joint run, one measurement missing", joint + "library_without_one", "joint run", joint, 0.33),
        ("independent run, one missing", independent + "library_without_one", "independent run", independent, 0.77),
    ):
        # The runs that lack a measurement are not among older figures.
        if figures.has(own):
            cells = [what, short(figures.median(own)), f"this library's {whole}", short(figures.median(base + "library"))]
            ratios = figures.ratio(base + "library", own)
            rows.append(cells + figures.held_against(f"{what} against the {whole}", ratios, aim))
    return table(["what", "this library", "beside", "its time", "ratio", "aim"], rows)


def tree_table(figures):
    case = "tree/run/depth8/"
    rows = []
    for who, label, aim in (("opencv", "OpenCV", 1), ("literal", "literal", None)):
        cells = [label, short(figures.median(case + "library")), short(figures.median(case + who))]
        ratios = figures.ratio(case + who, case + "library")
        rows.append(cells + figures.held_against(f"tree against {label}", ratios, aim))
    return table(["beside", "this library", "its time", "ratio", "aim"], rows)


def archive_table(figures):
    rows = []
    for size in ("100000x16", "1000000x2"):
        for what in ("store", "load"):
            own = f"archive/{what}/{size}/library"
            for who, label in (("cereal", "cereal"), ("boost", "Boost")):
                other = f"archive/{what}/{size}/{who}"
                aim = 2 if who == "cereal" and size == "100000x16" else None
                cells = [f"{what}, {spelled(size)}", label]
                cells += [short(figures.median(name) / 1e3) for name in (own, other)]
                ratios = figures.ratio(other, own)
                rows.append(cells + figures.held_against(f"{what} {size} against {label}", ratios, aim))
    return table(["what", "beside", "this library, ms", "its time, ms", "ratio", "aim"], rows)


def bytes_table(figures):
    rows = []
    for size in ("100000x16", "1000000x2"):
        store = f"archive/store/{size}/"
        bytes_of = {who: figures.counter(store + who, "bytes") for who in ("library", "cereal", "boost")}
        if bytes_of["library"] > bytes_of["cereal"]:
            figures.missed.append(f"archive of {size} is larger than cereal's")
        tool = [short(figures.median(f"archive/{what}/{size}/library_tool") / 1e3) for what in ("store", "load")]
        rows.append([spelled(size)] + [f"{count / 1e6:.1f}" for count in bytes_of.values()] + tool)
    return table(
        ["", "this library, MB", "cereal, MB", "Boost, MB", "whole tool stored, ms", "whole tool loaded, ms"], rows
    )


def growth_table(figures):
    rows = []
    for sizes in ([(n, 16) for n in PATTERNS], [(10000, d) for d in MEASUREMENTS]):
        for n, d in sizes:
            names = [f"neighbors/order:2/{n}x{d}/{who}" for who in ("library", "opencv", "literal")]
            each = [short(1e3 * figures.median(name) / (n * d)) for name in names]
            rows.append([f"{n:,} x {d}", short(figures.median(names[0])), *each])
    return table(["patterns x measurements", "this library, µs", "ns a measurement", "OpenCV's", "literal"], rows)


def draw_growth(figures, file):
    plt.rcParams.update({"svg.hashsalt": "clastool", "svg.fonttype": "none", "font.size": 9})
    picture, panels = plt.subplots(1, 2, figsize=(9, 4), sharey=True)
    sweeps = [
        (panels[0], PATTERNS, [f"{n}x16" for n in PATTERNS], "stored patterns of 16 measurements"),
        (panels[1], MEASUREMENTS, [f"10000x{d}" for d in MEASUREMENTS], "measurements, 10,000 stored patterns"),
    ]
    for panel, places, sizes, label in sweeps:
        for who, name in (("literal", "literal"), ("opencv", "OpenCV"), ("library", "this library")):
            times = [figures.median(f"neighbors/order:2/{size}/{who}") for size in sizes]
            panel.loglog(places, times, "o-", ms=3, label=name)
        common = figures.median("neighbors/order:2/10000x16/library")
        middle = places[sizes.index("10000x16")]
        panel.loglog(places, [common * place / middle for place in places], "k:", lw=1, label="proportional")
        panel.set_xlabel(label)
        panel.grid(True, which="major", alpha=0.3)
    panels[0].set_ylabel("microseconds a run")
    panels[0].legend()
    picture.tight_layout()
    file.parent.mkdir(parents=True, exist_ok=True)
    picture.savefig(file, format="svg", metadata={"Date": None})


def best_exact_peer(figures, case):
    """Name and time of the fastest that answers exactly, one query at a time."""
    times = {who: figures.median(case + who) for who in EXACT_PEERS if figures.has(case + who)}
    best = min(times, key=times.get)
    return PEERS[best], times[best]


def draw_peers(figures, file):
    """A panel for each kind of data, a colour for each number of measurements."""
    plt.rcParams.update({"svg.hashsalt": "clastool", "svg.fonttype": "none", "font.size": 9})
    picture, panels = plt.subplots(2, 2, figsize=(9, 8), sharex=True, sharey=True)
    for panel, kind in zip(panels.flat, KINDS):
        named = set()
        for number, d in enumerate(PICTURE_MEASUREMENTS):
            places = [n for n in (1000, 10000, 100000, 1000000) if figures.has(f"peers/{kind}/{n}x{d}/library")]
            cases = [f"peers/{kind}/{n}x{d}/" for n in places]
            if not cases:
                continue
            own = [figures.median(case + "library") for case in cases]
            peers = [best_exact_peer(figures, case) for case in cases]
            named.update(name for name, _ in peers)
            panel.loglog(places, own, "o-", ms=3, color=f"C{number}", label=f"{d} measurements")
            panel.loglog(places, [taken for _, taken in peers], "s--", ms=3, lw=1, color=f"C{number}")
        panel.set_title(f"{kind}; dashed: {', '.join(sorted(named))}", fontsize=9)
        panel.grid(True, which="major", alpha=0.3)
    for panel in panels[1]:
        panel.set_xlabel("stored patterns")
    for panel in panels[:, 0]:
        panel.set_ylabel("microseconds a run")
    panels[0][0].legend()
    picture.tight_layout()
    file.parent.mkdir(parents=True, exist_ok=True)
    picture.savefig(file, format="svg", metadata={"Date": None})


def blas_line(speeds):
    """What OpenBLAS does with each kind of its kernels."""
    chosen = max(speeds, key=speeds.get)
    others = [f"{short(speed)} with {kernels or 'what it takes by itself'}" for kernels, speed in speeds.items()]
    return f"OPENBLAS_CORETYPE={chosen or '(unset)'}, of " + ", ".join(others)


def flag_lines(flags):
    """The flags of most files, then those of the few that have others."""
    ordered = sorted(flags.items(), key=lambda item: -len(item[1]))
    lines = [f"`{ordered[0][0]}`"]
    lines += [f"`{', '.join(files)}`: `{key}`" for key, files in ordered[1:]]
    return "\n".join(f"- {line}" for line in lines)


def write_document(stored, document, picture):
    figures = Figures(stored["rounds"])
    about = stored["machine"]
    values = {
        **{key: about[key] for key in about if isinstance(about[key], str)},
        "rounds": str(len(stored["rounds"])),
        "least_milliseconds": f"{1e3 * stored['least_seconds']:.0f}",
        "flags": flag_lines(about["flags"]),
        "packages": ", ".join(about["packages"]),
        "mean_depth": short(figures.counter("tree/run/depth8/library", "mean_depth")),
        "blas": blas_line(about["blas_speeds"]),
        "peers_picture": os.path.relpath(picture.with_name("benchmarks-peers.svg"), document.parent),
        "result_table": result_table(figures),
        "index_table": index_table(figures),
        "batch_table": batch_table(figures, about["has_vnni"]),
        "picture": os.path.relpath(picture, document.parent),
        "euclidean_table": euclidean_table(figures),
        "bare_table": bare_table(figures),
        "orders_table": orders_table(figures),
        "elsewhere_table": elsewhere_table(figures),
        "copy_table": copy_table(figures),
        "bayes_table": bayes_table(figures),
        "tree_table": tree_table(figures),
        "archive_table": archive_table(figures),
        "bytes_table": bytes_table(figures),
        "growth_table": growth_table(figures),
    }
    values["missed"] = (
        "In this run these ratios fell short of their aim:\n\n" + "\n".join(f"- {line}" for line in figures.missed)
        if figures.missed
        else "In this run every ratio reached its aim."
    )
    template = (TOP / "bench" / "benchmarks.md.in").read_text(encoding="utf-8")
    document.write_text(re.sub(r"@(\w+)@", lambda match: values[match.group(1)], template), encoding="utf-8")
    draw_growth(figures, picture)
    draw_peers(figures, picture.with_name("benchmarks-peers.svg"))
    print(values["missed"])
    print(f"written: {document}, {picture}")


def merged(stored, measured):
    """The rounds of the last whole run with rows measured since; without such a run the new ones alone."""
    if not stored or len(stored["rounds"]) != len(measured):
        return measured
    return [{**before, **since} for before, since in zip(stored["rounds"], measured)]


def print_times(measured):
    figures = Figures(measured)
    for name in measured[0]:
        own = name.rpartition("/")[0] + ("/library_batch" if name.endswith(("_batch", "_each")) else "/library")
        ratio = spread(figures.ratio(name, own)) if figures.has(own) and name != own else ""
        print(f"{name:48}{short(figures.median(name)):>10} µs  {ratio}")


def main():
    arguments = argparse.ArgumentParser(prog="bench/compare")
    arguments.add_argument("--rounds", type=int, default=5)
    arguments.add_argument("--quick", action="store_true", help="one short round, not written into docs/")
    arguments.add_argument("--last", action="store_true", help="write the document from the figures of the last run")
    arguments.add_argument("--only", metavar="REGEX", help="measure and print the cases whose names match, no document")
    chosen = arguments.parse_args()
    document, picture = TOP / "docs" / "benchmarks.md", TOP / "docs" / "images" / "benchmarks-growth.svg"
    if chosen.quick:
        document, picture = BUILD / "benchmarks.md", BUILD / "benchmarks-growth.svg"
    figures = BUILD / "quick_figures.json" if chosen.quick else FIGURES
    if not chosen.last:
        rounds, least_seconds = (1, 0.002) if chosen.quick else (chosen.rounds, 0.05)
        speeds, blas = fastest_blas()
        measured = measure(rounds, least_seconds, chosen.only or ".", blas)
        before = json.loads(figures.read_text()) if chosen.only and figures.exists() else None
        stored = {"machine": machine(speeds), "least_seconds": least_seconds, "rounds": merged(before, measured)}
        figures.write_text(json.dumps(stored))
        if chosen.only:
            print_times(measured)
            return
    write_document(json.loads(figures.read_text()), document, picture)


main()
