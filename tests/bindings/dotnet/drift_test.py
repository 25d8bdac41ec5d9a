#!/usr/bin/env python3
"""The C# binding's declarations against tavrel.h as clang reads it, both ways: every header
function bound (or listed below as unbound, with why), every DllImport a header function with
as many parameters, each of a type that marshals as the C type; callbacks, enums and structs alike.

drift_test.py BINDING_TEST_EXE   (run with mono; prints each difference)
"""
import json
import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import c_api  # noqa: E402

UNBOUND = {
    # Frames are taken with Host.RenderFrame; the host gets no callback (it is given NULL).
    "callbacks": {"tavrel_frame_callback": "RenderFrame returns the frame the callback would get"},
}

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


def compare(kind, header, bound, faults):
    """Declarations of one kind (functions or callbacks): {name: {"result", "params"}} each."""
    for name, c in header.items():
        if name in UNBOUND.get(kind, {}):
            continue
        signatures = bound.get(name)
        if not signatures:
            faults.append(f"{name}: not bound")
            continue
        for cs in signatures:
            c_types = [c["result"]] + c["params"]
            cs_types = [cs["result"]] + cs["params"]
            if len(c_types) != len(cs_types):
                faults.append(f"{name}: {len(cs['params'])} parameters, the header has {len(c['params'])}")
                continue
            for position, (c_type, cs_type) in enumerate(zip(c_types, cs_types)):
                allowed = {"IntPtr"} if name in RELEASED and position == 1 else MARSHALS_AS.get(c_type, set())
                if cs_type not in allowed:
                    where = "result" if position == 0 else f"parameter {position}"
                    faults.append(f"{name}: {where} is {cs_type}, which does not marshal as {c_type}")
    faults.extend(f"{name}: bound, not in the header" for name in bound if name not in header)


def main():
    api = c_api.load()
    binding = json.loads(subprocess.run(["mono", sys.argv[1], "declarations"], check=True,
                                        capture_output=True, text=True).stdout)
    faults = []
    for kind in ("functions", "callbacks"):
        bound = {}
        for signature in binding[kind]:
            bound.setdefault(signature["name"], []).append(signature)
        compare(kind, api[kind], bound, faults)

    for c_name, constants in api["enums"].items():
        wanted = {pascal(constant): value for constant, value in constants.items() if not constant.endswith("_MAX_ENUM")}
        if binding["enums"].get(pascal(c_name)) != wanted:
            faults.append(f"{c_name}: {binding['enums'].get(pascal(c_name))}, the header has {wanted}")
    for c_name, fields in api["structs"].items():
        cs_fields = binding["structs"].get(pascal(c_name), [])
        c_types = [c_type for _, c_type in fields]
        if len(cs_fields) != len(c_types) or any(cs not in MARSHALS_AS[c] for c, cs in zip(c_types, cs_fields)):
            faults.append(f"{c_name}: fields {cs_fields}, the header has {c_types}")

    return c_api.report(faults, f"{len(api['functions'])} header functions")


if __name__ == "__main__":
    sys.exit(main())
