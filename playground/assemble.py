#!/usr/bin/env python3
"""Puts the style and the program into the page: assemble.py PAGE STYLE PROGRAM."""

import pathlib
import sys

page, style, program = (pathlib.Path(name).read_text() for name in sys.argv[1:])
for mark, part in (("/* style.css */", style), ("/* main.js */", program)):
    if page.count(mark) != 1 or "</script" in part:
        sys.exit(f"{mark} stands in the page {page.count(mark)} times, or the part would end a script")
    page = page.replace(mark, part)
sys.stdout.write(page)
