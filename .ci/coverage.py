#!/usr/bin/env python3
"""Reports what the programs of a build ran of the library, from their counts. For .ci/coverage, which says what must hold.

    coverage.py lines PROFILE PROGRAM...      fails unless every line and both sides of every branch ran
    coverage.py regions PROFILE PROGRAM...    fails unless 95 % of the regions of the archive code ran

Further profiles with their programs follow after --and: what ran by one of the profiles ran.
"""

import collections
import itertools
import json
import pathlib
import re
import subprocess
import sys

top = pathlib.Path(__file__).resolve().parent.parent
build = top / "build/asan"
library = re.compile(r"(foundation|clss|include|kit)/")
archive_code = re.compile(r"foundation/(src/archive|src/instantiator|src/object_table|src/persistent|include/kt/archive"
                          r"|include/kt/persistent)")
excused = re.compile(r"// not covered: \w")
most_excused = 20
least_regions = 95.0
# The kinds of regions that llvm-cov tells apart.
code, expansion, gap = 0, 1, 3


class Counts:
    """Lines, branches and regions by file. A template or an inline function has a record for each instance and program: what
    runs in one of them is covered."""

    def __init__(self, which):
        self.which = which
        self.names = {}
        self.lines = collections.defaultdict(dict)
        self.branches = collections.defaultdict(dict)
        self.regions = collections.defaultdict(dict)

    def name(self, path):
        """The path from the top of the tree, or None for a file that is not counted."""
        if path not in self.names:
            # A compiler cache may have made it relative to the folder of the build.
            file = (build / path).resolve()
            name = file.relative_to(top).as_posix() if file.is_relative_to(top) else ""
            self.names[path] = name if self.which.match(name) else None
        return self.names[path]

    def add(self, function):
        for number, path in enumerate(function["filenames"]):
            name = self.name(path)
            if name is not None:
                self.add_regions(name, [region for region in function["regions"] if region[5] == number])
                self.add_branches(name, [branch for branch in function["branches"] if branch[6] == number])

    def add_branches(self, name, branches):
        known = self.branches[name]
        for *place, if_true, if_false, _, _, _ in branches:
            before = known.get(tuple(place), (False, False))
            known[tuple(place)] = (before[0] or if_true > 0, before[1] or if_false > 0)

    def add_regions(self, name, regions):
        # A line counts as often as the innermost region that it begins in, or as the regions that begin on it.
        inside, begun = {}, {}
        outer_first = sorted(regions, key=lambda region: (region[0], region[1], -region[2], -region[3]))
        for line, column, end, end_column, count, _, _, kind in outer_first:
            if kind in (code, expansion):
                begun[line] = max(begun.get(line, 0), count)
            if kind == code:
                place = (line, column, end, end_column)
                self.regions[name][place] = self.regions[name].get(place, False) or count > 0
            if kind in (code, expansion, gap):
                inside.update(dict.fromkeys(range(line + 1, end + 1), None if kind == gap else count))
        for line in inside.keys() | begun.keys():
            counts = [count for count in (inside.get(line), begun.get(line)) if count is not None]
            if counts:
                self.lines[name][line] = self.lines[name].get(line, False) or max(counts) > 0


def add_counts(result, profile, programs):
    """One program at a time: of an inline function that several have, llvm-cov shows the first, which may be one that never
    calls it."""
    for program in programs:
        exported = subprocess.run(["llvm-cov", "export", "-skip-expansions", f"-instr-profile={profile}", program],
                                  capture_output=True)
        # Its warnings are about functions of the standard library that differ between C++14 and C++17.
        if exported.returncode != 0:
            sys.exit(exported.stderr.decode())
        for data in json.loads(exported.stdout)["data"]:
            for function in data["functions"]:
                result.add(function)


def share(covered):
    covered = list(covered)
    return f"{sum(covered)} of {len(covered)}, {100 * sum(covered) / len(covered):.2f} %"


def report_lines(found):
    missed = collections.defaultdict(list)
    for name, lines in found.lines.items():
        for line in (line for line, ran in lines.items() if not ran):
            missed[name, line] = ["does not run"]
    for name, branches in found.branches.items():
        for (line, column, *_), (if_true, if_false) in branches.items():
            if if_true and if_false:
                continue
            never = "is never true" if if_false else "is never false" if if_true else "is never asked"
            missed[name, line].append(f"the condition at column {column} {never}")
    marks = []
    excuses = set()
    for name in found.lines:
        for number, line in enumerate((top / name).read_text().splitlines(), 1):
            if excused.search(line):
                marks.append((name, number))
                excuses.add((name, number))
                # With a condition go the lines below it that do not run.
                while "does not run" in missed.get((name, number + 1), []):
                    number += 1
                    excuses.add((name, number))

    sides = [side for branches in found.branches.values() for both in branches.values() for side in both]
    print(f"{len(found.lines)} files")
    print(f"lines:    {share(ran for lines in found.lines.values() for ran in lines.values())}")
    print(f"branches: {share(sides)}")
    print(f"excused:  {len(marks)} places of at most {most_excused}")
    failures = [f"{name}:{line}: {', '.join(missed[name, line])}" for name, line in sorted(missed.keys() - excuses)]
    if len(marks) > most_excused:
        failures.append(f"{len(marks)} places are excused")
    return failures


def report_regions(found):
    ran = [ran for regions in found.regions.values() for ran in regions.values()]
    for name, regions in sorted(found.regions.items()):
        print(f"{name}: {share(regions.values())}")
        for (line, column, *_), covered in sorted(regions.items()):
            if not covered:
                print(f"    {name}:{line}:{column} does not run")
    print(f"regions:  {share(ran)}")
    return [f"less than {least_regions} %"] if 100 * sum(ran) < least_regions * len(ran) else []


def main(what, *arguments):
    which, report = {"lines": (library, report_lines), "regions": (archive_code, report_regions)}[what]
    found = Counts(which)
    for is_divider, group in itertools.groupby(arguments, "--and".__eq__):
        if not is_divider:
            profile, *programs = group
            add_counts(found, profile, programs)
    failures = report(found)
    print("\n".join(failures), file=sys.stderr, end="\n" if failures else "")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
