/*
 * A small Linux game in C that runs its session under tavrel_sdk: a GLFW window, an OpenGL 3.3
 * scene of its own, and the library through its C interface.
 *
 *   glfw_game TOKEN LAUNCH_URL
 *
 * It integrates the library as the README's "OpenGL games: GLFW" snippet says: the OpenGL
 * compositor lays the library's views over each frame, and GLFW input goes to the library
 * first. Environment, for tests and local integration only (a mock service, `tavrel serve`):
 * TAVREL_CA_FILE, TAVREL_SERVICE_URL, TAVREL_TREE_FILE (the view tree, written each second),
 * and TAVREL_HOLD_DIR: while the file "hold" is there, the game stops its scene and drawing;
 * the frame it shows then is written as "game.pam" (the game's own pixels) and "frame.pam" (the
 * library's premultiplied frame laid over them), and "held" says so.
 */
#define GL_GLEXT_PROTOTYPES 1
#include <GL/glcorearb.h>
#define GLFW_INCLUDE_NONE
#include <GLFW/glfw3.h>

#include <tavrel_sdk/tavrel.h>
#include <tavrel_sdk/tavrel_glfw.h>
#include <tavrel_sdk/tavrel_opengl.h>

#include <stdatomic.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { kWidth = 800, kHeight = 600 };

/* Night sky in bands, a moon, hills and a hopping block, in the window's 800 x 600 points:
   no white anywhere, so whatever is white on the screen is the library's. */
static const char *kVertexShader =
    "#version 330 core\n"
    "void main() {\n"
    "  vec2 corner = vec2(float(gl_VertexID & 1), float(gl_VertexID >> 1));\n"
    "  gl_Position = vec4(corner * 2.0 - 1.0, 0.0, 1.0);\n"
    "}\n";
static const char *kFragmentShader =
    "#version 330 core\n"
    "uniform vec2 framebuffer;\n"
    "uniform float seconds;\n"
    "out vec4 colour;\n"
    "void main() {\n"
    "  vec2 p = vec2(gl_FragCoord.x, framebuffer.y - gl_FragCoord.y) / framebuffer * vec2(800.0, 600.0);\n"
    "  float band = floor(p.y / 40.0);\n"
    "  vec3 c = vec3(10.0 + band * 3.0, 20.0 + band * 5.0, 60.0 + band * 6.0) / 255.0;\n"
    "  if (distance(p, vec2(620.0, 110.0)) < 40.0) c = vec3(200.0, 170.0, 60.0) / 255.0;\n"
    "  if (p.y >= 480.0) c = vec3(30.0, 90.0, 50.0) / 255.0;\n"
    "  vec2 block = vec2(mod(seconds * 120.0, 860.0) - 60.0, 420.0 - abs(sin(seconds * 3.0)) * 120.0);\n"
    "  if (all(greaterThanEqual(p, block)) && all(lessThan(p, block + 60.0))) c = vec3(70.0, 190.0, 210.0) / 255.0;\n"
    "  colour = vec4(c, 1.0);\n"
    "}\n";

struct scene {
  GLuint program;
  GLuint vertex_array;
  GLint framebuffer;
  GLint seconds;
};

static GLuint compile(GLenum kind, const char *source) {
  GLuint shader = glCreateShader(kind);
  glShaderSource(shader, 1, &source, NULL);
  glCompileShader(shader);
  return shader;
}

static bool make_scene(struct scene *scene) {
  GLuint vertex = compile(GL_VERTEX_SHADER, kVertexShader);
  GLuint fragment = compile(GL_FRAGMENT_SHADER, kFragmentShader);
  GLint linked = GL_FALSE;
  scene->program = glCreateProgram();
  glAttachShader(scene->program, vertex);
  glAttachShader(scene->program, fragment);
  glLinkProgram(scene->program);
  glDeleteShader(vertex);
  glDeleteShader(fragment);
  glGetProgramiv(scene->program, GL_LINK_STATUS, &linked);
  glGenVertexArrays(1, &scene->vertex_array);
  scene->framebuffer = glGetUniformLocation(scene->program, "framebuffer");
  scene->seconds = glGetUniformLocation(scene->program, "seconds");
  return linked == GL_TRUE;
}

static void draw_scene(const struct scene *scene, int width, int height, double seconds) {
  glViewport(0, 0, width, height);
  glUseProgram(scene->program);
  glUniform2f(scene->framebuffer, (float)width, (float)height);
  glUniform1f(scene->seconds, (float)seconds);
  glBindVertexArray(scene->vertex_array);
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

/* On the URL session's thread after a valid token, on the main thread after a login. */
static void on_validated(bool ok, void *user_data) {
  (void)ok; /* called with true only */
  atomic_store((atomic_bool *)user_data, true);
}

/* The game's own input: a click on the scene is a jump. */
static bool may_play = false;
static void on_mouse_button(GLFWwindow *window, int button, int action, int mods) {
  (void)mods;
  if (button == GLFW_MOUSE_BUTTON_LEFT && action == GLFW_PRESS && may_play) {
    double x = 0, y = 0;
    char where[64];
    glfwGetCursorPos(window, &x, &y);
    snprintf(where, sizeof where, "%.0f,%.0f", x, y);
    tavrel_emit_game_event(where, "jump");
  }
}

/* --- Test and local integration hooks ------------------------------------------------------ */

/* Written whole then renamed, so that a reader never sees half a file. */
static void write_file(const char *path, const void *data, size_t size, const char *header) {
  char temporary[4096];
  snprintf(temporary, sizeof temporary, "%s.tmp", path);
  FILE *file = fopen(temporary, "wb");
  if (file == NULL) return;
  fputs(header, file);
  fwrite(data, 1, size, file);
  fclose(file);
  rename(temporary, path);
}

/* 0xAARRGGBB pixels, top row first, as a PAM file of 4 bytes a pixel in that order. */
static void write_pam(const char *path, const uint32_t *pixels, int width, int height, int stride_pixels) {
  unsigned char *bytes = malloc((size_t)width * height * 4);
  char header[128];
  if (bytes == NULL) return;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint32_t p = pixels[(size_t)y * stride_pixels + x];
      unsigned char *out = bytes + ((size_t)y * width + x) * 4;
      out[0] = (unsigned char)(p >> 24);
      out[1] = (unsigned char)(p >> 16);
      out[2] = (unsigned char)(p >> 8);
      out[3] = (unsigned char)p;
    }
  }
  snprintf(header, sizeof header, "P7\nWIDTH %d\nHEIGHT %d\nDEPTH 4\nMAXVAL 255\nTUPLTYPE ARGB\nENDHDR\n", width, height);
  write_file(path, bytes, (size_t)width * height * 4, header);
  free(bytes);
}

static bool exists(const char *dir, const char *name) {
  char path[4096];
  snprintf(path, sizeof path, "%s/%s", dir, name);
  return access(path, F_OK) == 0;
}

/* The game's pixels as drawn (read back before the library's frame goes over them). */
static void write_game_pixels(const char *dir, int width, int height) {
  uint32_t *rgba = malloc((size_t)width * height * 4);
  uint32_t *argb = malloc((size_t)width * height * 4);
  char path[4096];
  if (rgba != NULL && argb != NULL) {
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const unsigned char *in = (const unsigned char *)&rgba[(size_t)(height - 1 - y) * width + x];
        argb[(size_t)y * width + x] = (uint32_t)in[3] << 24 | (uint32_t)in[0] << 16 | (uint32_t)in[1] << 8 | in[2];
      }
    }
    snprintf(path, sizeof path, "%s/game.pam", dir);
    write_pam(path, argb, width, height, width);
  }
  free(rgba);
  free(argb);
}

static void write_library_frame(const char *dir, tavrel_host *host) {
  tavrel_frame frame;
  char path[4096];
  if (tavrel_host_render_frame(host, &frame) != TAVREL_OK) return;
  snprintf(path, sizeof path, "%s/frame.pam", dir);
  write_pam(path, frame.pixels, frame.width, frame.height, frame.stride / 4);
}

static void write_view_tree(const char *path) {
  char *json = NULL;
  if (tavrel_dump_view_tree(&json) != TAVREL_OK) return;
  write_file(path, json, strlen(json), "");
  tavrel_free(json);
}

/* ------------------------------------------------------------------------------------------ */

int main(int argc, char **argv) {
  const char *token = argc > 1 ? argv[1] : "";      /* from the companion app */
  const char *launch_url = argc > 2 ? argv[2] : ""; /* the URL the game was opened with */
  if (!glfwInit()) {
    fprintf(stderr, "glfw_game: no display\n");
    return 1;
  }
  glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 3);
  glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 3);
  glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
  glfwWindowHint(GLFW_OPENGL_FORWARD_COMPAT, GLFW_TRUE);
  GLFWwindow *window = glfwCreateWindow(kWidth, kHeight, "glfw_game", NULL, NULL);
  struct scene scene;
  if (window == NULL) {
    fprintf(stderr, "glfw_game: no OpenGL 3.3 core context\n");
    return 1;
  }
  glfwMakeContextCurrent(window);
  glfwSwapInterval(0); /* the library's main loop paces the frames */
  if (!make_scene(&scene)) {
    fprintf(stderr, "glfw_game: the scene's shaders do not build\n");
    return 1;
  }
  glfwSetMouseButtonCallback(window, on_mouse_button); /* the game's callbacks first */

  /* --- The README's "OpenGL games: GLFW" snippet, with the test-only settings ------------- */
  int width = 0, height = 0, fb_width = 0, fb_height = 0;
  glfwGetWindowSize(window, &width, &height);
  glfwGetFramebufferSize(window, &fb_width, &fb_height);
  tavrel_host *host = NULL;
  if (tavrel_opengl_host_new(glfwGetProcAddress, width, height, fb_width, fb_height, &host) != TAVREL_OK) return 1;
  tavrel_install_host(host);                /* before any view is made */
  tavrel_glfw_input *input = NULL;
  tavrel_glfw_input_new(window, &input);    /* chains to the game's callbacks */

  tavrel_set_info_dictionary_json("{\"CFBundleURLTypes\": [{\"CFBundleURLSchemes\": [\"glfwgame\"]}]}");
  /* Tests and local integration only: a mock service on 127.0.0.1 (tavrel serve). */
  if (getenv("TAVREL_CA_FILE")) tavrel_set_trusted_certificates_file(getenv("TAVREL_CA_FILE"));
  if (getenv("TAVREL_SERVICE_URL")) tavrel_set_service_base_url_for_testing(getenv("TAVREL_SERVICE_URL"));

  tavrel_screen *screen = NULL;
  tavrel_screen_new(&screen);               /* the game's screen, kept while it runs */
  tavrel_initialise_overlay(screen, token); /* 48 characters or more */
  tavrel_show_watermark();
  tavrel_show_touches();
  static atomic_bool validated = false;
  tavrel_validate(on_validated, &validated);         /* called with true only */
  tavrel_process_url_request(launch_url);            /* each time the game is opened through a URL */
  /* ------------------------------------------------------------------------------------------ */

  const char *tree_file = getenv("TAVREL_TREE_FILE");
  const char *hold_dir = getenv("TAVREL_HOLD_DIR");
  double last_tree_write = -1.0;
  double scene_time = 0.0;
  double previous = glfwGetTime();
  bool held = false;
  bool announced = false;
  while (!glfwWindowShouldClose(window)) {
    glfwPollEvents(); /* the library takes its input first through its callbacks */
    if (atomic_load(&validated) && !announced) {
      announced = may_play = true;
      tavrel_emit_game_event("level-1", "start"); /* during play, any thread */
      puts("glfw_game: the session may go on");
      fflush(stdout);
    }
    const double now = glfwGetTime();
    const bool hold = hold_dir != NULL && exists(hold_dir, "hold");
    if (!hold) {
      held = false;
      scene_time += now - previous;
    }
    previous = now;
    if (!held) {
      glfwGetWindowSize(window, &width, &height);
      glfwGetFramebufferSize(window, &fb_width, &fb_height);
      draw_scene(&scene, fb_width, fb_height, scene_time);
      if (hold) write_game_pixels(hold_dir, fb_width, fb_height);
      tavrel_opengl_resize(host, width, height, fb_width, fb_height);
      tavrel_opengl_composite(host);
      if (hold) write_library_frame(hold_dir, host);
      glfwSwapBuffers(window);
      if (hold) {
        char path[4096];
        glFinish();
        snprintf(path, sizeof path, "%s/held", hold_dir);
        write_file(path, "", 0, "held\n");
        held = true;
      }
    }
    if (tree_file != NULL && now - last_tree_write >= 1.0) {
      last_tree_write = now;
      write_view_tree(tree_file);
    }
    /* The library's timers and main-queue work run on the thread that runs the main loop. */
    tavrel_run_main_loop_for(1.0 / 60);
  }
  tavrel_glfw_input_free(input);
  tavrel_opengl_release_gl(host);
  tavrel_host_free(host);
  tavrel_screen_free(screen);
  glfwDestroyWindow(window);
  glfwTerminate();
  return 0;
}
