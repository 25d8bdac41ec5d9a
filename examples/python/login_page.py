#!/usr/bin/env python3
"""The tavrel_sdk library from Python through the tavrel package: present the login page on a
headless screen and write it as a PNG.

    PYTHONPATH=bindings/python python3 examples/python/login_page.py --library build/libtavrel_sdk.so -o login.png

The library is found through --library, else as the package finds it ($TAVREL_SDK_LIB, a copy
beside the package, pkg-config's tavrel_sdk_c, the loader's path).
"""
import argparse
import os
import sys
import time


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--library", help="path of libtavrel_sdk.so")
    parser.add_argument("-o", "--output", default="login_page.png", help="the PNG to write")
    parser.add_argument("--tree", help="also write the view tree as JSON here")
    parser.add_argument("--size", default="390x844", help="the screen in points, WxH")
    parser.add_argument("--scale", type=float, default=2.0)
    options = parser.parse_args()
    width, height = (float(v) for v in options.size.split("x"))
    if options.library:
        os.environ["TAVREL_SDK_LIB"] = options.library
    import tavrel  # loads the library

    tavrel.set_info_dictionary_json('{"CFBundleURLTypes": [{"CFBundleURLSchemes": ["pygame"]}]}')
    # The host before any view: a headless screen whose frames are taken on demand. Both stay to
    # the end: the library is never torn down.
    with tavrel.Host(width, height, options.scale) as host:
        host.install()
        with tavrel.Screen() as screen:
            tavrel.set_view_controller(screen)
            tavrel.show_login_page()
            deadline = time.monotonic() + 10
            while not tavrel.is_login_page_visible():
                if time.monotonic() > deadline:
                    sys.exit("the login page did not come up")
                tavrel.run_main_loop_for(0.02)
            tavrel.run_main_loop_for(0.6)  # the page slides in
            png = host.render_png()
            with open(options.output, "wb") as f:
                f.write(png)
            if options.tree:
                with open(options.tree, "w", encoding="utf-8") as f:
                    f.write(tavrel.dump_view_tree())
    print(f"{options.output}: {len(png)} bytes")


if __name__ == "__main__":
    main()
