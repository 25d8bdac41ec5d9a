#include "support/game_screen.hpp"

#include "endpoint/https_server.hpp"
#include "endpoint/mock_service.hpp"
#include "login/login_view.hpp"
#include "overlay/overlay_view.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace tavrel::testing {

void SimulatedGame::SetUp() {
  SimulatedSession::SetUp();
  useScreen({390, 844});
}

void SimulatedGame::useScreen(CGSize size, double scale) { useHost(std::make_shared<HeadlessHost>(size, scale)); }

void SimulatedGame::useHost(std::shared_ptr<UIHost> host) {
  if (auto* responder = UIResponder::currentFirstResponder()) responder->resignFirstResponder();
  UIHost::install(std::move(host));
  window_ = std::make_shared<UIWindow>();
  game_ = std::make_shared<UIViewController>();
  window_->setRootViewController(game_);
  window_->makeKeyAndVisible();
}

std::shared_ptr<UIView> SimulatedGame::addColouredView(CGRect frame, std::shared_ptr<UIColor> color, UIView* to) {
  auto view = std::make_shared<UIView>(frame);
  view->setBackgroundColor(std::move(color));
  (to ? *to : *game_->view()).addSubview(view);
  return view;
}

void SimulatedGame::TearDown() {
  if (auto* responder = UIResponder::currentFirstResponder()) responder->resignFirstResponder();
  game_.reset();
  window_.reset();
  // Views made by the test are gone before the platform their timers ran on.
  SimulatedSession::TearDown();
}

std::array<int, 4> pixelAt(const UIFrame& frame, CGPoint point) {
  const int x = static_cast<int>(point.x * frame.scale), y = static_cast<int>(point.y * frame.scale);
  const std::uint32_t p = frame.pixels[static_cast<std::ptrdiff_t>(y) * frame.stride / 4 + x];
  const int a = static_cast<int>(p >> 24);
  auto straight = [a](std::uint32_t c) { return a == 0 ? 0 : static_cast<int>((c * 255 + a / 2) / a); };
  return {straight((p >> 16) & 0xFF), straight((p >> 8) & 0xFF), straight(p & 0xFF), a};
}

namespace {

const std::string kRefused = std::string(24, 'r') + "resized-player-id-000001";

// The host takes the change, shows its frame, and the frame after it is the new screen's, whole.
const UIFrame& change(const ResizingHost& host, ScreenChange to) {
  host.resize(to);
  if (host.show) host.show();
  const UIFrame& frame = UIHost::current().renderFrame();
  EXPECT_EQ(std::tuple(UIScreen::mainScreen().bounds().size, frame.width, frame.height),
            std::tuple(to.size, std::lround(to.size.width * to.scale), std::lround(to.size.height * to.scale)));
  if (!host.show) {
    EXPECT_EQ(frame.damage, (std::vector<PixelRect>{{0, 0, frame.width, frame.height}}));
  }
  return frame;
}

// A tap at the centre of `view`, through the host as a player's finger.
void tap(const UIView& view) {
  const CGRect rect = view.convertRectToView(view.bounds(), nullptr);
  const Finger finger{7, {rect.midX(), rect.midY()}};
  EXPECT_TRUE(UIHost::current().fingersDown({finger}));
  EXPECT_TRUE(UIHost::current().fingersUp({finger}));
}

}  // namespace

void resizeThroughLoginAndPlay(SimPlatform& sim, const ResizingHost& host, ScreenChange withPage, ScreenChange inPlay) {
  endpoint::HttpsServer server;
  endpoint::MockService{.refusedTokens = {kRefused}, .users = {{"ann", "secret"}}}.install(server);
  server.start();
  sim.setTrustedCertificatesFile(server.caFile());
  sim.setServiceBaseUrlForTesting(server.baseUrl());
  sim.setInfoDictionaryJson(R"({"CFBundleURLTypes":[{"CFBundleURLSchemes":["resized"]}]})");
  auto window = std::make_shared<UIWindow>();
  auto game = std::make_shared<UIViewController>();
  window->setRootViewController(game);
  window->makeKeyAndVisible();
  auto& sdk = TavrelSDK::sharedInstance();
  sdk.initialiseOverlay(game, kRefused);
  sdk.showWatermark();
  sdk.showTouches();
  // Shared: the session keeps the completion after this returns.
  const auto accepted = std::make_shared<int>(0);
  sdk.validate([accepted](bool ok) { *accepted += ok ? 1 : 0; });
  sim.runUntilIdle();
  sim.advance(1.0);
  const auto page = game->presentedViewController();
  ASSERT_TRUE(page) << "the refused token brings the page";
  auto& form = static_cast<LoginView&>(*page->view());
  // Focused where the host's first screen may be too small to reach the field.
  ASSERT_TRUE(form.txtUsername()->becomeFirstResponder());
  UIHost::current().typeText("an");

  {
    SCOPED_TRACE("with the page up");
    const UIFrame& frame = change(host, withPage);
    const CGRect screen{{}, withPage.size};
    EXPECT_EQ((std::vector{window->frame(), game->view()->frame()}), (std::vector{screen, screen}));
    // Laid out by the rules that lay out a form made at this size.
    const auto frames = [](const LoginView& view) {
      return std::vector{view.frame(), view.background()->frame(), view.lblInformation()->frame(),
                         view.txtUsername()->frame(), view.txtPassword()->frame(), view.btnLogin()->frame()};
    };
    EXPECT_EQ(frames(form), frames(LoginView(screen)));
    // Drawn over the whole screen, the button where it now stands.
    EXPECT_EQ(pixelAt(frame, {screen.size.width - 0.5, screen.size.height - 0.5})[3], 255);
    const CGRect button = form.btnLogin()->frame();
    EXPECT_EQ(pixelAt(frame, {button.origin.x + 4.0, button.midY()}), (std::array{255, 102, 0, 255}));
    EXPECT_TRUE(form.txtUsername()->isFirstResponder());
  }
  UIHost::current().typeText("n");
  tap(*form.txtPassword());
  UIHost::current().typeText("secret");
  tap(*form.btnLogin());
  sim.runUntilIdle();
  sim.advance(1.0);
  EXPECT_EQ(*accepted, 1) << "ann logs in with what was typed before and after the change";
  EXPECT_FALSE(game->presentedViewController());

  SCOPED_TRACE("in play");
  const auto overlay = sdk.overlayView();
  change(host, inPlay);
  const CGRect screen{{}, inPlay.size};
  EXPECT_EQ(overlay->frame(), screen);
  sim.advance(OverlayView::kTimerInterval);
  // The row of copies on a line inside the new height, starting inside the new width.
  ASSERT_FALSE(overlay->textViews().empty());
  EXPECT_LT(overlay->textViews().front()->frame().origin.x, screen.size.width);
  for (const auto& label : overlay->textViews()) {
    const CGRect placed = label->frame();
    EXPECT_TRUE(placed.origin.y >= 0.0 && placed.origin.y + placed.size.height <= screen.size.height) << placed.origin.y;
  }
  // A finger near the new far corner: its mark under it, drawn there.
  const CGPoint corner{screen.size.width - 20.0, screen.size.height - 20.0};
  UIHost::current().fingersDown({{1, corner}});
  EXPECT_EQ(overlay->touchMarksInUse(), 1u);
  EXPECT_EQ(pixelAt(UIHost::current().renderFrame(), corner)[3], 0xaa) << "the mark's white at 2/3";
  UIHost::current().fingersUp({{1, corner}});
}

}  // namespace tavrel::testing
