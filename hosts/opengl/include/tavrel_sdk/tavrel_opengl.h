/*
 * tavrel_opengl.h: the OpenGL and OpenGL ES compositor from C (tavrel::OpenGLHost in C++).
 *
 * A game that draws with OpenGL 3.3 (core or compatibility) or OpenGL ES 3.0 and later makes
 * the host with its context current and installs it before it makes the screen; then, each
 * frame, draws its scene, calls tavrel_opengl_composite() and swaps:
 *
 *   tavrel_host *host = NULL;
 *   tavrel_opengl_host_new(glfwGetProcAddress, width, height, fb_width, fb_height, &host);
 *   tavrel_install_host(host);
 *   ...
 *   draw_scene();
 *   tavrel_opengl_resize(host, width, height, fb_width, fb_height);   // cheap when unchanged
 *   tavrel_opengl_composite(host);
 *   glfwSwapBuffers(window);
 *
 * The library links no GL library: every function comes from the game's get-proc-address
 * (glfwGetProcAddress and eglGetProcAddress as they are; SDL_GL_GetProcAddress cast to
 * tavrel_gl_get_proc_address). Every piece of GL state the compositor touches is put back.
 * Link tavrel::tavrel_sdk_opengl (find_package(tavrel_sdk CONFIG COMPONENTS opengl)).
 * All functions: main thread, with the game's context current where they draw or load.
 */
#ifndef TAVREL_SDK_TAVREL_OPENGL_H
#define TAVREL_SDK_TAVREL_OPENGL_H

#include <tavrel_sdk/tavrel.h>

TAVREL_C_BEGIN

typedef void (*tavrel_gl_proc)(void);
typedef tavrel_gl_proc (*tavrel_gl_get_proc_address)(const char *name);

/* With the game's context current: an OpenGL host whose screen is the window's size in points
   (the size cursor positions come in) and whose frames are drawn at the framebuffer's size in
   pixels (twice the window's on a HiDPI screen). *out receives one reference.
   TAVREL_ERROR_OUT_OF_RANGE for a size below 1; TAVREL_ERROR_FAILED (logged) for a context
   older than OpenGL 3.3 or OpenGL ES 3.0, a function its loader lacks, or no current context. */
TAVREL_C_API tavrel_status tavrel_opengl_host_new(tavrel_gl_get_proc_address get_proc_address,
                                                  double window_width, double window_height,
                                                  int framebuffer_width, int framebuffer_height,
                                                  tavrel_host **out);

/* The window or its framebuffer changed size. TAVREL_ERROR_INVALID_ARGUMENT for a host that
   is not an OpenGL host; TAVREL_ERROR_OUT_OF_RANGE for a size below 1. */
TAVREL_C_API tavrel_status tavrel_opengl_resize(tavrel_host *host, double window_width,
                                                double window_height, int framebuffer_width,
                                                int framebuffer_height);

/* With the game's context current, after the game drew its frame and before it swaps:
   renders what changed, uploads it, and draws the library's frame over the bound draw
   framebuffer. */
TAVREL_C_API tavrel_status tavrel_opengl_composite(tavrel_host *host);

/* With the context current, before it goes: deletes the host's GL objects; a later composite
   does nothing. */
TAVREL_C_API tavrel_status tavrel_opengl_release_gl(tavrel_host *host);

TAVREL_C_END

#endif /* TAVREL_SDK_TAVREL_OPENGL_H */
