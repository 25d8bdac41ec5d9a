#!/usr/bin/env python3
"""Runs examples/python/login_page.py (the tavrel package from the source tree) against the built
library and reads its output back: the PNG's size, and the page in the picture and in the view tree.

python_example_test.py EXAMPLE LIBRARY
"""
import json
import os
import struct
import subprocess
import sys
import tempfile


def main():
    if os.environ.get("TAVREL_SANITIZE"):
        print("SKIPPED: a sanitizer-built library cannot be loaded into an uninstrumented Python")
        return 77
    example, library = sys.argv[1:3]
    with tempfile.TemporaryDirectory() as out:
        png_path, tree_path = os.path.join(out, "login.png"), os.path.join(out, "login.json")
        package = os.path.join(os.path.dirname(os.path.abspath(example)), "..", "..", "bindings", "python")
        subprocess.run([sys.executable, example, "--library", library, "-o", png_path, "--tree", tree_path,
                        "--size", "320x480", "--scale", "1.5"], check=True, timeout=60,
                       env=dict(os.environ, PYTHONPATH=package, PYTHONDONTWRITEBYTECODE="1"))
        with open(png_path, "rb") as f:
            png = f.read()
        with open(tree_path, encoding="utf-8") as f:
            tree = json.load(f)

    assert png[:8] == b"\x89PNG\r\n\x1a\n" and png[12:16] == b"IHDR", "not a PNG"
    assert struct.unpack(">II", png[16:24]) == (480, 720), "wanted 480 x 720 (320 x 480 points at 1.5)"
    # An empty transparent frame packs into a few kilobytes; the page's picture does not.
    assert len(png) >= 100_000, f"{len(png)} bytes: no page drawn"
    page = tree["rootViewController"]["presentedViewController"] or {}
    assert page.get("class") == "LoginViewController" and '"Login"' in json.dumps(page), "no login page in the tree"
    return 0


if __name__ == "__main__":
    sys.exit(main())
