"""A disk for nbdkit that keeps some pieces at once and the others when the device flushes.

What the device has not flushed when the power goes is so neither all lost nor all kept, and not in
the order in which it was written. nbdkit calls the functions by their names.
"""

import os
import random

API_VERSION = 2
SECTOR = 512
PIECE = 4096
image = -1
chance = random.Random()
waiting = {}  # sector to its bytes


def config(key, value):
    global image
    if key == "image":
        image = os.open(value, os.O_RDWR)
    elif key == "seed":
        chance.seed(int(value))


def open(_readonly):
    return 1


def get_size(_handle):
    return os.fstat(image).st_size


def pread(_handle, buffer, offset, _flags):
    buffer[:] = os.pread(image, len(buffer), offset)
    for place in range(0, len(buffer), SECTOR):
        sector = waiting.get((offset + place) // SECTOR)
        if sector is not None:
            buffer[place:place + SECTOR] = sector


def pwrite(_handle, buffer, offset, _flags):
    place = 0
    while place < len(buffer):
        bytes_here = min(PIECE - (offset + place) % PIECE, len(buffer) - place)
        piece = bytes(buffer[place:place + bytes_here])
        first = (offset + place) // SECTOR
        is_kept_at_once = chance.random() < 0.3
        if is_kept_at_once:
            os.pwrite(image, piece, offset + place)
        for number in range(bytes_here // SECTOR):
            if is_kept_at_once:
                waiting.pop(first + number, None)
            else:
                waiting[first + number] = piece[number * SECTOR:(number + 1) * SECTOR]
        place += bytes_here


def flush(_handle, _flags):
    for sector, content in waiting.items():
        os.pwrite(image, content, sector * SECTOR)
    waiting.clear()
