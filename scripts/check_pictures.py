#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks PNG files: their width and height, and that they show more than a few colours.

usage: check_pictures.py WIDTH HEIGHT FILE...
"""
import struct
import sys
import zlib

FEWEST_COLOURS = 50


def chunks(data):
    """Yields the kind and content of each chunk."""
    at = 8
    while at + 8 <= len(data):
        length, kind = struct.unpack(">I4s", data[at : at + 8])
        yield kind, data[at + 8 : at + 8 + length]
        at += length + 12


def rows_of(size, pixel_bytes, packed):
    """Yields the unfiltered rows."""
    width, height = size
    raw = zlib.decompress(packed)
    stride = width * pixel_bytes
    above = bytearray(stride)
    for y in range(height):
        at = y * (stride + 1)
        kind, row = raw[at], bytearray(raw[at + 1 : at + 1 + stride])
        for i in range(stride):
            left = row[i - pixel_bytes] if i >= pixel_bytes else 0
            corner = above[i - pixel_bytes] if i >= pixel_bytes else 0
            if kind == 1:
                row[i] = (row[i] + left) & 255
            elif kind == 2:
                row[i] = (row[i] + above[i]) & 255
            elif kind == 3:
                row[i] = (row[i] + (left + above[i]) // 2) & 255
            elif kind == 4:
                guess = left + above[i] - corner
                near = min((abs(guess - left), 0, left), (abs(guess - above[i]), 1, above[i]),
                           (abs(guess - corner), 2, corner))
                row[i] = (row[i] + near[2]) & 255
        above = row
        yield row


def fault_of(path, wanted):
    """What is wrong with a picture; None for nothing."""
    with open(path, "rb") as file:
        data = file.read()
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        return "is no PNG file"
    packed, size, pixel_bytes = b"", None, 0
    for kind, content in chunks(data):
        if kind == b"IHDR":
            width, height, depth, colours = struct.unpack(">IIBB", content[:10])
            size = (width, height)
            pixel_bytes = {2: 3, 6: 4}.get(colours, 0) * depth // 8
        elif kind == b"IDAT":
            packed += content
    if size != wanted:
        return f"is {size[0]} x {size[1]}, not {wanted[0]} x {wanted[1]}"
    if pixel_bytes not in (3, 4):
        return "is not in full colours"
    seen = set()
    for row in rows_of(size, pixel_bytes, packed):
        for at in range(0, len(row), pixel_bytes * 7):
            seen.add(bytes(row[at : at + 3]))
        if len(seen) >= FEWEST_COLOURS:
            return None
    return f"shows {len(seen)} colours only"


def main():
    wanted = (int(sys.argv[1]), int(sys.argv[2]))
    faults = 0
    for path in sys.argv[3:]:
        fault = fault_of(path, wanted)
        if fault:
            print(f"{path}: {fault}", file=sys.stderr)
            faults += 1
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
