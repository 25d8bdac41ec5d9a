#pragma once

// OverlayView: the transparent view over the game. It carries two services, both off when it
// is made and each switched on once for good: touch marks with input event records
// (showTouches), and the moving watermark (showWatermark).
//
// Touches: every handler first hands its touches to the base class, so they travel on to the
// view that holds the overlay whether or not the marks are on. With the marks on, a touch that
// begins takes the next free mark of the pool, a moved touch writes a touch-moved record and
// moves its mark, and an ended or cancelled touch writes a touch-ended record and gives its
// mark back to the end of the pool.
//
// Watermark: a repeating timer of the platform ticks it 15 times a second; each tick moves the
// engine by a fixed step, measures the text "<timestamp>-<user id>" and brings one label per
// placement in line with the engine's list.
//
// A screen that changes size (the overlay follows it): the switches that are on read the
// screen again as they did when switched on, so touches scale to the new size, and the
// watermark takes a font for the new height and its canvas anew; its behaviour starts again
// within the new canvas, so the next tick places every copy inside it.
//
// Thread safety: main thread only, like every view; the timer fires on the main thread.

#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/ui/controls.hpp>
#include <tavrel_sdk/ui/font.hpp>
#include <tavrel_sdk/ui/view.hpp>

#include "watermark/render_item.hpp"
#include "watermark/watermark.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace tavrel {

// One of the ten white discs shown under a finger. Its index, 0 to 9 in the order the marks
// were made, is what an input event record carries as markIndex, so a reader can tell fingers
// apart.
class TAVREL_EXPORT TouchMark final : public UIView {
 public:
  static constexpr double kSide = 24.0;
  static constexpr double kAlpha = 0.6666666666666666;

  explicit TouchMark(std::int32_t index);
  std::int32_t index() const { return index_; }

 private:
  std::int32_t index_;
};

class TAVREL_EXPORT OverlayView : public UIView {
 public:
  static constexpr int kTouchMarkCount = 10;
  // markIndex of a touch that has no mark (it began while every mark was in use, or before
  // showTouches).
  static constexpr std::int32_t kNoMark = -1;
  // The timer's interval and the engine's step are separate constants: the step is the float
  // nearest to 1/15, and a late timer slows the motion rather than lengthening the step.
  static constexpr double kTimerInterval = 1.0 / 15.0;
  static constexpr float kTickStep = 1.0f / 15.0f;

  // initWithFrame:. Makes the engine and the ten touch marks; no mark is shown yet.
  explicit OverlayView(CGRect frame);
  // Stops the watermark timer. The singleton keeps its overlay for the life of the process;
  // this matters only to an overlay that is let go (tests, tools).
  ~OverlayView() override;

  void touchesBegan(const UITouchSet& touches, const UIEvent* event) override;
  void touchesMoved(const UITouchSet& touches, const UIEvent* event) override;
  void touchesEnded(const UITouchSet& touches, const UIEvent* event) override;
  // Handled as an ended touch, so no mark stays on the screen and every track has an end.
  void touchesCancelled(const UITouchSet& touches, const UIEvent* event) override;

  // Switches the marks and records on and reads the screen's size in whole points. No guard:
  // a repeated call reads the size again.
  void showTouches();
  // Starts the watermark once: font and canvas from the screen, ticker behaviour, the timer.
  // A repeated call changes nothing. REQUIRES: the overlay is owned by a shared_ptr (the timer
  // holds it weakly).
  void showWatermark();
  // One watermark tick; the timer's argument is not used.
  void timerFired(Timer* timer);
  // After a change of size: the screen read again, as above.
  void layoutSubviews() override;

  // --- For inspection --------------------------------------------------------------------
  bool touchesEnabled() const { return _enableTouches; }
  bool watermarkEnabled() const { return _enableWatermark; }
  // The free marks, next one first.
  const std::vector<std::shared_ptr<TouchMark>>& freeTouchMarks() const { return _touchViews; }
  std::size_t touchMarksInUse() const { return _touchViewCache.size(); }
  // The engine; a tool may steer it (another behaviour, another speed) between ticks.
  Watermark& watermark() { return *_watermark; }
  const std::shared_ptr<Timer>& watermarkTimer() const { return _timer; }
  const std::optional<std::vector<RenderItem>>& renderItems() const { return _renderItems; }
  const std::vector<std::shared_ptr<UILabel>>& textViews() const { return _textViews; }
  const std::shared_ptr<UIFont>& font() const { return _font; }
  std::int32_t screenWidth() const { return _width; }
  std::int32_t screenHeight() const { return _height; }

  // The font size of the watermark for a screen `height` points high: 30 at 1080, in whole
  // points, the same scale as the spacer between the copies.
  static std::int32_t watermarkFontSize(double height);

 protected:
  // Measures the watermark text (sizeWithAttributes). The one seam for tests that need a fixed
  // text size; the overlay calls it once per tick.
  virtual CGSize measureText(const std::string& text, const TextAttributes& attributes) const;

 private:
  // The screen's size in whole points, for scaling touches.
  void readScreenSize(CGSize screen);
  // Font, whole points and canvas for the watermark, in the order showWatermark takes them.
  void readWatermarkScreen(CGSize screen);
  void endTouches(const UITouchSet& touches);
  std::shared_ptr<UILabel> makeLabel(CGRect frame, const std::string& text) const;
  CGRect labelFrame(const RenderItem& item) const;

  bool _enableTouches = false;
  bool _enableWatermark = false;
  // The free marks; they leave at the front and come back at the end.
  std::vector<std::shared_ptr<TouchMark>> _touchViews;
  // The mark of each live touch, by the touch's identity (a touch object lives from its first
  // notification to its last). Only touches that got a mark are here.
  std::unordered_map<const UITouch*, std::shared_ptr<TouchMark>> _touchViewCache;
  std::unique_ptr<Watermark> _watermark;
  std::shared_ptr<Timer> _timer;
  // Absent until the first list; then one label in _textViews per item, in list order.
  std::optional<std::vector<RenderItem>> _renderItems;
  std::vector<RenderItem> _nextRenderItems;  // filled by the next tick, then swapped in
  std::vector<std::shared_ptr<UILabel>> _textViews;
  std::shared_ptr<UIFont> _font;
  std::string _text;  // the latest tick's
  // The screen in whole points, for scaling touch coordinates.
  std::int32_t _width = 0;
  std::int32_t _height = 0;
};

}  // namespace tavrel
