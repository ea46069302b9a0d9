#!/usr/bin/env python3
"""Draws the tables of a page of figures as SVG, so that a chart and its page cannot disagree.

  charts.py PAGE DIRECTORY    for example: charts.py docs/performance.md docs/charts
"""
import html
import math
import os
import re
import sys

RATIO_ENTRIES = 1000
OPERATIONS = {"hit": "hit, metadata", "content": "hit, with content", "miss": "miss", "store": "store",
              "remove": "remove", "churn": "store when full", "start-up": "start-up"}
# Each colour for a light ground and for a dark one.
ORANGE, PURPLE, GREEN = ("#c2410c", "#fb923c"), ("#7e22ce", "#c084fc"), ("#15803d", "#4ade80")
BLUE, CYAN, YELLOW = ("#1d4ed8", "#60a5fa"), ("#0e7490", "#22d3ee"), ("#a16207", "#facc15")
# (contender as the page names it, colours)
CONTENDERS = (("Bare interface, Linux host", ORANGE), ("Session", PURPLE), ("QNetworkDiskCache", GREEN),
              ("SQLite", BLUE), ("LMDB", CYAN), ("LevelDB", YELLOW))
# (contender, operation, what the line is called, colours)
LOOKUPS = (("Session", "hit", "hit, session", PURPLE),
           ("Bare interface, plain host", "lookup", "lookup, plain host", GREEN),
           ("Bare interface, Linux host", "lookup", "lookup, Linux host", ORANGE),
           ("Bare interface, Linux host", "miss", "miss, Linux host", BLUE))


def ratios(page):
    """{(N, contender, operation): ratio to the floor} of the tables "Side by side on tmpfs"."""
    section = re.search(r"^## Side by side on tmpfs\n(.*?)(?=^## |^64 KiB of content)", page, re.M | re.S)
    if section is None:
        raise ValueError('the page has no section "Side by side on tmpfs"')
    found, header = {}, []
    for line in section.group(1).splitlines():
        cells = [cell.strip(" *") for cell in line.strip("|").split("|")]
        if size := re.fullmatch(r"N = ([\d,]+)", cells[0]):
            entries, header = int(size.group(1).replace(",", "")), cells
        elif line.startswith("| ") and not line.startswith("| ---"):
            for operation, cell in zip(header[1:], cells[1:]):
                if cell:
                    found[entries, cells[0], operation] = float(cell.split("·")[0])
    return found


def run_of(page):
    facts = dict(re.findall(r"^- (Date|Commit): (.*)$", page, re.M))
    return f"tmpfs, run of {facts.get('Date', '?')} at commit {facts.get('Commit', '?')}"


def text(x, y, content, anchor="start", kind="text"):
    return f'<text class="{kind}" x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}">{html.escape(content)}</text>'


def line(x1, y1, x2, y2, kind="grid"):
    return f'<line class="{kind}" x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}"/>'


def svg(width, height, title, subtitle, colours, parts):
    """`colours` has the pair of light and dark for each of the classes c0, c1, ..."""
    def style(index):
        ground, ink, dim, grid = (("#ffffff", "#1f2328", "#59636e", "#d8dee4"),
                                  ("#0d1117", "#e6edf3", "#9198a1", "#30363d"))[index]
        rules = [f".ground{{fill:{ground}}}", f".title{{fill:{ink};font-size:15px;font-weight:bold}}",
                 f".text{{fill:{ink}}}", f".dim{{fill:{dim}}}", f".grid{{stroke:{grid}}}",
                 f".floor{{stroke:{ink};stroke-width:1.5}}"]
        rules += [f".c{number}{{fill:{pair[index]};stroke:{pair[index]}}}"
                  for number, pair in enumerate(colours)]
        return "\n".join(rules)

    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" '
        f'height="{height}" role="img" font-family="sans-serif" font-size="12">',
        f"<title>{html.escape(title)}</title>",
        "<style>", "polyline{fill:none!important;stroke-width:2}", style(0),
        "@media (prefers-color-scheme: dark){", style(1), "}", "</style>",
        f'<rect class="ground" width="{width}" height="{height}"/>',
        text(16, 24, title, kind="title"), text(16, 42, subtitle, kind="dim"), *parts, "</svg>", ""])


def legend(x, y, step, names):
    parts = []
    for number, name in enumerate(names):
        column, row = number % 3, number // 3
        left, middle = x + column * step, y + 18 * row
        parts.append(f'<rect class="c{number}" x="{left}" y="{middle - 9}" width="10" height="10"/>')
        parts.append(text(left + 16, middle, name))
    return parts


def ticks_around(least, most):
    """1, 2, 5 and their tenfolds, from the last below both values and 1 to the first above."""
    every = [step * 10.0 ** power for power in range(-6, 7) for step in (1, 2, 5)]
    first = max(tick for tick in every if tick < min(least, 1))
    last = min(tick for tick in every if tick > max(most, 1))
    return [tick for tick in every if first <= tick <= last]


def ratio_chart(page):
    """Bars from the floor's line: to the left cheaper, to the right dearer."""
    found = ratios(page)
    shown = {key: value for key, value in found.items() if key[0] == RATIO_ENTRIES and key[2] in OPERATIONS}
    present = [(name, colours) for name, colours in CONTENDERS if any(key[1] == name for key in shown)]
    names = [name for name, _ in present]
    values = [value for key, value in shown.items() if key[1] in names]
    ticks = ticks_around(min(values), max(values))
    low, high, left, right, top = ticks[0], ticks[-1], 130, 700, 112
    bar, gap = 7, 14
    row = bar * len(names) + gap
    bottom = top + row * len(OPERATIONS)

    def across(value):
        part = math.log(value / low) / math.log(high / low)
        return left + part * (right - left)

    parts = legend(left, 66, 195, names)
    for tick in ticks:
        parts.append(line(across(tick), top, across(tick), bottom, "grid"))
        parts.append(text(across(tick), bottom + 16, f"{tick:g}", "middle"))
    for number, (operation, label) in enumerate(OPERATIONS.items()):
        y = top + number * row + gap / 2
        parts.append(text(left - 10, y + bar * len(names) / 2 + 4, label, "end"))
        for lane, name in enumerate(names):
            value = shown.get((RATIO_ENTRIES, name, operation))
            if value is None:
                continue
            ends = sorted((across(1), across(value)))
            parts.append(f'<rect class="c{lane}" stroke-width="0" x="{ends[0]:.1f}" y="{y + bar * lane:.1f}" '
                         f'width="{max(ends[1] - ends[0], 1.5):.1f}" height="{bar - 1}">'
                         f"<title>{html.escape(name)}, {operation}: {value:.2f}</title></rect>")
    parts.append(line(across(1), top, across(1), bottom, "floor"))
    parts.append(text((left + right) / 2, bottom + 36,
                      "time ÷ time of the floor, the bare system calls (logarithmic; left of 1 is faster)",
                      "middle", "dim"))
    return svg(720, bottom + 50, f"Ratio to the floor, {RATIO_ENTRIES:,} entries of 4 KiB", run_of(page),
               [colours for _, colours in present], parts)


def apart(places, distance):
    """The places, from the top down, moved so that neighbours are at least that far apart."""
    moved = []
    for place in places:
        moved.append(max(place, moved[-1] + distance) if moved else place)
    return moved


def lookup_chart(page):
    """A lookup's ratio to the floor over the number of entries."""
    found = ratios(page)
    sizes = sorted({entries for entries, _, _ in found})
    left, right, top, bottom = 60, 530, 66, 310
    most = math.ceil(2 * max(found[n, who, what] for who, what, *_ in LOOKUPS for n in sizes
                             if (n, who, what) in found)) / 2

    def across(entries):
        part = math.log(entries / sizes[0]) / math.log(sizes[-1] / sizes[0])
        return left + part * (right - left)

    def up(value):
        return bottom - value / most * (bottom - top)

    parts = []
    for step in range(int(2 * most) + 1):
        parts.append(line(left, up(step / 2), right, up(step / 2)))
        parts.append(text(left - 8, up(step / 2) + 4, f"{step / 2:g}", "end"))
    for entries in sizes:
        parts.append(line(across(entries), top, across(entries), bottom))
        parts.append(text(across(entries), bottom + 18, f"{entries:,}", "middle"))
    parts.append(line(left, up(1), right, up(1), "floor"))
    ends = []
    for number, (who, what, name, *_) in enumerate(LOOKUPS):
        points = [(n, found[n, who, what]) for n in sizes if (n, who, what) in found]
        places = " ".join(f"{across(n):.1f},{up(value):.1f}" for n, value in points)
        parts.append(f'<polyline class="c{number}" points="{places}"/>')
        parts += [f'<circle class="c{number}" cx="{across(n):.1f}" cy="{up(value):.1f}" r="3">'
                  f"<title>{html.escape(name)}, N = {n:,}: {value:.2f}</title></circle>"
                  for n, value in points]
        ends.append((up(points[-1][1]), number, f"{name}: {points[-1][1]:.2f}"))
    ends.append((up(1), None, "the floor: 1"))
    ends.sort(key=lambda end: end[0])
    for y, (_, number, label) in zip(apart([end[0] for end in ends], 16), ends):
        if number is not None:
            parts.append(f'<circle class="c{number}" cx="{right + 14}" cy="{y:.1f}" r="4"/>')
        parts.append(text(right + 24, y + 4, label))
    parts.append(text((left + right) / 2, bottom + 40, "N, the number of entries (logarithmic)", "middle", "dim"))
    parts.append('<text class="dim" text-anchor="middle" transform="translate(20 '
                 f'{(top + bottom) / 2:.0f}) rotate(-90)">time ÷ time of the floor</text>')
    return svg(720, bottom + 54, "A lookup over the number of entries, as a ratio to the floor", run_of(page),
               [colours for *_, colours in LOOKUPS], parts)


def write(page, directory):
    os.makedirs(directory, exist_ok=True)
    for name, chart in (("ratios", ratio_chart), ("lookup", lookup_chart)):
        with open(os.path.join(directory, f"{name}.svg"), "w", encoding="utf-8") as file:
            file.write(chart(page))


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") as figures:
        write(figures.read(), sys.argv[2])
