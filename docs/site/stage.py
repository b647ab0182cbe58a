#!/usr/bin/env python3
"""Puts together what Sphinx makes the site of: the pages as they stand in the project, a page for each example, and the C++
reference from Doxygen's XML.

    stage.py XML FOLDER

The folder is laid out as the project is, so that links between pages lead where they lead on a code host.
"""

import pkgutil
import re
import shutil
import sys
from pathlib import Path


import reference
import result_picture

SITE = Path(__file__).resolve().parent
TOP = SITE.parent.parent
# The pictures that examples draw, beside what they print.
PICTURES = {
    "draw_decision_regions": [
        TOP / f"docs/images/regions-{name}.svg" for name in ("bayes-independent", "bayes-joint", "nearest-neighbors")
    ],
    "grade_by_fuzzy_rules": [TOP / "docs/images/fuzzy-rules/grades.svg", TOP / "docs/images/fuzzy-rules/diameter.svg"],
}
# Of a picture of regions of this size the plots and the legend: left, top, width and height, and how far down they stand in a narrow
# window.
NARROW_PARTS = {
    "1070 466": [(0, 0, 408, 466, 0), (408, 40, 440, 28, 474), (408, 68, 412, 398, 502), (816, 70, 254, 140, 908)],
    "800 430": [(0, 0, 570, 430, 0), (570, 40, 230, 140, 438)],
}
MARKER = re.compile(r"^ *<!-- [\w./-]+\.\w+(?:: [\w-]+)? -->\n", flags=re.MULTILINE)
CONDITION = re.compile(r"^<!-- if(-not)? (\S+) -->\n(.*?)^<!-- end -->\n", flags=re.MULTILINE | re.DOTALL)


def has_python():
    return (TOP / "python" / "pyproject.toml").exists()


def staged(text):
    """A page as Sphinx reads it."""
    text = CONDITION.sub(lambda match: match[3] if (TOP / match[2]).exists() != bool(match[1]) else "", text)
    text = MARKER.sub("", text)
    # Sizes and ranges in tables stay on one line.
    text = re.sub(r"^\|.*", lambda row: re.sub(r"(?<=\d) ([x–]) (?=\d)", "\u00a0\\1\u00a0", row[0]), text, flags=re.MULTILINE)
    # A link to an example leads to its page in the gallery.
    text = re.sub(r"\]\((?:\.\./)?examples/(\w+)\.cpp\)", r"](/gallery/\1.md)", text)
    text = re.sub(r"\]\((?:\.\./)?examples/\)", "](/gallery/index.md)", text)
    text = re.sub(r"\]\((?:\.\./)?examples/data/\)", "](/examples/data/README.md)", text)
    return text


def notebook_of(page):
    """The program whose run a page of docs/ shows, or None."""
    program = TOP / f"python/notebooks/{page.stem.removeprefix('python-').replace('-', '_')}.py"
    return program if page.stem.startswith("python-") and program.exists() else None


def python_examples():
    return [page for page in sorted(TOP.glob("docs/python-*.md")) if notebook_of(page)]


def with_download(page):
    """A page that shows the run of a program has it to download under its title."""
    text, program = page.read_text(), notebook_of(page)
    if not program:
        return text
    title, rest = text.split("\n", 1)
    return f"{title}\n\n[Download {program.name}](../{program.relative_to(TOP)})\n{rest}"


def take_files(page, folder, text):
    """A link to a file that is no page becomes a download; of a link to a folder the text stays."""

    def linked(match):
        label, target = match.groups()
        path = (page.parent / target.partition("#")[0]).resolve()
        if path.is_dir():
            return label
        if path.is_file() and path.suffix != ".md" and TOP in path.parents:
            copy = folder / path.relative_to(TOP)
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(path, copy)
        return match[0]

    return re.sub(r"(?<!!)\[([^]]+)\]\(([^)\s:/][^)\s:]*)\)", linked, text)


def with_picture(page, text):
    """The benchmarks show their result as a picture as well, above its table."""
    if page.name != "benchmarks.md":
        return text
    mark = "\n## The result\n"
    picture = ":::{div} comparison\n![How many times as fast as other libraries](images/comparison.svg)\n:::\n"
    return text.replace(mark, f"{mark}\n{picture}", 1)


def write_narrow_pictures(folder):
    """Pictures of regions with their plots and their legend below each other, for narrow windows: conf.py says where they are shown."""
    folder.mkdir()
    for path in TOP.glob("docs/images/regions-*.svg"):
        size, inner = re.match(r'<svg [^>]*viewBox="0 0 (\d+ \d+)"[^>]*>\s*(.*)</svg>', path.read_text(), re.DOTALL).groups()
        drawn = [f'<g id="all">{inner}</g>', *['<use href="#all"/>'] * (len(NARROW_PARTS[size]) - 1)]
        views = [
            f'<svg y="{down}" width="{width}" height="{height}" viewBox="{left} {top} {width} {height}">{what}</svg>'
            for (left, top, width, height, down), what in zip(NARROW_PARTS[size], drawn)
        ]
        width, height = max(part[2] for part in NARROW_PARTS[size]), max(part[3] + part[4] for part in NARROW_PARTS[size])
        frame = f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}"'
        text = [frame + ' font-family="sans-serif" font-size="14">', '<rect width="100%" height="100%" fill="white"/>', *views, "</svg>"]
        (folder / path.name.replace("regions-", "narrow-")).write_text("\n".join(text) + "\n")


def copy_pages(folder):
    pages = [*TOP.glob("*.md"), *TOP.glob("docs/*.md"), TOP / "examples/data/README.md"]
    for page in pages:
        target = folder / page.relative_to(TOP)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(take_files(page, folder, with_picture(page, staged(with_download(page)))))
    for page in SITE.glob("*.md"):
        if page.name == "python.md" and not has_python():
            continue
        (folder / page.name).write_text(staged(page.read_text()))
    for part in ("docs/images", "docs/programs", "examples"):
        shutil.copytree(TOP / part, folder / part, dirs_exist_ok=True, ignore=shutil.ignore_patterns("*.md"))
    shutil.copy(TOP / "LICENSE", folder)
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


def card(title, link, text, picture):
    # A card is one link, so the text in it has none.
    text = re.sub(r"\[([^]]+)\]\([^)]+\)", r"\1", text[:1].upper() + text[1:])
    return f":::{{grid-item-card}} {title}\n:link: {link}\n:link-type: doc\n\n{text}\n\n{picture}\n:::\n"


def python_card(page):
    text = page.read_text()
    title, paragraph = re.match(r"# ([^\n]*)\n\n(.*?)\n\n", text, re.DOTALL).groups()
    pictures = re.findall(r"!\[[^]]*\]\(([^)]+)\)", text)
    return card(title, f"/docs/{page.stem}", paragraph, f"![](/docs/{pictures[0]})" if pictures else "")


def thumbnail(name):
    """A picture, or the first lines of what the example prints."""
    if name in PICTURES:
        return f"![](/{PICTURES[name][0].relative_to(TOP)})"
    lines = (TOP / f"examples/recorded/{name}.txt").read_text().splitlines()
    return "```text\n" + "\n".join([line for line in lines if line.strip()][:6]) + "\n```"


def write_gallery(folder):
    folder.mkdir()
    examples = listed_examples()
    for name, _ in examples:
        (folder / f"{name}.md").write_text(example_page(name))
    parts = {
        "cards": "".join(card(title_of(name), name, what, thumbnail(name)) for name, what in examples),
        "examples": "\n".join(name for name, _ in examples),
        "python_cards": "".join(map(python_card, python_examples())),
        "python_examples": "\n".join(f"/docs/{page.stem}" for page in python_examples()),
    }
    index = staged((SITE / "gallery" / "index.md").read_text())
    (folder / "index.md").write_text(re.sub(r"@(\w+)@", lambda match: parts[match[1]], index))
    return len(examples) + len(python_examples())


def write_python(folder):
    """A page for each public module of the Python package; that of the package itself describes the errors too."""
    if not has_python():
        return 0
    import clastool

    modules = [found.name for found in pkgutil.iter_modules(clastool.__path__, "clastool.")]
    public = [name for name in modules if "._" not in name and name != "clastool.errors"]
    folder.mkdir(exist_ok=True)
    for name in ["clastool", *public]:
        directive = f".. automodule:: {name}\n   :members:\n   :undoc-members:\n   :show-inheritance:\n"
        (folder / f"{name}.rst").write_text(f"{name}\n{'=' * len(name)}\n\n{directive}")
    return 1 + len(public)


def main():
    xml, folder = map(Path, sys.argv[1:])
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    pages = copy_pages(folder)
    examples = write_gallery(folder / "gallery")
    classes = reference.Reference(xml).write(folder / "cpp")
    result = result_picture.picture((TOP / "docs/benchmarks.md").read_text())
    (folder / "docs/images/comparison.svg").write_text(result)
    write_narrow_pictures(folder / "narrow")
    modules = write_python(folder / "python")
    print(f"{pages} pages, {examples} examples, {classes} classes, {modules} Python modules")


main()
