#!/usr/bin/env python3
"""Puts together what Sphinx makes the site of: the pages as they stand in the project, a page for each example, and the C++
reference from Doxygen's XML.

    stage.py XML FOLDER

The folder is laid out as the project is, so that links between pages lead where they lead on a code host.
"""

import re
import shutil
import sys
from pathlib import Path


import reference
import result_picture

SITE = Path(__file__).parent
TOP = SITE.parent.parent
# The pictures that examples draw, beside what they print.
PICTURES = {
    "draw_decision_regions": sorted(TOP.glob("docs/images/regions-*.svg")),
    "grade_by_fuzzy_rules": [TOP / "docs/images/fuzzy-rules/grades.svg", TOP / "docs/images/fuzzy-rules/diameter_right.svg"],
}
MARKER = re.compile(r"^ *<!-- [\w./-]+\.\w+(?:: [\w-]+)? -->\n", flags=re.MULTILINE)
CONDITION = re.compile(r"^<!-- if(-not)? (\S+) -->\n(.*?)^<!-- end -->\n", flags=re.MULTILINE | re.DOTALL)


def staged(text):
    """A page as Sphinx reads it."""
    text = CONDITION.sub(lambda match: match[3] if (TOP / match[2]).exists() != bool(match[1]) else "", text)
    text = MARKER.sub("", text)
    # A link to an example leads to its page in the gallery.
    text = re.sub(r"\]\((?:\.\./)?examples/(\w+)\.cpp\)", r"](/gallery/\1.md)", text)
    text = re.sub(r"\]\((?:\.\./)?examples/\)", "](/gallery/index.md)", text)
    text = re.sub(r"\]\((?:\.\./)?examples/data/\)", "](/examples/data/README.md)", text)
    return text


def copy_pages(folder):
    pages = [*TOP.glob("*.md"), *TOP.glob("docs/*.md"), TOP / "examples/data/README.md"]
    for page in pages:
        target = folder / page.relative_to(TOP)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(staged(page.read_text()))
    for page in SITE.glob("*.md"):
        if page.name == "python.md" and not (TOP / "docs/python.md").exists():
            continue
        (folder / page.name).write_text(staged(page.read_text()))
    for part in ("docs/images", "docs/programs", "examples", "LICENSE"):
        copy = shutil.copytree if (TOP / part).is_dir() else shutil.copy
        copy(TOP / part, folder / part, **({"dirs_exist_ok": True, "ignore": shutil.ignore_patterns("*.md")} if copy is shutil.copytree else {}))
    shutil.copytree(SITE / "_static", folder / "_static")
    return len(pages)


def listed_examples():
    """Name and description of the examples, in the order of the README's table, which names them all."""
    listed = re.findall(r"^\| \[`(\w+)`\]\(examples/\w+\.cpp\) \| (.*) \|$", (TOP / "README.md").read_text(), re.MULTILINE)
    there = {path.stem for path in TOP.glob("examples/*.cpp")}
    if there != {name for name, _ in listed}:
        sys.exit(f"README.md and examples/ differ: {sorted(there ^ {name for name, _ in listed})}")
    return listed


def title_of(name):
    return name.replace("_", " ").capitalize()


def example_page(name):
    lines = (TOP / f"examples/{name}.cpp").read_text().splitlines()
    comment = []
    while lines[0].startswith("//"):
        comment.append(lines.pop(0).removeprefix("//").removeprefix(" "))
    # What is set in by four blanks in the comment is a block of text to Markdown too.
    intro = "\n".join(comment)
    recorded = TOP / f"examples/recorded/{name}"
    arguments = recorded.with_suffix(".args")
    command = f"{name} {arguments.read_text().strip().replace('@DATA@', 'examples/data')}" if arguments.exists() else name
    pictures = "\n\n".join(f"![What {name} draws](/{path.relative_to(TOP)})" for path in PICTURES.get(name, []))
    return f"""---
hide-toc: true
---
# {title_of(name)}

{intro}

{{download}}`Download {name}.cpp </examples/{name}.cpp>`

:::::{{div}} example
::::{{div}} output
{pictures}

It prints, called as `{" ".join(command.split())}`:

:::{{literalinclude}} /examples/recorded/{name}.txt
:language: text
:::
::::
::::{{div}} program
:::{{literalinclude}} /examples/{name}.cpp
:language: cpp
:lines: {len(comment) + 1}-
:::
::::
:::::
"""


def thumbnail(name):
    """A picture, or the first lines of what the example prints."""
    if name in PICTURES:
        return f"![](/{PICTURES[name][0].relative_to(TOP)})"
    lines = (TOP / f"examples/recorded/{name}.txt").read_text().splitlines()
    return "```text\n" + "\n".join([line for line in lines if line.strip()][:6]) + "\n```"


def write_gallery(folder):
    folder.mkdir()
    examples = listed_examples()
    cards = ""
    for name, what in examples:
        (folder / f"{name}.md").write_text(example_page(name))
        # A card is one link, so the text in it has none.
        said = re.sub(r"\[([^]]+)\]\([^)]+\)", r"\1", what[:1].upper() + what[1:])
        cards += f":::{{grid-item-card}} {title_of(name)}\n:link: {name}\n:link-type: doc\n\n{said}\n\n{thumbnail(name)}\n:::\n"
    tree = "\n".join(name for name, _ in examples)
    index = (SITE / "gallery" / "index.md").read_text().replace("@cards@", cards).replace("@examples@", tree)
    (folder / "index.md").write_text(staged(index))
    return len(examples)


def main():
    xml, folder = map(Path, sys.argv[1:])
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    pages = copy_pages(folder)
    examples = write_gallery(folder / "gallery")
    classes = reference.Reference(xml).write(folder / "cpp")
    result = result_picture.picture((TOP / "docs/benchmarks.md").read_text())
    (folder / "docs/images/comparison.svg").write_text(result)
    print(f"{pages} pages, {examples} examples, {classes} classes")


main()
