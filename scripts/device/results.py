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
