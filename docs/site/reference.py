"""Writes the pages of the C++ reference, reStructuredText for Sphinx's C++ domain, from the XML that Doxygen makes of the headers.

A header gives a page, which lists its classes and describes what stands in no class; a class gives a page. Exceptions share one
page, and so do the classes whose names begin with kt_, which only the author of a technique meets, behind a door of their own.
"""

import re
import xml.etree.ElementTree as ElementTree
from pathlib import Path

# Headers in the order of the reference, with their titles.
TITLES = {
    "clastool/classifier.h": "The tool",
    "clastool/training_data.h": "Training data, costs and results",
    "clastool/foundation.h": "Patterns",
    "clastool/bayes_params.h": "Bayes",
    "clastool/nearest_neighbor.h": "Nearest neighbours",
    "clastool/decision_tree.h": "Decision trees",
    "clastool/rule_table.h": "Fuzzy rules",
    "clastool/data_generators.h": "Synthetic data",
    "clastool/kit/patterns.h": "Patterns from numbers",
    "clastool/kit/csv.h": "Tables of text, CSV",
    "clastool/kit/runs.h": "Many runs, on threads",
    "clastool/kit/files.h": "Files",
    "clastool/kit/validation.h": "Cross-validation, confusion, cost",
    "clastool/kit/scaler.h": "Scaling",
    "clastool/kit/rejection.h": "Rejection",
    "clastool/kit/learning.h": "Learning further",
    "clastool/opencv.h": "OpenCV's matrices",
    "kt/archive.h": "Archives",
    "kt/persistent.h": "Archivable classes",
    "kt/handle.h": "Counted handles",
    "kt/attention.h": "The attention check",
    "kt/diagnostics.h": "Diagnostics",
    "kt/failure.h": "Failure codes",
    "kt/matrix.h": "Matrices",
    "kt/normal_density.h": "The normal density",
    "kt/pair.h": "Pairs",
    "kt/random.h": "Random numbers",
    "kt/range.h": "Ranges",
    "kt/version.h": "The version",
}
# Headers behind a door of their own.
GROUPS = {
    "kit": (
        "The kit",
        "What most programs write around a classifier, :doc:`a library of its own </docs/kit>`: ``#include <clastool/kit.h>``.",
    ),
    "foundation": ("Foundation", "What the library rests on: ``#include <kt/foundation.h>``."),
}
GROUP_HEADERS = {"kit": r"clastool/(kit/|opencv)", "foundation": "kt/"}
FIRST = "ktClassifierTool"
BLANK = "\n\n"
SEAM = "\0"  # between marked up text and its neighbours; written as the escaped blank that shows nothing


def escaped(text):
    return re.sub(r"([\\*`_|])", r"\\\1", text)


def plain(element):
    """The text of a declaration, or of what stands in code."""
    return re.sub(r"\s+", " ", "".join(element.itertext())).strip() if element is not None else ""


def indented(text, by=4):
    return re.sub(r"(?m)^(?=.)", " " * by, text)


def heading(text, mark):
    return f"{text}\n{mark * len(text)}"


class Reference:
    def __init__(self, folder):
        self.names = {}  # what each id of Doxygen's is called
        self.classes = {}
        self.outside = []  # (header, member) of what stands in no class
        roots = [ElementTree.parse(path).getroot() for path in sorted(Path(folder).glob("*.xml")) if path.name != "Doxyfile.xml"]
        compounds = [compound for root in roots for compound in root.findall("compounddef")]
        for compound in compounds:
            self._note(compound)

    def _note(self, compound):
        name = compound.findtext("compoundname")
        kind = compound.get("kind")
        if kind in ("class", "struct") and "<" not in name and not name.startswith("std::"):
            self.names[compound.get("id")] = name
            self.classes[name] = compound
        for member in compound.iter("memberdef"):
            self.names[member.get("id")] = plain(member.find("qualifiedname")) or member.findtext("name")
            if kind in ("file", "namespace") and name != "std" and member.get("prot") == "public":
                self.outside.append((self.header(member), member))

    @staticmethod
    def header(element):
        """What a program includes to have it."""
        return re.sub(r"^.*include/", "", element.find("location").get("file"))

    def is_nested(self, name):
        return name.rpartition("::")[0] in self.classes

    def is_error(self, name):
        bases = [base.text for base in self.classes[name].findall("basecompoundref")] if name in self.classes else []
        return name == "ktException" or any(self.is_error(base) for base in bases)

    def is_internal(self, name):
        """What no program names, but for the generators, which have such names too."""
        return name.rpartition("::")[2].startswith("kt_") and not name.endswith("DataGenerator")

    # Descriptions

    def inline(self, element):
        pieces = [escaped(element.text or "")]
        for child in element:
            if child.tag == "ref":
                pieces.append(self._link(child))
            elif child.tag == "computeroutput":
                linked = child.find("ref")
                alone = linked is not None and plain(child) == plain(linked)
                pieces.append(self._link(linked) if alone else f"{SEAM}``{plain(child)}``{SEAM}")
            elif child.tag in ("bold", "emphasis"):
                mark = "**" if child.tag == "bold" else "*"
                pieces.append(f"{SEAM}{mark}{escaped(plain(child))}{mark}{SEAM}")
            else:
                raise ValueError(f"<{child.tag}> in a comment: reference.py does not know how to show it")
            pieces.append(escaped(child.tail or ""))
        text = re.sub(r"\s+", " ", "".join(pieces)).strip()
        return re.sub(rf"^{SEAM}|{SEAM}$|{SEAM}(?= )|(?<= ){SEAM}", "", text).replace(SEAM, "\\ ")

    def _link(self, ref):
        text, target = plain(ref), self.names.get(ref.get("refid"))
        return SEAM + (f":cpp:any:`{text} <{target}>`" if target else f"``{text}``") + SEAM

    def paragraph(self, para):
        """A paragraph as blocks; a line that began with a label, such as Throws:, is a block of its own."""
        blocks = []
        run = ElementTree.Element("para")
        run.text = para.text

        def finish():
            nonlocal run
            label = run[0] if len(run) and run[0].tag == "bold" and not (run.text or "").strip() else None
            if label is not None and plain(label).endswith(":"):
                run.remove(label)
                run.text = label.tail
                blocks.append(f":{plain(label)} {self.inline(run)}")
            elif self.inline(run):
                blocks.append(self.inline(run))
            run = ElementTree.Element("para")

        for child in para:
            if child.tag == "linebreak":
                finish()
                run.text = child.tail
            elif child.tag == "itemizedlist":
                finish()
                items = [BLANK.join(self.paragraph(inner)[0] for inner in item.findall("para")) for item in child]
                blocks.append("\n".join(f"- {item}" for item in items))
                run.text = child.tail
            elif child.tag == "verbatim":
                finish()
                blocks.append("::\n\n" + indented(child.text.strip("\n")))
                run.text = child.tail
            elif child.tag == "table":
                finish()
                rows = [[" ".join(map(self.inline, entry)) for entry in row] for row in child.findall("row")]
                lines = ["\n     - ".join(["   * - " + row[0], *row[1:]]) for row in rows]
                blocks.append(".. list-table::\n   :header-rows: 1\n\n" + "\n".join(lines))
                run.text = child.tail
            else:
                run.append(child)
        finish()
        return blocks

    def description(self, element):
        blocks, detailed = (
            [block for para in element.find(part).findall("para") for block in self.paragraph(para)]
            for part in ("briefdescription", "detaileddescription")
        )
        # The brief description is the first sentence of a paragraph, whose others begin the detailed one.
        if blocks and detailed and not re.match(r"[:.]|- ", detailed[0]):
            blocks[-1] += " " + detailed.pop(0)
        blocks += detailed
        # Labels that follow each other are one list.
        text = ""
        for before, block in zip([""] + blocks, blocks):
            text += ("" if not text else "\n" if before.startswith(":") and block.startswith(":") else BLANK) + block
        return text

    def brief(self, element):
        paras = element.find("briefdescription").findall("para")
        return self.inline(paras[0]) if paras else ""

    # Declarations

    @staticmethod
    def template(element):
        parameters = element.find("templateparamlist")
        if parameters is None:
            return ""
        shown = []
        for parameter in parameters.findall("param"):
            default = plain(parameter.find("defval"))
            name = plain(parameter.find("declname"))
            shown.append(" ".join(filter(None, [plain(parameter.find("type")), name, f"= {default}" if default else ""])))
        return f"template <{', '.join(shown)}> "

    def declaration(self, member, scope):
        kind, name = member.get("kind"), scope + member.findtext("name")
        of_type = plain(member.find("type"))
        arguments = re.sub(r"\s*=\s*(0|default|delete)$", r" = \1", plain(member.find("argsstring")))
        before = self.template(member) + ("static " if member.get("static") == "yes" else "")
        if kind == "function":
            before += "explicit " if member.get("explicit") == "yes" else ""
            before += "virtual " if member.get("virt") != "non-virtual" and " override" not in arguments else ""
            return f".. cpp:function:: {before}{of_type} {name}{arguments}"
        if kind == "variable":
            return f".. cpp:member:: {before}{of_type} {name}{arguments}"
        if kind == "typedef":
            return f".. cpp:type:: {before}{name} = {of_type}{arguments}"
        if kind == "enum":
            return f".. cpp:{'enum-class' if member.get('strong') == 'yes' else 'enum'}:: {name}"
        names = [plain(parameter) for parameter in member.findall("param")]
        return f".. c:macro:: {name}{'(' + ', '.join(names) + ')' if names else ''}"

    def member(self, member, scope=""):
        text = self.description(member)
        base = member.find("reimplements")
        if not text and base is not None:
            text = f"As :cpp:any:`{self.names[base.get('refid')]}`."
        if not text:
            return ""
        for value in member.findall("enumvalue"):
            shown = BLANK.join(filter(None, [f".. cpp:enumerator:: {value.findtext('name')}", indented(self.description(value))]))
            text += BLANK + shown
        return self.declaration(member, scope) + BLANK + indented(text)

    def members(self, compound, access):
        found = [m for m in compound.iter("memberdef") if m.get("prot") == access and m.get("kind") != "friend"]
        found.sort(key=lambda member: int(member.find("location").get("line")))
        return [text for text in map(self.member, found) if text]

    def class_directive(self, name, inside=False):
        compound = self.classes[name]
        shown = name.rpartition("::")[2] if inside else name
        bases = [
            f"{base.get('prot')} {'virtual ' if base.get('virt') == 'virtual' else ''}{base.text}"
            for base in compound.findall("basecompoundref")
        ]
        final = " final" if compound.get("final") == "yes" else ""
        inherits = f" : {', '.join(bases)}" if bases else ""
        parts = [self.description(compound)]
        derived = sorted(d.text for d in compound.findall("derivedcompoundref") if d.text in self.classes)
        if derived:
            parts.append("Derived: " + ", ".join(f":cpp:any:`{d}`" for d in derived) + ".")
        parts += self.members(compound, "public")
        nested = [inner for inner in self.classes if inner.rpartition("::")[0] == name and not self.is_error(inner)]
        parts += [self.class_directive(inner, True) for inner in nested if self.classes[inner].get("prot") == "public"]
        protected = self.members(compound, "protected")
        if protected:
            parts += [".. rubric:: For derived classes", *protected]
        directive = f".. cpp:{compound.get('kind')}:: {self.template(compound)}{shown}{final}{inherits}"
        return directive + BLANK + indented(BLANK.join(filter(None, parts)))

    # Pages

    def class_page(self, name):
        include = f".. code-block:: cpp\n    :class: include\n\n    #include <{self.header(self.classes[name])}>"
        return BLANK.join([heading(name, "="), include, self.class_directive(name)]) + "\n"

    def class_list(self, names):
        return table_of([(f":doc:`{name} <{page_name(name)}>`", self.brief(self.classes[name])) for name in names])

    def header_page(self, header, title, classes):
        parts = [heading(header, "="), f"{title}.", f".. code-block:: cpp\n    :class: include\n\n    #include <{header}>"]
        if classes:
            parts += [self.class_list(classes), hidden_tree(map(page_name, classes))]
        shown = self.outside_classes(lambda of, name: of == header and not self.is_internal(name))
        if shown:
            parts += [heading("Functions", "-"), *shown]
        return BLANK.join(parts) + "\n" if classes or shown else ""

    def outside_classes(self, is_wanted):
        shown = {}
        for header, member in self.outside:
            if is_wanted(header, member.findtext("name")):
                scope = re.match(r"(\w+::)?", plain(member.find("qualifiedname"))).group()
                text = self.member(member, scope)
                if text:
                    # Doxygen lists what stands in a namespace twice.
                    shown.setdefault(text.split("\n")[0], text)
        return list(shown.values())

    def write(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        alone = [name for name in self.classes if not self.is_nested(name) and not self.is_error(name)]
        by_header = {header: [] for header, _ in self.outside}
        for name in alone:
            (folder / f"{page_name(name)}.rst").write_text(self.class_page(name))
            if not self.is_internal(name):
                by_header.setdefault(self.header(self.classes[name]), []).append(name)
        pages = {}
        for header in [*TITLES, *sorted(by_header.keys() - TITLES.keys())]:
            classes = by_header.get(header, [])
            classes.sort(key=lambda name: int(self.classes[name].find("location").get("line")))
            text = self.header_page(header, TITLES.get(header, ""), [name for name in classes if name != FIRST])
            if text:
                if header not in TITLES:
                    raise SystemExit(f"{header} has no title in {Path(__file__).name}")
                (folder / f"{header_page_name(header)}.rst").write_text(text)
                pages[header] = sorted(classes, key=lambda name: name != FIRST)
        for group in GROUPS:
            (folder / f"{group}.rst").write_text(self.group_page(group, {of: pages[of] for of in pages if group_of(of) == group}))
        (folder / "errors.rst").write_text(self.errors_page())
        (folder / "internals.rst").write_text(self.internals_page(sorted(filter(self.is_internal, alone))))
        (folder / "index.rst").write_text(self.index_page({of: pages[of] for of in pages if not group_of(of)}))
        return len(self.classes)

    def errors_page(self):
        errors = sorted((name for name in self.classes if self.is_error(name)), key=lambda name: (name != "ktException", name))
        headers = sorted({self.header(self.classes[name]) for name in errors})
        intro = (
            "Every exception of the library derives from :cpp:any:`ktException`, and so from ``std::exception``. "
            ":doc:`The guide </docs/errors>` lists every text that is thrown, and what to do about it."
        )
        includes = ".. code-block:: cpp\n    :class: include\n\n" + "\n".join(f"    #include <{header}>" for header in headers)
        return BLANK.join([heading("Errors", "="), intro, includes, *map(self.class_directive, errors)]) + "\n"

    def internals_page(self, names):
        intro = (
            "Classes that a program does not name. They stand in public headers because a technique of one's own derives from "
            "some of them, see :doc:`/docs/extending`, and because the library's templates use the others."
        )
        parts = [heading("Internals", "="), intro, self.class_list(names), hidden_tree(map(page_name, names))]
        parts += [heading("Functions", "-"), *self.outside_classes(lambda _, name: self.is_internal(name))]
        return BLANK.join(parts) + "\n"

    @staticmethod
    def group_page(group, headers):
        title, intro = GROUPS[group]
        return BLANK.join([heading(title, "="), intro, table_of(header_rows(headers)), header_tree(headers)]) + "\n"

    @staticmethod
    def index_page(headers):
        doors = [(f":doc:`{title} <{group}>`", intro) for group, (title, intro) in GROUPS.items()]
        doors += [
            (":doc:`Errors <errors>`", "Every exception of the library."),
            (":doc:`Internals <internals>`", "What only the author of a technique meets."),
        ]
        parts = [
            heading("C++", "="),
            f"Start with :doc:`{FIRST} <{FIRST}>`, the front door: train, run, retrain, store, load. "
            "``#include <clastool/clastool.h>`` brings all of the library.",
            table_of(header_rows(headers) + doors),
            header_tree(headers, [FIRST], [*GROUPS, "errors", "internals"]),
        ]
        return BLANK.join(parts) + "\n"


def page_name(name):
    return name.replace("::", ".")


def header_page_name(header):
    return re.sub(r"\W", "-", header.removesuffix(".h"))


def group_of(header):
    return next((group for group in GROUPS if re.match(GROUP_HEADERS[group], header)), None)


def header_rows(pages):
    """A row for each header: its title; what includes it, and its classes."""

    def classes(names):
        return "".join(f"\n       | :doc:`{name} <{page_name(name)}>`" for name in names)

    return [(f":doc:`{TITLES[of]} <{header_page_name(of)}>`", f"| ``#include <{of}>``{classes(names)}") for of, names in pages.items()]


def table_of(rows):
    lines = [f"   * - {left}\n     - {right}" for left, right in rows]
    return ".. list-table::\n   :class: classes\n   :widths: 2 3\n\n" + "\n".join(lines)


def header_tree(headers, first=(), last=()):
    return hidden_tree([*first, *(f"{TITLES[of]} <{header_page_name(of)}>" for of in headers), *last])


def hidden_tree(pages):
    return ".. toctree::\n   :hidden:\n\n" + "\n".join(f"   {page}" for page in pages)
