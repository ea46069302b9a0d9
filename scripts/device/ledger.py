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

    def add(self, other):
        for field in dataclasses.fields(self):
            setattr(self, field.name, getattr(self, field.name) + getattr(other, field.name))


class Ledger:
    """Of one cache. Versions of an entry only grow."""

    def __init__(self):
        self.allowed = {}
        self.open = set()

    def note(self, words, counts):
        """A line of the load, without the name that it begins with."""
        if words[0] not in ("b", "d", "r", "f"):
            return
        url = int(words[1])
        if words[0] == "b":
            self.allowed.setdefault(url, {ABSENT}).add(int(words[2]))
            self.open.add(url)
        elif words[0] == "d":
            self.allowed[url] = {int(words[2])}
            self.open.discard(url)
        elif words[0] == "r":
            # A removal is never synchronised, so the entry may come back.
            self.allowed.setdefault(url, {ABSENT}).add(ABSENT)
        elif int(words[2]) in (HALF, MIXED):
            # Served under load. What no longer is, is judged by the next check.
            self.judge(url, int(words[2]), " ".join(words[3:]), counts, "under load")

    def allow_absence(self):
        """From now on any entry may have been evicted, but none may be an older one."""
        for versions in self.allowed.values():
            versions.add(ABSENT)

    def judge(self, url, version, message, counts, when):
        allowed = self.allowed.get(url, {ABSENT})
        if version not in allowed:
            counts.half += version == HALF
            counts.mixed += version == MIXED
            counts.unreadable += version == UNREADABLE
            counts.lost += version >= ABSENT
            counts.findings.append(f"{when}: URL {url} gives {version} {message}, "
                                   f"allowed {sorted(allowed)}")
        self.allowed[url] = {version}

    def check(self, found, counts, when):
        """Compares with what was found (URL to version and message), and goes on from there."""
        for url, (version, message) in sorted(found.items()):
            counts.told += ABSENT not in self.allowed.get(url, {ABSENT})
            self.judge(url, version, message, counts, when)
        self.open.clear()
