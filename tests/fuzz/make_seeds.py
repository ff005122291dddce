#!/usr/bin/env python3
"""Writes the fuzz targets' seed inputs into tests/fuzz/corpus/<target>/:
a few small, well-formed inputs each, from which the fuzzer mutates.
Run again after a change of an input layout; regression inputs of crashes
found live beside the seeds (crash-*)."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def write(target, name, data):
    d = os.path.join(HERE, "corpus", target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name), "wb") as f:
        f.write(data)


def bmp(w, h, bpp):
    row = w * bpp // 8
    pixels = bytes((x * 40 + y * 7) & 0xFF for y in range(h) for x in range(row))
    header = struct.pack("<2sIHHI", b"BM", 54 + len(pixels), 0, 0, 54)
    info = struct.pack("<IiiHHIIiiII", 40, w, h, 1, bpp, 0, len(pixels), 2835, 2835, 0, 0)
    return header + info + pixels


# params: calls of (id index, set/get, 64 payload bytes)
for i, (idx, word) in enumerate([(29, 1), (25, 1), (17, 250), (44, 0), (58, 0x3060C0), (60, 0)]):
    write("params", "seed-%d" % i, bytes([idx, 1]) + struct.pack("<I", word) + bytes(60))
write("params", "seed-window", bytes([10, 1]) + struct.pack("<I6i", 1, 0, 0, 160, 120, 0, 0) + bytes(36))

# frames: mode, lens, flag, then frames (shape, w, h, cs index, rotation, stride pad, aspect, agent bytes)
def frame(shape, w, h, cs, rot):
    return bytes([shape]) + struct.pack("<II", w, h) + bytes([cs, rot, 0, 0]) + bytes([8, 4, 1, 0])
lens = struct.pack("<4I", 6000, 6000, 3800, 6000)
write("frames", "seed-plain", bytes([0]) + lens + b"\x01" + frame(0x40, 160, 120, 0, 0))
write("frames", "seed-fisheye-odd", bytes([1]) + lens + b"\x01" + frame(0x44, 101, 77, 0, 1))
write("frames", "seed-agent-nv12", bytes([2]) + lens + b"\x01" + frame(0x50, 64, 48, 5, 0))
write("frames", "seed-packed", bytes([0]) + lens + b"\x00" + frame(0x40, 33, 17, 6, 3) + frame(0x40, 1, 1, 0, 2))

# state: view, 264-byte record, gestures (kind, four floats)
for mode in range(11):
    rec = struct.pack("<32f", *([1.0] * 32)) + bytes(264 - 128)
    gestures = bytes([0]) + struct.pack("<4f", 10, 10, 40, 30) + bytes([1]) + struct.pack("<4f", 1.2, 0, 80, 60)
    write("state", "seed-view-%d" % mode, bytes([mode]) + rec + gestures)

# overlay: BMP length and bytes, placement, face count, tolerance, faces
def face(image, gender, age, x, y, w, h, name):
    return struct.pack("<IIiiiii", image, gender, age, x, y, w, h) + name.ljust(32, b"\0")[:32]
faces = face(1, 0, 30, 10, 10, 40, 40, b"Ann") + face(2, 1, 50, 80, 20, 30, 50, b"Bo")
place = struct.pack("<4f", 0.05, 0.05, 0.3, 0.3)
for name, data in [("seed-24", bmp(4, 4, 24)), ("seed-32", bmp(5, 3, 32))]:
    write("overlay", name, struct.pack("<I", len(data)) + data + place + bytes([2]) + struct.pack("<I", 0) + faces)
