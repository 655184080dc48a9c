#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints a table file, or with --lists a file of record lists, as text.

Written from docs/fileformat.md alone, to see that the page tells all there is to know.

    readtable.py [--lists] FILE
"""
import gzip
import struct
import sys
from datetime import datetime, timedelta
from decimal import Decimal, localcontext

MAGIC = 0x20151002


class Reader:
    def __init__(self, data):
        self.data = data
        self.at = 0

    def take(self, n):
        if n < 0 or self.at + n > len(self.data):
            raise SystemExit("the file ends too early")
        self.at += n
        return self.data[self.at - n:self.at]

    def number(self, form):
        return struct.unpack(">" + form, self.take(struct.calcsize(form)))[0]

    def text(self):
        n = self.number("I")
        return None if n == 0xFFFFFFFF else self.take(n).decode("utf-16-be")


def scaled(number, scale):
    with localcontext() as context:
        context.prec = 200
        return format(Decimal(number).scaleb(-scale), "f")


def read_decimal(cell):
    word = int.from_bytes(cell, "little")
    mantissa = word & ((1 << 56) - 1)
    if word >> 63:
        mantissa -= 1 << 56
    scale = word >> 56 & 0x7F
    return scaled(mantissa, scale - 128 if scale > 63 else scale)


def read_xdecimal(cell):
    if not any(cell):
        return "0"
    word = int.from_bytes(cell[:2], "little")
    scale = word & 0xFF
    scale = scale - 256 if scale > 127 else scale
    digits = list(cell[2:])
    if digits[0] & 0x7F == 101:
        return "NaN"
    negative = digits[0] >> 7
    digits[0] &= 0x7F
    number = 0
    for pair in digits[:13]:
        number = number * 100 + pair
    if scale % 2:
        number = number * 10 + digits[13] // 10
    return scaled(-number if negative else number, scale)


def read_boards(cell):
    numbers = struct.unpack("<101i", cell)
    groups = {}
    for i in range(max(0, min(numbers[0], 50))):
        groups.setdefault(str(numbers[1 + 2 * i]), []).append(str(numbers[2 + 2 * i]))
    return " ".join(group + ":" + ",".join(groups[group]) for group in sorted(groups))


def read_date(cell):
    count = struct.unpack("<q", cell)[0]
    if count == 0:
        return ""
    moment = datetime(1970, 1, 1) + timedelta(milliseconds=count)
    return moment.strftime("%Y.%m.%d %H:%M:%S.") + "%03d" % (moment.microsecond // 1000)


def read_text(cell):
    units = struct.unpack("<%dH" % (len(cell) // 2), cell)
    units = units[:units.index(0)] if 0 in units else units
    return struct.pack("<%dH" % len(units), *units).decode("utf-16-le")


CELLS = {
    1: lambda cell: str(struct.unpack("<i", cell)[0]),
    2: lambda cell: str(struct.unpack("<q", cell)[0]),
    3: lambda cell: "%.17g" % struct.unpack("<d", cell)[0],
    4: read_decimal,
    5: read_text,
    6: read_date,
    7: read_boards,
    8: read_xdecimal,
}


def print_table(reader):
    if reader.number("I") != MAGIC:
        raise SystemExit("not a table file")
    columns, rows = reader.number("H"), reader.number("i")
    row_length, null_bytes = reader.number("i"), reader.number("i")
    definitions = []
    for _ in range(columns):
        names = [reader.text() for _ in range(3)]
        length, kind, size = reader.number("i"), reader.number("b"), reader.number("i")
        flags = [int(reader.number("B") != 0) for _ in range(2)]
        definitions.append((kind, size))
        print("column", *["null" if name is None else "'%s'" % name for name in names],
              length, kind, *flags)
    print("key", *[reader.text() for _ in range(reader.number("I"))])
    if sum(size for _, size in definitions) != row_length or null_bytes != (columns + 7) // 8:
        raise SystemExit("the header is not consistent")
    for _ in range(rows):
        cells = [reader.take(size) for _, size in definitions]
        bitmap = reader.take(null_bytes)
        print("row", *[CELLS[kind](cell) if bitmap[i // 8] >> i % 8 & 1 else "NULL"
                       for i, ((kind, _), cell) in enumerate(zip(definitions, cells))], sep="|")


def main():
    sys.stdout.reconfigure(encoding="utf-8")
    path = sys.argv[-1]
    with (gzip.open if path.endswith(".gz") else open)(path, "rb") as file:
        reader = Reader(file.read())
    if "--lists" not in sys.argv:
        print_table(reader)
    while "--lists" in sys.argv and reader.at < len(reader.data):
        print("list", reader.text())
        print_table(reader)
    if reader.at != len(reader.data):
        raise SystemExit("bytes follow the last row")


main()
