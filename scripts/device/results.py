"""Results of the parts, kept between runs and made into the tables of docs/."""

import dataclasses
import json
import statistics

ORDER = ("ext4", "ext4-nojournal", "f2fs", "ubifs", "exfat", "vfat-dirsync", "vfat")
NAMES = {"ext4": "ext4, ordered", "ext4-nojournal": "ext4 without journal", "f2fs": "f2fs",
         "ubifs": "UBIFS", "exfat": "exFAT", "vfat-dirsync": "vfat, `dirsync`", "vfat": "vfat"}


def keep(folder, part, result):
    (folder / f"{part}.json").write_text(json.dumps(result, indent=1))


def table(header, rows):
    lines = [header, ["---"] + ["---:"] * (len(header) - 1), *rows]
    return "\n".join("| " + " | ".join(map(str, line)) + " |" for line in lines)


def of_caches(caches):
    """The counts of all caches with one file system and durability, together."""
    together = {}
    for cache in caches:
        key = f"{cache.system} {cache.durability}"
        if key in together:
            together[key].add(cache.counts)
        else:
            together[key] = cache.counts
    return {key: dataclasses.asdict(counts) for key, counts in together.items()}


def cut_table(counts):
    rows = []
    for system in ORDER:
        for durability in ("process", "power"):
            each = counts.get(f"{system} {durability}")
            if each is None:
                continue
            hits = each["first_hit"]
            rows.append([NAMES[system], f"`{durability}`", each["trials"], each["open_commits"],
                         each["recovered"], each["told"], each["lost"], each["half"],
                         each["mixed"], each["unreadable"],
                         f"{statistics.median(hits) / 1000:.1f} s" if hits else "none"])
    return table(["file system", "durability", "cuts", "of these in an open commit", "recovered",
                  "entries told as finished", "lost", "half", "mixed", "unreadable",
                  "to the first hit"], rows)


def fault_table(faults):
    rows = []
    for fault, by_system in faults.items():
        for system in ORDER:
            each = by_system.get(system)
            if each is None:
                continue
            phases = [", ".join(str(each[phase][what])
                                for what in ("commits", "failed", "refused"))
                      for phase in ("before", "during", "after")]
            rows.append([fault, NAMES[system], *phases, each["told"], each["lost"],
                         each["half"] + each["mixed"] + each["unreadable"]])
    return table(["fault", "file system", "commits, failed changes, refused fetches: before", "during", "after",
                  "entries told as finished", "lost", "half, mixed, unreadable"], rows)


def test_table(tests):
    return table(["file system", "tests passed", "failed"],
                 [[NAMES[system], tests[system]["passed"],
                   ", ".join(tests[system]["failed"]) or "none"]
                  for system in ORDER if system in tests])


STORES = {"none": "session, `none`", "process": "session, `process`", "power": "session, `power`",
          "rename": "a file renamed into place", "rename-sync": "the same, synchronised",
          "sqlite": "SQLite, WAL, `NORMAL`", "sqlite-sync": "SQLite, WAL, `FULL`"}


def wear_table(by_store, is_flash):
    """KiB written, then requests to write for a disk, erased blocks for a flash."""
    operations = list(next(iter(by_store.values())))
    rows = []
    for store, costs in by_store.items():
        cells = [STORES[store]]
        for operation in operations:
            size, requests, flushes, erased = costs[operation]
            second = f"{erased:.2f}" if is_flash else f"{requests:.1f}"
            cells.append("0" if not size else f"{size / 1024:.1f}, {second}")
        if not is_flash:
            cells.append(f"{costs['new 4 KiB'][2]:.1f}, {costs['replace 4 KiB'][2]:.1f}")
        rows.append(cells)
    waits = [] if is_flash else ["flushes: new, replace"]
    return table(["", *operations, *waits], rows)


def wear_tables(wear):
    return "\n\n".join(f"{NAMES[system]}:\n\n{wear_table(wear[system], system == 'ubifs')}"
                       for system in ORDER if system in wear)


def memory_table(lines):
    """Of lines "memory WHEN ENTRIES resident KIB private KIB heap BYTES"."""
    rows = {}
    for words in map(str.split, lines):
        when, entries = words[1], int(words[2])
        heap = int(words[8])
        if not entries:
            rows["", 0] = ["nothing opened yet", "", 0, words[4], words[6], f"{heap / 1024:.0f}", ""]
            continue
        what, _, when = when.partition("-")
        rows[what + when, entries] = [
            what, "stored just now" if when == "stored" else "found at the start", entries, words[4],
            words[6], f"{heap / 1024:.0f}", f"{heap / entries:.0f}"]
    return table(["", "entries", "number", "resident, KiB", "of these private, KiB", "heap, KiB",
                  "heap for each entry, bytes"],
                 [rows[key] for key in sorted(rows)])


TABLES = {"cuts": cut_table, "faults": fault_table, "tests": test_table, "wear": wear_tables,
          "memory": memory_table}


def render(folder, pages):
    """Puts the tables between the marks "<!-- device: PART -->" and "<!-- end -->" of the pages."""
    for page in pages:
        text = page.read_text()
        for part, make in TABLES.items():
            result = folder / f"{part}.json"
            mark = f"<!-- device: {part} -->"
            if mark in text and result.exists():
                before, after = text.split(mark, 1)
                text = f"{before}{mark}\n{make(json.loads(result.read_text()))}\n" \
                       f"<!-- end -->{after.split('<!-- end -->', 1)[1]}"
        page.write_text(text)
