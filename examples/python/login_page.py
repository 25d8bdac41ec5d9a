#!/usr/bin/env python3
"""The tavrel_sdk library from Python through ctypes (the standard library only): present the
login page on a headless screen and write it as a PNG.

    python3 examples/python/login_page.py --library build/libtavrel_sdk.so -o login.png

The library is found through --library, else $TAVREL_SDK_LIBRARY, else the system's search
(an installed libtavrel_sdk.so).
"""
import argparse
import ctypes
import ctypes.util
import os
import sys
import time

TAVREL_OK = 0


class Finger(ctypes.Structure):
    _fields_ = [("id", ctypes.c_int), ("x", ctypes.c_double), ("y", ctypes.c_double)]


COMPLETION = ctypes.CFUNCTYPE(None, ctypes.c_bool, ctypes.c_void_p)
FRAME_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_void_p)


def load(path):
    """The library with the prototypes this script calls; each returns a tavrel_status."""
    path = path or os.environ.get("TAVREL_SDK_LIBRARY") or ctypes.util.find_library("tavrel_sdk")
    if not path:
        sys.exit("libtavrel_sdk not found: pass --library or set TAVREL_SDK_LIBRARY")
    lib = ctypes.CDLL(path)
    status = ctypes.c_int
    pointer = ctypes.c_void_p
    prototypes = {
        "tavrel_set_info_dictionary_json": [ctypes.c_char_p],
        "tavrel_host_new": [ctypes.c_double, ctypes.c_double, ctypes.c_double, FRAME_CALLBACK, pointer,
                            ctypes.POINTER(pointer)],
        "tavrel_install_host": [pointer],
        "tavrel_screen_new": [ctypes.POINTER(pointer)],
        "tavrel_set_view_controller": [pointer],
        "tavrel_show_login_page": [COMPLETION, pointer],
        "tavrel_is_login_page_visible": [ctypes.POINTER(ctypes.c_bool)],
        "tavrel_run_main_loop_for": [ctypes.c_double],
        "tavrel_host_render_png": [pointer, ctypes.POINTER(pointer), ctypes.POINTER(ctypes.c_size_t)],
        "tavrel_dump_view_tree": [ctypes.POINTER(pointer)],
    }
    for name, arguments in prototypes.items():
        function = getattr(lib, name)
        function.argtypes = arguments
        function.restype = status
    lib.tavrel_status_text.argtypes = [ctypes.c_int]
    lib.tavrel_status_text.restype = ctypes.c_char_p
    lib.tavrel_free.argtypes = [pointer]
    lib.tavrel_free.restype = None
    return lib


def call(lib, name, *arguments):
    status = getattr(lib, name)(*arguments)
    if status != TAVREL_OK:
        sys.exit(f"{name}: {lib.tavrel_status_text(status).decode()}")


def taken_bytes(lib, data, size):
    """Copies memory the library handed out, then gives it back."""
    try:
        return ctypes.string_at(data, size)
    finally:
        lib.tavrel_free(data)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--library", help="path of libtavrel_sdk.so")
    parser.add_argument("-o", "--output", default="login_page.png", help="the PNG to write")
    parser.add_argument("--tree", help="also write the view tree as JSON here")
    parser.add_argument("--size", default="390x844", help="the screen in points, WxH")
    parser.add_argument("--scale", type=float, default=2.0)
    options = parser.parse_args()
    width, height = (float(v) for v in options.size.split("x"))

    lib = load(options.library)
    call(lib, "tavrel_set_info_dictionary_json",
         b'{"CFBundleURLTypes": [{"CFBundleURLSchemes": ["pygame"]}]}')

    # The host before any view: a headless screen whose frames are taken on demand.
    host = ctypes.c_void_p()
    call(lib, "tavrel_host_new", width, height, options.scale, FRAME_CALLBACK(), None, ctypes.byref(host))
    call(lib, "tavrel_install_host", host)
    screen = ctypes.c_void_p()
    call(lib, "tavrel_screen_new", ctypes.byref(screen))
    call(lib, "tavrel_set_view_controller", screen)

    call(lib, "tavrel_show_login_page", COMPLETION(), None)
    visible = ctypes.c_bool(False)
    deadline = time.monotonic() + 10
    while not visible.value:
        if time.monotonic() > deadline:
            sys.exit("the login page did not come up")
        call(lib, "tavrel_run_main_loop_for", 0.02)
        call(lib, "tavrel_is_login_page_visible", ctypes.byref(visible))
    call(lib, "tavrel_run_main_loop_for", 0.6)  # the page slides in

    data, size = ctypes.c_void_p(), ctypes.c_size_t()
    call(lib, "tavrel_host_render_png", host, ctypes.byref(data), ctypes.byref(size))
    png = taken_bytes(lib, data, size.value)
    with open(options.output, "wb") as f:
        f.write(png)
    if options.tree:
        tree = ctypes.c_void_p()
        call(lib, "tavrel_dump_view_tree", ctypes.byref(tree))
        with open(options.tree, "wb") as f:
            f.write(taken_bytes(lib, tree, len(ctypes.string_at(tree))))
    print(f"{options.output}: {len(png)} bytes")
    # The screen and host stay to the end: the library is never torn down.


if __name__ == "__main__":
    main()
