#pragma once

// Input of a GLFW window for the library's views, whatever draws them (OpenGLHost, a Vulkan
// compositor, the headless host).
//
// GlfwInput installs its own callbacks on the window and keeps the ones the game had installed
// before: each event goes to the installed UIHost first, and on to the game's callback only
// when the library did not take it. The left mouse button and the cursor while it is down make
// a finger; characters are typed into a focused field; Return, keypad Enter and Backspace are
// its keys. The library takes input that reached a page or an alert, all input while one covers
// the game (other buttons, the wheel, every key), and keys and characters while one of its
// fields has the focus. A game that installs its callbacks after the adapter replaces the
// adapter's: it should install its own first, or forward to the members below from its own.
// Link tavrel::tavrel_sdk_glfw (find_package(tavrel_sdk CONFIG COMPONENTS glfw)).
//
// Thread safety: main thread only, the thread GLFW delivers events on.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/geometry.hpp>

// GLFWwindow is all this header needs of GLFW: the game includes <GLFW/glfw3.h> where and how
// it likes (with or without its GL headers).
struct GLFWwindow;

namespace tavrel {

class TAVREL_EXPORT GlfwInput {
 public:
  // Installs the callbacks on `window`, which must outlive the adapter. One adapter per window.
  explicit GlfwInput(GLFWwindow* window);
  // Puts the game's callbacks back, where the adapter's are still installed.
  ~GlfwInput();
  GlfwInput(const GlfwInput&) = delete;
  GlfwInput& operator=(const GlfwInput&) = delete;

  // The adapter's handling of one event, with GLFW's arguments; true when the library took it.
  // The installed callbacks call these, then the game's callback when they return false.
  bool mouseButton(int button, int action, int mods);
  bool cursorPosition(double x, double y);
  bool scroll(double xOffset, double yOffset);
  bool key(int key, int scancode, int action, int mods);
  bool character(unsigned int codepoint);
  // A window that loses the focus mid-drag never sees the button go up: the finger is
  // cancelled. Never taken (the game's callback is always called).
  void focus(int focused);

 private:
  static void onMouseButton(GLFWwindow* window, int button, int action, int mods);
  static void onCursorPosition(GLFWwindow* window, double x, double y);
  static void onScroll(GLFWwindow* window, double xOffset, double yOffset);
  static void onKey(GLFWwindow* window, int key, int scancode, int action, int mods);
  static void onCharacter(GLFWwindow* window, unsigned int codepoint);
  static void onFocus(GLFWwindow* window, int focused);

  // The game's callbacks, of GLFW's types (GLFWmousebuttonfun, ...).
  GLFWwindow* window_;
  void (*mouseButton_)(GLFWwindow*, int, int, int) = nullptr;
  void (*cursorPosition_)(GLFWwindow*, double, double) = nullptr;
  void (*scroll_)(GLFWwindow*, double, double) = nullptr;
  void (*key_)(GLFWwindow*, int, int, int, int) = nullptr;
  void (*character_)(GLFWwindow*, unsigned int) = nullptr;
  void (*focus_)(GLFWwindow*, int) = nullptr;
  CGPoint cursor_;  // where the button goes down: GLFW reports every move before it
  bool mouseDown_ = false;
};

}  // namespace tavrel
