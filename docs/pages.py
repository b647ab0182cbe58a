#!/usr/bin/env python3
"""Checks the pages, *.md and docs/*.md, as they are read on a code host.

A comment that names a file, directly above a block of code, says that the block is a copy of that file:

    <!-- docs/programs/own_metric.cpp -->
    <!-- docs/programs/own_metric.cpp: metric -->
    <!-- docs/programs/recorded/nearest_neighbors.txt: 3-4 -->

With a name behind the colon the block is what stands between two lines `// [metric]` of the file, with numbers it is these lines. Every block of C++ has such
a comment, so that whatever a page shows is compiled and run. With --update the blocks are written anew from the files.

Every link that leads into this project leads to a file, and its anchor to a heading.
"""

import re
import sys
import textwrap
from pathlib import Path

MARKER = re.compile(r"<!-- ([\w./-]+\.\w+)(?:: ([\w-]+))? -->")
LINK = re.compile(r"\]\(([^)\s]+)\)")


def part_of(path, name):
    if not Path(path).exists():
        sys.exit(f"no file {path}")
    text = Path(path).read_text()
    if name and name[0].isdigit():
        first, last = map(int, name.split("-"))
        return text.splitlines()[first - 1 : last]
    if name:
        pieces = re.split(rf"^ *// \[{name}\]\n", text, flags=re.MULTILINE)
        if len(pieces) != 3:
            sys.exit(f"{path}: not two lines // [{name}]")
        text = textwrap.dedent(pieces[1])
    return re.sub(r"^ *// \[\w+\]\n", "", text, flags=re.MULTILINE).strip("\n").splitlines()


def blocks_renewed(page, lines, complaints):
    """The lines of the page with every block copied anew; complains of blocks of C++ that are no copies."""
    renewed = []
    rest = iter(enumerate(lines, 1))
    for number, line in rest:
        renewed.append(line)
        if not line.lstrip().startswith("```"):
            continue
        marker = MARKER.fullmatch(lines[number - 2]) if number > 1 else None
        block = []
        for _, inside in rest:
            if inside.strip() == "```":
                break
            block.append(inside)
        if marker:
            block = part_of(*marker.groups())
        elif re.match(r" *```(c\+\+|cpp)", line):
            complaints.append(f"{page}:{number}: no comment says which file this C++ is a copy of")
        renewed += block + ["```"]
    return renewed


def anchors_of(path):
    """The anchors that a code host gives to the headings of a page."""
    headings = re.findall(r"^#+ (.*)$", path.read_text(), flags=re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading).strip().lower().replace(" ", "-") for heading in headings}


def check_links(page, lines, complaints):
    for number, line in enumerate(lines, 1):
        for target in LINK.findall(line):
            if re.match(r"[a-z]+:", target):
                continue
            file, _, anchor = target.partition("#")
            path = page.parent / file if file else page
            if not path.exists():
                complaints.append(f"{page}:{number}: no file {path}")
            elif anchor and anchor not in anchors_of(path):
                complaints.append(f"{page}:{number}: {path} has no heading {anchor}")


def main():
    complaints = []
    pages = [*sorted(Path().glob("*.md")), *sorted(Path("docs").glob("*.md"))]
    for page in pages:
        lines = page.read_text().splitlines()
        renewed = blocks_renewed(page, lines, complaints)
        if renewed != lines:
            if "--update" in sys.argv:
                page.write_text("\n".join(renewed) + "\n")
            else:
                complaints.append(f"{page}: code that is not that of its file; docs/pages.py --update copies it")
        check_links(page, renewed, complaints)
    if complaints:
        sys.exit("\n".join(complaints))
    print(f"{len(pages)} pages")


main()
