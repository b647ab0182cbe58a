#!/usr/bin/env python3
"""Opens the site in a browser and tries what its readers do.

    browse.py SITE [SCREENSHOTS]

Every page: no error on the console, no request that leaves the site, no markup shown, one title, nothing wider than the window
from 360 to 1920 pixels, no line of text longer than 80 characters. The landing page weighs less than 300 kB; the search finds what readers
look for, from a server and from the folder; axe-core finds no serious violation, light and dark. With SCREENSHOTS, a folder, pictures of
some pages at 360, 1280 and 1920 pixels are put there.
"""

import functools
import http.server
import os
import re
import shutil
import sys
import threading
from pathlib import Path

from axe_playwright_python.sync_playwright import Axe
from playwright.sync_api import sync_playwright

WIDTHS = [360, 1280, 1920]
HEAVIEST = 300_000
LONGEST_LINE = 80
# What readers look for, and a page that must be among what is found.
SEARCHES = {
    "csv": "cpp/clastool-kit-csv.html",
    "missing": "gallery/sort_with_missing_measurements.html",
    "reject": "gallery/reject_unknown.html",
    "nan": "docs/numerics.html",
    "confusion": "cpp/clastool-kit-validation.html",
    "licence": "licence.html",
}
SHOWN = [
    "index.html",
    "docs/getting-started.html",
    "docs/decision-regions.html",
    "docs/benchmarks.html",
    "gallery/index.html",
    "gallery/draw_decision_regions.html",
    "gallery/sort_cell_nuclei.html",
    "cpp/index.html",
    "cpp/ktClassifierTool.html",
    "cpp/errors.html",
    "python.html",
    "python/clastool.sklearn.html",
    "docs/python-choose-by-cost.html",
    "search.html",
]
# The characters of each line of text, as the browser breaks it, and what is wider than the window.
LINES = """() => {
    let longest = [0, ""];
    for (const box of document.querySelectorAll("article p, article li, article dd, article h1, article h2, article h3")) {
        if (box.closest("table, pre, svg, dt") || box.querySelector("p, ul, ol, dl, table, pre")) continue;
        const walker = document.createTreeWalker(box, NodeFilter.SHOW_TEXT);
        const lines = new Map();
        for (let node = walker.nextNode(); node; node = walker.nextNode()) {
            const range = document.createRange();
            for (const word of node.data.matchAll(/\\s*\\S+/g)) {
                range.setStart(node, word.index);
                range.setEnd(node, word.index + word[0].length);
                const places = range.getClientRects();
                if (!places.length) continue;
                const last = places[places.length - 1];
                const middle = (last.top + last.bottom) / 2;
                const line = [...lines.keys()].find(other => Math.abs(other - middle) < 9) ?? middle;
                lines.set(line, (lines.get(line) || "") + word[0].replace(/\\s+/, " "));
            }
        }
        for (const text of lines.values()) if (text.trim().length > longest[0]) longest = [text.trim().length, text.trim()];
    }
    return longest;
}"""
WIDER = """() => [
    ...(document.documentElement.scrollWidth > innerWidth ? ["the page, " + document.documentElement.scrollWidth] : []),
    ...[...document.images].filter(each => each.offsetParent && each.getBoundingClientRect().right > innerWidth + 1).map(each => each.src),
]"""
# Text that nobody meant to be code.
TEXT = """() => {
    const copy = document.querySelector("article").cloneNode(true);
    for (const code of copy.querySelectorAll("pre, code, .sig, svg, .headerlink")) code.remove();
    return copy.textContent;
}"""
MARKUP = re.compile(r"\*\*|`|\]\(|</?(p|a|b|br|em|strong|code|tt)>|:\w+:`|@ref|@\w+@|" + re.escape(str(Path.cwd())))


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


class Tour:
    def __init__(self, site, browser):
        self.site = site
        handler = functools.partial(Quiet, directory=str(site))
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.home = f"http://127.0.0.1:{self.server.server_port}/"
        self.context = browser.new_context(viewport={"width": 1280, "height": 900})
        self.context.grant_permissions(["clipboard-read", "clipboard-write"], origin=self.home)
        self.page = self.context.new_page()
        self.complaints = []
        self.bytes = 0
        self.page.on("console", lambda said: said.type == "error" and self.complain(f"console: {said.text}"))
        self.page.on("pageerror", lambda error: self.complain(f"script: {error}"))
        self.page.on("requestfailed", self.note_failure)
        self.page.on("request", self.watch)
        self.page.on("response", self.weigh)

    def shown(self):
        return [path for path in SHOWN if (self.site / path).exists()]

    def complain(self, what):
        self.complaints.append(f"{self.page.url.removeprefix(self.home)}: {what}")

    def expect(self, holds, what):
        if not holds:
            self.complain(what)

    def watch(self, request):
        if not request.url.startswith((self.home, "data:", "blob:", self.site.as_uri())):
            self.complain(f"request that leaves the site: {request.url}")

    def note_failure(self, request):
        # A page that is left ends the requests that are on their way.
        if request.failure != "net::ERR_ABORTED":
            self.complain(f"request failed: {request.url}: {request.failure}")

    def weigh(self, response):
        path = self.site / re.sub(r"[?#].*", "", response.url.removeprefix(self.home))
        self.bytes += path.stat().st_size if path.is_file() else 0

    def open(self, path, width=1280):
        self.page.set_viewport_size({"width": width, "height": 900})
        self.page.goto(self.home + path, wait_until="load")

    def look_at(self, path):
        """What holds of every page."""
        self.open(path)
        if path == "search.html":
            return
        self.expect(self.page.locator("h1").count() == 1, "not one title")
        shown = MARKUP.search(self.page.evaluate(TEXT))
        self.expect(not shown, f"shows markup: {shown and shown.group()}")
        for width in WIDTHS:
            self.page.set_viewport_size({"width": width, "height": 900})
            wider = self.page.evaluate(WIDER)
            self.expect(not wider, f"wider than {width}: {wider}")
        length, line = self.page.evaluate(LINES)
        self.expect(length <= LONGEST_LINE, f"a line of {length} characters: {line}")

    def land(self):
        """The first page: its weight, its doors, its programs, its version, the dark side."""
        self.bytes = 0
        self.open("index.html")
        self.page.wait_for_load_state("networkidle")
        self.expect(0 < self.bytes < HEAVIEST, f"the landing page weighs {self.bytes} bytes")
        print(f"the landing page weighs {self.bytes} bytes")
        self.expect(re.search(r"clastool \d+\.\d+\.\d+", self.page.locator(".sidebar-brand").inner_text()), "no version")
        for label in self.page.locator(".sd-tab-set > label").all():
            label.click()
            self.expect(self.page.locator(".sd-tab-content:visible pre").count() == 1, f"tab {label.inner_text()}: no program")
        entries = self.page.locator(".sidebar-tree li.toctree-l1 > a").all_inner_texts()
        expected = ["Start", "Guide", "Gallery", "C++", "Python", "Inside", "Contribute"]
        doors = 3
        if not (self.site / "python.html").exists():
            expected.remove("Python")
            doors = 2
        self.expect(self.page.locator(".doors .sd-card").count() == doors, f"not {doors} doors")
        self.expect(entries == expected, f"the navigation is {entries}")

        def ground():
            return self.page.evaluate("getComputedStyle(document.body).backgroundColor")

        grounds = set()
        for _ in range(3):
            self.page.locator(".content-icon-container .theme-toggle, .theme-toggle").locator("visible=true").first.click()
            grounds.add(ground())
        self.expect(len(grounds) == 2, f"light and dark have the grounds {grounds}")

    def read_pictures(self):
        """The words in the pictures of the regions, drawn with 14 units and more, are read without a glass at each width."""
        for path in ("index.html", "docs/decision-regions.html", "gallery/draw_decision_regions.html"):
            for width in WIDTHS:
                self.open(path, width)
                for picture in self.page.locator("article img[src*='/regions-']").all():
                    scale = picture.evaluate("image => image.decode().then(() => image.clientWidth / image.naturalWidth)")
                    self.expect(scale > 0.55, f"{picture.get_attribute('src')} is shown at {scale:.2f} of its size at {width}")

    def read_tables(self):
        """Benchmarks open with the result, as a picture and as a table whose figures stand on one line."""
        self.open("docs/benchmarks.html")
        first = self.page.locator("section section").first
        self.expect(first.locator("h2").inner_text().startswith("The result"), "the benchmarks do not open with the result")
        self.expect(first.locator("img").first.is_visible(), "the result is no picture")
        broken = self.page.evaluate(
            "() => [...document.querySelectorAll('td.text-right')].filter(cell => {"
            " const range = document.createRange();"
            " const words = document.createTreeWalker(cell, NodeFilter.SHOW_TEXT).nextNode();"
            " if (!words) return false; range.selectNodeContents(words);"
            " return range.getClientRects().length > 1; }).map(cell => cell.innerText)"
        )
        self.expect(not broken, f"figures are broken over lines: {broken[:3]}")

    def read_reference(self):
        """The C++ reference: the tool first, headers by titles, their classes; internals behind a door."""
        self.open("cpp/index.html")
        doors = self.page.locator("table.classes tr > td:first-child").all_inner_texts()
        self.expect(doors[0] == "The tool" and doors[-1] == "Internals", f"the reference opens with {doors[0]} and ends with {doors[-1]}")
        self.expect(not [door for door in doors if door.endswith(".h")], f"headers without a title: {doors}")
        classes = self.page.locator("table.classes tr > td:last-child a").all_inner_texts()
        self.expect(classes[0] == "ktClassifierTool", f"the first class is {classes[0]}")
        internals = [name for name in classes if name.startswith("kt_") and not name.endswith("DataGenerator")]
        self.expect(not internals, f"internals among the classes: {internals}")
        self.open("cpp/ktClassifierTool.html")
        include = self.page.locator(".include pre").first.inner_text().strip()
        self.expect(include == "#include <clastool/classifier.h>", f"the tool is included by {include}")

    def walk(self):
        """From page to page by next and previous."""
        self.open("docs/getting-started.html")
        self.page.locator(".next-page").click()
        self.expect(self.page.url.endswith("/README.html"), "the next page is not the read me")
        self.page.locator(".prev-page").click()
        self.expect(self.page.url.endswith("/docs/getting-started.html"), "the previous page is not the first steps")

    def copy(self):
        self.open("docs/getting-started.html")
        block = self.page.locator("div.highlight:has(button.copybtn)").first
        block.hover()
        block.locator("button.copybtn").click()
        copied = self.page.evaluate("navigator.clipboard.readText()")
        self.expect(copied.strip() == block.locator("pre").inner_text().strip(), "what is copied is not the code")

    def find(self, root):
        for word, page in SEARCHES.items():
            self.page.goto(f"{root}search.html?q={word}", wait_until="load")
            self.page.wait_for_selector("#search-results p.search-summary:has-text('found')")
            # Results are put there one by one; the number of them is said at the end.
            self.page.wait_for_function(
                "() => { const said = document.querySelector('#search-results p.search-summary').innerText.match(/\\d+/);"
                " return said && document.querySelectorAll('ul.search li').length >= +said[0]; }"
            )
            found = [link.get_attribute("href") for link in self.page.locator("ul.search li > a").all()]
            self.expect(any(page in each for each in found), f"'{word}' finds {len(found)} pages, but not {page}")

    def gallery(self):
        """Each example with what it gives, and with a download that is the program."""
        self.open("gallery/index.html")
        links = [link.get_attribute("href") for link in self.page.locator(".gallery a.sd-stretched-link").all()]
        self.expect(len(links) > 0, "the gallery is empty")
        for link in links:
            self.open("gallery/" + link, 1920)
            code = self.page.locator(".example .program pre, .highlight-python pre").first
            given = self.page.locator(".example .output pre, .example .output img, .highlight-text pre, article img").first
            self.expect(given.is_visible(), "neither output nor picture")
            if self.page.locator(".example").count():
                left, right = code.bounding_box(), self.page.locator(".example .output").bounding_box()
                self.expect(left["x"] + left["width"] <= right["x"], "the output is not beside the code")
            with self.page.expect_download() as started:
                self.page.locator("a.download").first.click()
            program = Path(started.value.path()).read_text()
            self.expect(code.inner_text().strip() in program, "the download is not the program")
        print(f"{len(links)} examples")

    def check_access(self, paths):
        """axe-core on some pages, light and dark."""
        axe = Axe()
        for theme in ("light", "dark"):
            self.context.add_init_script(f"localStorage.setItem('theme', '{theme}')")
            for path in paths:
                self.open(path)
                for violation in axe.run(self.page).response["violations"]:
                    if violation["impact"] in ("serious", "critical"):
                        where = [node["html"][:150] for node in violation["nodes"][:3]]
                        self.complain(f"{theme}: {violation['id']}: {violation['help']}: {where}")

    def photograph(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        for path in self.shown():
            for width in WIDTHS:
                self.open(path + ("?q=missing" if path == "search.html" else ""), width)
                self.page.wait_for_load_state("networkidle")
                name = path.removesuffix(".html").replace("/", "-")
                self.page.screenshot(path=folder / f"{name}-{width}.png")


def main():
    site = Path(sys.argv[1]).resolve()
    with sync_playwright() as playwright:
        options = ["--no-sandbox"] if os.geteuid() == 0 else []
        browser = playwright.chromium.launch(executable_path=shutil.which("chromium"), args=options)
        tour = Tour(site, browser)
        if len(sys.argv) > 2:
            tour.photograph(Path(sys.argv[2]))
        paths = sorted(str(path.relative_to(site)) for path in site.rglob("*.html") if "playground" not in path.parts)
        for path in paths:
            tour.look_at(path)
        tour.land()
        tour.read_pictures()
        tour.read_tables()
        tour.read_reference()
        tour.walk()
        tour.copy()
        tour.gallery()
        tour.find(tour.home)
        tour.find(site.as_uri() + "/")
        tour.check_access(sorted({*tour.shown(), *(path for path in paths if path.startswith("gallery/"))}))
        browser.close()
    if tour.complaints:
        sys.exit("\n".join(tour.complaints))
    print(f"{len(paths)} pages")


main()
