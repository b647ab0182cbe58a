"""Draws the table that docs/benchmarks.md opens with: how many times as fast this library is as each of the others."""

import math
import re
from html import escape

WIDTH, LEFT, RIGHT, ROW = 480, 12, 12, 40
LARGEST = 20.0
LEAST = 0.25
COLOURS = {"faster": "#0b5fa5", "slower": "#a63a00"}


def rows_of(page):
    """(what, beside, ratio) of each row of the section The result."""
    section = page.split("\n## The result\n")[1].split("\n## ")[0]
    rows = re.findall(r"^\| ([^|]+) \| ([^|]+) \|[^|]+\|[^|]+\| ([\d.]+) \|", section, flags=re.MULTILINE)
    if not rows:
        raise SystemExit("docs/benchmarks.md: the section The result holds no table of ratios")
    return [(what, beside, float(ratio)) for what, beside, ratio in rows]


def place(ratio):
    """Where a ratio stands on the logarithmic scale."""
    share = math.log(min(max(ratio, LEAST), LARGEST) / LEAST) / math.log(LARGEST / LEAST)
    return LEFT + share * (WIDTH - LEFT - RIGHT)


def picture(page):
    rows = rows_of(page)
    height = 44 + ROW * len(rows) + 8
    equal = place(1)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" height="{height}"'
        ' font-family="sans-serif" font-size="13">',
        f'<rect width="{WIDTH}" height="{height}" fill="white"/>',
    ]
    for ratio in (0.25, 0.5, 1, 2, 5, 10, 20):
        x = place(ratio)
        anchor = "start" if ratio == LEAST else "end" if ratio == LARGEST else "middle"
        parts.append(f'<path d="M{x:.1f} 28V{height - 8}" stroke="{"#444" if ratio == 1 else "#ddd"}"/>')
        parts.append(f'<text x="{x:.1f}" y="20" text-anchor="{anchor}" fill="#444">{ratio:g}</text>')
    for number, (what, beside, ratio) in enumerate(rows):
        y = 44 + ROW * number
        begin, end = sorted((equal, place(ratio)))
        colour = COLOURS["faster" if ratio >= 1 else "slower"]
        parts.append(f'<rect x="{begin:.1f}" y="{y + 6}" width="{end - begin:.1f}" height="12" fill="{colour}"/>')
        label = f"{escape(what)} · {escape(beside)}"
        # A halo keeps the text legible on the lines of the scale.
        parts.append(
            f'<text x="{LEFT}" y="{y}" paint-order="stroke" stroke="white" stroke-width="4">{label}</text>'
            f'<text x="{WIDTH - RIGHT}" y="{y}" text-anchor="end" font-weight="bold" fill="{colour}" paint-order="stroke"'
            f' stroke="white" stroke-width="4">{ratio:g}</text>'
        )
    return "\n".join([*parts, "</svg>"]) + "\n"
