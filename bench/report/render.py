"""Fills the report's template with the tables of one run."""
import itertools
import re

NAMES = {
    "floor": "Floor",
    "careful-floor": "Careful floor",
    "measuring-floor": "Floor that measures the new entry too",
    "linux-host": "**Bare interface, Linux host**",
    "plain-host": "Bare interface, plain host",
    "session": "**Session**",
    "session-power": "Session, durability “power”, disk",
    "session-no-durability": "Session, durability “none”",
    "qt": "QNetworkDiskCache",
    "sqlite": "SQLite",
    "sqlite-no-recency": "SQLite, no recency",
    "lmdb": "LMDB",
    "lmdb-no-recency": "LMDB, no recency",
    "leveldb": "LevelDB",
}
OPERATIONS = ("lookup", "hit", "content", "miss", "store", "remove", "churn", "start-up")
# In front of a block of the Linux host's kernel, for its own counts.
BLOCK_HEADER = 16


def seconds(nanoseconds):
    for unit, scale in (("ns", 1), ("µs", 1e3), ("ms", 1e6)):
        if nanoseconds < 999.5 * scale:
            break
    value = nanoseconds / scale
    return f"{value:.0f} {unit}" if value >= 100 or scale == 1 else f"{value:.3g} {unit}"


def number(value):
    return f"{value:.0f}" if abs(value - round(value)) < 0.005 else f"{value:.1f}"


def table(header, rows):
    lines = [header, ["---"] + ["---:"] * (len(header) - 1)] + rows
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


class Report:
    def __init__(self, results):
        self.results = results

    def find(self, subject, operation, entries, where="tmpfs", base="floor", content=4096):
        for one in self.results["timings"]:
            if (one["subject"], one["operation"], one["entries"], one["where"], one["base"],
                    one["content_bytes"]) == (subject, operation, entries, where, base, content):
                return one
        return None

    def ratio(self, *arguments, **named):
        found = self.find(*arguments, **named)
        return found["ratio"]["median"] if found else None

    def count(self, subject, operation):
        for one in self.results["counts"]:
            if (one["subject"], one["operation"]) == (subject, operation):
                return one
        return {}

    def subjects(self, **wanted):
        present = {one["subject"] for one in self.results["timings"]
                   if all(one[key] == value for key, value in wanted.items())}
        return [name for name in NAMES if name in present]

    def side_by_side(self, entries, where, content=4096, operations=OPERATIONS):
        rows = []
        for subject in self.subjects(entries=entries, where=where, base="floor",
                                     content_bytes=content):
            cells = []
            for operation in operations:
                found = self.find(subject, operation, entries, where, content=content)
                cells.append(f"{found['ratio']['median']:.2f} · "
                             f"{seconds(found['subject_times']['median_ns'])}" if found else "")
            rows.append([NAMES[subject]] + cells)
        return table([f"N = {entries:,}"] + list(operations), rows)

    def walk(self, entries):
        """Nanoseconds of a miss for each further entry."""
        near, far = self.find("linux-host", "miss", 50), self.find("linux-host", "miss", entries)
        if not near or not far:
            return None
        return ((far["subject_times"]["median_ns"] - near["subject_times"]["median_ns"])
                / (entries - 50))

    @staticmethod
    def own_part(opening):
        return (opening["open_ms"] - opening["module_alone_ms"]) / opening["bare_scan_ms"]

    def opening_table(self):
        rows = []
        for one in self.results.get("openings", ()):
            times = f" ({one['rounds']} opening)" if one["rounds"] == 1 else ""
            rows.append([f"{one['entries']:,}{times}", seconds(one['bare_scan_ms'] * 1e6),
                         seconds(one['module_alone_ms'] * 1e6), seconds(one['open_ms'] * 1e6),
                         f"{one['ratio']:.2f}", f"{self.own_part(one):.2f}",
                         f"{one['module_heap_bytes'] / 1e6:.1f}",
                         f"{(one['heap_peak_bytes'] - one['module_heap_bytes']) / 1e6:.1f}"])
        return table(["N", "bare scan", "module alone", "opening", "opening to scan",
                      "less the module, to scan", "MB of the module", "MB on top"], rows)

    def goals(self):
        """(what, the figure wanted, the figure measured)."""
        goals = []
        for subject, operation, limits, text in (
                ("linux-host", "lookup", (1.0, 1.5), "get-hit, Linux host"),
                ("plain-host", "lookup", (1.3, 1.8), "get-hit, plain host"),
                ("linux-host", "miss", (0.4, 1.0), "get-miss, against the floor's hit"),
                ("linux-host", "store", (1.2, 1.2), "store and commit"),
                ("linux-host", "start-up", (1.7, 2.0), "start-up until the first hit")):
            for entries, limit in zip((200, 1000), limits):
                goals.append((f"{text}, N = {entries:,}", limit,
                              self.ratio(subject, operation, entries)))
        for entries in (200, 1000):
            goals.append((f"store and commit on disk, N = {entries:,}", 1.2,
                          self.ratio("linux-host", "store", entries, "disk")))
        for entries, where in itertools.product((200, 1000), ("tmpfs", "disk")):
            goals.append((f"start-up until the first hit, session, {where}, N = {entries:,}", 1.6,
                          self.ratio("session", "start-up", entries, where)))
        goals.append(("start-up until the first hit, session against bare, N = 10,000", 1.15,
                      self.ratio("session", "start-up", 10000, base="linux-host")))
        for one in self.results.get("openings", ()):
            if one["entries"] > 100_000:
                continue
            text = f"opening a session against the bare scan, N = {one['entries']:,}"
            goals.append((text, 2.0, one["ratio"]))
            goals.append((text + ", less what the module takes alone", 2.0, self.own_part(one)))
            goals.append((f"MB on top of the module's at an opening, N = {one['entries']:,}", 20.0,
                          (one["heap_peak_bytes"] - one["module_heap_bytes"]) / 1e6))
        for operation, limit in (("store", 1.15), ("replace", 1.25)):
            for entries, where in itertools.product((200, 1000), ("tmpfs", "disk")):
                goals.append((f"{operation}, session against the careful floor, {where}, "
                              f"N = {entries:,}", limit,
                              self.ratio("session", operation, entries, where, "careful-floor")))
        for operation, limit in (("store", 2), ("replace", 3)):
            calls = self.count("session-power", operation).get("system_calls")
            goals.append((f"synchronisations of a {operation} at power, ext4 with a journal", limit,
                          calls and calls.get("fsync", 0)))
            goals.append((f"{operation} at power, against a floor that synchronises both files and the "
                          "directory, disk", 1.15 if operation == "store" else 1.25,
                          self.ratio("session-power", operation, 200, "disk", "synchronised-floor")))
        for entries in (200, 1000):
            goals.append((f"fetch with content, session against bare, N = {entries:,}", 1.10,
                          self.ratio("session", "content", entries, base="linux-host")))
        threads = self.results.get("threads")
        goals.append(("time of as many fetches by two threads, against one", 1 / 1.6,
                      threads and 1 / threads["fetches"]))
        goals.append(("ns of a miss for each further entry, N = 1,000", 4.0, self.walk(1000)))
        goals.append(("allocations of a hit", 4.0,
                      self.count("linux-host", "lookup").get("kernel_allocations")))
        for peer in ("qt", "sqlite", "lmdb"):
            for entries in (50, 200, 1000):
                goals.append((f"hit, ahead of {NAMES[peer]}, N = {entries:,}",
                              self.ratio(peer, "hit", entries),
                              self.ratio("linux-host", "hit", entries)))
        return goals

    def goal_table(self):
        rows = []
        for text, limit, measured in self.goals():
            if limit is None or measured is None:
                rows.append([text, "", "not measured", ""])
            else:
                rows.append([text, f"{limit:.2f}", f"{measured:.2f}",
                             "yes" if measured <= limit else "**no**"])
        return table(["What", "at most", "measured", "met"], rows)

    def spread_table(self):
        rows = []
        for subject in ("linux-host", "plain-host", "session"):
            for entries in (200, 1000):
                for operation in OPERATIONS:
                    found = self.find(subject, operation, entries)
                    if not found:
                        continue
                    ratio, base, own = found["ratio"], found["base_times"], found["subject_times"]
                    rows.append([f"{NAMES[subject]}, {operation}", f"{entries:,}",
                                 f"{ratio['median']:.2f}", f"{ratio['p10']:.2f}–{ratio['p90']:.2f}",
                                 str(found["rounds"])] + [
                                     f"{seconds(own[key])} / {seconds(base[key])}"
                                     for key in ("p99_ns", "calm_worst_ns", "worst_ns")])
        return table(["Operation", "N", "ratio", "10–90 %", "pairs", "p99 / floor's",
                      "worst of the calmest round / floor's", "worst / floor's"], rows)

    def sizes(self):
        return sorted({one["entries"] for one in self.results["timings"]
                       if one["subject"] == "linux-host" and one["operation"] == "start-up"
                       and one["where"] == "tmpfs"})

    def walk_table(self):
        rows = []
        for entries in self.sizes():
            miss = self.find("linux-host", "miss", entries)
            start = self.find("linux-host", "start-up", entries)
            step = self.walk(entries) if entries > 50 else None
            rows.append([f"{entries:,}", seconds(miss["subject_times"]["median_ns"]),
                         f"{step:.1f} ns" if step is not None else "",
                         seconds(start["subject_times"]["median_ns"]),
                         seconds(start["subject_times"]["median_ns"] / entries),
                         f"{start['ratio']['median']:.2f}"])
        return table(["N", "miss", "for each further entry", "start-up", "for each entry",
                      "against the floor"], rows)

    def call_table(self):
        operations = ("hit", "content", "miss", "store", "remove", "churn", "start-up")
        rows = []
        for subject in NAMES:
            cells = [self.count(subject, operation).get("system_calls") for operation in operations]
            if any(cell is not None for cell in cells):
                rows.append([NAMES[subject]] + [number(sum(cell.values())) if cell is not None else ""
                                                for cell in cells])
        return table(["System calls, N = 200"] + list(operations), rows)

    def calls_of(self, operation):
        lines = []
        for subject in NAMES:
            calls = self.count(subject, operation).get("system_calls")
            if calls:
                each = ", ".join(f"{name} {number(times)}" for name, times in sorted(
                    calls.items(), key=lambda item: (-item[1], item[0])))
                lines.append(f"- {NAMES[subject].replace('*', '')}: {each}")
        return "\n".join(lines)

    def heap_table(self):
        rows = []
        for subject in NAMES:
            cells = []
            for operation in ("lookup", "hit", "content", "miss", "store", "remove", "churn"):
                found = self.count(subject, operation)
                cells.append(f"{number(found['heap_calls'])} · {found['heap_bytes']:.0f}"
                             if "heap_calls" in found else "")
            if any(cells):
                rows.append([NAMES[subject]] + cells)
        return table(["Heap calls · bytes, N = 200", "lookup", "hit", "content", "miss", "store",
                      "remove", "churn"], rows)

    def kernel_table(self):
        """The plain host takes nothing from the heap, so that all of it is the module's."""
        rows = []
        for operation in ("lookup", "hit", "content", "miss", "store", "remove", "churn"):
            found = self.count("plain-host", operation)
            allocations = found.get("kernel_allocations")
            if allocations is None:
                continue
            is_all = abs(found["heap_calls"] - allocations) < 0.005
            size = found["heap_bytes"] - BLOCK_HEADER * allocations
            rows.append([operation, number(allocations), f"{size:.0f}" if is_all else ""])
        return table(["Operation", "allocations from the kernel", "bytes asked of it"], rows)

    def memory_table(self):
        rows = []
        for subject in NAMES:
            found = self.count(subject, "memory")
            if found:
                kernel = found.get("kernel_bytes_per_entry")
                rows.append([NAMES[subject], f"{found['heap_bytes_per_entry']:.0f}",
                             f"{kernel:.0f} in {found['kernel_blocks_per_entry']:.1f} blocks"
                             if kernel else ""])
        return table(["Bytes for each entry, N = 200", "heap", "of that the module's"], rows)

    def durability(self):
        rows = []
        for subject in ("session", "session-no-durability"):
            for entries in (200, 1000):
                found = self.find(subject, "store", entries)
                if found:
                    rows.append([NAMES[subject].replace("*", ""), f"{entries:,}",
                                 f"{found['ratio']['median']:.2f}",
                                 seconds(found["subject_times"]["median_ns"])])
        return table(["Store", "N", "against the floor", "time"], rows)

    def against_bare(self):
        operations = ("content", "miss", "store", "remove", "start-up")
        rows = []
        for entries in (50, 200, 1000, 10000):
            cells = []
            for operation in operations:
                found = self.find("session", operation, entries, base="linux-host")
                cells.append(f"{found['ratio']['median']:.2f} "
                             f"({found['ratio']['p10']:.2f}–{found['ratio']['p90']:.2f})"
                             if found else "")
            rows.append([f"{entries:,}"] + cells)
        return table(["N"] + list(operations), rows)

    def careful(self):
        rows = []
        for entries, where in itertools.product((200, 1000), ("tmpfs", "disk")):
            cells = []
            for operation, floor in itertools.product(("store", "replace"),
                                                      ("careful-floor", "sealed-floor")):
                found = self.find("session", operation, entries, where, floor)
                cells.append(f"{found['ratio']['median']:.2f} ({found['ratio']['p10']:.2f}–"
                             f"{found['ratio']['p90']:.2f})" if found else "")
            rows.append([f"{entries:,}, {where}"] + cells)
        return table(["N", "store, careful floor", "store, sealed", "replace, careful floor",
                      "replace, sealed"], rows)

    def checks(self):
        rows = []
        for content in (4096, 65536):
            found = self.find("session-check-always", "content", 200, base="session",
                              content=content)
            if found:
                extra = found["subject_times"]["median_ns"] - found["base_times"]["median_ns"]
                rows.append([f"{content:,} bytes", f"{found['ratio']['median']:.2f}", seconds(extra)])
        return table(["Content", "`kAlways` against `kOnce`", "more"], rows)

    def threads(self):
        found = self.results["threads"]
        return (f"{found['fetches']:.2f} times the fetches of one; the system calls of a fetch alone, without "
                f"a session, {found['system_calls']:.2f} times ({found['processors']} processors)")

    def session_starts(self):
        found = [self.find("session", "start-up", entries) for entries in (50, 200, 1000, 10000)]
        return ", ".join(f"{seconds(one['subject_times']['median_ns'])} at N = {one['entries']:,}"
                         for one in found if one)

    def machine(self):
        return "\n".join(f"- {name}: {fact}" for name, fact in self.results["machine"].items())

    def parts(self):
        return table(["Part of a lookup, alone", "time"],
                     [[name, f"{time:.1f} ns"] for name, time in self.results["parts_ns"].items()])

    def failures(self):
        failed = self.results["failures"]
        return "None." if not failed else "\n".join(f"- {one}" for one in failed)


def render(template, results):
    report = Report(results)
    pieces = {
        "machine": report.machine,
        "seconds": lambda: str(results["seconds"]),
        "goals": report.goal_table,
        "tmpfs": lambda: "\n\n".join(report.side_by_side(n, "tmpfs") for n in (50, 200, 1000, 10000)),
        "disk": lambda: "\n\n".join(report.side_by_side(n, "disk") for n in (50, 200, 1000, 10000)),
        "large": lambda: report.side_by_side(200, "tmpfs", 65536, ("content", "store")),
        "session": report.against_bare,
        "durability": report.durability,
        "careful": report.careful,
        "checks": report.checks,
        "threads": report.threads,
        "session_starts": report.session_starts,
        "spread": report.spread_table,
        "walk": report.walk_table,
        "calls": report.call_table,
        "calls_of_hit": lambda: report.calls_of("hit"),
        "calls_of_store": lambda: report.calls_of("store"),
        "heap": report.heap_table,
        "kernel": report.kernel_table,
        "memory": report.memory_table,
        "parts": report.parts,
        "failures": report.failures,
        "openings": report.opening_table,
    }
    return re.sub(r"@([a-z_]+)@", lambda match: pieces[match.group(1)](), template)
