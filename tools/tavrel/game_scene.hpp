#pragma once

// The game a scripted session plays under the overlay: a small side-scrolling scene drawn with
// Cairo, so that the overlay, the login page and the alerts are seen over a game.
//
// The sky and the hills are drawn once; what moves (clouds, a bouncing ball, a spinning coin, the
// score) are small views of their own, so a frame redraws only the little that changed.
//
// Thread safety: main thread only, like every view.

#include <tavrel_sdk/ui/controls.hpp>
#include <tavrel_sdk/ui/view.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

#include <cairo.h>

#include <memory>
#include <vector>

namespace tavrel::cli {

class GameSceneView final : public UIView {
 public:
  explicit GameSceneView(CGRect frame);
  void drawRect(CGContextRef context, CGRect rect) override;
  // Puts everything where it is after `seconds` of play.
  void animateTo(double seconds);

 private:
  void drawBackground(CGContextRef context) const;

  std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> background_{nullptr, cairo_surface_destroy};
  std::vector<std::shared_ptr<UIView>> clouds_;
  std::shared_ptr<UIView> ball_;
  std::shared_ptr<UIView> shadow_;
  std::shared_ptr<class CoinView> coin_;
  std::shared_ptr<UILabel> score_;
  int shownScore_ = -1;
};

// The game's root view controller: the animated scene, or a plain dark view.
class GameViewController final : public UIViewController {
 public:
  explicit GameViewController(bool animated) : animated_(animated) {}
  void loadView() override;
  void animateTo(double seconds);

 private:
  bool animated_;
};

}  // namespace tavrel::cli
