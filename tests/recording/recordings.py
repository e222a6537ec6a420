"""Recordings as their first version stored them, written without the library, and zrnrec that reads them."""

import os
import pathlib
import struct
import subprocess
import zlib

import numpy as np
import pytest

ZRNREC = os.environ["ZRNREC"]
BLOCK = 64
TRAILER = 8


def picture(number, letter, width, height):
    """Differs from frame to frame, image to image, row to row and column to column."""
    y, x = np.mgrid[0:height, 0:width]
    return ((x * 3 + y * 5 + number * 7 + ord(letter) * 11) % 256).astype(np.uint8)


class Frame:
    """A frame to be recorded. Its arrival is in nanoseconds."""

    def __init__(self, number, letters="AB", width=37, height=11, missing=0, arrival=None):
        self.number, self.letters, self.width, self.height = number, letters, width, height
        self.missing = missing
        self.arrival = number * 10_000_123 if arrival is None else arrival

    def image(self, letter):
        return picture(self.number, letter, self.width, self.height)

    def payload(self):
        return b"".join(self.image(letter).tobytes() + bytes(TRAILER) for letter in self.letters)

    def header(self, position, payload):
        letters = self.letters.encode().ljust(2, b"\0")
        return seal(struct.pack("<8sQqIIII2s2xI", b"ZRNFRAME", position, self.arrival, self.width, self.height,
                                self.number, self.missing, letters, zlib.crc32(payload)))


def seal(start):
    block = start.ljust(BLOCK - 4, b"\0")
    return block + struct.pack("<I", zlib.crc32(block))


def padded(data, filler=b"\0"):
    return data + filler * (-len(data) % BLOCK)


def write(path, frames, metadata=b'{"serial": "ZR1"}', is_complete=True):
    """@return the offset of each frame"""
    text = padded(metadata, b" ")
    data = bytearray(seal(struct.pack("<8sII", b"\x89ZRNREC\n", 1, len(text))) + text)
    offsets = []
    for position, frame in enumerate(frames):
        offsets.append(len(data))
        payload = frame.payload()
        data += frame.header(position, payload) + padded(payload)
    if is_complete:
        index = struct.pack(f"<{len(offsets)}Q", *offsets)
        tail = seal(struct.pack("<8sQQI", b"ZRNTAIL\n", len(data), len(offsets), zlib.crc32(index)))
        data += padded(index) + tail
    pathlib.Path(path).write_bytes(data)
    return offsets


def damage(path, offset):
    with open(path, "r+b") as file:
        file.seek(offset)
        before = file.read(1)[0]
        file.seek(offset)
        file.write(bytes([before ^ 0x55]))


def stack_of(frames, letters="AB"):
    """As [frame, image, row, column]."""
    return np.stack([np.stack([frame.image(letter) for letter in letters]) for frame in frames])


def zrnrec(*arguments, **options):
    options = {"capture_output": True, **options}
    run = subprocess.run([ZRNREC, *map(str, arguments)], text=True, timeout=300, **options)
    if "it was built without" in (run.stderr or ""):
        pytest.skip(run.stderr)
    return run


def exported(*arguments, **options):
    """Runs an export that is to go well."""
    run = zrnrec("export", *arguments, **options)
    assert run.returncode == 0, run.stderr
    return run
