"""The file systems that a device may have on its disk: how each is made, mounted and repaired."""

import dataclasses
import subprocess


@dataclasses.dataclass(frozen=True)
class FileSystem:
    """`repair` is what a device's start runs before it mounts; empty where mounting is enough."""
    name: str
    make: tuple
    module: str
    options: str = ""
    repair: tuple = ()
    is_durable: bool = True

    def make_image(self, image, mebibytes):
        with open(image, "wb") as file:
            file.truncate(mebibytes << 20)
        subprocess.run([*self.make, str(image)], check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)

    def repair_image(self, image):
        if self.repair:
            subprocess.run([*self.repair, str(image)], check=False, stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL)

    def mount_command(self, disk, directory):
        options = f"-o {self.options}" if self.options else ""
        return f"mkdir -p {directory}; modprobe {self.module}; " \
               f"echo mounting $(cut -d ' ' -f 1 /proc/uptime); " \
               f"mount -t {self.module} {options} $(disk {disk}) {directory}"


# All at once: what the kernel would write in the background is not the cache's wear.
MAKE_EXT4 = ("mkfs.ext4", "-q", "-F", "-E", "lazy_itable_init=0,lazy_journal_init=0")

FILE_SYSTEMS = {each.name: each for each in (
    FileSystem("ext4", MAKE_EXT4, "ext4", "data=ordered"),
    FileSystem("ext4-nojournal", (*MAKE_EXT4, "-O", "^has_journal"), "ext4", "",
               ("e2fsck", "-fy"), is_durable=False),
    FileSystem("f2fs", ("mkfs.f2fs", "-q", "-f"), "f2fs"),
    FileSystem("vfat", ("mkfs.vfat",), "vfat", "", ("fsck.vfat", "-a", "-w"), is_durable=False),
    FileSystem("vfat-dirsync", ("mkfs.vfat",), "vfat", "dirsync", ("fsck.vfat", "-a", "-w"),
               is_durable=False),
    FileSystem("exfat", ("mkfs.exfat",), "exfat", "", ("fsck.exfat", "-y"), is_durable=False),
)}
