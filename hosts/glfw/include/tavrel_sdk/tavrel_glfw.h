/*
 * tavrel_glfw.h: GLFW input for the library's views from C (tavrel::GlfwInput in C++).
 *
 * tavrel_glfw_input_new() installs the library's callbacks on the window and keeps the ones
 * the game installed before: each event goes to the installed host first, and on to the
 * game's callback only when the library did not take it (input on a login page or an alert,
 * everything while one covers the game, keys while one of its fields has the focus). The left
 * button and the cursor while it is down are a finger; characters, Return, keypad Enter and
 * Backspace are typed into a focused field. A game that installs its callbacks later replaces
 * the library's: it then forwards each event with the functions below and ignores the taken.
 * Link tavrel::tavrel_sdk_glfw (find_package(tavrel_sdk CONFIG COMPONENTS glfw)).
 * All functions: main thread, the thread GLFW delivers events on.
 */
#ifndef TAVREL_SDK_TAVREL_GLFW_H
#define TAVREL_SDK_TAVREL_GLFW_H

#include <tavrel_sdk/tavrel.h>

/* GLFW's window (GLFWwindow), whichever way the game includes <GLFW/glfw3.h>. */
struct GLFWwindow;

TAVREL_C_BEGIN

typedef struct tavrel_glfw_input tavrel_glfw_input;

/* Installs the callbacks on window, which must outlive the adapter; one adapter a window
   (TAVREL_ERROR_INVALID_ARGUMENT for a second). *out receives the adapter. */
TAVREL_C_API tavrel_status tavrel_glfw_input_new(struct GLFWwindow *window, tavrel_glfw_input **out);
/* Puts the game's callbacks back where the library's are still installed. NULL is ignored. */
TAVREL_C_API void tavrel_glfw_input_free(tavrel_glfw_input *input);

/* One event with GLFW's arguments, for games that call the library from their own callbacks;
   *taken (may be NULL) tells whether the library took it. */
TAVREL_C_API tavrel_status tavrel_glfw_mouse_button(tavrel_glfw_input *input, int button, int action,
                                                    int mods, bool *taken);
TAVREL_C_API tavrel_status tavrel_glfw_cursor_position(tavrel_glfw_input *input, double x, double y,
                                                       bool *taken);
TAVREL_C_API tavrel_status tavrel_glfw_scroll(tavrel_glfw_input *input, double x_offset,
                                              double y_offset, bool *taken);
TAVREL_C_API tavrel_status tavrel_glfw_key(tavrel_glfw_input *input, int key, int scancode, int action,
                                           int mods, bool *taken);
TAVREL_C_API tavrel_status tavrel_glfw_character(tavrel_glfw_input *input, unsigned int codepoint,
                                                 bool *taken);
/* Never taken: a window that loses the focus cancels the finger of a button held down. */
TAVREL_C_API tavrel_status tavrel_glfw_window_focus(tavrel_glfw_input *input, int focused);

TAVREL_C_END

#endif /* TAVREL_SDK_TAVREL_GLFW_H */
