"""What each operation writes to the device: bytes, requests, waits for the medium, erased blocks."""

from emulator import Device, Disk
from file_systems import FILE_SYSTEMS
from ubifs_cuts import DIRECTORY, MAKE, MOUNT, UBI

SYSTEMS = ("ext4", "ext4-nojournal", "f2fs", "exfat", "vfat")
STORES = ("none", "process", "power", "rename", "rename-sync", "sqlite", "sqlite-sync")
SMALL, LARGE = 4096, 65536
MEBIBYTES = 64
TRACE = "/sys/kernel/debug/tracing"
# ubi_io_write(ubi, buffer, block, offset, LENGTH): the fifth argument lies on the stack.
COUNT_UBI = f"echo 'p:written ubi_io_write bytes=+0($stack):s32' >{TRACE}/kprobe_events; " \
            f"echo 'hist:keys=bytes' >{TRACE}/events/kprobes/written/trigger; " \
            f"echo 1 >{TRACE}/events/kprobes/written/enable"
# Name, operation, entries, bytes, round, seconds that the clock is set forward before it.
OPERATIONS = (
    ("new 4 KiB", "put", 32, SMALL, 1, 0),
    ("new 64 KiB", "put", 12, LARGE, 1, 0),
    ("replace 4 KiB", "put", 32, SMALL, 2, 0),
    ("replace 64 KiB", "put", 12, LARGE, 2, 0),
    ("renew 4 KiB", "renew", 32, SMALL, 3, 0),
    ("renew 64 KiB", "renew", 12, LARGE, 3, 0),
    ("hit", "hit", 32, SMALL, 3, 0),
    ("hit, an hour later", "hit", 32, SMALL, 3, 3600),
    ("miss", "miss", 32, SMALL, 3, 0),
    ("presence and numbers", "look", 32, SMALL, 3, 0),
    ("restart", "restart", 0, SMALL, 3, 0),
)


def counters_of_disk(disk):
    # Of a disk's statistics: requests to write, sectors written, requests to flush.
    return f"""#!/bin/sh
echo counters $(awk '{{ print $7 * 512, $5, $16, 0 }}' /sys/block/$(basename {disk})/stat)
"""


COUNTERS_OF_UBI = f"""#!/bin/sh
echo counters $(sed -n 's/.*bytes: *\\([0-9]*\\) .*hitcount: *\\([0-9]*\\).*/\\1 \\2/p' \\
  {TRACE}/events/kprobes/written/hist | awk '{{ b += $1 * $2; n += $2 }} END {{ print b + 0, n + 0, 0 }}') \\
  $(awk '{{ e += $2 }} END {{ print e }}' {UBI}/detailed_erase_block_info)
"""


def put_script(device, path, text):
    device.run(f"cat >{path} <<'END'\n{text}END\nchmod +x {path}")


def measure(device, directory, store):
    """For each operation what one of them costs: bytes, requests, flushes, erased blocks."""
    device.run(f"mkdir -p {directory}; printf 'MAX_CACHE_SIZE=12000000\\nMAX_CACHE_ENTRIES=200\\n"
               f"MAX_CACHE_ENTRY_SIZE=100000\\n' >{directory}/file-cache.conf")
    costs = {}
    for name, operation, entries, size, wear_round, later in OPERATIONS:
        if later:
            device.run(f"date -s @$(($(date +%s) + {later}))")
        lines = device.run(f"echo 3 >/proc/sys/vm/drop_caches; ox_device wear {store} {directory} "
                           f"{operation} {entries} {size} {wear_round} /tmp/counters", timeout=300)
        before, after = ([int(word) for word in line.split()[1:]] for line in lines
                         if line.startswith("counters "))
        costs[name] = [(b - a) / max(entries, 1) for a, b in zip(before, after)]
    return costs


def measure_all(image, folder, log):
    """File system to store to operation to costs."""
    disks = {name: Disk(name, folder / f"wear.{name}.img") for name in SYSTEMS}
    for name, disk in disks.items():
        FILE_SYSTEMS[name].make_image(disk.image, MEBIBYTES)
    costs = {}
    with Device(image, disks.values(), log=log) as device:
        device.run(f"{MAKE}; {COUNT_UBI}; {MOUNT}")
        for name, disk in disks.items():
            directory = f"/mnt/{name}"
            device.run(FILE_SYSTEMS[name].mount_command(disk.name, directory))
            put_script(device, "/tmp/counters",
                       counters_of_disk(device.run(f"disk {disk.name}")[0]))
            costs[name] = {store: measure(device, f"{directory}/{store}", store)
                           for store in STORES}
        put_script(device, "/tmp/counters", COUNTERS_OF_UBI)
        costs["ubifs"] = {store: measure(device, f"{DIRECTORY}/{store}", store)
                          for store in STORES}
    return costs


def measure_memory(image, log):
    """Lines of the memory in use: at 0 entries, and how it grows."""
    lines = []
    with Device(image, [], memory=384, log=log) as device:
        for what in ("module", "session"):
            for entries in (100, 1000, 10000):
                for _ in range(2):  # once stores, once finds them at the start
                    lines += device.run(f"mkdir -p /tmp/cache; ox_device memory /tmp/cache {entries} {what}",
                                        timeout=1200)
                device.run("rm -rf /tmp/cache")
    return [line for line in lines if line.startswith("memory ")]
