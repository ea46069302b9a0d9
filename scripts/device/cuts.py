"""Cuts the power of a device at random moments, and looks at what is left.

Every disk of the device has one file system and one cache; all are loaded at the same time, so one
cut is a trial for each of them.
"""

import random
import time

from emulator import Device, DeviceError, Disk
from file_systems import FILE_SYSTEMS
from ledger import Counts, Ledger

URLS = 24
MEBIBYTES = 64
LIMITS = "MAX_CACHE_SIZE=12000000\\nMAX_CACHE_ENTRIES=200\\nMAX_CACHE_ENTRY_SIZE=100000"
# Linux writes changed files half a minute after the change. Here it does so within a second, so
# that a cut hits what is written in part.
WRITE_SOON = "echo 30 >/proc/sys/vm/dirty_writeback_centisecs; " \
             "echo 60 >/proc/sys/vm/dirty_expire_centisecs"


class Cache:
    """One cache on one file system, through all cuts."""

    def __init__(self, system, durability):
        self.system = system
        self.durability = durability
        self.name = f"{system}.{durability}"
        self.directory = f"/mnt/{self.name}"
        self.ledger = Ledger()
        self.counts = Counts()

    def check(self, device, mount, trial):
        """Mounts, opens and fetches all."""
        lines = device.run(mount)
        device.run(f"[ -s {self.directory}/file-cache.conf ] || "
                   f"(printf '{LIMITS}\\n' >{self.directory}/file-cache.conf; sync)")
        lines += device.run(f"ox_device check {self.name} {self.directory} {self.durability} "
                            f"{URLS}")
        found = {}
        mounted = 0
        for words in map(str.split, lines):
            if words[:1] == ["mounting"]:
                mounted = float(words[1]) * 1000
            elif words[1:2] == ["f"]:
                found[int(words[2])] = (int(words[3]), " ".join(words[4:]))
            elif words[1:2] == ["hit"] and int(words[2]):
                self.counts.first_hit.append(int(words[2]) - mounted)
        self.ledger.check(found, self.counts, trial)

    def load_command(self, trial):
        return f"ox_device load {self.name} {self.directory} {self.durability} {URLS} " \
               f"{trial * 100000} &"

    def note(self, line):
        """A line that the device told; those of other caches are no matter."""
        words = line.split()
        if words[:1] == [self.name]:
            self.counts.commits += words[1:2] == ["d"]
            self.ledger.note(words[1:], self.counts)

    def note_cut(self):
        self.counts.trials += 1
        self.counts.open_commits += bool(self.ledger.open)


class DiskCache(Cache):
    """One on a disk of its own."""

    def __init__(self, system, durability, copy, folder):
        super().__init__(system, durability)
        self.name += f".{copy}"
        self.directory = f"/mnt/{self.name}"
        self.file_system = FILE_SYSTEMS[system]
        self.disk = Disk(self.name, folder / f"{self.name}.img")
        self.is_beyond_repair = False
        self.make()

    def make(self):
        self.file_system.make_image(self.disk.image, MEBIBYTES)
        self.ledger = Ledger()
        self.is_beyond_repair = False

    def check_disk(self, device, trial):
        try:
            self.check(device, self.file_system.mount_command(self.disk.name, self.directory),
                       trial)
            self.counts.recovered += trial > 0
        except DeviceError as error:
            self.counts.findings.append(f"{trial}: {error}")
            self.is_beyond_repair = True

    def mend(self):
        if self.is_beyond_repair:
            self.make()
        else:
            self.file_system.repair_image(self.disk.image)


def load_until_cut(device, caches, trial, seconds):
    for cache in caches:
        device.send(cache.load_command(trial + 1))
    waiting = {cache.name for cache in caches}
    lines = []
    while waiting:
        lines.append(device.next_line(60))
        if lines[-1].endswith(" loading"):
            waiting.discard(lines[-1].split()[0])
    time.sleep(seconds)
    lines += device.cut()
    for cache in caches:
        for line in lines:
            cache.note(line)
        cache.note_cut()


def cut_repeatedly(image, systems, copies, cuts, until, folder, seed, log):
    """The caches with their counts, after that many cuts or at that time. Each has so many copies, since
    the start of the device takes longest."""
    caches = [DiskCache(system, durability, copy, folder) for system in systems
              for durability in ("process", "power") for copy in range(copies)]
    boots = -(-cuts // copies)
    chance = random.Random(seed)
    for boot in range(boots + 1):
        for cache in caches:
            cache.disk.unsteady = boot if boot % 2 else None
        with Device(image, [cache.disk for cache in caches], log=log) as device:
            device.run(WRITE_SOON)
            for cache in caches:
                cache.check_disk(device, boot)
            if boot == boots or time.monotonic() > until:
                break  # the last one only looks
            load_until_cut(device, [each for each in caches if not each.is_beyond_repair], boot,
                           chance.uniform(0.2, 5))
        for cache in caches:
            cache.mend()
    return caches
