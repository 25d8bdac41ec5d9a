// The C functions of tavrel_glfw.h: each forwards to GlfwInput.

#include <tavrel_sdk/glfw_input.hpp>
#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/tavrel_glfw.h>

#include <exception>
#include <new>
#include <string>

struct tavrel_glfw_input {
  tavrel::GlfwInput input;
};

namespace {

tavrel_status refuse(const char* function, tavrel_status status, const std::string& why) {
  tavrel::Platform::current().log(std::string(function) + ": " + why);
  return status;
}

tavrel_status answer(bool* taken, bool value) {
  if (taken != nullptr) *taken = value;
  return TAVREL_OK;
}

}  // namespace

#define TAVREL_NEED_INPUT(input) \
  if ((input) == nullptr) return refuse(__func__, TAVREL_ERROR_NULL_ARGUMENT, "input is NULL")

tavrel_status tavrel_glfw_input_new(GLFWwindow* window, tavrel_glfw_input** out) {
  if (window == nullptr || out == nullptr) return refuse(__func__, TAVREL_ERROR_NULL_ARGUMENT, "window or out is NULL");
  try {
    *out = new tavrel_glfw_input{tavrel::GlfwInput(window)};
    return TAVREL_OK;
  } catch (const std::bad_alloc&) {
    return refuse(__func__, TAVREL_ERROR_FAILED, "out of memory");
  } catch (const std::exception& e) {
    return refuse(__func__, TAVREL_ERROR_INVALID_ARGUMENT, e.what());
  }
}

void tavrel_glfw_input_free(tavrel_glfw_input* input) { delete input; }

tavrel_status tavrel_glfw_mouse_button(tavrel_glfw_input* input, int button, int action, int mods, bool* taken) {
  TAVREL_NEED_INPUT(input);
  return answer(taken, input->input.mouseButton(button, action, mods));
}

tavrel_status tavrel_glfw_cursor_position(tavrel_glfw_input* input, double x, double y, bool* taken) {
  TAVREL_NEED_INPUT(input);
  return answer(taken, input->input.cursorPosition(x, y));
}

tavrel_status tavrel_glfw_scroll(tavrel_glfw_input* input, double xOffset, double yOffset, bool* taken) {
  TAVREL_NEED_INPUT(input);
  return answer(taken, input->input.scroll(xOffset, yOffset));
}

tavrel_status tavrel_glfw_key(tavrel_glfw_input* input, int key, int scancode, int action, int mods, bool* taken) {
  TAVREL_NEED_INPUT(input);
  return answer(taken, input->input.key(key, scancode, action, mods));
}

tavrel_status tavrel_glfw_character(tavrel_glfw_input* input, unsigned int codepoint, bool* taken) {
  TAVREL_NEED_INPUT(input);
  return answer(taken, input->input.character(codepoint));
}

tavrel_status tavrel_glfw_window_focus(tavrel_glfw_input* input, int focused) {
  TAVREL_NEED_INPUT(input);
  input->input.focus(focused);
  return TAVREL_OK;
}
