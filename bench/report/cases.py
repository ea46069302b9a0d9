"""What is measured: one case is one run of oxbench."""
import itertools

ENTRIES = (50, 200, 1000, 10000)
LARGE = ((1000, 5), (10000, 5), (100000, 5), (1000000, 1))  # opened beside a bare scan, how often
FORMS = ("linux-host", "plain-host", "session")
PEERS = ("qt", "sqlite", "lmdb", "leveldb")
NO_RECENCY = ("sqlite-no-recency", "lmdb-no-recency")

ALL = "lookup,hit,content,miss,remove,store,start-up,churn"
WITHOUT_LOOKUP = "hit,content,miss,remove,store,start-up,churn"


def case(subject, entries, where, operations=None, base="floor", content=4096):
    if operations is None:
        operations = ALL if subject in ("linux-host", "plain-host") else WITHOUT_LOOKUP
    return {"subject": subject, "entries": entries, "where": where, "operations": operations,
            "base": base, "content": content}


def cases(available):
    """All cases whose subject is among the available contenders."""
    wanted = [case(subject, entries, "tmpfs")
              for entries, subject in itertools.product(ENTRIES, FORMS + PEERS)]
    wanted += [case(subject, entries, "disk")
               for entries, subject in itertools.product((200, 1000), FORMS + PEERS)]
    wanted += [case(subject, entries, "disk")
               for entries, subject in itertools.product((50, 10000), ("linux-host", "session"))]
    wanted += [case(subject, entries, "tmpfs", "hit,content")
               for entries, subject in itertools.product((200, 1000), NO_RECENCY)]
    wanted += [case(subject, 200, "tmpfs", "content,store", content=65536)
               for subject in ("linux-host", "session") + PEERS]
    wanted += [case("linux-host", entries, "tmpfs", "miss,start-up") for entries in (500, 2000, 5000)]
    wanted += [case("session", entries, "tmpfs", "content,miss,store,remove,start-up", "linux-host")
               for entries in ENTRIES]
    wanted += [case("session", entries, where, "store,replace", floor)
               for floor, entries, where in itertools.product(("careful-floor", "sealed-floor"),
                                                              (200, 1000), ("tmpfs", "disk"))]
    wanted += [case("session-power", 200, "disk", "store,replace", "synchronised-floor")]
    wanted += [case("session-check-always", 200, "tmpfs", "content", "session", content)
               for content in (4096, 65536)]
    wanted += [case("measuring-floor", entries, where, "store")
               for entries, where in itertools.product((200, 1000), ("tmpfs", "disk"))]
    wanted += [case("session-no-durability", entries, "tmpfs", "store,churn") for entries in (200, 1000)]
    return [one for one in wanted if one["subject"] in available]


def counted(available):
    """Subjects whose system calls and allocations are counted."""
    return [name for name in ("floor",) + FORMS + PEERS if name in available]
