#!/usr/bin/env python3
"""drift_test.py BINDING_TEST_EXE: the C# binding's declarations (read by the test program under mono)
against tavrel.h as clang reads it, both ways; each parameter of a type that marshals as the C type."""
import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import c_api  # noqa: E402

# C type -> the C# types (as the binding's reflection names them) that marshal as it.
MARSHALS_AS = {
    "void": {"Void"}, "int": {"Int32"}, "double": {"Double"}, "size_t": {"UIntPtr"},
    "_Bool": {"Boolean:I1"}, "_Bool *": {"Boolean&:I1"}, "double *": {"Double&"}, "size_t *": {"UIntPtr&"},
    "const char *": {"Byte[]", "IntPtr"}, "char *": {"Byte[]"}, "void *": {"IntPtr", "Byte[]"},
    "char **": {"IntPtr&"}, "unsigned char **": {"IntPtr&"}, "const int32_t *": {"Int32[]", "Int32&"},
    "tavrel_status": {"Status"}, "tavrel_pixel_format": {"PixelFormat"}, "tavrel_callback_delivery": {"CallbackDelivery"},
    "tavrel_host *": {"Host"}, "tavrel_host **": {"Host&"}, "tavrel_screen **": {"Screen&"},
    "tavrel_screen *": {"IntPtr"},  # NULL stands for the last screen made
    "const tavrel_finger *": {"Finger[]"}, "tavrel_frame *": {"Frame&"}, "const tavrel_frame *": {"Frame&"},
    "tavrel_completion": {"tavrel_completion"}, "tavrel_log_callback": {"tavrel_log_callback"},
    "tavrel_frame_callback": {"IntPtr"},
    "const uint32_t *": {"IntPtr"}, "const tavrel_rect *": {"IntPtr"},
}
# A handle's _free takes the raw pointer: the SafeHandle is being released.
RELEASED = {"tavrel_host_free", "tavrel_screen_free"}


def pascal(name):
    """The C# name of a C name: TAVREL_ERROR_NULL_ARGUMENT -> NullArgument, tavrel_frame -> Frame."""
    name = re.sub("^(TAVREL_(ERROR_|PIXELS_|DELIVER_)?|tavrel_)", "", name)
    return "".join(word.capitalize() for word in name.lower().split("_"))


def marshals(name, position, c_type, cs_type):
    return cs_type in ({"IntPtr"} if name in RELEASED and position == 1 else MARSHALS_AS.get(c_type, ()))


def main():
    api = c_api.load()
    del api["callbacks"]["tavrel_frame_callback"]  # frames are taken with Host.RenderFrame instead
    out = subprocess.run(["mono", sys.argv[1], "declarations"], check=True, capture_output=True, text=True).stdout
    bound = {"functions": {}, "callbacks": {}, "enums": {}, "structs": {}}
    for kind, name, *items in (line.split() for line in out.splitlines()):
        bound[kind].setdefault(name, []).append(items)
    enums = bound.pop("enums")
    bound["structs"] = {c: bound["structs"].get(pascal(c), [[]]) for c in api["structs"]}
    faults = c_api.compare(api, bound, marshals)
    for c_name, constants in api["enums"].items():
        wanted = sorted(f"{pascal(c)}={value}" for c, value in constants.items() if not c.endswith("_MAX_ENUM"))
        if sorted(enums.get(pascal(c_name), [[]])[0]) != wanted:
            faults.append(f"{c_name}: {enums.get(pascal(c_name))}, the header has {wanted}")
    return c_api.report(faults, f"{len(api['functions'])} header functions")


if __name__ == "__main__":
    sys.exit(main())
