"""What a cache may hold after a cut, kept outside the device from what the device told."""

import dataclasses

ABSENT = 0
HALF, MIXED, UNREADABLE = -1, -2, -3


@dataclasses.dataclass
class Counts:
    """What a file system did in all cuts of one durability."""
    trials: int = 0
    open_commits: int = 0   # cuts at a moment when a commit or removal had begun and was not done
    told: int = 0           # entries that had to be there
    lost: int = 0           # of those, absent or an older version
    half: int = 0
    mixed: int = 0
    unreadable: int = 0
    recovered: int = 0      # cuts after which the file system was mounted and the cache opened
    commits: int = 0
    first_hit: list = dataclasses.field(default_factory=list)  # milliseconds from the mount
    findings: list = dataclasses.field(default_factory=list)


class Ledger:
    """Of one cache. Versions of an entry only grow."""

    def __init__(self):
        self.allowed = {}
        self.last_told = {}
        self.open = set()
        self.failures = []

    def note(self, words):
        """A line of the load, without the name that it begins with."""
        kind = words[0] if words else ""
        url = int(words[1]) if len(words) > 1 and words[1].isdigit() else None
        if kind == "b":
            self.allowed.setdefault(url, {ABSENT}).add(int(words[2]))
            self.open.add(url)
        elif kind == "d":
            self.allowed[url] = {int(words[2])}
            self.last_told[url] = int(words[2])
            self.open.discard(url)
        elif kind == "r":
            # A removal is never synchronised, so the entry may come back.
            self.allowed.setdefault(url, {ABSENT}).add(ABSENT)
        elif kind == "!":
            self.failures.append(" ".join(words))
        elif kind == "f":
            self.failures.append("served while loading: " + " ".join(words))

    def check(self, found, counts, trial):
        """Compares with what was found (URL to version and message), and goes on from there."""
        for url, (version, message) in sorted(found.items()):
            allowed = self.allowed.get(url, {ABSENT})
            if ABSENT not in allowed:
                counts.told += 1
            if version in allowed:
                pass
            elif version == HALF:
                counts.half += 1
            elif version == MIXED:
                counts.mixed += 1
            elif version == UNREADABLE:
                counts.unreadable += 1
            else:
                counts.lost += 1
            if version not in allowed:
                counts.findings.append(f"{trial}: URL {url} gives {version} {message}, "
                                       f"allowed {sorted(allowed)}")
            self.allowed[url] = {version}
        self.open.clear()
