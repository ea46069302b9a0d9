"""Charts of one run as SVG: an operation's ratio to the floor over N, one line for each contender."""
import html
import math
import os

from render import NAMES

WIDTH, HEIGHT = 760, 420
LEFT, RIGHT, TOP, BOTTOM = 70, 230, 40, 50
COLOURS = {"floor": "#888888", "linux-host": "#d62728", "plain-host": "#ff9896", "session": "#9467bd",
           "qt": "#2ca02c", "sqlite": "#1f77b4", "lmdb": "#17becf", "leveldb": "#bcbd22"}
TITLES = {"hit": "Hit, metadata", "content": "Hit, metadata and content", "miss": "Miss",
          "store": "Store and commit", "remove": "Remove", "churn": "Store at the entry limit",
          "start-up": "Start-up until the first hit"}


def lines_of(results, operation):
    """{contender: [(N, ratio to the floor)]}."""
    lines = {}
    for one in results["timings"]:
        if (one["operation"], one["where"], one["base"], one["content_bytes"]) == (
                operation, "tmpfs", "floor", 4096) and one["subject"] in COLOURS:
            lines.setdefault(one["subject"], []).append((one["entries"], one["ratio"]["median"]))
    if lines:
        sizes = [n for points in lines.values() for n, _ in points]
        lines["floor"] = [(min(sizes), 1), (max(sizes), 1)]
    return {name: sorted(points) for name, points in lines.items()}


class Axis:
    """A logarithmic axis between two positions."""

    def __init__(self, values, start, end):
        self.low = math.floor(math.log10(min(values)))
        self.high = max(math.ceil(math.log10(max(values))), self.low + 1)
        self.start, self.end = start, end

    def __call__(self, value):
        part = (math.log10(value) - self.low) / (self.high - self.low)
        return self.start + part * (self.end - self.start)

    def ticks(self):
        return [10.0 ** power for power in range(self.low, self.high + 1)]


def text(x, y, content, anchor="start", extra=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" {extra}>{html.escape(content)}</text>'


def grid(across, up):
    parts = []
    for value in across.ticks():
        x = across(value)
        parts.append(f'<line x1="{x:.0f}" y1="{up.start}" x2="{x:.0f}" y2="{up.end}" stroke="#ddd"/>')
        parts.append(text(x, up.start + 18, f"{value:,.0f}", "middle"))
    for value in up.ticks():
        y = up(value)
        parts.append(f'<line x1="{across.start}" y1="{y:.0f}" x2="{across.end}" y2="{y:.0f}" stroke="#ddd"/>')
        parts.append(text(across.start - 6, y + 4, f"{value:,g}", "end"))
    return parts


def chart(title, lines):
    every = [point for points in lines.values() for point in points]
    across = Axis([n for n, _ in every], LEFT, WIDTH - RIGHT)
    up = Axis([ratio for _, ratio in every], HEIGHT - BOTTOM, TOP)
    parts = grid(across, up)
    shown = [name for name in COLOURS if name in lines]
    for row, name in enumerate(shown):
        colour = COLOURS[name]
        points = [(across(n), up(ratio)) for n, ratio in lines[name]]
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        dash = 'stroke-dasharray="6 4" ' if name == "floor" else ""
        parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2" {dash}/>')
        parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in points]
        y = TOP + 12 + 20 * row
        parts.append(f'<rect x="{WIDTH - RIGHT + 16}" y="{y - 9}" width="12" height="12" fill="{colour}"/>')
        parts.append(text(WIDTH - RIGHT + 34, y + 2, NAMES[name].replace("*", "")))
    parts.append(text(LEFT, 22, f"{title}: ratio to the floor over the number of entries, on tmpfs", "start",
                      'font-weight="bold"'))
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
            f'font-family="sans-serif" font-size="13"><rect width="100%" height="100%" fill="white"/>\n'
            + "\n".join(parts) + "\n</svg>\n")


def write(results, directory):
    for operation, title in TITLES.items():
        lines = lines_of(results, operation)
        if not lines:
            continue
        with open(os.path.join(directory, f"{operation}.svg"), "w", encoding="utf-8") as file:
            file.write(chart(title, lines))
