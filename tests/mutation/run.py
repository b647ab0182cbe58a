"""Changes the library in one small way at a time, and counts how often the tests notice. `.ci/release/mutation` calls it.

build/mutation/tree is a copy of the project, build/mutation/build holds it built. Of each mutant the units that it touches are
compiled and linked beside that, so that neither the sources nor the build ever change.
"""

import argparse
import os
import random
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import time
from collections import defaultdict, namedtuple
from pathlib import Path

from mutators import mutants_of

TOP = Path(__file__).resolve().parents[2]
WORK = TOP / "build" / "mutation"
TREE = WORK / "tree"
BUILD = WORK / "build"
MUTANT = WORK / "mutant"
LOG = WORK / "log.txt"
LIBRARIES = ["ktfoundation", "clastool", "clastool-kit"]
MEMORY = 3 << 30

# Files of an area, and the tests that touch it: those that find most in the least time come first. A mutant survives if all of
# them pass. `internals_tests` has the library's sources in it; their units are compiled for it once more. `load_work` takes kinds of work.
Area = namedtuple("Area", "name files tests")
AREAS = [
    Area(
        "decision rule",
        ["clss/clastool/clastool/result.cpp", "clss/clastool/clastool/costs_and_frequencies.cpp"],
        [
            ("clastool_tests", "*Result*:*Costs*:*Frequenc*:*Decision*"),
            ("clastool_tests", "*"),
            ("neighbors_tests", "*"),
            ("bayes_tests", "*"),
            ("trust_tests", "*"),
            ("damage_tests", "*"),
            ("tree_tests", "*Classifier*"),
        ],
    ),
    Area(
        "neighbour search",
        ["clss/clastool/nearest_neighbor.cpp"],
        [
            ("neighbors_tests", "*"),
            ("internals_tests", "*NeighborScan*"),
            ("internals_tests", "*NeighborCases*-*ManyFarthestFirst"),
            ("trust_tests", "*"),
            ("clastool_tests", "*"),
            ("damage_tests", "*"),
            ("load_work", "search-tame-order-2:search-loaded:use-taught-one-by-one"),
        ],
    ),
    Area(
        "neighbour search",
        [
            "clss/clastool/neighbor_scan/batch_kernels_avx2.cpp",
            "clss/clastool/neighbor_scan/batch_kernels_vnni.cpp",
            "clss/clastool/neighbor_scan/batch_scan.cpp",
            "clss/clastool/neighbor_scan/batch_scan.h",
            "clss/clastool/neighbor_scan/cell_filter.cpp",
            "clss/clastool/neighbor_scan/compact_copy.cpp",
            "clss/clastool/neighbor_scan/compact_copy.h",
            "clss/clastool/neighbor_scan/exact_distance.cpp",
            "clss/clastool/neighbor_scan/kernels_avx2.cpp",
            "clss/clastool/neighbor_scan/kernels_baseline.cpp",
            "clss/clastool/neighbor_scan/leaf_order.cpp",
            "clss/clastool/neighbor_scan/nearest_list.h",
            "clss/clastool/neighbor_scan/neighbor_scan.cpp",
        ],
        [
            ("internals_tests", "*NeighborScan*:*CellFilter*:CompactCopy*:LeafOrder*:*Batch*"),
            ("internals_tests", "*NeighborCases*/Uniform:*/LastBits:*/GridOfManyPatterns:*/AllScales"),
            ("neighbors_tests", "*"),
            ("internals_tests", "*NeighborCases*-*ManyFarthestFirst"),
            ("trust_tests", "*"),
            ("clastool_tests", "*"),
            ("damage_tests", "*"),
            ("internals_tests", "ScanKernels*:*ManyFarthestFirst"),
            ("load_work", "search-tame-order-1:search-tame-order-1.5:search-tame-order-2:search-wild-far-cluster-order-2"),
            ("load_work", "search-loaded:search-together:use-taught-one-by-one"),
        ],
    ),
    Area(
        "distribution types",
        ["clss/clastool/bayes/distribution_types.cpp"],
        [
            ("bayes_tests", "*DistributionTypes*"),
            ("trust_tests", "*Dependencies*"),
            ("bayes_tests", "*"),
            ("trust_tests", "*"),
            ("clastool_tests", "*"),
            ("damage_tests", "*"),
        ],
    ),
    Area(
        "tree",
        ["clss/clastool/decision_tree.cpp"],
        [
            ("tree_tests", "*-*MillionNodes*:*DoubledChain*:*TreeNesting*"),
            ("trust_tests", "*Tree*"),
            ("tree_tests", "*"),
            ("clastool_tests", "*"),
            ("trust_tests", "*"),
            ("damage_tests", "*"),
        ],
    ),
    Area(
        "frame and tool",
        ["clss/clastool/clastool/classifier.cpp", "clss/clastool/clastool/tool.cpp"],
        [
            ("clastool_tests", "*Tool*:*Frame*:*Classifier*:*TrainParams*"),
            ("clastool_tests", "*"),
            ("neighbors_tests", "*"),
            ("tree_tests", "*-*MillionNodes*:*TreeNesting*"),
            ("bayes_tests", "*Classifier*"),
            ("trust_tests", "*"),
            ("damage_tests", "*"),
        ],
    ),
    Area(
        "pattern and provider",
        ["clss/clastool/clastool/pattern.cpp", "clss/clastool/clastool/data_providers.cpp"],
        [
            ("clastool_tests", "*Pattern*:*Provider*"),
            ("clastool_tests", "*"),
            ("neighbors_tests", "*"),
            ("bayes_tests", "*"),
            ("internals_tests", "*CompactCopy*"),
            ("trust_tests", "*"),
            ("damage_tests", "*"),
        ],
    ),
    Area(
        "densities",
        ["clss/clastool/bayes/densities.cpp"],
        [
            ("bayes_tests", "*Binomial*:*Normal*"),
            ("bayes_tests", "*"),
            ("trust_tests", "*"),
            ("damage_tests", "*"),
        ],
    ),
    Area(
        "densities",
        [
            "foundation/src/normal_density.cpp",
            "foundation/src/correlations.h",
            "foundation/src/learning_steps_avx2.cpp",
            "foundation/src/learning_steps_baseline.cpp",
            "foundation/src/evaluation_steps_avx2.cpp",
            "foundation/src/evaluation_steps_baseline.cpp",
        ],
        [
            ("foundation_tests", "*Normal*"),
            ("internals_tests", "*Correlations*:*LearningSteps*:*EvaluationSteps*"),
            ("bayes_tests", "*"),
            ("trust_tests", "*"),
            ("damage_tests", "*"),
        ],
    ),
    Area(
        "category model",
        [
            "clss/clastool/bayes/borrowed_spreads.cpp",
            "clss/clastool/bayes/category_model.cpp",
            "clss/clastool/bayes/classifier.cpp",
            "clss/clastool/bayes/group_density.h",
            "clss/clastool/bayes/pattern_batch.h",
            "clss/clastool/bayes/sub_pattern.h",
            "clss/clastool/bayes/train_params.cpp",
        ],
        [
            ("bayes_tests", "*Model*:*BayesianClassifier*:*BayesianRun*:*Params*"),
            ("bayes_tests", "*"),
            ("trust_tests", "*"),
            ("clastool_tests", "*"),
            ("damage_tests", "*"),
        ],
    ),
    Area(
        "archive",
        [
            "foundation/src/archive.cpp",
            "foundation/src/archive_pass.cpp",
            "foundation/src/archive_pass.h",
            "foundation/src/object_table.h",
            "foundation/src/persistent.cpp",
            "foundation/src/instantiator.cpp",
            "foundation/include/kt/archive.h",
        ],
        [
            ("foundation_tests", "*-*Random*:*NormalDensity*"),
            ("damage_tests", "*"),
            ("clastool_tests", "*"),
            ("rules_tests", "*"),
            ("bayes_tests", "*"),
            ("neighbors_tests", "*"),
            ("trust_tests", "*"),
            ("internals_tests", "*ObjectTable*"),
        ],
    ),
    Area(
        "kit",
        [
            "kit/src/checksum.h",
            "kit/src/csv.cpp",
            "kit/src/files.cpp",
            "kit/src/learning.cpp",
            "kit/src/parts.cpp",
            "kit/src/patterns.cpp",
            "kit/src/rejection.cpp",
            "kit/src/runs.cpp",
            "kit/src/scaler.cpp",
            "kit/src/validation.cpp",
        ],
        [
            ("kit_tests", "*-KitFile.Every*:KitFile.Any*:KitFile.TheChecksum*"),
            ("kit_tests", "*"),
        ],
    ),
]

# A header that every unit includes: these are compiled anew, first of all what uses its templates.
USERS = {
    "foundation/include/kt/archive.h": {
        "ktfoundation": ["foundation/src/archive.cpp", "foundation/src/archive_pass.cpp", "foundation/src/persistent.cpp"],
        "foundation_tests": [
            "tests/foundation/containers_test.cpp",
            "tests/foundation/pointer_records_test.cpp",
            "tests/foundation/archive_test.cpp",
            "tests/foundation/toys.cpp",
        ],
    }
}

Outcome = namedtuple("Outcome", "result by")


class Project:
    """The copy of the project, and the commands that build it."""

    def __init__(self, programs):
        self._copy()
        self._configure()
        self._build(list(LIBRARIES) + programs)
        self.links, self.compilations = {}, {}
        for target in list(LIBRARIES) + programs:
            self._read_commands(target)
        self.users = self._read_users()

    def _copy(self):
        """What differs is copied with a new time, so that it is built anew."""
        listed = subprocess.run(
            ["git", "-c", f"safe.directory={TOP}", "ls-files", "-z", "-co", "--exclude-standard"],
            cwd=TOP, check=True, capture_output=True, text=True,
        )
        names = {name for name in listed.stdout.split("\0") if name and (TOP / name).is_file()}
        for old in list(TREE.rglob("*")):
            if old.is_file() and str(old.relative_to(TREE)) not in names:
                old.unlink()
        for name in sorted(names):
            source, copy = TOP / name, TREE / name
            if not copy.exists() or copy.read_bytes() != source.read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(source, copy)

    def _configure(self):
        # A mutant of a header would not get into what was precompiled.
        options = ["CMAKE_BUILD_TYPE=Release", "CMAKE_CXX_FLAGS_RELEASE=-O1", "CMAKE_DISABLE_PRECOMPILE_HEADERS=ON",
                   "KT_TEST_EACH_CASE=OFF", "KT_BUILD_EXAMPLES=OFF"]
        define = [argument for option in options for argument in ("-D", option)]
        subprocess.run(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", *define], check=True, stdout=subprocess.DEVNULL)

    def _build(self, targets):
        subprocess.run(["ninja", "-C", BUILD, *targets], check=True, stdout=subprocess.DEVNULL)

    def _read_commands(self, target):
        """How each unit of a target is compiled, by the source's name, and how the target is linked."""
        listed = subprocess.run(
            ["ninja", "-C", BUILD, "-t", "commands", target], check=True, capture_output=True, text=True
        ).stdout.splitlines()
        self.compilations[target] = {}
        for command in listed:
            compiled = re.search(rf" -o (\S+/{target}\.dir/\S+\.o) -c {re.escape(str(TREE))}/(\S+)$", command)
            if compiled:
                command = re.sub(r" -MD -MT \S+ -MF \S+", "", command)
                self.compilations[target][compiled.group(2)] = (compiled.group(1), command)
            elif re.search(rf" -o (\S*/)?(lib{target}\.so\S*|{target}) ", command):
                self.links[target] = command
        if target not in self.links:
            sys.exit(f"no command links {target}")

    def _read_users(self):
        """For each header the sources that include it."""
        listed = subprocess.run(["ninja", "-C", BUILD, "-t", "deps"], check=True, capture_output=True, text=True).stdout
        users = defaultdict(set)
        for entry in listed.split("\n\n"):
            names = re.findall(rf"^\s+(?:{re.escape(str(TREE))}|\S*\btree)/(\S+)$", entry, re.M)
            for name in names:
                users[name].update(source for source in names if source.endswith(".cpp"))
        return users

    def units(self, target, file):
        """The sources of a target that a change of the file concerns."""
        if file in USERS:
            return USERS[file].get(target, [])
        return [source for source in self.compilations[target] if source in self.users[file] or source == file]

    def make(self, target, file):
        """Compiles and links a target with the mutant of a file, into the mutant's folder. Returns whether it compiles."""
        link, objects = self.links[target], []
        for source in self.units(target, file):
            original, command = self.compilations[target][source]
            changed = MUTANT / original.replace("/", "_")
            command = command.replace(f" -o {original} ", f" -o {changed} ")
            if source == file:
                place = TREE / file
                command = command.replace(f" -c {place}", f" -iquote {place.parent} -c {MUTANT / place.name}")
            if run(shlex.split(command), BUILD).returncode != 0:
                return False
            link = link.replace(f" {original} ", " ")
            objects.append(str(changed))
        if not objects:
            return True
        # First, because of several equal copies of an inline function the linker takes the first.
        first = re.search(r" \S+\.o ", link).start()
        link = f"{link[:first]} {' '.join(objects)}{link[first:]}"
        output = re.search(r" -o (\S+) ", link).group(1)
        name = re.sub(r"\.so\S*", ".so.1", Path(output).name)
        link = link.replace(f" -o {output} ", f" -o {MUTANT / name} ")
        return run(["sh", "-c", link], BUILD).returncode == 0


def run(command, folder):
    return subprocess.run(command, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def cpu_seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def waits(process):
    """Whether every thread of a process waits, for something other than the processor."""
    try:
        states = [stat.read_text().rpartition(")")[2].split()[0] for stat in Path(f"/proc/{process.pid}/task").glob("*/stat")]
    except OSError:
        return False
    return "S" in states and not set(states) & set("RDTt")


def output_of(process):
    """What a process writes until it ends, or None if it waits for a minute: a test that waits for ever takes no processor time.

    Seconds are counted, not read from a clock, so that nothing is taken for waiting where this script and the tests are halted
    together, or where others leave them no processor.
    """
    waited = 0
    while waited < 60:
        try:
            return process.communicate(timeout=1)[0]
        except subprocess.TimeoutExpired:
            waited = waited + 1 if waits(process) else 0
    process.kill()
    process.communicate()
    return None


def instructions(kind):
    """What .ci/load-work counts of a kind of work; none if the program fails, or takes a hundred times as long as any kind does."""
    counting = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", "--toggle-collect=kt_measuredUse"]
    limited = ["sh", "-c", 'ulimit -t 300; exec "$@"', "sh", *counting, BUILD / "tests" / "load_work", kind, "500"]
    environment = dict(os.environ, LD_LIBRARY_PATH=f"{MUTANT}:{BUILD}")
    done = subprocess.run(limited, cwd=BUILD, env=environment, capture_output=True, text=True, errors="replace")
    collected = re.search(r"Collected : (\d+)", done.stderr)
    return int(collected.group(1)) if done.returncode == 0 and collected else None


class Suite:
    """The tests, each part with a limit of processor time: three times what it takes without a mutant, and five seconds. Work may be
    a fifth more than without a mutant: .ci/load-work, which must hold with other versions of the compiler too, allows up to a third."""

    def __init__(self, areas, verbose):
        self.limits, self.work = {}, {}
        for step in dict.fromkeys(step for area in areas for step in area.tests):
            if step[0] == "load_work":
                self.work.update((kind, instructions(kind)) for kind in step[1].split(":"))
                continue
            before = cpu_seconds()
            killer = self.killer(*step, limit=600)
            if killer:
                sys.exit(f"without a mutant {step[0]} fails in {killer}")
            self.limits[step] = int(3 * (cpu_seconds() - before) + 5.5)
            if verbose:
                print(f"{step[0]} {step[1]}: {cpu_seconds() - before:.1f} s")

    def killer(self, program, tests, limit=None):
        """The test that fails, or "" if all pass; "timed out" if that cannot be told."""
        if program == "load_work":
            counts = ((kind, instructions(kind)) for kind in tests.split(":"))
            return next((kind for kind, count in counts if count is None or 5 * count > 6 * self.work[kind]), "")
        limit = limit or self.limits[program, tests]

        def restrict():
            resource.setrlimit(resource.RLIMIT_CPU, (limit, limit + 1))
            resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

        path = MUTANT / program if (MUTANT / program).exists() else BUILD / "tests" / program
        environment = dict(os.environ, LD_LIBRARY_PATH=f"{MUTANT}:{BUILD}")
        process = subprocess.Popen(
            [path, f"--gtest_filter={tests}", "--gtest_fail_fast"],
            cwd=BUILD, env=environment, preexec_fn=restrict, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, errors="replace",
        )
        output = output_of(process)
        if output is None:
            return "timed out"
        if process.returncode == 0:
            return ""
        if process.returncode in (-signal.SIGXCPU, -signal.SIGKILL):
            return "timed out"
        failed = re.search(r"^\[  FAILED  \] (\S+?)(?:,| \()", output, re.M)
        begun = re.findall(r"^\[ RUN      \] (\S+)", output, re.M)
        return failed.group(1) if failed else begun[-1] if begun else "start of the program"


def tried(project, suite, area, file, mutant):
    """Makes the mutant and runs the tests."""
    place = TREE / file
    source, times = place.read_text(), place.stat()
    shutil.rmtree(MUTANT, ignore_errors=True)
    MUTANT.mkdir(parents=True)
    # A header is found where it lies, so it is changed there for a while.
    changed = place if place.suffix == ".h" else MUTANT / place.name
    try:
        changed.write_text(source[: mutant.start] + mutant.replacement + source[mutant.end :])
        made = set()
        for program, tests in area.tests:
            for target in [program] if program == "internals_tests" else [*LIBRARIES, program]:
                if target not in made and not project.make(target, file):
                    return Outcome("does not compile", "")
                made.add(target)
            killer = suite.killer(program, tests)
            if killer:
                return Outcome("timed out" if killer == "timed out" else "killed", f"{program} {killer}")
        return Outcome("survived", "")
    finally:
        if changed == place:
            place.write_text(source)
            os.utime(place, ns=(times.st_atime_ns, times.st_mtime_ns))
        shutil.rmtree(MUTANT)


def listed_equivalents(path):
    """The mutants that no test can tell from the original, with the reason. Each line of source stands below its file, each of
    its mutations below the line, and all of them below the reason."""
    reasons, reason, file, line = {}, [], "", ""
    for number, text in enumerate(path.read_text().splitlines(), 1):
        indent = len(text) - len(text.lstrip())
        if text.startswith("# "):
            reason = [text[2:]] if file else reason + [text[2:]]
            file = ""
        elif text and indent == 0:
            file = text
        elif indent == 4:
            line = text.strip()
        elif indent == 8:
            if not reason or not file or not line:
                sys.exit(f"{path}:{number}: a mutation without reason, file or line")
            reasons[file, line, text.strip()] = " ".join(reason)
        elif text:
            sys.exit(f"{path}:{number}: indented by {indent}")
    return reasons


def key(file, mutant):
    return file, mutant.text, mutant.label


def chosen(options, equivalents):
    """The mutants of each file, or the same share of each file's, in a fixed order; and how many there are without a sample."""
    every = {}
    for area in AREAS:
        for file in area.files:
            if not options.files or any(part in file for part in options.files):
                every[file] = mutants_of((TOP / file).read_text())
    keys = {key(file, mutant) for file, mutants in every.items() for mutant in mutants}
    gone = sorted(entry for entry in equivalents if entry[0] in every and entry not in keys)
    if gone:
        sys.exit("\n".join(["listed as equivalent, but there is no such mutant:", *(" | ".join(entry) for entry in gone)]))
    total = sum(len(mutants) for mutants in every.values())
    sample = {file: list(mutants) for file, mutants in every.items()}
    if options.sample and options.sample < total:
        draw = random.Random(options.seed)
        for file, mutants in every.items():
            count = max(1, round(len(mutants) * options.sample / total)) if mutants else 0
            sample[file] = sorted(draw.sample(mutants, count))
    if options.survivors:
        log = LOG.read_text().splitlines()
        last = {tuple(line.split("\t")[2:5]) for line in log if line.startswith("survived\t")}
        sample = {file: [mutant for mutant in mutants if key(file, mutant) in last] for file, mutants in every.items()}
    return sample, total


def main():
    parser = argparse.ArgumentParser(prog=".ci/release/mutation", description=__doc__.splitlines()[0])
    parser.add_argument("--sample", type=int, metavar="N", help="try about N mutants, of each file the same share")
    parser.add_argument("--seed", type=int, default=1, help="which ones the sample takes (1)")
    parser.add_argument("--minutes", type=float, metavar="N", help="stop after N minutes and count what was tried until then")
    parser.add_argument("--files", nargs="+", metavar="PART", help="only files whose path contains one of these")
    parser.add_argument("--survivors", action="store_true", help="only those that survived the last time")
    parser.add_argument("--equivalents", action="store_true", help="those that are listed as equivalent: each must survive")
    parser.add_argument("--list", action="store_true", help="only print the mutants")
    parser.add_argument("--verbose", action="store_true", help="print every mutant and what killed it")
    options = parser.parse_args()
    equivalents = listed_equivalents(Path(__file__).with_name("equivalents.txt"))
    sample, total = chosen(options, equivalents)
    if options.list:
        for file, mutants in sample.items():
            for mutant in mutants:
                print(f"{file}:{mutant.line}: {mutant.text} | {mutant.label}")
        return 0
    areas = [area for area in AREAS if any(sample.get(file) for file in area.files)]
    project = Project(sorted({program for area in areas for program, _ in area.tests}))
    shutil.rmtree(MUTANT, ignore_errors=True)
    suite = Suite(areas, options.verbose)
    count = sum(len(mutants) for mutants in sample.values())
    print(f"{count} of {total} mutants, seed {options.seed}" if count < total else f"all {total} mutants", flush=True)
    results, seconds = results_of(areas, sample, equivalents, options, project, suite)
    print_table(results, seconds)
    dead, survived = (sum(row[name] for row in results.values()) for name in ("killed", "survived"))
    if options.equivalents:
        return 1 if dead else 0
    return 0 if 10 * dead >= 9 * (dead + survived) else 1


def results_of(areas, sample, equivalents, options, project, suite):
    """Tries the mutants in random order, so that those tried when the time is over are a sample too. Returns how many had each
    result, by area, and how many seconds it took."""
    began, results = time.monotonic(), {area.name: defaultdict(int) for area in areas}
    drawn = [(area, file, mutant) for area in areas for file in area.files for mutant in sample.get(file, [])]
    random.Random(options.seed).shuffle(drawn)
    with open(LOG, "w") as log:
        for number, (area, file, mutant) in enumerate(drawn, 1):
            row = results[area.name]
            if (key(file, mutant) in equivalents) != options.equivalents:
                row["equivalent"] += not options.equivalents
                continue
            if options.minutes and time.monotonic() - began > 60 * options.minutes:
                print(f"the time is over after {number - 1} of {len(drawn)}", flush=True)
                break
            result, by = tried(project, suite, area, file, mutant)
            row["killed" if result == "timed out" else result] += 1
            row["timed out"] += result == "timed out"
            print(result, by, *key(file, mutant), mutant.line, sep="\t", file=log, flush=True)
            if options.verbose or result == ("killed" if options.equivalents else "survived"):
                print(f"{number} {result}: {file}:{mutant.line}: {mutant.text} | {mutant.label} {by}", flush=True)
    return results, time.monotonic() - began


def print_table(results, seconds):
    total = defaultdict(int)
    for row in results.values():
        for name, number in row.items():
            total[name] += number
    columns = ["mutants", "killed", "(timed out)", "survived", "equivalent", "killed, of all", "killed, of those that can be"]
    print("\n" + " " * 20 + "".join(f"{column:>{len(column) + 2}}" for column in columns) + "  not compiled")
    for name, row in [*results.items(), ("together", total)]:
        killed, possible = row["killed"], row["killed"] + row["survived"]
        count = possible + row["equivalent"]
        shares = [f"{100 * killed / number:.1f} %" if number else "-" for number in (count, possible)]
        cells = [count, killed, row["timed out"], row["survived"], row["equivalent"], *shares]
        print(f"{name:20}" + "".join(f"{cell:>{len(column) + 2}}" for cell, column in zip(cells, columns)), end="")
        print(f"{row['does not compile']:14}")
    print(f"\n{seconds:.0f} s")


if __name__ == "__main__":
    sys.exit(main())
