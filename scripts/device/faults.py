"""What else happens to a device: a full disk, a disk that turns read-only, a directory that goes
away, a clock that jumps, little memory. And the tests of the module and the session, in the device.
"""

import re

from cuts import LIMITS, Cache
from emulator import Device, Disk
from file_systems import FILE_SYSTEMS
from ledger import UNREADABLE
from ubifs_cuts import DIRECTORY, MAKE, MOUNT

MEBIBYTES = {"f2fs": 64}  # the least that f2fs takes
STOP = "killall ox_device 2>/dev/null; while killall -0 ox_device 2>/dev/null; do sleep 0.1; done; true"
# Name, what brings the fault about, what ends it. {mount} is where the disk is.
FAULTS = (
    ("full disk", "dd if=/dev/urandom of=/tmp/noise bs=256k count=4 2>/dev/null; "
                  "while cat /tmp/noise >>{mount}/filler; do true; done 2>/dev/null; "
                  "dd if=/tmp/noise of={mount}/rest bs=1k 2>/dev/null; true",
     "rm {mount}/filler {mount}/rest"),
    # The kernel's emergency asks no writer, but passes over UBIFS: that is asked until no file is open
    # for writing.
    ("read-only", "echo u >/proc/sysrq-trigger; sleep 1; for i in $(seq 500); do "
                  "grep -q ' {mount} [^ ]* ro[, ]' /proc/mounts && break; "
                  "mount -o remount,ro {mount} 2>/dev/null || sleep 0.01; done",
     "mount -o remount,rw {mount}"),
    ("directory pulled away", "mv {mount}/cache {mount}/elsewhere", "mv {mount}/elsewhere {mount}/cache"),
    ("clock jumps", "date -s '1970-01-02 00:00' >/dev/null; sleep 1; date -s '2041-01-01 00:00' "
                    ">/dev/null; sleep 1; date -s '1999-06-01 00:00' >/dev/null",
     "date -s '2026-06-01 00:00' >/dev/null"),
)


class Loaded:
    """A cache under load; what it told in each phase."""

    def __init__(self, device, system, mount, durability="power"):
        self.device = device
        self.mount = mount
        self.cache = Cache(system, durability)
        self.cache.directory = f"{mount}/cache"
        device.run(f"mkdir -p {self.cache.directory}; "
                   f"printf '{LIMITS}\\n' >{self.cache.directory}/file-cache.conf")

    def run(self, fault, mend, seconds, base, may_evict=False):
        """Before, with and after the fault; then every entry is looked at."""
        counts = self.cache.counts
        phases = []
        self.device.send(self.cache.load_command(base))
        for command in ("true", fault, mend):
            lines = self.device.run(command.format(mount=self.mount), may_fail=True)
            lines += self.device.lines_for(seconds)
            for line in lines:
                self.cache.note(line)
            phases.append({"commits": sum(f"{self.cache.name} d " in line for line in lines),
                           "failed": sum("! " in line for line in lines),
                           "refused": sum(f"{UNREADABLE} " in line for line in lines)})
        for line in self.device.run(STOP, may_fail=True):
            self.cache.note(line)
        if may_evict:
            self.cache.ledger.allow_absence()
        self.cache.check(self.device, "true", base)
        return {"before": phases[0], "during": phases[1], "after": phases[2],
                "told": counts.told, "lost": counts.lost, "half": counts.half,
                "mixed": counts.mixed, "unreadable": counts.unreadable,
                "findings": counts.findings[:5]}


def each_mounted(device, disks):
    """The name and the directory of each file system, mounted when its turn comes."""
    for name, disk in disks.items():
        device.run(FILE_SYSTEMS[name].mount_command(disk.name, f"/mnt/{name}"))
        yield name, f"/mnt/{name}"
        device.run(f"umount /mnt/{name}", may_fail=True)


def make_disks(systems, folder, part, mebibytes=24):
    disks = {name: Disk(name, folder / f"{part}.{name}.img") for name in systems}
    for name, disk in disks.items():
        FILE_SYSTEMS[name].make_image(disk.image, max(mebibytes, MEBIBYTES.get(name, 0)))
    return disks


def run_faults(image, systems, folder, seconds, log):
    """Fault to file system to what happened."""
    results = {name: {} for name, _, _ in FAULTS}
    disks = make_disks(systems, folder, "faults")
    with Device(image, disks.values(), log=log) as device:
        def all_faults(system, mount):
            for number, (name, fault, mend) in enumerate(FAULTS, 1):
                results[name][system] = Loaded(device, system, mount).run(
                    fault, mend, seconds, number, may_evict=name == "full disk")
                device.run(f"rm -rf {mount}/*")

        for system, mount in each_mounted(device, disks):
            all_faults(system, mount)
        device.run(f"{MAKE}; {MOUNT}")
        all_faults("ubifs", DIRECTORY)
    return results


# What a device of 32 MiB has beside its kernel. Debian's kernel does not start in so little, and
# f2fs is not mounted: of a larger memory the rest is taken once the file system is mounted.
LEFT_MEBIBYTES = 16
TAKE_MEMORY = ("mkdir -p /taken; mount -t tmpfs -o size=100% none /taken; "
               "while [ $(sed -n 's/MemAvailable: *\\([0-9]*\\).*/\\1/p' /proc/meminfo) -gt "
               f"{LEFT_MEBIBYTES * 1024} ]; do dd if=/dev/zero bs=1024k count=1 >>/taken/all; done "
               "2>/dev/null; grep MemAvailable /proc/meminfo")


def run_small(image, systems, folder, seconds, log):
    """The same of a device with little memory, started in 1970. A simulated flash has no room."""
    results = {}
    disks = make_disks(systems, folder, "small")
    with Device(image, disks.values(), memory=80, clock="1970-01-01T00:00:30", log=log,
                initramfs="initramfs-small") as device:
        for system, mount in each_mounted(device, disks):
            device.run(TAKE_MEMORY)
            results[system] = Loaded(device, system, mount).run("true", "true", seconds, 1)
            device.run("umount /taken")
    return {f"{LEFT_MEBIBYTES} MiB of memory free, started in 1970": results}


# Times in steps of up to two seconds: what was used last within one of them cannot be told, nor that
# content was changed within one without another length.
NOT_WITH_COARSE_TIMES = (
    "SessionTest.OneProcessHasASessionForEachDirectory:SessionSealTest.WhatIsNotWhatWasCommitted*:"
    "SessionSealTest.RenewalChangesTheMetadataAlone:SessionMends.ImpossibleTimesAreTheOldest:"
    "SessionConveniencesTest.LookingIsNoUse:SessionConveniencesTest.EvictionsAreCountedAndTold*:"
    "SessionConveniencesTest.ManyEntriesGoAtOnce:SessionConveniencesTest.TrimsToATarget:"
    "SessionLimits.OpeningWithLowerLimits*:SessionLimits.AClockSetBack*:"
    "SessionLimits.AFetchWritesTheTimeOfUse*:CacheReaderTest.FindsAndListsWhatASessionStored")
COARSE_TIMES = ("exfat", "vfat", "ubifs")
# The random histories take minutes, and those of the module touch no disk.
TESTS = ("module_test", "binary_contract_test", "host_test", "session_parts_test", "session_test",
         "session_seal_test", "session_mends_test", "session_disk_test", "session_kept_test",
         "session_conveniences_test", "session_limits_test", "cache_reader_test")
LEFT_OUT = "Model.*:SessionLimits.TheCacheDoesWhatAModelDoes*"
# A small file of f2fs lies in its inode, which the file's number of blocks leaves out.
NOT_ON_F2FS = "SessionDisk.TheLimitIsTheDisks"
# Names without case, times in steps, no links, no modes, no extended attributes: what cards cannot do.
NOT_ON_CARDS = {
    "host_test": "DirectoryTest.TheDefaultOneIsMade*:EnumerationTest.OldestFirst*:"
                 "EnumerationTest.AnswersUntil*:FileTest.EveryOperation*:FileTest.InterruptedCalls*:"
                 "FileTest.TheLastDescriptor*:FileTest.TouchesNothing*",
    "session_test": "SessionTest.DeletesFilesOfNoEntryAndKeepsForeignFiles:"
                    "SessionTest.FilesAreTheUsersAloneAndNoOtherProgramInheritsThem",
    "session_seal_test": "SessionSealTest.*",
    "session_mends_test": "SessionMends.EntriesGetTheContentThatTheirSealsTellOf",
    "session_parts_test": "JournalOrder.*",
    "session_kept_test": "SessionKeptTest.WhatWasKeptIsAnEntry*:SessionKeptTest.KeepingTakesRoom*",
    "cache_reader_test": "CacheReaderTest.SeesWhatAnOpening*:CacheReaderTest.SeesTheOlderEntry*",
}


def run_tests(image, systems, folder, log):
    """File system to the number of tests passed, and the names of those that failed."""
    results = {}
    # Room to spare: on a full disk sessions evict, and these tests count entries.
    disks = make_disks(systems, folder, "tests", 64)
    with Device(image, disks.values(), log=log) as device:
        def all_tests(system, mount):
            passed, failed = 0, []
            for test in TESTS:
                left_out = LEFT_OUT
                if system in COARSE_TIMES:
                    left_out += ":" + NOT_WITH_COARSE_TIMES
                if system == "f2fs":
                    left_out += ":" + NOT_ON_F2FS
                if "fat" in system and test in NOT_ON_CARDS:
                    left_out += ":" + NOT_ON_CARDS[test]
                lines = device.run(f"mkdir -p {mount}/t; TMPDIR={mount}/t GTEST_COLOR=no {test} "
                                   f"--gtest_filter=-{left_out}; rm -rf {mount}/t", timeout=3600,
                                   may_fail=True)
                passed += sum(int(number) for line in lines
                              for number in re.findall(r"^\[  PASSED  \] (\d+) test", line))
                failed += [line.split()[-1] for line in lines
                           if re.match(r"\[  FAILED  \] \S+\.\S+$", line)]
                if not any("[  PASSED  ]" in line for line in lines):
                    failed.append(f"{test} as a whole: {lines[-2:]}")
            results[system] = {"passed": passed, "failed": failed}

        for system, mount in each_mounted(device, disks):
            all_tests(system, mount)
        device.run(f"{MAKE}; {MOUNT}")
        all_tests("ubifs", DIRECTORY)
    return results
