"""The tavrel package against the built library. The library's state is the process's, so the tests
run in the order written: refusals before any overlay exists, then a pygame window on SDL's dummy
driver with its overlay, then the validation against tavrel serve."""
import os
import shutil
import subprocess
import threading
import time

import pytest

from conftest import SOURCE, VALID_TOKEN

os.environ.setdefault("SDL_VIDEODRIVER", "dummy")
import pygame  # noqa: E402

import c_api  # noqa: E402
import tavrel  # noqa: E402
import tavrel.pygame  # noqa: E402
from tavrel import _native  # noqa: E402


def _c_type(ctype):
    """The C spelling a ctypes type stands for in tavrel.h ("pointer" for any address)."""
    simple = {None: "void", _native.c_int: "int", _native.c_double: "double", _native.c_bool: "bool",
              _native.c_size_t: "size_t", _native.c_char_p: "const char *", _native.c_void_p: "pointer",
              _native.c_uint32: "uint32_t", _native.c_char: "char"}
    if ctype in simple:
        return simple[ctype]
    for name, known in {**_native.CALLBACKS, **_native.STRUCTS}.items():
        if ctype is known:
            return name
    return _c_type(ctype._type_) + " *"  # POINTER(x)


def _matches(c, bound, enums):
    c, bound = (t.replace("const ", "").replace("_Bool", "bool") for t in (c, bound))
    if bound.startswith("pointer"):  # an opaque object, or data the binding hands over as an address
        return c.endswith("*" * (bound.count("*") + 1))
    return c == bound or (bound == "int" and c in enums)


def test_declarations_match_the_header_both_ways():
    api = c_api.load()
    header, bound = set(api["functions"]), set(_native.FUNCTIONS)
    assert header - bound - set(_native.UNBOUND) == set(), "declared in tavrel.h, not bound"
    assert bound - header == set(), "bound, not in tavrel.h"
    faults = []

    def check(what, c_types, bound_types):
        bound = [_c_type(t) for t in bound_types]
        if len(c_types) != len(bound) or not all(_matches(c, b, api["enums"]) for c, b in zip(c_types, bound)):
            faults.append(f"{what}: {c_types} bound as {bound}")

    for name, (result, parameters) in _native.FUNCTIONS.items():
        check(name, [api["functions"][name]["result"], *api["functions"][name]["params"]], [result, *parameters])
    for name, ctype in _native.CALLBACKS.items():
        check(name, [api["callbacks"][name]["result"], *api["callbacks"][name]["params"]],
              [ctype._restype_, *ctype._argtypes_])
    for name, struct in _native.STRUCTS.items():
        check(name, [t for _, t in api["structs"][name]], [t for _, t in struct._fields_])
        if [f for f, _ in struct._fields_] != [f for f, _ in api["structs"][name]]:
            faults.append(f"{name}: fields named otherwise")
    assert faults == []
    statuses = {value: name for name, value in api["enums"]["tavrel_status"].items()}
    assert {statuses[code] for code in tavrel._ERRORS} == {n for n in statuses.values() if "ERROR" in n}
    assert {f"TAVREL_PIXELS_{f.name}": f.value for f in tavrel.PixelFormat} == {
        k: v for k, v in api["enums"]["tavrel_pixel_format"].items() if "MAX" not in k}


def test_each_status_is_its_exception_with_the_line_logged():
    off_main = []
    tavrel.run_main_loop_for(0)  # this thread is the main thread
    thread = threading.Thread(target=lambda: off_main.append(_raised(tavrel.is_login_page_visible)))
    thread.start()
    thread.join()
    long_path = "/no/such/" + "d" * 300 + "/frame.png"  # a line longer than the first buffer
    with tavrel.Host(40, 30, 1) as host:
        cases = [
            (_raised(tavrel.show_touches), tavrel.NotReadyError, "tavrel_show_touches: "),
            (_raised(tavrel.set_documents_directory, None), tavrel.NullArgumentError, "tavrel_set_documents_directory: "),
            (_raised(tavrel.set_auth_token, "\udcff"), tavrel.InvalidUtf8Error, "tavrel_set_auth_token: "),
            (_raised(tavrel.run_main_loop_for, -1), tavrel.OutOfRangeError, "tavrel_run_main_loop_for: "),
            (_raised(tavrel.set_info_dictionary_json, "[]"), tavrel.InvalidArgumentError, "tavrel_set_info_dictionary_json"),
            (off_main[0], tavrel.WrongThreadError, "tavrel_is_login_page_visible: "),
            (_raised(host.write_png, long_path), tavrel.FailedError, "tavrel_host_write_png: "),
        ]
    for error, kind, line in cases:
        assert type(error) is kind and error.line.startswith(line) and str(error) == error.line, error
    assert long_path in cases[-1][0].line


def _raised(function, *arguments):
    try:
        function(*arguments)
    except tavrel.Error as error:
        return error
    return None


def test_non_ascii_text_both_ways():
    user_id = "Ünïcødé-日本語-ÿ-1234567890"
    tavrel.set_auth_token("t" * 24 + user_id)
    assert tavrel.get_user_id() == user_id


@pytest.fixture(scope="module")
def window():
    pygame.display.init()
    pygame.display.set_mode((800, 600))
    overlay = tavrel.pygame.Overlay()
    with tavrel.Screen() as screen:
        tavrel.initialise_overlay(screen, VALID_TOKEN)
        tavrel.show_touches()
        yield overlay


def test_fingers_follow_the_window_and_its_size(window):
    with pytest.raises(tavrel.TooLateError):
        tavrel.Host(40, 30).install()
    ground = (30, 90, 50)

    def mark_at(x, y, finger):
        surface = pygame.display.get_surface()
        size = surface.get_size()
        taken = window.handle_event(pygame.event.Event(pygame.FINGERDOWN, finger_id=finger, touch_id=1,
                                                       x=x / size[0], y=y / size[1], dx=0, dy=0, pressure=1))
        surface.fill(ground)
        window.draw()
        window.handle_event(pygame.event.Event(pygame.FINGERUP, finger_id=finger, touch_id=1, x=x / size[0],
                                               y=y / size[1], dx=0, dy=0, pressure=0))
        return taken, surface.get_at((x, y))[:3]

    taken, shown = mark_at(200, 300, 1)
    assert not taken and shown[0] > 150 and shown[2] > 150  # white at 2/3 over the ground
    assert pygame.display.get_surface().get_at((600, 300))[:3] == ground
    pygame.display.set_mode((640, 480))
    assert not window.handle_event(pygame.event.Event(pygame.VIDEORESIZE, w=640, h=480, size=(640, 480)))
    assert window.host.screen_size() == (640, 480, 1)
    taken, shown = mark_at(600, 440, 2)
    assert shown[0] > 150


def test_a_completion_comes_once_on_the_main_thread(serve):
    tavrel.set_trusted_certificates_file(serve["ca-file"])
    tavrel.set_service_base_url_for_testing(serve["base-url"])
    tavrel.set_auth_token(VALID_TOKEN)
    calls = []
    tavrel.validate(lambda ok: calls.append((ok, threading.get_ident())))
    end = time.monotonic() + 30
    while not calls and time.monotonic() < end:
        tavrel.run_main_loop_for(0.05)
    tavrel.run_main_loop_for(0.5)
    assert calls == [(True, threading.main_thread().ident)]

    # What a completion raises comes out of the loop that ran it.
    tavrel.validate(lambda ok: 1 / 0)
    with pytest.raises(ZeroDivisionError):
        while time.monotonic() < end + 30:
            tavrel.run_main_loop_for(0.05)
    assert len(calls) == 1


def test_installs_into_a_fresh_venv_and_names_what_it_tried(tmp_path):
    venv, package = tmp_path / "venv", tmp_path / "package"  # pip builds in the tree it is given: a copy
    shutil.copytree(os.path.join(SOURCE, "bindings", "python"), package,
                    ignore=shutil.ignore_patterns("build", "*.egg-info", "__pycache__"))
    # The system's pip serves the venv (--system-site-packages): no copy of pip to install first.
    subprocess.run(["/usr/bin/python3", "-m", "venv", "--system-site-packages", "--without-pip", str(venv)], check=True)
    python = str(venv / "bin" / "python")
    subprocess.run([python, "-m", "pip", "install", "-q", "--disable-pip-version-check", "--no-index",
                    "--no-build-isolation", str(package)], check=True, cwd=tmp_path)
    probe = "import tavrel; print(tavrel.__file__); print(tavrel.get_user_id())"
    run = subprocess.run([python, "-c", probe], capture_output=True, text=True, cwd=tmp_path)
    assert run.stdout.splitlines() == [str(venv / "lib" / "python3.11" / "site-packages" / "tavrel" / "__init__.py"),
                                       "no-user-id"], run.stderr

    nowhere = {k: v for k, v in os.environ.items() if k not in ("TAVREL_SDK_LIB", "LD_LIBRARY_PATH")}
    nowhere["PKG_CONFIG_PATH"] = nowhere["PKG_CONFIG_LIBDIR"] = str(tmp_path)
    run = subprocess.run([python, "-c", "import tavrel"], capture_output=True, text=True, cwd=tmp_path, env=nowhere)
    assert "LibraryNotFoundError: libtavrel_sdk not found; tried TAVREL_SDK_LIB (not set); beside the package" in run.stderr
    assert "pkg-config tavrel_sdk_c (no such package); the loader's path (libtavrel_sdk.so.1)" in run.stderr
