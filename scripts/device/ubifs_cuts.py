"""UBIFS on UBI on a simulated NAND flash. The flash lies in the device's memory, so it would not
outlive the device: the power cuts are those that UBIFS and UBI emulate themselves. After one, every
write fails until the flash is attached and mounted anew."""

import random
import time

from cuts import WRITE_SOON, Cache
from emulator import Device, DeviceError
from ledger import Ledger

DIRECTORY = "/mnt/ubifs"
UBI = "/sys/kernel/debug/ubi/ubi0"
# 64 MiB in erase blocks of 128 KiB.
MAKE = "modprobe nandsim id_bytes=0x20,0xa2,0x00,0x15; modprobe ubi; modprobe ubifs; " \
       "ubiattach -m 0 >/dev/null; ubimkvol /dev/ubi0 -N cache -m >/dev/null"
MOUNT = f"mkdir -p {DIRECTORY}; echo mounting $(cut -d ' ' -f 1 /proc/uptime); " \
        f"[ -e {UBI} ] || ubiattach -m 0 >/dev/null; mount -t ubifs ubi0:cache {DIRECTORY}"
UNMOUNT = f"killall ox_device 2>/dev/null; while killall -0 ox_device 2>/dev/null; do sleep 0.1; done; " \
          f"umount {DIRECTORY}; echo 0 >/sys/kernel/debug/ubifs/tst_recovery; ubidetach -m 0"
IS_CUT = "grep -q 1 /sys/class/ubi/ubi0/ro_mode /sys/kernel/debug/ubifs/ubi0_0/ro_error"


def prepare_cut(device, chance, by_ubi):
    if by_ubi:
        # In the midst of an erase block's header, after so many of them.
        device.run(f"echo 1 >{UBI}/tst_emulate_power_cut_min; "
                   f"echo {chance.randint(2, 10)} >{UBI}/tst_emulate_power_cut_max; "
                   f"echo 3 >{UBI}/tst_emulate_power_cut")
        return
    # UBIFS chooses its moment at the first write, up to a minute ahead. Long ones are not waited for.
    recovery = "/sys/kernel/debug/ubifs/tst_recovery"
    device.run(f"for attempt in 1 2 3 4 5 6; do dmesg -c >/dev/null; echo 1 >{recovery}; "
               f"date >{DIRECTORY}/moment; sync; "
               "dmesg | grep -qE 'failing after [0-9]{5}ms' || break; "
               f"echo 0 >{recovery}; umount {DIRECTORY}; mount -t ubifs ubi0:cache {DIRECTORY}; "
               "done; true")


def load_until_cut(device, cache, trial, seconds):
    """Whether UBIFS or UBI cut the power in that time."""
    device.send(cache.load_command(trial + 1))
    limit = time.monotonic() + seconds
    while time.monotonic() < limit:
        try:
            line = device.next_line(max(0.01, limit - time.monotonic()))
        except DeviceError:
            break
        # A failed call is how the load notices; what it told before that counts.
        if "! " in line:
            break
        cache.note(line)
    return device.run(IS_CUT, may_fail=True)


def one_cut(device, cache, trial, chance):
    prepare_cut(device, chance, by_ubi=trial % 3 != 0)
    *told, answer = load_until_cut(device, cache, trial, 10)
    is_cut = answer == "@done 0"
    for line in told + device.run(UNMOUNT, may_fail=True):
        cache.note(line)
    if is_cut:
        cache.note_cut()
    cache.check(device, MOUNT, trial)
    cache.counts.recovered += is_cut


def cut_repeatedly(image, durability, cuts, until, seed, log):
    """The cache with its counts, after that many cuts or at that time. A device beyond repair is begun anew."""
    cache = Cache("ubifs", durability)
    cache.directory = DIRECTORY
    chance = random.Random(seed)
    attempts = 0

    def is_over():
        return cache.counts.trials >= cuts or attempts >= 3 * cuts or time.monotonic() > until

    while not is_over():
        cache.ledger = Ledger()
        try:
            with Device(image, [], log=log) as device:
                device.run(f"{WRITE_SOON}; {MAKE}")
                cache.check(device, MOUNT, attempts)
                while not is_over():
                    attempts += 1
                    one_cut(device, cache, attempts, chance)
        except DeviceError as error:
            cache.counts.findings.append(f"{attempts}: {error}")
    return cache
