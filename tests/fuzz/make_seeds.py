#!/usr/bin/env python3
"""Makes the seeds of the corpora: the golden archives in the forms in which fuzz targets take them.

    tests/fuzz/make_seeds.py

The first byte of an input of load_and_use is the place of its type in archivedTypes() (tests/damage/battery.cpp).
"""

import hashlib
import pathlib
import re

here = pathlib.Path(__file__).resolve().parent
source = (here.parent / "damage" / "battery.cpp").read_text()
listed = source[source.index("archivedTypes()\n{"):]
places = {name: place for place, name in enumerate(re.findall(r'"([^"]+)"', listed))}
header = 8


def write(folder, data):
    """Names are the data's own, so that what is written twice is there once."""
    folder.mkdir(parents=True, exist_ok=True)
    (folder / hashlib.sha1(data).hexdigest()[:12]).write_bytes(data)


for file in sorted((here.parent / "golden").glob("kt*.ktar")) + sorted((here.parent / "golden").glob("Bad*.ktar")):
    archive = file.read_bytes()
    folder = here / "corpus" / "load_and_use"
    place = places.get(file.stem, 0)
    write(folder, bytes([place]) + archive[header:])
    write(folder, bytes([place | 0xC0]) + archive)
    in_place = places.get(file.stem + " in place")
    if in_place is not None:
        # The object of the first record without its tag and the name of its class.
        start = header + 5 + archive[header + 1]
        write(folder, bytes([in_place]) + archive[start:])

# What is refused: the header's two parts; in a pointer record its tag, class, index of a class and of an object; counts.
understood, understood_blind, in_input = 0x00, 0x80, 0x40
folder = here / "corpus" / "load_and_use"
write(folder, bytes([in_input]) + b"KTAX" + bytes(4))
write(folder, bytes([in_input]) + b"KTAR\2\0\0\0")
for record in (b"\4", b"\3\4\0\0\0Nope", b"\2\7\0\0\0", b"\1\7\0\0\0"):
    write(folder, bytes([understood | places["any object"]]) + record)
for name in ("bytes", "doubles", "texts", "flags"):
    write(folder, bytes([understood | places[name]]) + b"\0\xff\xff\xff\xff" + bytes(8))
    write(folder, bytes([understood_blind | places[name]]) + b"\0\xff\xff\xff\xff" + bytes(8))
write(folder, bytes([understood | places["bytes"]]) + b"\0\2\0\0\0ab")
# A stream without a length, and more than is believed of it at once.
write(folder, bytes([understood_blind | places["doubles"]]) + b"\0" + (600).to_bytes(4, "little") + bytes(4800))

for length in (24, 96, 400):
    for seed in range(8):
        state = seed * 7919 + length
        data = bytearray()
        for _ in range(length):
            state = (state * 1103515245 + 12345) % 2**31
            data.append(state >> 16 & 0xFF)
        write(here / "corpus" / "object_graphs", bytes(data))
