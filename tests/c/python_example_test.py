#!/usr/bin/env python3
"""Runs examples/python/login_page.py against the built library and reads its PNG back:
its size, and the page in its pixels and its view tree.

python_example_test.py EXAMPLE LIBRARY
"""
import json
import os
import struct
import subprocess
import sys
import tempfile
import zlib


def decode_png(data):
    """Width, height and RGBA rows of an 8-bit RGBA PNG without interlacing."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG"
    offset, idat, header = 8, b"", None
    while offset < len(data):
        length, kind = struct.unpack(">I4s", data[offset:offset + 8])
        body = data[offset + 8:offset + 8 + length]
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat += body
        offset += 12 + length
    width, height, depth, colour, _, _, interlace = header
    assert (depth, colour, interlace) == (8, 6, 0), header
    raw, stride, rows, previous = zlib.decompress(idat), width * 4, [], bytearray(width * 4)
    for y in range(height):
        start = y * (stride + 1)
        kind, row = raw[start], bytearray(raw[start + 1:start + 1 + stride])
        for i in range(stride):
            left = row[i - 4] if i >= 4 else 0
            up, corner = previous[i], previous[i - 4] if i >= 4 else 0
            if kind == 1:
                row[i] = (row[i] + left) & 0xFF
            elif kind == 2:
                row[i] = (row[i] + up) & 0xFF
            elif kind == 3:
                row[i] = (row[i] + (left + up) // 2) & 0xFF
            elif kind == 4:
                p = left + up - corner
                pa, pb, pc = abs(p - left), abs(p - up), abs(p - corner)
                row[i] = (row[i] + (left if pa <= pb and pa <= pc else up if pb <= pc else corner)) & 0xFF
        rows.append(row)
        previous = row
    return width, height, rows


def main():
    if os.environ.get("TAVREL_SANITIZE"):
        print("SKIPPED: a sanitizer-built library cannot be loaded into an uninstrumented Python")
        return 77
    example, library = sys.argv[1:3]
    with tempfile.TemporaryDirectory() as out:
        png_path, tree_path = os.path.join(out, "login.png"), os.path.join(out, "login.json")
        subprocess.run([sys.executable, example, "--library", library, "-o", png_path, "--tree", tree_path,
                        "--size", "320x480", "--scale", "1.5"], check=True, timeout=60)
        with open(png_path, "rb") as f:
            width, height, rows = decode_png(f.read())
        with open(tree_path, encoding="utf-8") as f:
            tree = json.load(f)

    faults = []
    if (width, height) != (480, 720):
        faults.append(f"size {width}x{height}, wanted 480x720 (320x480 points at 1.5)")
    page = tree["rootViewController"]["presentedViewController"]
    if not page or page["class"] != "LoginViewController":
        faults.append("no login page in the view tree")
    # The page covers the screen with its opaque background; its Login button is orange.
    transparent = sum(1 for row in rows for a in row[3::4] if a != 255)
    orange = sum(1 for row in rows for i in range(0, len(row), 4)
                 if row[i] > 200 and 70 < row[i + 1] < 140 and row[i + 2] < 60)
    if transparent:
        faults.append(f"{transparent} pixels not opaque: the page does not cover the screen")
    if orange < width * height // 100:
        faults.append(f"only {orange} orange pixels: no Login button")
    for fault in faults:
        print(fault)
    print(f"{width}x{height}, {orange} orange pixels, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
