#!/usr/bin/env python3
"""check_symbols.py SYMBOLS HEADER LIBRARY: the symbol list, the header and the library's exports
(nm -D, C++ names demangled; C names with the tavrel_ prefix) name the same functions."""
import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "bindings"))
import c_api  # noqa: E402


def declared(header):
    # The C++ bridge's names, which clang does not read as C, as tavrel::name.
    with open(header, encoding="utf-8") as f:
        bridge = re.sub(r"/\*.*?\*/", "", f.read().partition("namespace tavrel {")[2], flags=re.S)
    api, bridged = c_api.load(header), re.findall(r"TAVREL_C_API[^;(]*?(\w+)\(", bridge)
    return {*api["functions"], *api["variables"], *("tavrel::" + name for name in bridged)}


def exported(library):
    def defined(*flags):
        out = subprocess.run(["nm", "-D", "--defined-only", *flags, library],
                             check=True, capture_output=True, text=True).stdout
        return [line.split(" ", 2)[2] for line in out.splitlines() if line.count(" ") >= 2]
    c_names = {name for name in defined() if name.startswith("tavrel_")}
    cpp_names = {name.split("(")[0] for name in defined("-C") if name.startswith("tavrel::")}
    return c_names, cpp_names


def main():
    symbols, header, library = sys.argv[1:4]
    with open(symbols, encoding="utf-8") as f:
        names = {line.strip() for line in f if line.strip() and not line.startswith("#")}
    in_header = declared(header)
    c_names, cpp_names = exported(library)
    faults = [f"listed but not exported: {n}" for n in sorted(names - c_names - cpp_names)]
    faults += [f"declared in the header but not listed: {n}" for n in sorted(in_header - names)]
    faults += [f"listed but not declared in the header: {n}" for n in sorted(names - in_header)]
    faults += [f"exported but not listed: {n}" for n in sorted(c_names - names)]
    return c_api.report(faults, f"{len(names)} symbols listed, {len(in_header)} declared")


if __name__ == "__main__":
    sys.exit(main())
