"""The library's state is the process's: the tests run in the order written, refusals before any overlay."""
import itertools
import os
import shutil
import struct
import subprocess
import sys
import threading
import time

import pytest

SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", ".."))
sys.path[:0] = [os.path.join(SOURCE, "bindings", "python"), os.path.join(SOURCE, "tests", "bindings")]
VALID_TOKEN = "A" * 48
os.environ.setdefault("SDL_VIDEODRIVER", "dummy")
import pygame  # noqa: E402

import c_api  # noqa: E402
import tavrel  # noqa: E402
import tavrel.pygame  # noqa: E402
from tavrel import _native  # noqa: E402


def _c_type(ctype):
    """The C spelling a ctypes type stands for in tavrel.h ("pointer" for any address)."""
    named = {None: "void", _native.c_int: "int", _native.c_double: "double", _native.c_bool: "bool",
             _native.c_size_t: "size_t", _native.c_char_p: "const char *", _native.c_void_p: "pointer",
             _native.c_uint32: "uint32_t", _native.c_char: "char",
             **{known: name for name, known in {**_native.CALLBACKS, **_native.STRUCTS}.items()}}
    return named[ctype] if ctype in named else _c_type(ctype._type_) + " *"  # else POINTER(x)


def _matches(c, bound, enums):
    c, bound = (t.replace("const ", "").replace("_Bool", "bool") for t in (c, bound))
    if bound.startswith("pointer"):  # an opaque object, or data the binding hands over as an address
        return c.endswith("*" * (bound.count("*") + 1))
    return c == bound or (bound == "int" and c in enums)


def test_declarations_match_the_header_both_ways():
    api = c_api.load()
    bound = {"functions": {name: [[result, *parameters]] for name, (result, parameters) in _native.FUNCTIONS.items()},
             "callbacks": {name: [[t._restype_, *t._argtypes_]] for name, t in _native.CALLBACKS.items()},
             "structs": {name: [[t for _, t in s._fields_]] for name, s in _native.STRUCTS.items()}}
    api["functions"] = {name: f for name, f in api["functions"].items() if name not in _native.UNBOUND}
    assert c_api.compare(api, bound, lambda _, __, c, t: _matches(c, _c_type(t), api["enums"])) == []
    assert {name: [f for f, _ in s._fields_] for name, s in _native.STRUCTS.items()} == {
        name: [f for f, _ in fields] for name, fields in api["structs"].items()}
    # Each error status raises its own class, named after it.
    assert {code: error.__name__ for code, error in tavrel._ERRORS.items()} == {
        value: name.title().replace("_", "").replace("TavrelError", "") + "Error"
        for name, value in api["enums"]["tavrel_status"].items() if "ERROR" in name}
    assert {f"TAVREL_PIXELS_{f.name}": f.value for f in tavrel.PixelFormat} == {
        k: v for k, v in api["enums"]["tavrel_pixel_format"].items() if "MAX" not in k}


def test_text_both_ways_and_a_refusal_with_the_line_logged():
    long_path = "/no/such/" + "d" * 198 + "/frame.png"  # a line of 256 bytes, the first buffer's size
    with tavrel.Host(40, 30, 1) as host, pytest.raises(tavrel.FailedError) as failed:
        host.write_png(long_path)
    assert str(failed.value) == failed.value.line == "tavrel_host_write_png: could not write " + long_path
    # A string with no UTF-8 form goes through as its bytes, for the library to refuse.
    with pytest.raises(tavrel.InvalidUtf8Error):
        tavrel.set_auth_token("\udcff")
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
    ground = (30, 90, 50)

    def mark_at(x, y):
        surface = pygame.display.get_surface()
        finger = {"finger_id": x, "x": x / surface.get_width(), "y": y / surface.get_height()}
        taken = window.handle_event(pygame.event.Event(pygame.FINGERDOWN, finger))
        surface.fill(ground)
        window.draw()
        window.handle_event(pygame.event.Event(pygame.FINGERUP, finger))
        return taken, surface.get_at((x, y))[:3]

    taken, shown = mark_at(200, 300)
    assert not taken and shown[0] > 150 and shown[2] > 150  # white at 2/3 over the ground
    assert pygame.display.get_surface().get_at((600, 300))[:3] == ground
    pygame.display.set_mode((640, 480))
    assert not window.handle_event(pygame.event.Event(pygame.VIDEORESIZE, w=640, h=480, size=(640, 480)))
    assert window.host.screen_size() == (640, 480, 1)
    assert mark_at(600, 440)[1][0] > 150


@pytest.fixture(scope="module")
def serve():
    """tavrel serve on 127.0.0.1 that accepts VALID_TOKEN, and its start lines before the launch URL by name."""
    with subprocess.Popen([os.environ["TAVREL_TOOL"], "serve", "--token", VALID_TOKEN], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True) as process:
        lines = itertools.takewhile(lambda line: not line.startswith("launch-url: "), process.stdout)
        yield dict(line.rstrip("\n").split(": ", 1) for line in lines)
        process.terminate()


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
    probe = [python, "-c", "import tavrel; print(tavrel.__file__, tavrel.get_user_id())"]
    run = subprocess.run(probe, capture_output=True, text=True, cwd=tmp_path)
    assert run.stdout == f"{venv}/lib/python3.11/site-packages/tavrel/__init__.py no-user-id\n", run.stderr

    nowhere = {k: v for k, v in os.environ.items() if k not in ("TAVREL_SDK_LIB", "LD_LIBRARY_PATH")}
    nowhere["PKG_CONFIG_PATH"] = nowhere["PKG_CONFIG_LIBDIR"] = str(tmp_path)
    run = subprocess.run(probe, capture_output=True, text=True, cwd=tmp_path, env=nowhere)
    assert "LibraryNotFoundError: libtavrel_sdk not found; tried TAVREL_SDK_LIB (not set); beside the package" in run.stderr
    assert "pkg-config tavrel_sdk_c (no such package); the loader's path (libtavrel_sdk.so.1)" in run.stderr


def test_the_login_page_example_writes_the_page(tmp_path):
    png = tmp_path / "login.png"
    subprocess.run([sys.executable, os.path.join(SOURCE, "examples", "python", "login_page.py"), "-o", str(png),
                    "--size", "320x480", "--scale", "1.5"], check=True, timeout=60,
                   env=dict(os.environ, PYTHONPATH=os.path.join(SOURCE, "bindings", "python")))
    data = png.read_bytes()
    assert data[12:16] == b"IHDR" and struct.unpack(">II", data[16:24]) == (480, 720)  # 320 x 480 points at 1.5
    assert len(data) >= 100_000, "an empty frame packs into a few kilobytes: no page drawn"
