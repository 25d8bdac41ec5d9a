#include "game_scene.hpp"

#include <tavrel_sdk/ui/application.hpp>
#include <tavrel_sdk/ui/font.hpp>

#include <cairo.h>

#include <cmath>
#include <numbers>
#include <string>

namespace tavrel::cli {
namespace {

constexpr double kGroundShare = 0.78;  // the ground starts this far down the screen

class CloudView final : public UIView {
 public:
  explicit CloudView(CGRect frame) : UIView(frame) {}
  void drawRect(CGContextRef cr, CGRect) override {
    const CGRect b = bounds();
    cairo_set_source_rgba(cr, 1, 1, 1, 0.92);
    const double puffs[][3] = {{0.28, 0.62, 0.26}, {0.5, 0.45, 0.32}, {0.72, 0.62, 0.24}};
    for (const auto& p : puffs) {
      cairo_new_sub_path(cr);
      cairo_arc(cr, b.size.width * p[0], b.size.height * p[1], b.size.height * p[2] * 1.3, 0, 2 * std::numbers::pi);
    }
    cairo_fill(cr);
  }
};

class BallView final : public UIView {
 public:
  explicit BallView(CGRect frame) : UIView(frame) {}
  void drawRect(CGContextRef cr, CGRect) override {
    const double r = bounds().size.width / 2;
    cairo_pattern_t* shade = cairo_pattern_create_radial(r * 0.7, r * 0.6, r * 0.1, r, r, r);
    cairo_pattern_add_color_stop_rgb(shade, 0, 1.0, 0.86, 0.55);
    cairo_pattern_add_color_stop_rgb(shade, 1, 0.93, 0.35, 0.12);
    cairo_set_source(cr, shade);
    cairo_arc(cr, r, r, r, 0, 2 * std::numbers::pi);
    cairo_fill(cr);
    cairo_pattern_destroy(shade);
  }
};

class ShadowView final : public UIView {
 public:
  explicit ShadowView(CGRect frame) : UIView(frame) {}
  void drawRect(CGContextRef cr, CGRect) override {
    const CGRect b = bounds();
    cairo_save(cr);
    cairo_translate(cr, b.size.width / 2, b.size.height / 2);
    cairo_scale(cr, b.size.width / 2, b.size.height / 2);
    cairo_arc(cr, 0, 0, 1, 0, 2 * std::numbers::pi);
    cairo_restore(cr);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.25);
    cairo_fill(cr);
  }
};

}  // namespace

// A coin seen edge-on as it turns: drawn again six times a second, not every frame.
class CoinView final : public UIView {
 public:
  explicit CoinView(CGRect frame) : UIView(frame) {}
  void setPhase(int phase) {
    if (phase == phase_) return;
    phase_ = phase;
    setNeedsDisplay();
  }
  void drawRect(CGContextRef cr, CGRect) override {
    const CGRect b = bounds();
    const double squeeze = std::max(0.08, std::abs(std::cos(phase_ * std::numbers::pi / 12)));
    cairo_save(cr);
    cairo_translate(cr, b.size.width / 2, b.size.height / 2);
    cairo_scale(cr, b.size.width / 2 * squeeze, b.size.height / 2);
    cairo_arc(cr, 0, 0, 1, 0, 2 * std::numbers::pi);
    cairo_restore(cr);
    cairo_set_source_rgb(cr, 0.98, 0.80, 0.15);
    cairo_fill_preserve(cr);
    cairo_set_source_rgb(cr, 0.75, 0.55, 0.05);
    cairo_set_line_width(cr, 2);
    cairo_stroke(cr);
  }

 private:
  int phase_ = 0;
};

GameSceneView::GameSceneView(CGRect frame) : UIView(frame) {
  const double w = frame.size.width;
  const double h = frame.size.height;
  for (int i = 0; i < 2; ++i) {
    clouds_.push_back(std::make_shared<CloudView>(CGRectMake(0, 0, 110 + 30 * i, 46 + 10 * i)));
    addSubview(clouds_.back());
  }
  shadow_ = std::make_shared<ShadowView>(CGRectMake(0, h * kGroundShare - 6, 44, 12));
  addSubview(shadow_);
  ball_ = std::make_shared<BallView>(CGRectMake(0, 0, 40, 40));
  addSubview(ball_);
  coin_ = std::make_shared<CoinView>(CGRectMake(w * 0.5 - 17, h * kGroundShare - 150, 34, 34));
  addSubview(coin_);
  // On the ground, where white text reads and no cloud passes.
  score_ = std::make_shared<UILabel>(CGRectMake(16, h - 70, 200, 30));
  score_->setFont(UIFont::boldSystemFontOfSize(22));
  score_->setTextColor(UIColor::whiteColor());
  addSubview(score_);
  animateTo(0);
}

// Painted from a picture made once at the screen's scale: a frame redraws the background only
// where a sprite moved, and a blit there costs a fraction of drawing the gradient and hills.
void GameSceneView::drawRect(CGContextRef cr, CGRect) {
  const double scale = UIScreen::mainScreen().scale();
  if (!background_) {
    const CGRect b = bounds();
    background_.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(std::ceil(b.size.width * scale)),
                                                 static_cast<int>(std::ceil(b.size.height * scale))));
    cairo_t* picture = cairo_create(background_.get());
    cairo_scale(picture, scale, scale);
    drawBackground(picture);
    cairo_destroy(picture);
  }
  // In device pixels at a whole offset, so that Cairo copies rather than resamples.
  double x = 0;
  double y = 0;
  cairo_user_to_device(cr, &x, &y);
  cairo_save(cr);
  cairo_identity_matrix(cr);
  cairo_set_source_surface(cr, background_.get(), std::round(x), std::round(y));
  cairo_paint(cr);
  cairo_restore(cr);
}

void GameSceneView::drawBackground(CGContextRef cr) const {
  const double w = bounds().size.width;
  const double h = bounds().size.height;
  const double ground = h * kGroundShare;
  cairo_pattern_t* sky = cairo_pattern_create_linear(0, 0, 0, ground);
  cairo_pattern_add_color_stop_rgb(sky, 0, 0.20, 0.47, 0.80);
  cairo_pattern_add_color_stop_rgb(sky, 1, 0.72, 0.88, 0.98);
  cairo_set_source(cr, sky);
  cairo_rectangle(cr, 0, 0, w, ground);
  cairo_fill(cr);
  cairo_pattern_destroy(sky);

  cairo_set_source_rgb(cr, 1.0, 0.93, 0.55);
  cairo_arc(cr, w * 0.8, h * 0.12, 34, 0, 2 * std::numbers::pi);
  cairo_fill(cr);

  // Two rows of hills, the far one paler.
  const double rows[][4] = {{0.62, 0.70, 0.52, 90}, {0.42, 0.62, 0.36, 60}};
  for (int row = 0; row < 2; ++row) {
    cairo_set_source_rgb(cr, rows[row][0], rows[row][1], rows[row][2]);
    cairo_move_to(cr, 0, ground);
    for (double x = 0; x <= w; x += 6) {
      const double y = ground - rows[row][3] * (0.55 + 0.45 * std::sin(x / (70.0 + 40 * row) + row * 1.7));
      cairo_line_to(cr, x, y);
    }
    cairo_line_to(cr, w, ground);
    cairo_close_path(cr);
    cairo_fill(cr);
  }
  cairo_set_source_rgb(cr, 0.45, 0.33, 0.20);
  cairo_rectangle(cr, 0, ground, w, h - ground);
  cairo_fill(cr);
  cairo_set_source_rgb(cr, 0.30, 0.62, 0.25);
  cairo_rectangle(cr, 0, ground, w, 10);
  cairo_fill(cr);
}

void GameSceneView::animateTo(double seconds) {
  // The game animates at 30 Hz, as many do: every other frame finds nothing moved.
  const double t = std::floor(seconds * 30) / 30;
  const double w = bounds().size.width;
  const double h = bounds().size.height;
  const double ground = h * kGroundShare;
  for (std::size_t i = 0; i < clouds_.size(); ++i) {
    const double width = clouds_[i]->bounds().size.width;
    const double span = w + width;
    // Whole points: a slow cloud moves every few frames, not a fraction of a pixel every frame.
    const double x = std::round(std::fmod(i * span / 2 + t * (5 + 3 * static_cast<double>(i)), span) - width / 2);
    clouds_[i]->setCenter({x, std::round(h * (0.09 + 0.11 * static_cast<double>(i)))});
  }
  // The ball crosses the screen and back every 12 s, bouncing every 0.9 s.
  const double across = std::abs(std::fmod(t / 6.0, 2.0) - 1.0);
  const double x = 30 + across * (w - 60);
  const double height = std::abs(std::sin(t * std::numbers::pi / 0.9)) * h * 0.15;
  ball_->setCenter({x, ground - 20 - height});
  shadow_->setCenter({x, ground + 2});
  coin_->setPhase(static_cast<int>(t * 6) % 24);
  const int score = static_cast<int>(t) * 7;
  if (score != shownScore_) {
    shownScore_ = score;
    score_->setText("Score " + std::to_string(score));
  }
}

void GameViewController::loadView() {
  const CGRect bounds = UIScreen::mainScreen().bounds();
  if (animated_) {
    setView(std::make_shared<GameSceneView>(bounds));
    return;
  }
  auto plain = std::make_shared<UIView>(bounds);
  plain->setBackgroundColor(UIColor::colorWithRed(0.16, 0.18, 0.22, 1));
  setView(plain);
}

void GameViewController::animateTo(double seconds) {
  if (auto* scene = dynamic_cast<GameSceneView*>(view().get())) scene->animateTo(seconds);
}

}  // namespace tavrel::cli
