"""A 32-bit ARM device: an emulator, its disks, and the serial console that tells what happens."""

import os
import pathlib
import queue
import signal
import subprocess
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent


class Disk:
    """An image behind a cache that loses what the device has not flushed when the power goes: all
    of it, or, with a number in `unsteady`, some pieces of it by chance."""

    def __init__(self, name, image):
        self.name = name[-20:]
        self.image = pathlib.Path(image)
        self.socket = self.image.with_suffix(".socket")
        self.unsteady = None
        self.server = None

    def serve(self):
        self.socket.unlink(missing_ok=True)
        if self.unsteady is None:
            # The cache is a deleted file: it is gone with the server.
            source = ["--filter=cache", "file", str(self.image), "cache=writeback"]
        else:
            source = ["python", str(HERE / "unsteady_disk.py"), f"image={self.image}",
                      f"seed={self.unsteady}"]
        self.server = subprocess.Popen(
            ["nbdkit", "--foreground", "--unix", str(self.socket), *source],
            env={**os.environ, "TMPDIR": str(self.image.parent)},
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for _ in range(1000):
            if self.socket.exists():
                return
            time.sleep(0.01)
        raise RuntimeError(f"nbdkit does not serve {self.image}")

    def options(self, number):
        return ["-drive", f"file=nbd+unix:///?socket={self.socket},if=none,id=disk{number},"
                          "format=raw,discard=unmap",
                "-device", f"virtio-blk-device,drive=disk{number},serial={self.name}"]

    def kill(self):
        self.server.kill()
        self.server.wait()


class DeviceError(Exception):
    """The device did not answer, or a command in it failed."""


class Device:
    """A running device. Leaving a `with` block cuts its power."""

    def __init__(self, image, disks, memory=256, clock=None, log=None,
                 initramfs="initramfs"):
        self.disks = list(disks)
        self.lines = queue.Queue()
        self.log = log
        for disk in self.disks:
            disk.serve()
        command = ["qemu-system-arm", "-M", "virt", "-cpu", "cortex-a7", "-m", str(memory),
                   "-nographic", "-monitor", "none", "-serial", "stdio", "-nic", "none",
                   "-no-reboot", "-kernel", f"{image}/kernel", "-initrd", f"{image}/{initramfs}",
                   "-append", "console=ttyAMA0 loglevel=1 panic=-1 rdinit=/init"]
        if clock is not None:
            command += ["-rtc", f"base={clock}"]
        for number, disk in enumerate(self.disks):
            command += disk.options(number)
        self.emulator = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         stderr=subprocess.STDOUT)
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()
        self.wait_for("@started", 600)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.cut()

    def _read(self):
        for line in self.emulator.stdout:
            text = line.decode("utf-8", "replace").strip()
            if self.log:
                print(text, file=self.log, flush=True)
            self.lines.put(text)
        self.lines.put(None)

    def next_line(self, timeout):
        try:
            line = self.lines.get(timeout=timeout)
        except queue.Empty:
            raise DeviceError("the device is silent") from None
        if line is None:
            raise DeviceError("the device has stopped")
        return line

    def wait_for(self, end, timeout=120):
        """The lines before the one that begins with `end`, and that one."""
        lines = []
        limit = time.monotonic() + timeout
        while True:
            try:
                lines.append(self.next_line(max(0.01, limit - time.monotonic())))
            except DeviceError as error:
                raise DeviceError(f"{error}; it said last: {lines[-20:]}") from None
            if lines[-1].startswith(end):
                return lines

    def send(self, command):
        self.emulator.stdin.write((command + "\n").encode())
        self.emulator.stdin.flush()

    def run(self, command, timeout=300, may_fail=False):
        """The lines that a command of the shell prints."""
        self.send(f"( {command} ) 2>&1; echo @done $?")
        lines = self.wait_for("@done", timeout)
        if not may_fail and lines[-1] != "@done 0":
            raise DeviceError(f"{command}: {lines[-20:]}")
        return lines[:-1] if not may_fail else lines

    def lines_for(self, seconds):
        """What it tells in that time."""
        time.sleep(seconds)
        return self.rest()

    def rest(self):
        """What was told and not read yet."""
        lines = []
        while not self.lines.empty():
            line = self.lines.get()
            if line is not None:
                lines.append(line)
        return lines

    def cut(self):
        """Ends the device and its disks at once. What was told until then is given back."""
        if self.emulator.poll() is None:
            self.emulator.send_signal(signal.SIGSTOP)
        for disk in self.disks:
            disk.kill()
        self.emulator.kill()
        self.emulator.wait()
        self.reader.join()
        return self.rest()
