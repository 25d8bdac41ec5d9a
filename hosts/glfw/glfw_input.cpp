#include <tavrel_sdk/glfw_input.hpp>

#define GLFW_INCLUDE_NONE
#include <GLFW/glfw3.h>

#include <tavrel_sdk/ui/host.hpp>
#include <tavrel_sdk/ui/responder.hpp>

#include <map>
#include <stdexcept>
#include <string>

namespace tavrel {
namespace {

constexpr int kMouseFinger = 0;

// GLFW's callbacks carry the window, not the adapter; the window's user pointer is the game's.
std::map<GLFWwindow*, GlfwInput*>& adapters() {
  static std::map<GLFWwindow*, GlfwInput*> byWindow;
  return byWindow;
}

GlfwInput* adapterOf(GLFWwindow* window) {
  const auto it = adapters().find(window);
  return it == adapters().end() ? nullptr : it->second;
}

std::string utf8(unsigned int codepoint) {
  std::string out;
  if (codepoint < 0x80) {
    out += static_cast<char>(codepoint);
  } else if (codepoint < 0x800) {
    out += static_cast<char>(0xc0 | (codepoint >> 6));
    out += static_cast<char>(0x80 | (codepoint & 0x3f));
  } else if (codepoint < 0x10000) {
    out += static_cast<char>(0xe0 | (codepoint >> 12));
    out += static_cast<char>(0x80 | ((codepoint >> 6) & 0x3f));
    out += static_cast<char>(0x80 | (codepoint & 0x3f));
  } else if (codepoint < 0x110000) {
    out += static_cast<char>(0xf0 | (codepoint >> 18));
    out += static_cast<char>(0x80 | ((codepoint >> 12) & 0x3f));
    out += static_cast<char>(0x80 | ((codepoint >> 6) & 0x3f));
    out += static_cast<char>(0x80 | (codepoint & 0x3f));
  }
  return out;
}

bool fieldFocused() { return UIResponder::currentFirstResponder() != nullptr; }

}  // namespace

GlfwInput::GlfwInput(GLFWwindow* window) : window_(window) {
  glfwGetCursorPos(window, &cursor_.x, &cursor_.y);
  if (!adapters().emplace(window, this).second) throw std::logic_error("GlfwInput: the window has an adapter already");
  mouseButton_ = glfwSetMouseButtonCallback(window, onMouseButton);
  cursorPosition_ = glfwSetCursorPosCallback(window, onCursorPosition);
  scroll_ = glfwSetScrollCallback(window, onScroll);
  key_ = glfwSetKeyCallback(window, onKey);
  character_ = glfwSetCharCallback(window, onCharacter);
  focus_ = glfwSetWindowFocusCallback(window, onFocus);
}

GlfwInput::~GlfwInput() {
  // A callback the game installed over ours since is left as it is.
  const auto restore = [this](auto set, auto ours, auto game) {
    const auto current = set(window_, game);
    if (current != ours) set(window_, current);
  };
  restore(glfwSetMouseButtonCallback, onMouseButton, mouseButton_);
  restore(glfwSetCursorPosCallback, onCursorPosition, cursorPosition_);
  restore(glfwSetScrollCallback, onScroll, scroll_);
  restore(glfwSetKeyCallback, onKey, key_);
  restore(glfwSetCharCallback, onCharacter, character_);
  restore(glfwSetWindowFocusCallback, onFocus, focus_);
  adapters().erase(window_);
}

// Each callback of ours hands on to the game's when the library did not take the event.
void GlfwInput::onMouseButton(GLFWwindow* window, int button, int action, int mods) {
  GlfwInput* self = adapterOf(window);
  if (self != nullptr && !self->mouseButton(button, action, mods) && self->mouseButton_) {
    self->mouseButton_(window, button, action, mods);
  }
}

void GlfwInput::onCursorPosition(GLFWwindow* window, double x, double y) {
  GlfwInput* self = adapterOf(window);
  if (self != nullptr && !self->cursorPosition(x, y) && self->cursorPosition_) self->cursorPosition_(window, x, y);
}

void GlfwInput::onScroll(GLFWwindow* window, double xOffset, double yOffset) {
  GlfwInput* self = adapterOf(window);
  if (self != nullptr && !self->scroll(xOffset, yOffset) && self->scroll_) self->scroll_(window, xOffset, yOffset);
}

void GlfwInput::onKey(GLFWwindow* window, int key, int scancode, int action, int mods) {
  GlfwInput* self = adapterOf(window);
  if (self != nullptr && !self->key(key, scancode, action, mods) && self->key_) {
    self->key_(window, key, scancode, action, mods);
  }
}

void GlfwInput::onCharacter(GLFWwindow* window, unsigned int codepoint) {
  GlfwInput* self = adapterOf(window);
  if (self != nullptr && !self->character(codepoint) && self->character_) self->character_(window, codepoint);
}

void GlfwInput::onFocus(GLFWwindow* window, int focused) {
  GlfwInput* self = adapterOf(window);
  if (self == nullptr) return;
  self->focus(focused);
  if (self->focus_) self->focus_(window, focused);
}

bool GlfwInput::mouseButton(int button, int action, int /*mods*/) {
  UIHost& host = UIHost::current();
  if (button != GLFW_MOUSE_BUTTON_LEFT) return host.isCovered();
  const std::vector<Finger> finger{{kMouseFinger, cursor_}};
  if (action == GLFW_PRESS) {
    if (mouseDown_) return host.isCovered();
    mouseDown_ = true;
    return host.fingersDown(finger) || host.isCovered();
  }
  if (!mouseDown_) return host.isCovered();
  mouseDown_ = false;
  return host.fingersUp(finger) || host.isCovered();
}

bool GlfwInput::cursorPosition(double x, double y) {
  UIHost& host = UIHost::current();
  cursor_ = CGPointMake(x, y);
  if (!mouseDown_) return host.isCovered();
  return host.fingersMoved({{kMouseFinger, cursor_}}) || host.isCovered();
}

bool GlfwInput::scroll(double /*xOffset*/, double /*yOffset*/) { return UIHost::current().isCovered(); }

bool GlfwInput::key(int key, int /*scancode*/, int action, int /*mods*/) {
  UIHost& host = UIHost::current();
  const bool focused = fieldFocused();
  bool taken = false;
  if ((key == GLFW_KEY_ENTER || key == GLFW_KEY_KP_ENTER) && action == GLFW_PRESS) taken = host.pressReturn();
  if (key == GLFW_KEY_BACKSPACE && action != GLFW_RELEASE) taken = host.pressBackspace();
  return taken || focused || host.isCovered();
}

bool GlfwInput::character(unsigned int codepoint) {
  UIHost& host = UIHost::current();
  return host.typeText(utf8(codepoint)) || host.isCovered();
}

void GlfwInput::focus(int focused) {
  if (focused == GLFW_TRUE || !mouseDown_) return;
  mouseDown_ = false;
  UIHost::current().fingersCancelled({{kMouseFinger, {}}});
}

}  // namespace tavrel
