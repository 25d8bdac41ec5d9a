// An SDL2 game with an OpenGL context, as the README shows it: the compositor on SDL's loader
// and SDL's events through SdlInput (SDL's offscreen video driver: EGL, no X server).

#include <tavrel_sdk/opengl_host.hpp>
#include <tavrel_sdk/sdl2_host.hpp>
#include <tavrel_sdk/ui.hpp>

#include "support/egl_context.hpp"
#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <SDL.h>

#include <cstdlib>
#include <memory>

namespace tavrel {
namespace {

class Sdl2OpenGLTest : public testing::SimulatedSession {
 protected:
  void SetUp() override {
    SimulatedSession::SetUp();
    setenv("SDL_VIDEODRIVER", "offscreen", 1);
    if (std::getenv("XDG_RUNTIME_DIR") == nullptr) setenv("XDG_RUNTIME_DIR", "/tmp", 0);
    ASSERT_EQ(SDL_Init(SDL_INIT_VIDEO), 0) << SDL_GetError();
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 3);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 3);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_CORE);
    window_ = SDL_CreateWindow("sdl2_opengl", 0, 0, 200, 100, SDL_WINDOW_OPENGL);
    context_ = window_ ? SDL_GL_CreateContext(window_) : nullptr;
    if (context_ == nullptr) GTEST_SKIP() << "no OpenGL 3.3 context from SDL here: " << SDL_GetError();
  }
  void TearDown() override {
    UIHost::install(std::make_shared<HeadlessHost>(CGSizeMake(200, 100), 1.0));
    if (context_ != nullptr) SDL_GL_DeleteContext(context_);
    if (window_ != nullptr) SDL_DestroyWindow(window_);
    SDL_Quit();
    SimulatedSession::TearDown();
  }
  SDL_Window* window_ = nullptr;
  SDL_GLContext context_ = nullptr;
};

TEST_F(Sdl2OpenGLTest, theReadmesIntegrationDrawsTheOverlayAndTakesSdlInput) {
  int w = 0, h = 0, fbw = 0, fbh = 0;
  SDL_GetWindowSize(window_, &w, &h);
  SDL_GL_GetDrawableSize(window_, &fbw, &fbh);
  auto host = std::make_shared<OpenGLHost>(SDL_GL_GetProcAddress, CGSizeMake(w, h), fbw, fbh);
  UIHost::install(host);
  SdlInput input(window_);
  auto screen = std::make_shared<UIWindow>();
  screen->setRootViewController(std::make_shared<UIViewController>());
  screen->makeKeyAndVisible();
  auto button = std::make_shared<UIButton>(CGRectMake(0, 0, 100, 50));
  button->setBackgroundColor(UIColor::colorWithRed(1, 0, 0, 1));
  int taps = 0;
  button->addTarget(this, [&taps](UIControl*) { ++taps; }, UIControlEventTouchUpInside);
  screen->rootViewController()->view()->addSubview(button);

  glClearColor(0, 0, 1, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  host->composite();
  unsigned char pixel[4] = {};
  glReadPixels(50, fbh - 1 - 25, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
  EXPECT_EQ(pixel[0], 255);  // the button, over the game's blue
  EXPECT_EQ(pixel[2], 0);
  glReadPixels(150, fbh - 1 - 75, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
  EXPECT_EQ(pixel[2], 255);  // the game's own

  SDL_Event event{};
  event.button = {SDL_MOUSEBUTTONDOWN, 0, SDL_GetWindowID(window_), 0, SDL_BUTTON_LEFT, SDL_PRESSED, 1, 0, 50, 25};
  EXPECT_FALSE(input.handleEvent(event));  // the game's screen: not taken
  event.type = SDL_MOUSEBUTTONUP;
  input.handleEvent(event);
  EXPECT_EQ(taps, 1);
  host->releaseGL();
  screen.reset();
}

}  // namespace
}  // namespace tavrel
