// Software renderer on SDL's dummy video driver; OpenGL on its offscreen one, in builds without sanitizers.

#include <tavrel_sdk/sdl2_host.hpp>
#include <tavrel_sdk/ui.hpp>

#include "support/blend_check.hpp"
#include "support/game_screen.hpp"

#include <gtest/gtest.h>

#include <SDL.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrel {
namespace {

class SdlHostTest : public testing::SimulatedGame, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    SimulatedGame::SetUp();
    const bool software = std::string(GetParam()) == "software";
    // Mesa's GL drivers leak what they allocate at load and draw on threads of their own that
    // no sanitizer sees into.
    if (!software && TAVREL_SANITIZED) GTEST_SKIP() << "OpenGL is checked in builds without sanitizers";
    setenv("SDL_VIDEODRIVER", software ? "dummy" : "offscreen", 1);
    SDL_SetHint(SDL_HINT_RENDER_DRIVER, GetParam());
    ASSERT_EQ(SDL_Init(SDL_INIT_VIDEO), 0) << SDL_GetError();
    window_ = SDL_CreateWindow("host_test", 0, 0, 200, 100, 0);
    renderer_ = window_ ? SDL_CreateRenderer(window_, -1, 0) : nullptr;
    SDL_RendererInfo info{};
    if (renderer_ == nullptr || SDL_GetRendererInfo(renderer_, &info) != 0 || std::string(info.name) != GetParam()) {
      GTEST_SKIP() << "no " << GetParam() << " renderer here";
    }
    host_ = std::make_shared<SdlHost>(window_, renderer_);
    useHost(host_);
  }
  void TearDown() override {
    UIHost::install(std::make_shared<HeadlessHost>(CGSizeMake(200, 100), 1.0));
    host_.reset();
    if (renderer_ != nullptr) SDL_DestroyRenderer(renderer_);
    if (window_ != nullptr) SDL_DestroyWindow(window_);
    SDL_Quit();
    SimulatedGame::TearDown();
  }

  // The game's frame (dark blue), the toolkit over it, then one pixel read back as 0xRRGGBB.
  std::uint32_t pixelAfterComposite(int x, int y) {
    SDL_SetRenderDrawColor(renderer_, 0, 0, 200, 255);
    SDL_RenderClear(renderer_);
    host_->composite();
    std::uint32_t pixel = 0;
    const SDL_Rect at{x, y, 1, 1};
    EXPECT_EQ(SDL_RenderReadPixels(renderer_, &at, SDL_PIXELFORMAT_ARGB8888, &pixel, 4), 0) << SDL_GetError();
    return pixel & 0xffffff;
  }
  bool send(SDL_Event event) { return host_->handleEvent(event); }
  // How many of a button's press and release the toolkit took; `between` comes between them.
  int click(int x, int y, Uint8 button = SDL_BUTTON_LEFT, std::optional<SDL_Event> between = {}) {
    SDL_Event event{};
    event.button = {SDL_MOUSEBUTTONDOWN, 0, SDL_GetWindowID(window_), 0, button, SDL_PRESSED, 1, 0, x, y};
    const int down = send(event) ? 1 : 0;
    if (between) send(*between);
    event.type = SDL_MOUSEBUTTONUP;
    return down + (send(event) ? 1 : 0);
  }
  // A finger of touch device `device` at (0.25, y) of the window, normalized.
  SDL_Event finger(Uint32 type, SDL_TouchID device, float y = 0.25f, Uint32 window = 0) {
    SDL_Event event{};
    event.tfinger = {type, 0, device, 42, 0.25f, y, 0, 0, 1, window};
    return event;
  }
  SDL_Event key(SDL_Keycode key, SDL_Scancode code, Uint8 repeat = 0) {
    SDL_Event event{};
    event.key = {SDL_KEYDOWN, 0, SDL_GetWindowID(window_), SDL_PRESSED, repeat, 0, 0, {code, key, 0, 0}};
    return event;
  }

  SDL_Window* window_ = nullptr;
  SDL_Renderer* renderer_ = nullptr;
  std::shared_ptr<SdlHost> host_;
};

// Half white (premultiplied) over the game's dark blue, as Cairo blends it.
bool halfWhiteOverGame(std::uint32_t shown) {
  const std::uint32_t halfWhite = 0x7f7f7f7f, game = 0x0000c8;
  return testing::blendMismatches(&halfWhite, 1, &game, &shown, 1, 1, 1, 3).empty();
}

TEST_P(SdlHostTest, laysTheToolkitOverTheGameAsCairoBlendsAndUploadsWhatChanged) {
  addColouredView(CGRectMake(0, 0, 50, 100), UIColor::colorWithRed(1, 1, 1, 0.5));
  auto block = addColouredView(CGRectMake(50, 0, 50, 100), UIColor::colorWithRed(1, 0, 0, 1));
  EXPECT_TRUE(halfWhiteOverGame(pixelAfterComposite(25, 50)));
  EXPECT_EQ(pixelAfterComposite(75, 50), 0xff0000u);
  EXPECT_EQ(pixelAfterComposite(150, 50), 0x0000c8u);  // nothing of the toolkit: the game as drawn

  block->setBackgroundColor(UIColor::colorWithRed(0, 1, 0, 1));
  EXPECT_EQ(pixelAfterComposite(75, 0), 0x00ff00u);  // the top row too
  EXPECT_TRUE(halfWhiteOverGame(pixelAfterComposite(25, 50)));
}

TEST_P(SdlHostTest, takesMouseTouchAndKeysAsFingersAndTextAndSaysWhatItTook) {
  if (std::string(GetParam()) != "software") GTEST_SKIP() << "input does not depend on the renderer";
  auto button = std::make_shared<UIButton>(CGRectMake(0, 0, 100, 50));
  int taps = 0;
  button->addTarget(this, [&taps](UIControl*) { ++taps; }, UIControlEventTouchUpInside);
  game()->view()->addSubview(button);
  auto field = std::make_shared<UITextField>(CGRectMake(100, 0, 100, 50));
  game()->view()->addSubview(field);

  EXPECT_EQ(click(50, 25), 0);  // the game's own screen: not taken
  click(50, 25, SDL_BUTTON_RIGHT);
  EXPECT_EQ(taps, 1);
  send(finger(SDL_FINGERDOWN, 7));  // (50, 25)
  send(finger(SDL_FINGERUP, 7));
  EXPECT_EQ(taps, 2);
  // Another window's touch is not ours; two touch devices number their fingers each from 0.
  EXPECT_FALSE(send(finger(SDL_FINGERDOWN, 7, 0.25f, SDL_GetWindowID(window_) + 1)));
  send(finger(SDL_FINGERUP, 7, 0.25f, SDL_GetWindowID(window_) + 1));
  EXPECT_EQ(taps, 2);
  for (const SDL_Event& event : {finger(SDL_FINGERDOWN, 7), finger(SDL_FINGERDOWN, 8, 0.75f),
                                 finger(SDL_FINGERUP, 8, 0.75f), finger(SDL_FINGERUP, 7)}) {
    send(event);
  }
  EXPECT_EQ(taps, 3);
  // A press when the window loses the focus is cancelled: no tap.
  SDL_Event focusLost{};
  focusLost.window = {SDL_WINDOWEVENT, 0, SDL_GetWindowID(window_), SDL_WINDOWEVENT_FOCUS_LOST, 0, 0, 0, 0, 0};
  click(50, 25, SDL_BUTTON_LEFT, focusLost);
  EXPECT_EQ(taps, 3);
  focusLost.window.windowID += 1;  // another window's
  click(50, 25, SDL_BUTTON_LEFT, focusLost);
  EXPECT_EQ(taps, 4);

  EXPECT_FALSE(SDL_IsTextInputActive());
  click(150, 25);
  EXPECT_TRUE(field->isFirstResponder());
  EXPECT_TRUE(SDL_IsTextInputActive());
  SDL_Event text{};
  text.text.type = SDL_TEXTINPUT;
  text.text.windowID = SDL_GetWindowID(window_);
  std::snprintf(text.text.text, sizeof text.text.text, "%s", "añ");
  EXPECT_TRUE(send(text));
  EXPECT_TRUE(send(key(SDLK_BACKSPACE, SDL_SCANCODE_BACKSPACE)));
  EXPECT_EQ(field->text(), "a");
  text.text.windowID += 1;  // another window's typing: the game's
  EXPECT_FALSE(send(text));
  EXPECT_EQ(field->text(), "a");
  // Return asks the field's delegate, once a press: a held key's repeats do not.
  testing::ReturnCounter delegate;
  field->setDelegate(&delegate);
  send(key(SDLK_RETURN, SDL_SCANCODE_RETURN));
  EXPECT_EQ(delegate.returns, 1);
  send(key(SDLK_RETURN, SDL_SCANCODE_RETURN, 1));
  field->setDelegate(nullptr);
  EXPECT_EQ(delegate.returns, 1);
  EXPECT_TRUE(send(key(SDLK_w, SDL_SCANCODE_W)));  // a game key while a field has the focus: the game does not move
  field->resignFirstResponder();
  EXPECT_FALSE(send(key(SDLK_w, SDL_SCANCODE_W)));
  EXPECT_FALSE(SDL_IsTextInputActive());

  // A page over the game takes everything, the press that brought it up too (a finger's, then the mouse's), even
  // where the game had a button.
  const auto bringPage = [this](UIControl*) {
    game()->presentViewController(std::make_shared<UIViewController>(), false, nullptr);
  };
  button->addTarget(this, bringPage, UIControlEventTouchDown);
  EXPECT_TRUE(send(finger(SDL_FINGERDOWN, 7)));
  send(finger(SDL_FINGERUP, 7));
  game()->dismissViewControllerAnimated(false, nullptr);
  EXPECT_EQ(click(50, 25), 2);
  EXPECT_EQ(click(50, 25), 2);
  EXPECT_TRUE(send(key(SDLK_w, SDL_SCANCODE_W)));
  EXPECT_EQ(taps, 6) << "the two presses that brought the page tap, the one on it does not";
}

TEST_P(SdlHostTest, followsTheWindowThroughItsSizeEvents) {
  // SDL's offscreen driver keeps the GL surface of the window's first size.
  if (std::string(GetParam()) != "software") GTEST_SKIP() << "the offscreen driver's surface does not resize";
  std::vector<std::uint32_t> corners;
  CGSize size;
  testing::ResizingHost resizing{[&](testing::ScreenChange to) {
                                   size = to.size;
                                   SDL_SetWindowSize(window_, static_cast<int>(size.width), static_cast<int>(size.height));
                                   for (SDL_Event event; SDL_PollEvent(&event) != 0;) send(event);
                                 },
                                 [&] {
                                   corners.push_back(pixelAfterComposite(static_cast<int>(size.width) - 1,
                                                                         static_cast<int>(size.height) - 1));
                                 }};
  testing::resizeThroughLoginAndPlay(sim(), resizing, {{360, 480}}, {{480, 300}});
  ASSERT_EQ(corners.size(), 2u);
  EXPECT_NE(corners[0], 0x0000c8u) << "the page covers the new corner";
  EXPECT_EQ(corners[1], 0x0000c8u) << "the game shows through the overlay";
}

// `tavrel run --window`: frames are shown until the player closes the window.
TEST(SdlSessionWindowTest, showsFramesUntilThePlayerClosesTheWindow) {
  setenv("SDL_VIDEODRIVER", "dummy", 1);
  SdlSessionWindow window("session", CGSizeMake(200, 100));
  SDL_Event event{};
  event.window.type = SDL_WINDOWEVENT;
  event.window.event = SDL_WINDOWEVENT_EXPOSED;
  SDL_PushEvent(&event);
  EXPECT_TRUE(window.showFrame());
  event.window.event = SDL_WINDOWEVENT_CLOSE;
  SDL_PushEvent(&event);
  EXPECT_FALSE(window.showFrame());
}

INSTANTIATE_TEST_SUITE_P(Renderers, SdlHostTest, ::testing::Values("software", "opengl"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace tavrel
