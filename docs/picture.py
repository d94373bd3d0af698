#!/usr/bin/env python3
"""Draws what a program wrote as a picture of a terminal.

usage: tour | picture.py SECTION... > tour.svg      only the named sections, each a title underlined with dashes
"""
import html
import re
import sys

LINE, WIDTH, MARGIN = 17, 7.25, 14


def sections(text):
    """The title and the lines of each section, title and underline included."""
    parts = re.split(r"\n\n(?=[^\n]+\n-+\n)", text.rstrip("\n"))
    return {part.split("\n", 1)[0]: part.split("\n") for part in parts}


def picture(lines):
    width = max(len(line) for line in lines) * WIDTH + 2 * MARGIN
    height = len(lines) * LINE + 2 * MARGIN
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width:.0f}" height="{height}">',
           '<rect width="100%" height="100%" rx="6" fill="#1d2126"/>',
           '<g font-family="DejaVu Sans Mono, Menlo, Consolas, monospace" font-size="12" xml:space="preserve">']
    for number, line in enumerate(lines):
        below = lines[number + 1] if number + 1 < len(lines) else ""
        is_title = bool(below) and set(below) == {"-"}
        colour = "#8fd0ff" if is_title else "#56606b" if line and set(line) == {"-"} else "#d6dbe0"
        out.append(f'<text x="{MARGIN}" y="{MARGIN + 12 + number * LINE}" fill="{colour}" '
                   f'textLength="{len(line) * WIDTH:.1f}" xml:space="preserve">{html.escape(line)}</text>'
                   if line else "")
    return "\n".join([*filter(None, out), "</g>", "</svg>"]) + "\n"


def main():
    found = sections(sys.stdin.read())
    missing = [title for title in sys.argv[1:] if title not in found]
    if missing:
        sys.exit(f"no section {', '.join(missing)} in what came in")
    lines = []
    for title in sys.argv[1:]:
        lines += [*found[title], ""]
    print(picture(lines[:-1]), end="")


main()
