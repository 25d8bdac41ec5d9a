/*
 * tavrel.h: the tavrel_sdk library from C, and from any language or engine that reaches a
 * native library through a C ABI (C#, Rust, Python's ctypes, Lua, Godot, Unity plugins).
 *
 * C99 and C11; includable from C++. Every name starts with tavrel_ (types, functions) or
 * TAVREL_ (macros, constants). Each function forwards to the library's C++ classes
 * (TavrelSDK, Platform, UIHost), so behaviour is the same whichever interface a game uses.
 *
 * Conventions
 * - Status: a function that can be misused returns a tavrel_status: TAVREL_OK (0), or a
 *   negative code, and then it has logged one line that names the function and the problem
 *   (to stderr and to a tavrel_set_log_callback() callback); a refusal (any code but
 *   TAVREL_ERROR_FAILED) has changed nothing.
 *   tavrel_status_text() turns a code into text. No C++ exception ever leaves a function.
 * - Strings in: NUL-terminated UTF-8, copied before the call returns; the caller keeps
 *   ownership. A string that is not valid UTF-8 is refused with TAVREL_ERROR_INVALID_UTF8.
 * - Strings out: into the caller's buffer with snprintf's convention: the return is the
 *   length in bytes of the whole text without its NUL; at most size - 1 bytes are written,
 *   then a NUL, when size > 0 (as with snprintf, a cut is by bytes); a NULL buffer with size
 *   0 asks for the length only. Larger results (the view tree, a PNG) come in memory the
 *   library allocates; release it with tavrel_free().
 * - Objects: opaque, made by a _new function that hands out one reference, released by the
 *   matching _free (NULL is accepted and ignored). The library keeps its own references to
 *   what it still uses (an installed host, the screen the overlay lies on).
 * - Callbacks: a function pointer and a void *user_data given back unchanged. The user data
 *   must stay valid for as long as the callback may be called.
 * - Threads: "any thread" or "main thread" on each function. The main thread is the thread
 *   that runs the main loop (tavrel_run_main_loop_for()): the first call of a main-thread
 *   function, or of the main loop, fixes it for the rest of the process; from then on a
 *   main-thread function called on another thread returns TAVREL_ERROR_WRONG_THREAD.
 *   Everything a player sees runs on the main thread.
 * - Nothing is torn down: the library's state, its timers and its upload thread live until
 *   the process ends.
 *
 * A game in C, as in the README's C++ snippet:
 *
 *   tavrel_set_info_dictionary_json(
 *       "{\"CFBundleURLTypes\": [{\"CFBundleURLSchemes\": [\"mygame\"]}]}");
 *   tavrel_screen *screen = NULL;
 *   tavrel_screen_new(&screen);                    // kept while the game runs
 *   tavrel_initialise_overlay(screen, token);      // 48 characters or more
 *   tavrel_show_watermark();
 *   tavrel_show_touches();
 *   tavrel_validate(on_validated, game);           // called with true only
 *   tavrel_process_url_request(launch_url);        // each time the game is opened through a URL
 *   tavrel_emit_game_event("level-1", "start");    // during play, any thread
 *   for (;;) tavrel_run_main_loop_for(1.0 / 60);   // the library's timers and main-queue work
 *
 * A game that draws for itself installs a host before it makes the screen (so before any
 * view exists): one it makes here with tavrel_host_new(), or one a host library makes (an
 * OpenGL or Vulkan compositor), then tavrel_install_host(). See "The host" below.
 */
#ifndef TAVREL_SDK_TAVREL_H
#define TAVREL_SDK_TAVREL_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/*
 * TAVREL_C_API marks each function of this header; the library is built with hidden
 * visibility and exports only what carries it. A host library that adds C functions of its
 * own (its own header, its own shared library) may mark them with TAVREL_C_API too: on ELF it
 * only gives a symbol default visibility in the library that defines it. TAVREL_C_BEGIN and
 * TAVREL_C_END wrap declarations in extern "C" for C++ compilers.
 */
#if defined(__GNUC__) || defined(__clang__)
#define TAVREL_C_API __attribute__((visibility("default")))
#else
#define TAVREL_C_API
#endif

#ifdef __cplusplus
#define TAVREL_C_BEGIN extern "C" {
#define TAVREL_C_END }
#else
#define TAVREL_C_BEGIN
#define TAVREL_C_END
#endif

TAVREL_C_BEGIN

/* ---- Status ----------------------------------------------------------------------------- */

typedef enum tavrel_status {
  TAVREL_OK = 0,
  /* NULL where a pointer is needed. */
  TAVREL_ERROR_NULL_ARGUMENT = -1,
  /* A string that is not valid UTF-8. */
  TAVREL_ERROR_INVALID_UTF8 = -2,
  /* A number or size out of its range: a count of 0, a screen size or scale, a time. */
  TAVREL_ERROR_OUT_OF_RANGE = -3,
  /* An argument of the right type that cannot be used: Info dictionary text that is not a
     JSON object, an input event whose first word is not its length less one; for a host
     library's own functions, a host of another kind. */
  TAVREL_ERROR_INVALID_ARGUMENT = -4,
  /* A main-thread function called on another thread. */
  TAVREL_ERROR_WRONG_THREAD = -5,
  /* A call before the set-up it needs (tavrel_show_touches before the overlay exists). */
  TAVREL_ERROR_NOT_READY = -6,
  /* A call after the moment it was meant for (a host installed once a screen is shown). */
  TAVREL_ERROR_TOO_LATE = -7,
  /* A right call whose work failed (a file that could not be written, memory). */
  TAVREL_ERROR_FAILED = -8,
  /* Not a status: makes the type as wide as an int, so codes added later fit any caller. */
  TAVREL_STATUS_MAX_ENUM = 0x7fffffff
} tavrel_status;

/* Any thread. A static English text for the code, e.g. "null argument"; "unknown status" for
   a value outside the enum. Never NULL. */
TAVREL_C_API const char *tavrel_status_text(tavrel_status status);

/* Any thread. Releases memory this library allocated for the caller (tavrel_dump_view_tree,
   tavrel_host_render_png). NULL is ignored. */
TAVREL_C_API void tavrel_free(void *memory);

/* The library's version, as exported since 1.0 (the same symbols the C++ headers declare). */
TAVREL_C_API extern const double tavrel_sdkVersionNumber;
TAVREL_C_API extern const unsigned char tavrel_sdkVersionString[];

/* ---- Set-up: before the session starts -------------------------------------------------- */

/* Any thread. The directory of the event files; created (mode 0700) when set. Default:
   $TAVREL_DOCUMENTS, else $XDG_DATA_HOME/tavrel_sdk/Documents. */
TAVREL_C_API tavrel_status tavrel_set_documents_directory(const char *path);

/* Any thread. The game's Info dictionary as JSON text, a JSON object; the login page reads
   the game's URL scheme from its CFBundleURLTypes.
   TAVREL_ERROR_INVALID_ARGUMENT for text that is not a JSON object. */
TAVREL_C_API tavrel_status tavrel_set_info_dictionary_json(const char *json);

/* Any thread. For tests and local integration only (a mock service on 127.0.0.1); a shipped
   game never calls these. The PEM file of the only certificate authorities trusted (an empty
   string: the system's store), and the service's base URL. */
TAVREL_C_API tavrel_status tavrel_set_trusted_certificates_file(const char *pem_path);
TAVREL_C_API tavrel_status tavrel_set_service_base_url_for_testing(const char *base_url);

/* Any thread. Receives every line the library logs, without its line feed, on the thread
   that logs it (the line is valid during the call only). NULL removes the callback. The
   lines go to stderr as well unless tavrel_set_log_to_stderr(false). */
typedef void (*tavrel_log_callback)(const char *line, void *user_data);
TAVREL_C_API void tavrel_set_log_callback(tavrel_log_callback callback, void *user_data);
TAVREL_C_API void tavrel_set_log_to_stderr(bool enabled);

/* Any thread. The line the last refused or failed call on this thread logged, as
   "function: problem", into buffer with snprintf's convention ("" when none has failed on this
   thread; a later success leaves it). For bindings that raise an error carrying the line
   without a log callback of their own. */
TAVREL_C_API int tavrel_last_error(char *buffer, size_t size);

/* Where completions and log lines reach the game. */
typedef enum tavrel_callback_delivery {
  /* Where they arise: a valid token's completion on the URL session's thread, a log line on
     the thread that logs it. The default, as for C and C++ games. */
  TAVREL_DELIVER_WHERE_THEY_ARISE = 0,
  /* On the main thread, from the game's own loop: a completion, and a log line logged on
     another thread, are queued and called inside tavrel_run_main_loop_for() (a line logged on
     the main thread is delivered at once). For runtimes that must never be entered from a
     thread they do not know (C#, Python, Lua). */
  TAVREL_DELIVER_ON_MAIN_LOOP = 1,
  TAVREL_CALLBACK_DELIVERY_MAX_ENUM = 0x7fffffff
} tavrel_callback_delivery;

/* Any thread. Chooses the delivery for every later call of a completion or the log callback
   (one already queued stays queued). TAVREL_ERROR_OUT_OF_RANGE for another value. */
TAVREL_C_API tavrel_status tavrel_set_callback_delivery(tavrel_callback_delivery delivery);

/* Main thread (the call fixes it). Runs the library's main loop for `seconds` (0 to 3600,
   finite): its main-queue work (login page, alerts, replies that lead to views) and timers
   (watermark ticks, the re-login timer) run inside this call. A game calls it once per
   frame of its own loop, e.g. with 1.0 / 60, or 0 to run only what is due. */
TAVREL_C_API tavrel_status tavrel_run_main_loop_for(double seconds);

/* ---- The screen ------------------------------------------------------------------------- */

/* The game's screen: a window, made the key window, whose root view controller's view stands
   for the game. The overlay lies over it; the login page and alerts are presented from it. */
typedef struct tavrel_screen tavrel_screen;

/* Main thread. Makes the screen at the installed host's size and shows it: the key window
   and the application's window, whose root controller a NULL screen stands for below. *out
   receives one reference; keep it while the game runs. */
TAVREL_C_API tavrel_status tavrel_screen_new(tavrel_screen **out);
/* Main thread. Releases the caller's reference; the application keeps its window, and the
   library the controller the overlay and pages use. NULL is ignored. */
TAVREL_C_API void tavrel_screen_free(tavrel_screen *screen);

/* ---- The game's calls ------------------------------------------------------------------- */

/* Called with true when the session may go on. */
typedef void (*tavrel_completion)(bool ok, void *user_data);

/* Any thread. A token of 48 characters or more is kept and its characters 24 to 47 become the
   user id; a shorter one, or NULL, clears it (the user id goes back to "no-user-id"). */
TAVREL_C_API tavrel_status tavrel_set_auth_token(const char *token);

/* Any thread. The current local time as "yyyy:MM:dd'T'HH:mm:ssXXX"
   (2026:03:09T14:05:33+01:00), and the user id ("no-user-id" without a token), into
   buffer with snprintf's convention: returns the length of the whole text (so a caller can
   size the buffer), or TAVREL_ERROR_NULL_ARGUMENT for a NULL buffer with size > 0. */
TAVREL_C_API int tavrel_get_timestamp(char *buffer, size_t size);
TAVREL_C_API int tavrel_get_user_id(char *buffer, size_t size);

/* Any thread. A launch URL (scheme://validate?launchToken=...&gameEventUrl=...): its upload
   URLs start recording, its token replaces the current one, and a validation runs again if
   the game has called tavrel_validate. Any other URL is ignored. */
TAVREL_C_API tavrel_status tavrel_process_url_request(const char *url);

/* Main thread. The screen whose root controller presents the login page and alerts; NULL
   takes the application's window's (the last screen made). */
TAVREL_C_API tavrel_status tavrel_set_view_controller(tavrel_screen *screen);
/* Main thread. Makes the one overlay over the screen (NULL: as tavrel_set_view_controller);
   a second call changes nothing. */
TAVREL_C_API tavrel_status tavrel_show_overlay(tavrel_screen *screen);
/* Main thread. tavrel_set_auth_token(token) (NULL allowed), then tavrel_show_overlay(screen);
   once the overlay exists, changes nothing, not even the token. */
TAVREL_C_API tavrel_status tavrel_initialise_overlay(tavrel_screen *screen, const char *token);
/* Main thread. The marks under the fingers and the watermark; TAVREL_ERROR_NOT_READY before
   the overlay exists (nothing is remembered). */
TAVREL_C_API tavrel_status tavrel_show_touches(void);
TAVREL_C_API tavrel_status tavrel_show_watermark(void);

/* Any thread. Asks the service about the token. A yes takes any login page away and calls
   completion(true, user_data) on the URL session's background thread; anything else presents
   the login page, and an accepted login there calls it with true on the main thread. It is
   never called with false, and is called again for each later launch URL whose token is
   valid: user_data must live as long as the process. completion may be NULL. */
TAVREL_C_API tavrel_status tavrel_validate(tavrel_completion completion, void *user_data);
/* Any thread. Presents a login page (on the main queue); an accepted login starts the
   600-second re-login timer and calls completion(true, user_data) on the main thread.
   completion may be NULL. */
TAVREL_C_API tavrel_status tavrel_show_login_page(tavrel_completion completion, void *user_data);
/* Any thread. Takes a visible login page away without animation (on the main queue). */
TAVREL_C_API tavrel_status tavrel_dismiss_login_page(void);
/* Main thread. Whether a login page is presented over the parent controller. */
TAVREL_C_API tavrel_status tavrel_is_login_page_visible(bool *visible);

/* Any thread. Appends {"a": "<data>", "e": "<name>", "t": <ms>} to the game event file once a
   launch URL has started recording (the text goes in unchanged: no quotes, backslashes or
   line breaks). NULL is written as "(null)". */
TAVREL_C_API tavrel_status tavrel_emit_game_event(const char *data, const char *name);
/* Any thread. Appends one record to the input event file, through the rate limit (at most 5
   records in a run). words[0] is the number of words after it; count (>= 1) is the length of
   the array, so words[0] must be count - 1 (TAVREL_ERROR_INVALID_ARGUMENT otherwise). */
TAVREL_C_API tavrel_status tavrel_emit_input_event(const int32_t *words, size_t count);

/* Any thread. Ends the process with status 255 at once. */
TAVREL_C_API void tavrel_terminate(void);
/* Any thread. Presents an alert whose one "OK" button calls tavrel_terminate(); refused (the
   log says why) while the controller presents something else, such as a login page. */
TAVREL_C_API tavrel_status tavrel_terminate_with_popup(void);

/* ---- The host: the screen, frames out, input in ----------------------------------------- */

/*
 * A host says how big the screen is, at what scale it is drawn, and shows the frames the
 * library renders: the overlay, the login page and alerts, to lay over the game's own frame.
 * One host is installed; without one, a headless 390 x 844 screen at scale 3.
 *
 * tavrel_host is a reference to any host, whoever made it:
 * - tavrel_host_new() makes one in C: the screen's size and scale, and a callback that
 *   receives each frame (premultiplied pixels and the rectangles drawn again) to upload to
 *   the game's own texture.
 * - A host library (an OpenGL or Vulkan compositor, in C++ a subclass of tavrel::UIHost)
 *   hands its C callers a tavrel_host * from its own _new function, made with
 *   tavrel::hostForC() (declared at the end of this header for C++), and its own C functions
 *   take that tavrel_host * back and recover their object with tavrel::hostFromC() and a
 *   std::dynamic_pointer_cast, answering TAVREL_ERROR_INVALID_ARGUMENT for a host of another
 *   kind. The caller releases it with tavrel_host_free() like any other.
 * - tavrel_host_current() gives the installed one.
 * Every function below that takes a tavrel_host * takes any of them.
 *
 * A game that draws for itself: tavrel_install_host() before tavrel_screen_new(); each frame
 * it draws its scene, has the host render and lay the library's frame over it, and hands
 * the player's input to the host first, ignoring what the library took (taken == true).
 *
 * All host functions: main thread.
 */
typedef struct tavrel_host tavrel_host;

/* A rectangle of whole pixels. */
typedef struct tavrel_rect {
  int x;
  int y;
  int width;
  int height;
} tavrel_rect;

/* A rendered frame: premultiplied ARGB32 pixels in native byte order (B, G, R, A in memory on
   little-endian machines), the screen's size times its scale. damage lists what was drawn
   again since the last frame, in pixels (the whole frame for the first one; none when
   nothing changed). Pixels and damage belong to the host and stay valid until its next
   render. */
typedef struct tavrel_frame {
  const uint32_t *pixels;
  int width;
  int height;
  int stride; /* bytes from one row to the next */
  double scale;
  const tavrel_rect *damage;
  size_t damage_count;
} tavrel_frame;

/* How a caller's buffer holds pixels, for tavrel_frame_copy_pixels(). */
typedef enum tavrel_pixel_format {
  /* The frame's own bytes, B, G, R, A, premultiplied: Unity's TextureFormat.BGRA32, or RGBA8
     with a shader that swaps red and blue. */
  TAVREL_PIXELS_BGRA_PREMULTIPLIED = 0,
  /* R, G, B, A, premultiplied: an RGBA8 texture under a premultiplied blend (OpenGL, LÖVE),
     a pygame surface blitted with BLEND_PREMULTIPLIED. */
  TAVREL_PIXELS_RGBA_PREMULTIPLIED = 1,
  /* R, G, B, A, straight alpha: the usual alpha blend (SDL's, a PNG's). */
  TAVREL_PIXELS_RGBA_STRAIGHT = 2,
  TAVREL_PIXEL_FORMAT_MAX_ENUM = 0x7fffffff
} tavrel_pixel_format;

/* Any thread, while the frame is valid. Copies the frame's damaged rectangles (all of it when
   whole is true: a buffer just made) into pixels, a buffer of the frame's width and height
   with stride bytes a row (at least width * 4), converted to format. The rest of the buffer
   is left as it is, so a buffer kept from frame to frame, with each frame's damage copied in,
   always holds the latest frame. TAVREL_ERROR_OUT_OF_RANGE for a short stride or another
   format. */
TAVREL_C_API tavrel_status tavrel_frame_copy_pixels(const tavrel_frame *frame, tavrel_pixel_format format,
                                                    bool whole, void *pixels, int stride);

/* Called with each frame the host renders, on the main thread, during the render call. */
typedef void (*tavrel_frame_callback)(const tavrel_frame *frame, void *user_data);

/* A finger at a point of the screen, in points. id is the game's name for the finger and
   stays the same from down to up. */
typedef struct tavrel_finger {
  int id;
  double x;
  double y;
} tavrel_finger;

/* Main thread. A host of width x height points (each 1 to 16384) at scale (above 0, at most
   8; the frame at most 32767 pixels a side). on_frame may be NULL (a headless host that
   keeps its frames). *out receives one reference. */
TAVREL_C_API tavrel_status tavrel_host_new(double width, double height, double scale,
                                           tavrel_frame_callback on_frame, void *user_data,
                                           tavrel_host **out);
/* Main thread. A reference to the installed host (the default headless one if none was
   installed). */
TAVREL_C_API tavrel_status tavrel_host_current(tavrel_host **out);
/* Main thread. Releases the caller's reference; an installed host stays installed. NULL is
   ignored. */
TAVREL_C_API void tavrel_host_free(tavrel_host *host);
/* Main thread. Installs the host (the library keeps a reference), before any view is made:
   TAVREL_ERROR_TOO_LATE once a screen is shown. */
TAVREL_C_API tavrel_status tavrel_install_host(tavrel_host *host);

/* Main thread. The host's screen in points and its scale; any of the three may be NULL. */
TAVREL_C_API tavrel_status tavrel_host_screen_size(tavrel_host *host, double *width,
                                                   double *height, double *scale);

/* Main thread. The screen changed size or scale (a window resized, moved to a screen of
   another scale): the key window, the overlay, the watermark's canvas and any page or alert
   are laid out again for it, and the next frame is drawn whole. For a host made with
   tavrel_host_new(); a host library's own resize call does the same for its hosts (for those
   this returns TAVREL_ERROR_INVALID_ARGUMENT). The ranges of tavrel_host_new(). */
TAVREL_C_API tavrel_status tavrel_host_resize(tavrel_host *host, double width, double height,
                                              double scale);

/* Main thread. Draws what changed since the last frame (overlay, page, alerts), hands the
   frame to the host (a tavrel_host_new host calls on_frame) and fills *frame. */
TAVREL_C_API tavrel_status tavrel_host_render_frame(tavrel_host *host, tavrel_frame *frame);
/* Main thread. Renders, then the whole frame as a PNG (RGBA, straight alpha): in memory
   (*data from the library, release with tavrel_free) or to a file. */
TAVREL_C_API tavrel_status tavrel_host_render_png(tavrel_host *host, unsigned char **data,
                                                  size_t *size);
TAVREL_C_API tavrel_status tavrel_host_write_png(tavrel_host *host, const char *path);

/* Main thread. Fingers down, moved, up or cancelled: the count fingers of one call (1 to 64)
   arrive as one set of touches. *taken (may be NULL) tells whether the library's own views
   took them: they landed on a login page or an alert, which a game ignores. A finger on the
   game under the overlay is not taken, and is recorded. */
TAVREL_C_API tavrel_status tavrel_host_fingers_down(tavrel_host *host, const tavrel_finger *fingers,
                                                    size_t count, bool *taken);
TAVREL_C_API tavrel_status tavrel_host_fingers_moved(tavrel_host *host, const tavrel_finger *fingers,
                                                     size_t count, bool *taken);
TAVREL_C_API tavrel_status tavrel_host_fingers_up(tavrel_host *host, const tavrel_finger *fingers,
                                                  size_t count, bool *taken);
TAVREL_C_API tavrel_status tavrel_host_fingers_cancelled(tavrel_host *host,
                                                         const tavrel_finger *fingers, size_t count,
                                                         bool *taken);

/* Main thread. Keys for the focused text field of a page; *taken (may be NULL) is false when
   no field has the focus, and the keys are then the game's. */
TAVREL_C_API tavrel_status tavrel_host_type_text(tavrel_host *host, const char *utf8, bool *taken);
TAVREL_C_API tavrel_status tavrel_host_press_return(tavrel_host *host, bool *taken);
TAVREL_C_API tavrel_status tavrel_host_press_backspace(tavrel_host *host, bool *taken);

/* Main thread. For scripts and tests: a tap (down and up) at the centre of the frontmost
   element a finger could reach that shows text (a button title, a label, a field's text or
   placeholder, an alert's button). *tapped is false when there is none. */
TAVREL_C_API tavrel_status tavrel_host_tap_element(tavrel_host *host, const char *text,
                                                   bool *tapped);

/* Main thread. Whether a login page or an alert covers the game now: the game then ignores
   the player's input. */
TAVREL_C_API tavrel_status tavrel_host_is_covered(tavrel_host *host, bool *covered);

/* Main thread. The key window's view tree as JSON text (the README's "Seeing the view tree"),
   NUL-terminated, in memory from the library: release it with tavrel_free. */
TAVREL_C_API tavrel_status tavrel_dump_view_tree(char **json);

TAVREL_C_END

#ifdef __cplusplus
/*
 * For hosts written in C++: the bridge between a tavrel::UIHost and the tavrel_host * the
 * functions above take. A host library's C function makes its host, then returns
 * tavrel::hostForC(host); its other C functions call tavrel::hostFromC(handle) and
 * std::dynamic_pointer_cast to their own class. Both are exported by tavrel_sdk.
 */
#include <memory>

namespace tavrel {
class UIHost;
/* A new reference to host for C callers (release with tavrel_host_free); NULL for null or
   when memory runs out. */
TAVREL_C_API tavrel_host *hostForC(std::shared_ptr<UIHost> host) noexcept;
/* The host behind a tavrel_host *; null for NULL. */
TAVREL_C_API std::shared_ptr<UIHost> hostFromC(const tavrel_host *host) noexcept;
}  // namespace tavrel
#endif

#endif /* TAVREL_SDK_TAVREL_H */
