"""How Sphinx makes the site of what stage.py has put together."""

import os
import re
from pathlib import Path

TOP = Path(os.environ["CLASTOOL_TOP"])
NARROW = TOP / "build/site-pages/narrow"
numbers = re.findall(r"define KT_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", (TOP / "foundation/include/kt/version.h").read_text())

project = "clastool"
version = release = ".".join(numbers)
html_title = f"clastool {version}"
html_short_title = "clastool"
copyright = "the clastool authors"

extensions = ["myst_parser", "sphinx.ext.autodoc", "sphinx_design", "sphinx_copybutton"]
autodoc_member_order = "groupwise"
autodoc_typehints = "none"
# Messages stand in the pages as they are thrown.
smartquotes = False
primary_domain = "cpp"
highlight_language = "text"
myst_heading_anchors = 4
myst_enable_extensions = ["colon_fence"]
copybutton_exclude = ".linenos, .gp, .go"
toc_object_entries_show_parents = "hide"
maximum_signature_line_length = 90

html_theme = "furo"
html_static_path = ["_static", str(NARROW)]
html_css_files = ["site.css"]
html_js_files = ["site.js"]
html_favicon = "_static/icon.svg"
html_copy_source = False
html_show_sphinx = False
html_use_index = False
html_theme_options = {
    "sidebar_hide_name": False,
    "light_css_variables": {"color-brand-primary": "#1b5e8c", "color-brand-content": "#1b5e8c"},
    "dark_css_variables": {"color-brand-primary": "#7fc1ee", "color-brand-content": "#7fc1ee"},
}
pygments_style = "a11y-high-contrast-light"
pygments_dark_style = "a11y-high-contrast-dark"


def narrow_pictures(_app, page, _template, context, _doctree):
    """In a narrow window a picture of regions is shown in its narrow form; the gallery's cards show it small anyhow."""

    def both(found):
        return f'<picture><source media="(max-width: 40em)" srcset="{found[1]}_static/narrow-{found[2]}.svg">{found[0]}</picture>'

    if "body" in context and page != "gallery/index":
        context["body"] = re.sub(r'<img [^>]*src="((?:\.\./)*)_images/regions-([\w-]+)\.svg"[^>]*>', both, context["body"])


def readable_parameters(_app, _page, _template, context, _doctree):
    """Sphinx writes parameters on lines of their own as a list without terms, which screen readers cannot read."""

    def lines(found):
        inner = found[1].replace("<dd>", '<span class="parameter">').replace("</dd>", "</span>")
        return f'<span class="parameters">{inner}</span>'

    if "body" in context:
        body = re.sub(r"<dl>(.*?)</dl>", lines, context["body"], flags=re.DOTALL)
        # The name of a parameter stands before its description.
        context["body"] = re.sub(r"(<p><strong>[^<]*</strong>) -- ", r"\1: ", body)


def readable_docstring(_app, _kind, _name, _object, _options, lines):
    """Docstrings are written to be read in a terminal: code stands between single backticks, and a description of a parameter
    begins a line with its name and goes on indented."""
    blocks = [block.split("\n") for block in "\n".join(lines).strip().split("\n\n")]
    for block in blocks:
        named = [re.match(r"(?:[a-z]\w*|X)(?:, [a-z]\w*)*: ", line) for line in block]
        if named[0] and all(match or line.startswith("    ") for match, line in zip(named, block)):
            block[:] = [f":param {line}" if match else line for match, line in zip(named, block)]
    pieces = re.split(r"(`+[^`]+`+)", "\n\n".join("\n".join(block) for block in blocks))
    for place, piece in enumerate(pieces):
        if piece.startswith("`"):
            pieces[place] = f"``{piece.strip('`')}``"
        else:
            pieces[place] = re.sub(r"[*|]", r"\\\g<0>", piece)
    lines[:] = ["", *"".join(pieces).split("\n"), ""]


def skip_member(_app, _kind, name, _object, _skip, _options):
    """scikit-learn writes the methods that route metadata itself, with a text that refers to its own pages."""
    return True if re.fullmatch(r"set_\w+_request", name) else None


def public_bases(_app, _name, _object, _options, bases):
    """A base that is private to its module is replaced by its own bases."""

    def shown(base):
        is_private = getattr(base, "__name__", "").startswith("_")
        return [other for inner in base.__bases__ for other in shown(inner)] if is_private else [base]

    found = dict.fromkeys(base for given in bases for base in shown(given))
    bases[:] = [base for base in found if base is not object] or [object]


def setup(app):
    app.connect("autodoc-process-bases", public_bases)
    app.connect("autodoc-skip-member", skip_member)
    app.connect("html-page-context", readable_parameters)
    app.connect("html-page-context", narrow_pictures)
    app.connect("autodoc-process-docstring", readable_docstring)
