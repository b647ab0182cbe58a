#!/usr/bin/env python3
"""Prints decision-rule.svg, the picture in docs/concepts.md."""

WIDTH, HEIGHT, TOP, BOTTOM = 300, 220, 56, 52
SOUND, BROKEN = "#1b6ca8", "#c0392b"
PART = 0.151
PANELS = [("every mistake costs 1", 1.0, "1/2"), ("a broken part called sound costs 10", 10.0, "1/11")]
MOST = 1.6  # the highest cost shown


def panel(left, title, missed, crossing_text):
    def x(score):
        return left + WIDTH * score

    def y(cost):
        return TOP + HEIGHT * (1 - cost / MOST)

    def text(at_x, at_y, words, anchor="middle", more=""):
        return f'<text x="{at_x:.1f}" y="{at_y:.1f}" text-anchor="{anchor}" {more}>{words}</text>'

    crossing = 1 / (1 + missed)
    least = y(crossing * missed)
    end = min(1.0, MOST / missed)  # where the cost of "sound" leaves the picture
    middle_of_sound = x(crossing / 2)
    lines = [
        f'<rect x="{x(0):.1f}" y="{TOP}" width="{WIDTH * crossing:.1f}" height="{HEIGHT}" fill="{SOUND}" opacity="0.12"/>',
        f'<rect x="{x(crossing):.1f}" y="{TOP}" width="{WIDTH * (1 - crossing):.1f}" height="{HEIGHT}" fill="{BROKEN}" '
        'opacity="0.12"/>',
        f'<path d="M{x(0):.1f} {y(0):.1f}L{x(end):.1f} {y(missed * end):.1f}" stroke="{SOUND}" class="cost"/>',
        f'<path d="M{x(0):.1f} {y(1):.1f}L{x(1):.1f} {y(0):.1f}" stroke="{BROKEN}" class="cost"/>',
        f'<path d="M{x(0):.1f} {y(0):.1f}L{x(crossing):.1f} {least:.1f}" stroke="{SOUND}" class="least"/>',
        f'<path d="M{x(crossing):.1f} {least:.1f}L{x(1):.1f} {y(0):.1f}" stroke="{BROKEN}" class="least"/>',
        f'<path d="M{x(PART):.1f} {TOP}V{y(0):.1f}" class="part"/>',
        f'<path d="M{x(0):.1f} {TOP}V{y(0):.1f}H{x(1):.1f}" class="axis"/>',
        f'<circle cx="{x(crossing):.1f}" cy="{least:.1f}" r="4"/>',
        text(x(0.5), TOP - 28, title, more='class="title"'),
        text(x(PART), TOP - 8, "the part", more='class="small"'),
        text(x(0.5), y(0) + 42, "class score of broken"),
    ]
    blue, red = f'fill="{SOUND}"', f'fill="{BROKEN}"'
    if missed > 1:
        turned = f'transform="rotate(-90 {middle_of_sound:.1f} {y(1.33):.1f})" dominant-baseline="central"'
        lines += [
            text(middle_of_sound, y(1.33), "sound", more=f"{blue} {turned}"),
            text(x(end) + 8, y(1.25), "if called sound", "start", f'{blue} class="small"'),
            text(x(0.42), y(0.68), "if called broken", "start", f'{red} class="small"'),
            text(x(crossing) + 26, y(0.42), f"equal at {crossing_text}", "start", 'class="small"'),
        ]
    else:
        lines += [
            text(middle_of_sound, y(1.4), "sound", more=blue),
            text(x(1), y(1.05), "if called sound", "end", f'{blue} class="small"'),
            text(x(0.19), y(0.88), "if called broken", "start", f'{red} class="small"'),
            text(x(crossing), y(0.2), f"equal at {crossing_text}", more='class="small"'),
        ]
    lines.append(text(x((1 + max(crossing, 0.2)) / 2), y(1.4), "broken", more=red))
    for tick in (0, 0.5, 1):
        lines.append(text(x(tick), y(0) + 18, f"{tick:g}", more='class="small"'))
    for tick in (0, 0.5, 1, 1.5):
        lines.append(text(x(0) - 8, y(tick) + 4, f"{tick:g}", "end", 'class="small"'))
    return lines


def main():
    lines = [
        '<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 740 330" font-family="sans-serif" font-size="13">',
        "<style>.cost{stroke-width:1.5;stroke-dasharray:5 4;fill:none}.least{stroke-width:3.5;fill:none}"
        ".part{stroke:#555;stroke-dasharray:2 3}.axis{stroke:#222;fill:none}.title{font-weight:bold}"
        ".small{font-size:12px}</style>",
        '<rect width="740" height="330" fill="white"/>',
        '<text x="18" y="166" text-anchor="middle" transform="rotate(-90 18 166)">expected cost</text>',
    ]
    for left, (title, missed, crossing_text) in zip((62, 420), PANELS):
        lines += panel(left, title, missed, crossing_text)
    lines.append("</svg>")
    print("\n".join(lines))


main()
