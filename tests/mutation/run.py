"""Changes the library in one small way at a time, and counts how often the tests notice. `.ci/release/mutation` calls it.

build/mutation/tree is a copy of the project, with its build. Of each mutant the units that it touches are compiled and linked
beside that, from sources of their own, so that several mutants are tried at once and the build never changes.
"""

import argparse
import os
import queue
import random
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time
from collections import defaultdict, namedtuple
from concurrent.futures import ThreadPoolExecutor, as_completed
from functools import cache
from pathlib import Path
from threading import Lock

from mutators import mutants_of

TOP = Path(__file__).resolve().parents[2]
WORK = TOP / "build" / "mutation"
TREE = WORK / "tree"
BUILD = TREE / "build" / "release"
LOG = WORK / "log.txt"
LIBRARIES = ["ktfoundation", "clastool", "clastool-kit"]
MEMORY = 3 << 30
LONGEST = 900
START = "start of the program"

# Files of an area, and the tests that touch it: those that find most in the least time come first. All mutants are tried with the
# first two, those that are left with the others too; one survives if all of them pass. `internals_tests` has the library's sources in it. `load_work` takes kinds of work.
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
            ("damage_tests", "*"),
            ("trust_tests", "*"),
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
            ("clastool_tests", "*"),
            ("damage_tests", "*"),
            ("trust_tests", "*-SmallWorldOfTrees.*"),
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
            ("internals_tests", "*NeighborCases*-*/Uniform:*/LastBits:*/GridOfManyPatterns:*/AllScales:*ManyFarthestFirst"),
            ("clastool_tests", "*"),
            ("damage_tests", "*"),
            ("trust_tests", "*-SmallWorldOfTrees.*"),
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
            ("trust_tests", "SmallWorldOfDependencies.*"),
            ("bayes_tests", "*"),
            ("clastool_tests", "*"),
            ("damage_tests", "*"),
            ("trust_tests", "*-SmallWorldOfTrees.*:SmallWorldOfDependencies.*"),
        ],
    ),
    Area(
        "tree",
        ["clss/clastool/decision_tree.cpp"],
        [
            ("tree_tests", "*-*MillionNodes*:*DoubledChain*:*TreeNesting*"),
            ("clastool_tests", "*"),
            ("damage_tests", "*"),
            ("trust_tests", "*"),
            ("tree_tests", "*"),
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
            ("damage_tests", "*"),
            ("trust_tests", "*"),
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
            ("damage_tests", "*"),
            ("trust_tests", "*"),
        ],
    ),
    Area(
        "densities",
        ["clss/clastool/bayes/densities.cpp"],
        [
            ("bayes_tests", "*Binomial*:*Normal*"),
            ("bayes_tests", "*"),
            ("damage_tests", "*"),
            ("trust_tests", "*-SmallWorldOfTrees.*"),
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
            ("damage_tests", "*"),
            ("trust_tests", "*-SmallWorldOfTrees.*"),
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
            ("clastool_tests", "*"),
            ("damage_tests", "*"),
            ("trust_tests", "*-SmallWorldOfTrees.*"),
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
    """The copy of the project, built as the preset `release` builds it, and the commands that do so.

    Only the libraries are optimised less, so a cache of the compiler has most objects of the tests already.
    """

    def __init__(self, programs):
        self._copy()
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
        for old in sources_in(TREE):
            if str(old) not in names:
                (TREE / old).unlink()
        for name in sorted(names):
            source, copy = TOP / name, TREE / name
            if not copy.exists() or copy.read_bytes() != source.read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(source, copy)

    def _build(self, targets):
        options = ["KT_LIBRARY_OPTIONS=-O1", "KT_TEST_EACH_CASE=OFF", "KT_BUILD_EXAMPLES=OFF"]
        define = [argument for option in options for argument in ("-D", option)]
        subprocess.run(["cmake", "--preset", "release", *define], cwd=TREE, check=True, stdout=subprocess.DEVNULL)
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
            paths = [os.path.normpath(BUILD / path) for path in re.findall(r"^\s+(\S+)$", entry, re.M)]
            names = [os.path.relpath(path, TREE) for path in paths if path.startswith(f"{TREE}/")]
            for name in names:
                users[name].update(source for source in names if source.endswith(".cpp"))
        return users

    def units(self, target, file):
        """The sources of a target that a change of the file concerns."""
        if file in USERS:
            return USERS[file].get(target, [])
        return [source for source in self.compilations[target] if source in self.users[file] or source == file]


class Workshop:
    """A folder of its own for the mutants that are tried one after the other, beside those that others try: the sources,
    and what is made of the mutant."""

    def __init__(self, number, project, suite):
        self.project, self.suite = project, suite
        self.sources = WORK / f"workshop-{number}" / "tree"
        self.made = WORK / f"workshop-{number}" / "made"
        shutil.rmtree(self.sources.parent, ignore_errors=True)
        for name in sources_in(TREE):
            if name.suffix in (".cpp", ".h"):
                (self.sources / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(TREE / name, self.sources / name)

    def tried(self, tests, file, mutant):
        """Makes the mutant and runs the tests, of which the first one that notices it decides."""
        place = self.sources / file
        source = place.read_text()
        shutil.rmtree(self.made, ignore_errors=True)
        self.made.mkdir()
        self.objects, targets = {}, set()
        try:
            place.write_text(source[: mutant.start] + mutant.replacement + source[mutant.end :])
            for program, filters in tests:
                for target in [program] if program == "internals_tests" else [*LIBRARIES, program]:
                    if target not in targets and not self._make(target, file):
                        return Outcome("does not compile", "")
                    targets.add(target)
                killer = self.suite.killer(program, filters, self.made)
                if killer:
                    return Outcome("timed out" if killer == "timed out" else "killed", f"{program} {killer}")
            return Outcome("survived", "")
        finally:
            place.write_text(source)

    def _make(self, target, file):
        """Compiles and links a target with the mutant of a file. Returns whether it compiles."""
        link, objects = self.project.links[target], []
        for source in self.project.units(target, file):
            if not self._compile(target, source):
                return False
            link = link.replace(f" {self.project.compilations[target][source][0]} ", " ")
            objects.append(self.objects[source])
        if not objects:
            return True
        # First, because of several equal copies of an inline function the linker takes the first.
        first = re.search(r" \S+\.o ", link).start()
        link = f"{link[:first]} {' '.join(objects)}{link[first:]}"
        output = re.search(r" -o (\S+) ", link).group(1)
        name = re.sub(r"\.so\S*", ".so.1", Path(output).name)
        link = link.replace(f" -o {output} ", f" -o {self.made / name} ")
        return run(["sh", "-c", link]).returncode == 0

    def _compile(self, target, source):
        """Compiles a source, unless that is done: `internals_tests` takes what was compiled for the library, and the other
        way round."""
        if source not in self.objects:
            owner = next((library for library in LIBRARIES if source in self.project.compilations[library]), target)
            original, command = self.project.compilations[owner][source]
            self.objects[source] = str(self.made / original.replace("/", "_"))
            command = command.replace(f" -o {original} ", f" -w -o {self.objects[source]} ")
            command = re.sub(rf"{re.escape(str(TREE))}/(?!build/)", f"{self.sources}/", command)
            # What was precompiled has the header without the mutant.
            command = re.sub(r" -Winvalid-pch| -include \S+/cmake_pch\.hxx", "", command)
            return run(shlex.split(command)).returncode == 0
        return True


def sources_in(tree):
    """The files of the project's copy, without what is built of them."""
    for folder, folders, names in os.walk(tree):
        if Path(folder) == tree and "build" in folders:
            folders.remove("build")
        yield from (Path(folder, name).relative_to(tree) for name in names)


def steps(area):
    """The tests of an area, each of them once: `*` stands for those of a program that do not come earlier."""
    earlier, found = defaultdict(list), []
    for program, tests in area.tests:
        if tests == "*" and earlier[program]:
            if len(earlier[program]) == 1 and earlier[program][0].startswith("*-"):
                tests = earlier[program][0][2:]
            elif not any("-" in filters for filters in earlier[program]):
                tests = "*-" + ":".join(earlier[program])
        earlier[program].append(tests)
        found.append((program, tests))
    return found


def run(command):
    """Compiles or links. What is compiled once is not worth a place in the cache of the compiler."""
    environment = dict(os.environ, CCACHE_DISABLE="1")
    return subprocess.run(command, cwd=BUILD, env=environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def limited(command, folder):
    """A command that starts a program of the tests with the mutant, and its environment. The tests write their files into the
    folder of the mutant."""
    limits = f'ulimit -S -t {LONGEST}; ulimit -v {MEMORY >> 10}; ulimit -c 0; exec "$@"'
    environment = dict(os.environ, LD_LIBRARY_PATH=f"{folder}:{BUILD}", TMPDIR=str(folder))
    return ["sh", "-c", limits, "sh", *map(str, command)], environment


def cpu_seconds(process):
    """What a process has taken of the processor until now, with the processes it waited for."""
    try:
        fields = Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    except OSError:
        return 0.0
    return sum(map(int, fields[11:15])) / os.sysconf("SC_CLK_TCK")


def waits(process):
    """Whether every thread of a process waits, for something other than the processor."""
    try:
        states = [stat.read_text().rpartition(")")[2].split()[0] for stat in Path(f"/proc/{process.pid}/task").glob("*/stat")]
    except OSError:
        return False
    return "S" in states and not set(states) & set("RDTt")


def instructions(kind, folder):
    """What .ci/load-work counts of a kind of work; none if the program fails, or takes a hundred times as long as any kind does."""
    counting = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", "--toggle-collect=kt_measuredUse"]
    command, environment = limited([*counting, BUILD / "tests" / "load_work", kind, "500"], folder)
    done = subprocess.run(command, cwd=BUILD, env=environment, capture_output=True, text=True, errors="replace")
    collected = re.search(r"Collected : (\d+)", done.stderr)
    return int(collected.group(1)) if done.returncode == 0 and collected else None


class Suite:
    """The tests, each with a limit of processor time: three times what it takes without a mutant, and five seconds. Work may be
    a fifth more than without a mutant: .ci/load-work, which must hold with other versions of the compiler too, allows up to a third.

    What a test or a kind of work takes without a mutant is found out when it is asked for first."""

    def __init__(self):
        self.folder = WORK / "without"
        self.folder.mkdir(parents=True, exist_ok=True)
        self.measuring = Lock()
        self.seconds_of = cache(self._seconds_of)
        self.work_of = cache(lambda kind: instructions(kind, self.folder))

    def _seconds_of(self, program, test):
        """How long a test takes without a mutant. It must pass, or it would notice none."""
        status, said, seconds = self._watched(program, test, self.folder, lambda _, seconds: False)
        if status != 0 or "[  PASSED  ] 1 test." not in said:
            raise RuntimeError(f"without a mutant {program} {test} does not pass: {said[-1000:]}")
        return seconds

    def killer(self, program, tests, folder):
        """The test that fails, or "" if all pass; "timed out" if that cannot be told."""
        if program == "load_work":
            return next((kind for kind in tests.split(":") if self._is_more_work(kind, folder)), "")
        status, said, _ = self._watched(program, tests, folder, lambda test, seconds: self._is_too_long(program, test, seconds))
        if status == 0:
            return ""
        if status in (None, -signal.SIGXCPU, -signal.SIGKILL):
            return "timed out"
        test = failed_in(said)
        if test != START:
            with self.measuring:
                self.seconds_of(program, test)
        return test

    def _is_more_work(self, kind, folder):
        with self.measuring:
            before = self.work_of(kind)
        count = instructions(kind, folder)
        return count is None or 5 * count > 6 * before

    def _is_too_long(self, program, test, seconds):
        if seconds <= 5 or test == START:
            return seconds > 5
        with self.measuring:
            return seconds > 5 + 3 * self.seconds_of(program, test)

    def _watched(self, program, tests, folder, is_too_long):
        """Runs tests. Returns how the program ended, none if a test took too long or waited for a minute; what it wrote; and how
        long it took.

        The time of a test is that of the processor, so one that waits for ever takes none: seconds are counted, not read from a
        clock, so that nothing is taken for waiting where this script and the tests are halted together, or where others leave them
        no processor.
        """
        path = folder / program if (folder / program).is_file() else BUILD / "tests" / program
        command, environment = limited([path, f"--gtest_filter={tests}", "--gtest_fail_fast"], folder)
        place, test, began, now, waited = folder / "said.txt", START, 0.0, 0.0, 0
        with open(place, "wb") as said:
            process = subprocess.Popen(command, cwd=BUILD, env=environment, stdout=said, stderr=subprocess.DEVNULL, start_new_session=True)
        while True:
            try:
                status = process.wait(timeout=1)
                return status, place.read_text(errors="replace"), now
            except subprocess.TimeoutExpired:
                waited = waited + 1 if waits(process) else 0
            now, latest = cpu_seconds(process), latest_test(place.read_text(errors="replace"))
            if latest != test:
                test, began = latest, now
            if waited == 60 or is_too_long(test, now - began):
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
                return None, place.read_text(errors="replace"), now


def latest_test(said):
    begun = re.findall(r"^\[ RUN      \] (\S+)", said, re.M)
    return begun[-1] if begun else START


def failed_in(said):
    failed = re.search(r"^\[  FAILED  \] (\S+?)(?:,| \()", said, re.M)
    return failed.group(1) if failed else latest_test(said)


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
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N", help="how many at once (one for each processor)")
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
    pool = ThreadPoolExecutor(options.jobs)
    suite, workshops = Suite(), queue.SimpleQueue()
    for number in range(options.jobs):
        workshops.put(Workshop(number, project, suite))
    count = sum(len(mutants) for mutants in sample.values())
    print(f"{count} of {total} mutants, seed {options.seed}" if count < total else f"all {total} mutants", flush=True)
    results, seconds = results_of(areas, sample, equivalents, options, pool, workshops)
    print_table(results, seconds)
    dead, survived = (sum(row[name] for row in results.values()) for name in ("killed", "survived"))
    if options.equivalents:
        return 1 if dead else 0
    return 0 if 10 * dead >= 9 * (dead + survived) else 1


def results_of(areas, sample, equivalents, options, pool, workshops):
    """Tries the mutants in random order, so that those tried when the time is over are a sample too: all of them with the first
    tests of their areas, then those that are left with the others, which take longer and notice less. Returns how many had each
    result, by area, and how many seconds it took."""
    began, results = time.monotonic(), {area.name: defaultdict(int) for area in areas}
    drawn = [(area, file, mutant) for area in areas for file in area.files for mutant in sample.get(file, [])]
    random.Random(options.seed).shuffle(drawn)
    wanted = []
    for area, file, mutant in drawn:
        if (key(file, mutant) in equivalents) == options.equivalents:
            wanted.append((area, file, mutant))
        elif not options.equivalents:
            results[area.name]["equivalent"] += 1

    def outcome(area, file, mutant, tests):
        if options.minutes and time.monotonic() - began > 60 * options.minutes:
            return Outcome("not tried", "")
        workshop = workshops.get()
        try:
            return workshop.tried(tests, file, mutant)
        finally:
            workshops.put(workshop)

    with open(LOG, "w") as log:
        for isLast, part in [(False, slice(0, 2)), (True, slice(2, None))]:
            running = {pool.submit(outcome, *one, steps(one[0])[part]): one for one in wanted}
            wanted = []
            for done in as_completed(running):
                (area, file, mutant), (result, by) = running[done], done.result()
                if result == "survived" and not isLast:
                    wanted.append((area, file, mutant))
                    print(f"so far: {file}:{mutant.line}: {mutant.text} | {mutant.label}", flush=True)
                    continue
                results[area.name]["killed" if result == "timed out" else result] += 1
                results[area.name]["timed out"] += result == "timed out"
                if result != "not tried":
                    print(result, by, *key(file, mutant), mutant.line, sep="\t", file=log, flush=True)
                if options.verbose or result == ("killed" if options.equivalents else "survived"):
                    print(f"{result}: {file}:{mutant.line}: {mutant.text} | {mutant.label} {by}", flush=True)
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
