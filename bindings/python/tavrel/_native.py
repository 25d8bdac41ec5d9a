"""libtavrel_sdk.so found, loaded and declared: every function of tavrel.h with its ctypes types."""
from __future__ import annotations

import ctypes
import glob
import os
import subprocess
from ctypes import (CFUNCTYPE, POINTER, Structure, c_bool, c_char, c_char_p, c_double, c_int, c_size_t, c_uint32,
                    c_void_p)

# Opaque objects (tavrel_screen *, tavrel_host *) travel as plain addresses.
handle = c_void_p
status = c_int  # tavrel_status; any enum is an int
enum = c_int


class Rect(Structure):
    """A rectangle of whole pixels (tavrel_rect)."""
    _fields_ = [("x", c_int), ("y", c_int), ("width", c_int), ("height", c_int)]


class FrameStruct(Structure):
    """tavrel_frame as the library fills it."""
    _fields_ = [("pixels", POINTER(c_uint32)), ("width", c_int), ("height", c_int), ("stride", c_int),
                ("scale", c_double), ("damage", POINTER(Rect)), ("damage_count", c_size_t)]


class Finger(Structure):
    """tavrel_finger: a finger at a point of the screen, in points."""
    _fields_ = [("id", c_int), ("x", c_double), ("y", c_double)]


LOG_CALLBACK = CFUNCTYPE(None, c_char_p, c_void_p)
COMPLETION = CFUNCTYPE(None, c_bool, c_void_p)
FRAME_CALLBACK = CFUNCTYPE(None, POINTER(FrameStruct), c_void_p)

CALLBACKS = {"tavrel_log_callback": LOG_CALLBACK, "tavrel_completion": COMPLETION,
             "tavrel_frame_callback": FRAME_CALLBACK}
STRUCTS = {"tavrel_rect": Rect, "tavrel_frame": FrameStruct, "tavrel_finger": Finger}

_fingers = (POINTER(Finger), c_size_t, POINTER(c_bool))
# name: (result, parameters). Pointers to data the binding packs itself (the input event's words)
# are plain addresses, so bytes pass without a copy into a ctypes array.
FUNCTIONS = {
    "tavrel_status_text": (c_char_p, (status,)),
    "tavrel_free": (None, (c_void_p,)),
    "tavrel_set_documents_directory": (status, (c_char_p,)),
    "tavrel_set_info_dictionary_json": (status, (c_char_p,)),
    "tavrel_set_trusted_certificates_file": (status, (c_char_p,)),
    "tavrel_set_service_base_url_for_testing": (status, (c_char_p,)),
    "tavrel_set_log_callback": (None, (LOG_CALLBACK, c_void_p)),
    "tavrel_set_log_to_stderr": (None, (c_bool,)),
    "tavrel_last_error": (c_int, (POINTER(c_char), c_size_t)),
    "tavrel_set_callback_delivery": (status, (enum,)),
    "tavrel_run_main_loop_for": (status, (c_double,)),
    "tavrel_screen_new": (status, (POINTER(handle),)),
    "tavrel_screen_free": (None, (handle,)),
    "tavrel_set_auth_token": (status, (c_char_p,)),
    "tavrel_get_timestamp": (c_int, (POINTER(c_char), c_size_t)),
    "tavrel_get_user_id": (c_int, (POINTER(c_char), c_size_t)),
    "tavrel_process_url_request": (status, (c_char_p,)),
    "tavrel_set_view_controller": (status, (handle,)),
    "tavrel_show_overlay": (status, (handle,)),
    "tavrel_initialise_overlay": (status, (handle, c_char_p)),
    "tavrel_show_touches": (status, ()),
    "tavrel_show_watermark": (status, ()),
    "tavrel_validate": (status, (COMPLETION, c_void_p)),
    "tavrel_show_login_page": (status, (COMPLETION, c_void_p)),
    "tavrel_dismiss_login_page": (status, ()),
    "tavrel_is_login_page_visible": (status, (POINTER(c_bool),)),
    "tavrel_emit_game_event": (status, (c_char_p, c_char_p)),
    "tavrel_emit_input_event": (status, (c_void_p, c_size_t)),
    "tavrel_terminate": (None, ()),
    "tavrel_terminate_with_popup": (status, ()),
    "tavrel_frame_copy_pixels": (status, (POINTER(FrameStruct), enum, c_bool, c_void_p, c_int)),
    "tavrel_host_new": (status, (c_double, c_double, c_double, FRAME_CALLBACK, c_void_p, POINTER(handle))),
    "tavrel_host_current": (status, (POINTER(handle),)),
    "tavrel_host_free": (None, (handle,)),
    "tavrel_install_host": (status, (handle,)),
    "tavrel_host_screen_size": (status, (handle, POINTER(c_double), POINTER(c_double), POINTER(c_double))),
    "tavrel_host_resize": (status, (handle, c_double, c_double, c_double)),
    "tavrel_host_render_frame": (status, (handle, POINTER(FrameStruct))),
    "tavrel_host_render_png": (status, (handle, POINTER(c_void_p), POINTER(c_size_t))),
    "tavrel_host_write_png": (status, (handle, c_char_p)),
    "tavrel_host_fingers_down": (status, (handle,) + _fingers),
    "tavrel_host_fingers_moved": (status, (handle,) + _fingers),
    "tavrel_host_fingers_up": (status, (handle,) + _fingers),
    "tavrel_host_fingers_cancelled": (status, (handle,) + _fingers),
    "tavrel_host_type_text": (status, (handle, c_char_p, POINTER(c_bool))),
    "tavrel_host_press_return": (status, (handle, POINTER(c_bool))),
    "tavrel_host_press_backspace": (status, (handle, POINTER(c_bool))),
    "tavrel_host_tap_element": (status, (handle, c_char_p, POINTER(c_bool))),
    "tavrel_host_is_covered": (status, (handle, POINTER(c_bool))),
    "tavrel_dump_view_tree": (status, (POINTER(c_void_p),)),
}
# Functions of the header this binding leaves out, with the reason (none today).
UNBOUND: dict[str, str] = {}

LIBRARY_NAME = "libtavrel_sdk.so.1"


class LibraryNotFoundError(OSError):
    """libtavrel_sdk could not be loaded from any of the places tried (named in the message)."""


def _candidates():
    """(description, path or None) in the order they are tried."""
    here = os.path.dirname(os.path.abspath(__file__))
    from_env = os.environ.get("TAVREL_SDK_LIB")
    yield "TAVREL_SDK_LIB" + ("" if from_env else " (not set)"), from_env or None
    bundled = sorted(glob.glob(os.path.join(here, "libtavrel_sdk.so*")))
    yield f"beside the package ({here})", bundled[0] if bundled else None
    try:
        libdir = subprocess.run(["pkg-config", "--variable=libdir", "tavrel_sdk_c"], capture_output=True, text=True,
                                timeout=10).stdout.strip()
    except (OSError, subprocess.SubprocessError):
        libdir = ""
    yield "pkg-config tavrel_sdk_c" + (f" ({libdir})" if libdir else " (no such package)"), \
        os.path.join(libdir, LIBRARY_NAME) if libdir else None
    yield f"the loader's path ({LIBRARY_NAME})", LIBRARY_NAME


def _declare(lib: ctypes.CDLL) -> ctypes.CDLL:
    for name, (result, parameters) in FUNCTIONS.items():
        function = getattr(lib, name)
        function.restype = result
        function.argtypes = parameters
    return lib


def load() -> ctypes.CDLL:
    """The library, declared. Raises LibraryNotFoundError naming every place tried."""
    tried = []
    for where, path in _candidates():
        if path is None:
            tried.append(where)
            continue
        try:
            return _declare(ctypes.CDLL(path))
        except OSError as error:
            tried.append(f"{where}: {error}")
    raise LibraryNotFoundError("libtavrel_sdk not found; tried " + "; ".join(tried))
