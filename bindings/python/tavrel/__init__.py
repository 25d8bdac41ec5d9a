"""tavrel_sdk for Python games: a watermark and touch marks over the game, the session recorded and
uploaded, and a login gate, through libtavrel_sdk's C interface.

    import tavrel
    tavrel.set_info_dictionary_json('{"CFBundleURLTypes": [{"CFBundleURLSchemes": ["mygame"]}]}')
    with tavrel.Screen() as screen:            # kept while the game runs
        tavrel.initialise_overlay(screen, token)
        tavrel.show_watermark()
        tavrel.show_touches()
        tavrel.validate(lambda ok: ...)        # called with True only, on this thread
        tavrel.process_url_request(launch_url)
        while playing:
            ...                                # the game's frame
            tavrel.run_main_loop_for(1 / 60)   # timers, pages, and the completions, run here

Text goes in and comes out as str (UTF-8 in the library). A refused call raises a subclass of
tavrel.Error carrying the line the library logged. Completions and log lines reach Python only on
the main thread (the one that runs run_main_loop_for), from inside run_main_loop_for or the call
that caused them; an exception a completion raises comes out of that call.

The library is found in this order: $TAVREL_SDK_LIB, a copy beside this package, pkg-config's
tavrel_sdk_c, the loader's path.
"""
from __future__ import annotations

import ctypes
import enum
import os
import struct
import threading
from ctypes import byref, c_bool, c_char, c_double, c_size_t, c_void_p
from typing import Callable, Dict, Iterable, NamedTuple, Optional, Sequence, Tuple, Union

from . import _native
from ._native import LibraryNotFoundError

__all__ = [
    "Error", "NullArgumentError", "InvalidUtf8Error", "OutOfRangeError", "InvalidArgumentError", "WrongThreadError",
    "NotReadyError", "TooLateError", "FailedError", "LibraryNotFoundError", "PixelFormat", "Rect", "Frame", "Host",
    "Screen", "set_documents_directory", "set_info_dictionary_json", "set_trusted_certificates_file",
    "set_service_base_url_for_testing", "set_log_callback", "set_log_to_stderr", "last_error", "run_main_loop_for",
    "set_auth_token", "get_timestamp", "get_user_id", "process_url_request", "set_view_controller", "show_overlay",
    "initialise_overlay", "show_touches", "show_watermark", "validate", "show_login_page", "dismiss_login_page",
    "is_login_page_visible", "emit_game_event", "emit_input_event", "terminate", "terminate_with_popup",
    "dump_view_tree",
]

_lib = _native.load()
# Completions and log lines from the library's threads wait for the game's loop: Python is
# entered only on the thread that runs it.
_lib.tavrel_set_callback_delivery(1)

Text = Union[str, "os.PathLike[str]"]


# ---- Errors --------------------------------------------------------------------------------

class Error(Exception):
    """A call the library refused, or whose work failed. `status` is the tavrel_status code,
    `line` the line the library logged ("function: problem")."""

    def __init__(self, status: int, line: str) -> None:
        super().__init__(line or _lib.tavrel_status_text(status).decode())
        self.status = status
        self.line = line


class NullArgumentError(Error, TypeError):
    """None where the library needs a value."""


class InvalidUtf8Error(Error, ValueError):
    """Text that is not valid UTF-8 (a str holding surrogate escapes of undecodable bytes)."""


class OutOfRangeError(Error, ValueError):
    """A number or size out of its range."""


class InvalidArgumentError(Error, ValueError):
    """A value of the right type that cannot be used (text that is not a JSON object...)."""


class WrongThreadError(Error, RuntimeError):
    """A main-thread function called on another thread."""


class NotReadyError(Error, RuntimeError):
    """A call before the set-up it needs (show_touches before the overlay exists)."""


class TooLateError(Error, RuntimeError):
    """A call after its moment (a host installed once a screen is shown)."""


class FailedError(Error, RuntimeError):
    """A right call whose work failed (a file that could not be written)."""


_ERRORS = {-1: NullArgumentError, -2: InvalidUtf8Error, -3: OutOfRangeError, -4: InvalidArgumentError,
           -5: WrongThreadError, -6: NotReadyError, -7: TooLateError, -8: FailedError}


def _raise(status: int) -> None:
    raise _ERRORS.get(status, Error)(status, last_error())


# ---- Text both ways ------------------------------------------------------------------------

def _encode(text: Optional[Text]) -> Optional[bytes]:
    # Surrogate escapes (undecodable bytes of a file name) go through as those bytes, which the
    # library then refuses as invalid UTF-8 rather than this side guessing.
    return None if text is None else os.fspath(text).encode("utf-8", "surrogateescape")


def _text_out(function: Callable[..., int], size: int = 256) -> str:
    buffer = ctypes.create_string_buffer(size)
    length = function(buffer, size)
    if length < 0:
        _raise(length)
    if length >= size:  # cut: ask again with room for all of it
        return _text_out(function, length + 1)
    return buffer.raw[:length].decode("utf-8", "replace")


def _taken_bytes(address: c_void_p, size: int) -> bytes:
    """Copies memory the library handed out, then gives it back."""
    try:
        return ctypes.string_at(address, size)
    finally:
        _lib.tavrel_free(address)


# ---- Callbacks -----------------------------------------------------------------------------

# Every completion handed to the library stays referenced for the life of the process: a
# validation's is called again for each later launch URL with a valid token.
_kept: list = []
# The first exception a callback raised, by thread, for the call it ran inside to raise.
_pending: Dict[int, BaseException] = {}


def _hand_over(error: BaseException) -> None:
    _pending.setdefault(threading.get_ident(), error)


def _check_pending() -> None:
    error = _pending.pop(threading.get_ident(), None)
    if error is not None:
        raise error


def _completion(function: Optional[Callable[[bool], None]]) -> _native.COMPLETION:
    if function is None:
        return _native.COMPLETION()

    def call(ok: bool, _user: Optional[int]) -> None:
        try:
            function(bool(ok))
        except BaseException as error:  # noqa: B902 - handed to the caller, never lost in ctypes
            _hand_over(error)

    kept = _native.COMPLETION(call)
    _kept.append(kept)
    return kept


_log_callback = _native.LOG_CALLBACK()


def set_log_callback(callback: Optional[Callable[[str], None]]) -> None:
    """Receives every line the library logs, without its line feed, on the main thread (lines
    from other threads wait for run_main_loop_for). None removes it."""
    global _log_callback
    if callback is None:
        new = _native.LOG_CALLBACK()
    else:
        def call(line: bytes, _user: Optional[int]) -> None:
            try:
                callback(line.decode("utf-8", "replace"))
            except BaseException as error:  # noqa: B902
                _hand_over(error)
        new = _native.LOG_CALLBACK(call)
    _lib.tavrel_set_log_callback(new, None)
    _log_callback = new  # the old one is released only once the library no longer holds it


def set_log_to_stderr(enabled: bool) -> None:
    """Whether the library's lines also go to stderr (they do by default)."""
    _lib.tavrel_set_log_to_stderr(enabled)


def last_error() -> str:
    """The line of the last refused or failed call on this thread ("" when none)."""
    return _text_out(_lib.tavrel_last_error)


# ---- Set-up --------------------------------------------------------------------------------

def _call(function: Callable[..., int], *arguments) -> None:
    status = function(*arguments)
    if status:
        _raise(status)
    if _pending:
        _check_pending()


def set_documents_directory(path: Text) -> None:
    """The directory of the event files, created (mode 0700) now. Any thread."""
    _call(_lib.tavrel_set_documents_directory, _encode(path))


def set_info_dictionary_json(json: str) -> None:
    """The game's Info dictionary as JSON text: the login page reads the game's URL scheme from
    its CFBundleURLTypes. Any thread."""
    _call(_lib.tavrel_set_info_dictionary_json, _encode(json))


def set_trusted_certificates_file(pem_path: Text) -> None:
    """Tests and local integration only: the only certificate authorities trusted ("" for the
    system's store)."""
    _call(_lib.tavrel_set_trusted_certificates_file, _encode(pem_path))


def set_service_base_url_for_testing(base_url: str) -> None:
    """Tests and local integration only: the service's base URL (a mock on 127.0.0.1)."""
    _call(_lib.tavrel_set_service_base_url_for_testing, _encode(base_url))


def run_main_loop_for(seconds: float) -> None:
    """Runs the library's main loop for `seconds` (0 to 3600): its timers, pages and alerts, and
    the completions and log lines waiting for this thread. Call it once per frame. The first
    call fixes the main thread."""
    _call(_lib.tavrel_run_main_loop_for, seconds)


# ---- The game's calls ----------------------------------------------------------------------

def set_auth_token(token: Optional[str]) -> None:
    """A token of 48 characters or more is kept, its characters 24 to 47 become the user id;
    a shorter one, or None, clears it. Any thread."""
    _call(_lib.tavrel_set_auth_token, _encode(token))


def get_timestamp() -> str:
    """The local time as the watermark shows it, e.g. "2026:03:09T14:05:33+01:00". Any thread."""
    return _text_out(_lib.tavrel_get_timestamp)


def get_user_id() -> str:
    """The user id from the token ("no-user-id" without one). Any thread."""
    return _text_out(_lib.tavrel_get_user_id)


def process_url_request(url: str) -> None:
    """A URL the game was opened with: a launch URL starts recording, replaces the token and
    validates again if validate() was called; any other URL is ignored. Any thread."""
    _call(_lib.tavrel_process_url_request, _encode(url))


def set_view_controller(screen: Optional["Screen"]) -> None:
    """The screen that presents the login page and alerts (None: the last screen made)."""
    _call(_lib.tavrel_set_view_controller, screen)


def show_overlay(screen: Optional["Screen"] = None) -> None:
    """Makes the one overlay over the screen; a second call changes nothing."""
    _call(_lib.tavrel_show_overlay, screen)


def initialise_overlay(screen: Optional["Screen"], token: Optional[str]) -> None:
    """set_auth_token(token), then show_overlay(screen); once the overlay exists, nothing."""
    _call(_lib.tavrel_initialise_overlay, screen, _encode(token))


def show_touches() -> None:
    """The marks under the fingers (NotReadyError before the overlay exists)."""
    _call(_lib.tavrel_show_touches)


def show_watermark() -> None:
    """The moving watermark (NotReadyError before the overlay exists)."""
    _call(_lib.tavrel_show_watermark)


def validate(completion: Optional[Callable[[bool], None]] = None) -> None:
    """Asks the service about the token. A yes takes any login page away and calls
    completion(True); anything else presents the login page, and a login there calls it. It
    is never called with False, is called again for each later launch URL whose token is
    valid, and always on the main thread. Any thread."""
    _call(_lib.tavrel_validate, _completion(completion), None)


def show_login_page(completion: Optional[Callable[[bool], None]] = None) -> None:
    """Presents a login page; an accepted login calls completion(True) on the main thread."""
    _call(_lib.tavrel_show_login_page, _completion(completion), None)


def dismiss_login_page() -> None:
    """Takes a visible login page away without animation. Any thread."""
    _call(_lib.tavrel_dismiss_login_page)


def is_login_page_visible() -> bool:
    """Whether a login page is presented over the game."""
    visible = c_bool()
    _call(_lib.tavrel_is_login_page_visible, byref(visible))
    return visible.value


def emit_game_event(data: str, name: str) -> None:
    """Appends {"a": data, "e": name, "t": ms} to the game event file once recording runs (the
    text goes in unchanged: no quotes, backslashes or line breaks). Any thread."""
    _call(_lib.tavrel_emit_game_event, _encode(data), _encode(name))


_packers: dict = {}
_emit_input = _lib.tavrel_emit_input_event


def emit_input_event(words: Sequence[int]) -> None:
    """Appends one record to the input event file through the rate limit: words[0] is the
    number of words after it. Any thread."""
    count = len(words)
    pack = _packers.get(count)
    if pack is None:
        pack = _packers[count] = struct.Struct(f"={count}i").pack
    status = _emit_input(pack(*words), count)
    if status:
        _raise(status)


def terminate() -> None:
    """Ends the process with status 255 at once."""
    _lib.tavrel_terminate()


def terminate_with_popup() -> None:
    """Presents an alert whose "OK" ends the process; refused while a page is presented."""
    _call(_lib.tavrel_terminate_with_popup)


def dump_view_tree() -> str:
    """The key window's view tree as JSON text."""
    json = c_void_p()
    _call(_lib.tavrel_dump_view_tree, byref(json))
    return _taken_bytes(json, len(ctypes.string_at(json))).decode("utf-8", "replace")


# ---- The screen ----------------------------------------------------------------------------

class _Object:
    """A reference to one of the library's objects, released by close() or at the end of `with`."""
    _free: Callable[[c_void_p], None]

    def __init__(self, handle: c_void_p) -> None:
        self._as_parameter_ = handle

    def close(self) -> None:
        """Releases this reference (the library keeps its own where it still needs the object)."""
        handle, self._as_parameter_ = self._as_parameter_, c_void_p()
        if handle:
            type(self)._free(handle)

    def __enter__(self):
        return self

    def __exit__(self, *_exception) -> None:
        self.close()


class Screen(_Object):
    """The game's screen: the key window, over which the overlay lies and from which the login
    page and alerts are presented. Make it after installing a host; keep it while the game runs."""
    _free = _lib.tavrel_screen_free

    def __init__(self) -> None:
        handle = c_void_p()
        _call(_lib.tavrel_screen_new, byref(handle))
        super().__init__(handle)


# ---- The host: frames out, input in ----------------------------------------------------------

class PixelFormat(enum.IntEnum):
    """How a caller's buffer holds pixels."""
    BGRA_PREMULTIPLIED = 0
    RGBA_PREMULTIPLIED = 1
    RGBA_STRAIGHT = 2


class Rect(NamedTuple):
    x: int
    y: int
    width: int
    height: int


class Frame:
    """A frame the host rendered: the library's views, premultiplied, the screen's size times
    its scale. Valid until the host renders again."""

    def __init__(self, frame: _native.FrameStruct) -> None:
        self._frame = frame
        self.width: int = frame.width
        self.height: int = frame.height
        self.stride: int = frame.stride
        self.scale: float = frame.scale
        self.damage_count: int = frame.damage_count

    @property
    def damage(self) -> list:
        """The rectangles drawn again since the last frame, in pixels (all of it the first time)."""
        frame = self._frame
        return [Rect(r.x, r.y, r.width, r.height) for r in frame.damage[:frame.damage_count]]

    def copy_pixels(self, buffer, format: PixelFormat = PixelFormat.RGBA_PREMULTIPLIED, whole: bool = False,
                    stride: Optional[int] = None) -> None:
        """Copies the damaged rectangles (all of the frame when `whole`) into `buffer`, converted
        to `format`: a writable buffer (bytearray, memoryview, ctypes array) or an address, of
        the frame's size with `stride` bytes a row (width * 4 by default). A buffer kept from
        frame to frame always holds the latest frame."""
        if not isinstance(buffer, int):
            buffer = ctypes.addressof((c_char * memoryview(buffer).nbytes).from_buffer(buffer))
        _call(_lib.tavrel_frame_copy_pixels, byref(self._frame), format, whole, buffer,
              self.width * 4 if stride is None else stride)


Finger = Tuple[int, float, float]


class Host(_Object):
    """A screen of width x height points at `scale` whose frames the game lays over its own.
    Install it (install()) before making the Screen. on_frame, if given, receives each Frame
    during render_frame()."""
    _free = _lib.tavrel_host_free

    def __init__(self, width: float, height: float, scale: float = 1.0,
                 on_frame: Optional[Callable[[Frame], None]] = None, *, _handle: Optional[c_void_p] = None) -> None:
        if _handle is None:
            callback = _native.FRAME_CALLBACK()
            if on_frame is not None:
                def call(frame, _user):
                    try:
                        on_frame(Frame(frame.contents))
                    except BaseException as error:  # noqa: B902
                        _hand_over(error)
                callback = _native.FRAME_CALLBACK(call)
            self._on_frame = callback
            _handle = c_void_p()
            _call(_lib.tavrel_host_new, width, height, scale, callback, None, byref(_handle))
        super().__init__(_handle)
        self._frame = _native.FrameStruct()
        self._taken = c_bool()

    @classmethod
    def current(cls) -> "Host":
        """A reference to the installed host (the headless default when none was installed)."""
        handle = c_void_p()
        _call(_lib.tavrel_host_current, byref(handle))
        return cls(0, 0, _handle=handle)

    def install(self) -> "Host":
        """Makes this the library's screen; before any Screen is made (TooLateError after)."""
        _call(_lib.tavrel_install_host, self)
        return self

    def screen_size(self) -> Tuple[float, float, float]:
        """(width, height) in points and the scale."""
        width, height, scale = c_double(), c_double(), c_double()
        _call(_lib.tavrel_host_screen_size, self, byref(width), byref(height), byref(scale))
        return width.value, height.value, scale.value

    def resize(self, width: float, height: float, scale: float = 1.0) -> None:
        """The screen changed size or scale: everything is laid out again, and the next frame is
        drawn whole."""
        _call(_lib.tavrel_host_resize, self, width, height, scale)

    def render_frame(self) -> Frame:
        """Draws what changed since the last frame and returns the frame."""
        _call(_lib.tavrel_host_render_frame, self, byref(self._frame))
        return Frame(self._frame)

    def render_png(self) -> bytes:
        """Renders, then the whole frame as a PNG (straight alpha)."""
        data, size = c_void_p(), c_size_t()
        _call(_lib.tavrel_host_render_png, self, byref(data), byref(size))
        return _taken_bytes(data, size.value)

    def write_png(self, path: Text) -> None:
        """Renders, then writes the whole frame as a PNG file."""
        _call(_lib.tavrel_host_write_png, self, _encode(path))

    def _fingers(self, function, fingers: Iterable[Finger]) -> bool:
        array = [_native.Finger(*finger) for finger in fingers]
        _call(function, self, (_native.Finger * len(array))(*array), len(array), byref(self._taken))
        return self._taken.value

    def fingers_down(self, fingers: Iterable[Finger]) -> bool:
        """Fingers (id, x, y in points) down, as one set; True when the library's own views took
        them (a page or alert: the game ignores them)."""
        return self._fingers(_lib.tavrel_host_fingers_down, fingers)

    def fingers_moved(self, fingers: Iterable[Finger]) -> bool:
        """As fingers_down, for fingers that moved."""
        return self._fingers(_lib.tavrel_host_fingers_moved, fingers)

    def fingers_up(self, fingers: Iterable[Finger]) -> bool:
        """As fingers_down, for fingers lifted."""
        return self._fingers(_lib.tavrel_host_fingers_up, fingers)

    def fingers_cancelled(self, fingers: Iterable[Finger]) -> bool:
        """As fingers_down, for touches the system cancelled."""
        return self._fingers(_lib.tavrel_host_fingers_cancelled, fingers)

    def type_text(self, text: str) -> bool:
        """Text for the focused field of a page; False when no field has the focus."""
        _call(_lib.tavrel_host_type_text, self, _encode(text), byref(self._taken))
        return self._taken.value

    def press_return(self) -> bool:
        """Return for the focused field; False when no field has the focus."""
        _call(_lib.tavrel_host_press_return, self, byref(self._taken))
        return self._taken.value

    def press_backspace(self) -> bool:
        """Backspace for the focused field; False when no field has the focus."""
        _call(_lib.tavrel_host_press_backspace, self, byref(self._taken))
        return self._taken.value

    def tap_element(self, text: str) -> bool:
        """For scripts and tests: a tap on the frontmost element showing `text`; False if none."""
        _call(_lib.tavrel_host_tap_element, self, _encode(text), byref(self._taken))
        return self._taken.value

    def is_covered(self) -> bool:
        """Whether a login page or an alert covers the game (its input is then ignored)."""
        _call(_lib.tavrel_host_is_covered, self, byref(self._taken))
        return self._taken.value
