// GlfwInput fed through the callbacks GLFW holds for a real window (under an Xvfb of its own).

#include <tavrel_sdk/glfw_input.hpp>
#include <tavrel_sdk/tavrel_glfw.h>
#include <tavrel_sdk/ui.hpp>

#include "support/game_screen.hpp"
#include "support/tool_runner.hpp"

#define GLFW_INCLUDE_NONE
#include <GLFW/glfw3.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrel {
namespace {

// What reached the game's callbacks ("button 0 1", "char 97", ...).
std::vector<std::string> gameSaw;

void installGameCallbacks(GLFWwindow* window) {
  glfwSetMouseButtonCallback(window, [](GLFWwindow*, int button, int action, int) {
    gameSaw.push_back("button " + std::to_string(button) + " " + std::to_string(action));
  });
  glfwSetCursorPosCallback(window, [](GLFWwindow*, double, double) { gameSaw.push_back("cursor"); });
  glfwSetScrollCallback(window, [](GLFWwindow*, double, double) { gameSaw.push_back("scroll"); });
  glfwSetKeyCallback(window, [](GLFWwindow*, int key, int, int, int) { gameSaw.push_back("key " + std::to_string(key)); });
  glfwSetCharCallback(window, [](GLFWwindow*, unsigned int c) { gameSaw.push_back("char " + std::to_string(c)); });
  glfwSetWindowFocusCallback(window, [](GLFWwindow*, int focused) { gameSaw.push_back("focus " + std::to_string(focused)); });
}

class GlfwInputTest : public testing::SimulatedGame {
 protected:
  static void SetUpTestSuite() {
    if (std::getenv("DISPLAY") == nullptr) {
      xServer_ = testing::startXServer(::testing::TempDir() + "glfw_input_xvfb.log");
      if (xServer_) setenv("DISPLAY", xServer_->display.c_str(), 1);
    }
  }
  static void TearDownTestSuite() { xServer_.reset(); }
  static inline std::optional<testing::XServer> xServer_;

  void SetUp() override {
    SimulatedGame::SetUp();
    useScreen({200, 100});
    if (glfwInit() != GLFW_TRUE) GTEST_SKIP() << "GLFW has no display (Xvfb, from scripts/setup)";
    glfwWindowHint(GLFW_CLIENT_API, GLFW_NO_API);
    glfwWindowHint(GLFW_VISIBLE, GLFW_FALSE);
    window_ = glfwCreateWindow(200, 100, "input_test", nullptr, nullptr);
    ASSERT_NE(window_, nullptr);
    gameSaw.clear();
    installGameCallbacks(window_);
    input_ = std::make_unique<GlfwInput>(window_);
  }
  void TearDown() override {
    input_.reset();
    if (window_ != nullptr) glfwDestroyWindow(window_);
    glfwTerminate();
    SimulatedGame::TearDown();
  }

  // The callback installed on the window now, as GLFW would call it.
  template <class Callback>
  Callback installed(Callback (*set)(GLFWwindow*, Callback)) {
    const Callback callback = set(window_, nullptr);
    set(window_, callback);
    return callback;
  }
  // `between` comes between the press and the release.
  void click(double x, double y, int button = GLFW_MOUSE_BUTTON_LEFT, const std::function<void()>& between = {}) {
    move(x, y);
    installed(glfwSetMouseButtonCallback)(window_, button, GLFW_PRESS, 0);
    if (between) between();
    installed(glfwSetMouseButtonCallback)(window_, button, GLFW_RELEASE, 0);
  }
  void move(double x, double y) { installed(glfwSetCursorPosCallback)(window_, x, y); }
  void key(int key) {
    installed(glfwSetKeyCallback)(window_, key, 0, GLFW_PRESS, 0);
    installed(glfwSetKeyCallback)(window_, key, 0, GLFW_RELEASE, 0);
  }
  void type(const std::u32string& text) {
    for (char32_t c : text) installed(glfwSetCharCallback)(window_, static_cast<unsigned int>(c));
  }
  std::vector<std::string> takeGameSaw() { return std::exchange(gameSaw, {}); }

  GLFWwindow* window_ = nullptr;
  std::unique_ptr<GlfwInput> input_;
};

using Events = std::vector<std::string>;

TEST_F(GlfwInputTest, theGameGetsWhatTheLibraryDidNotTakeAndNothingWhileAPageCoversIt) {
  auto button = std::make_shared<UIButton>(CGRectMake(0, 0, 100, 50));
  int taps = 0;
  button->addTarget(this, [&taps](UIControl*) { ++taps; }, UIControlEventTouchUpInside);
  game()->view()->addSubview(button);
  auto field = std::make_shared<UITextField>(CGRectMake(100, 0, 100, 50));
  game()->view()->addSubview(field);

  // The game's own screen: the library sees the finger, the game sees everything.
  click(50, 25);
  click(50, 25, GLFW_MOUSE_BUTTON_RIGHT);
  EXPECT_EQ(taps, 1);
  EXPECT_EQ(takeGameSaw(), (Events{"cursor", "button 0 1", "button 0 0", "cursor", "button 1 1", "button 1 0"}));

  // A focused field takes characters and keys; the game gets the mouse still.
  click(150, 25);
  ASSERT_TRUE(field->isFirstResponder());
  type(U"añ\u0800€😀" + std::u32string(1, 0x110000));  // U+0800: the first of three bytes; past U+10FFFF: none
  key(GLFW_KEY_BACKSPACE);
  key(GLFW_KEY_W);
  EXPECT_EQ(field->text(), "añ\u0800€");
  testing::ReturnCounter delegate;
  field->setDelegate(&delegate);
  key(GLFW_KEY_ENTER);
  installed(glfwSetKeyCallback)(window_, GLFW_KEY_ENTER, 0, GLFW_REPEAT, 0);  // a held key's repeats do not ask
  field->setDelegate(nullptr);
  EXPECT_EQ(delegate.returns, 1);
  EXPECT_EQ(takeGameSaw(), (Events{"cursor", "button 0 1", "button 0 0"}));
  field->resignFirstResponder();
  key(GLFW_KEY_W);
  type(U"w");
  EXPECT_EQ(takeGameSaw(), (Events{"key 87", "key 87", "char 119"}));

  // A finger down when the window loses the focus is cancelled: no tap.
  click(50, 25, GLFW_MOUSE_BUTTON_LEFT, [&] { installed(glfwSetWindowFocusCallback)(window_, GLFW_FALSE); });
  EXPECT_EQ(taps, 1);
  EXPECT_EQ(takeGameSaw(), (Events{"cursor", "button 0 1", "focus 0", "button 0 0"}));

  // A page over the game takes everything, even where the game had a button.
  game()->presentViewController(std::make_shared<UIViewController>(), false, nullptr);
  click(50, 25);
  click(50, 25, GLFW_MOUSE_BUTTON_RIGHT);
  key(GLFW_KEY_W);
  type(U"w");
  installed(glfwSetScrollCallback)(window_, 0.0, 1.0);
  EXPECT_EQ(taps, 1);
  EXPECT_EQ(takeGameSaw(), Events{});
}

TEST_F(GlfwInputTest, givesTheGameItsCallbacksBackAndKeepsOnesInstalledSince) {
  tavrel_glfw_input* fromC = nullptr;
  EXPECT_EQ(tavrel_glfw_input_new(nullptr, &fromC), TAVREL_ERROR_NULL_ARGUMENT);
  EXPECT_EQ(tavrel_glfw_input_new(window_, &fromC), TAVREL_ERROR_INVALID_ARGUMENT) << "one adapter a window";
  const GLFWkeyfun later = [](GLFWwindow*, int, int, int, int) { gameSaw.push_back("later"); };
  glfwSetKeyCallback(window_, later);
  input_.reset();
  EXPECT_EQ(glfwSetKeyCallback(window_, nullptr), later);
  const GLFWcharfun game = glfwSetCharCallback(window_, nullptr);
  ASSERT_NE(game, nullptr);
  game(window_, 'x');
  EXPECT_EQ(takeGameSaw(), Events{"char 120"});
}

}  // namespace
}  // namespace tavrel
