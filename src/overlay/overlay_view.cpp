#include "overlay/overlay_view.hpp"

#include <tavrel_sdk/tavrel_sdk.hpp>
#include <tavrel_sdk/ui/application.hpp>

#include "session/session_texts.hpp"
#include "watermark/watermark_arithmetic.hpp"

namespace tavrel {
namespace {

using watermark_detail::truncateToInt32;

// Touch coordinates go into the record as 0 to 65535 across the screen, unclamped.
constexpr double kCoordinateScale = 65535.0;

std::int32_t scaledCoordinate(double location, std::int32_t extent) {
  return truncateToInt32((kCoordinateScale * location) / static_cast<double>(extent));
}

}  // namespace

TouchMark::TouchMark(std::int32_t index) : UIView(CGRectMake(0.0, 0.0, kSide, kSide)), index_(index) {
  setBackgroundColor(UIColor::colorWithRed(1.0, 1.0, 1.0, kAlpha));
  layer().setCornerRadius(kSide / 2.0);
}

OverlayView::OverlayView(CGRect frame) : UIView(frame), _watermark(std::make_unique<Watermark>()) {
  // Every mark exists from the start, so a touch never makes a view.
  _touchViews.reserve(kTouchMarkCount);
  for (std::int32_t index = 0; index < kTouchMarkCount; ++index) _touchViews.push_back(std::make_shared<TouchMark>(index));
}

OverlayView::~OverlayView() {
  if (_timer) _timer->invalidate();
}

std::int32_t OverlayView::watermarkFontSize(double height) {
  const auto scale = static_cast<float>(height / 1080.0);
  return truncateToInt32(30.0f * scale);
}

void OverlayView::readScreenSize(CGSize screen) {
  _width = truncateToInt32(screen.width);
  _height = truncateToInt32(screen.height);
}

void OverlayView::readWatermarkScreen(CGSize screen) {
  _font = UIFont::monospacedDigitSystemFontOfSize(static_cast<double>(watermarkFontSize(screen.height)),
                                                  UIFontWeightRegular);
  readScreenSize(screen);
  // The canvas keeps the screen's fractions; the touch scaling above does not.
  _watermark->setCanvasDimensionWithWidth(static_cast<float>(screen.width), static_cast<float>(screen.height));
}

void OverlayView::showTouches() {
  _enableTouches = true;
  readScreenSize(UIScreen::mainScreen().bounds().size);
}

void OverlayView::layoutSubviews() {
  const CGSize screen = UIScreen::mainScreen().bounds().size;
  if (_enableTouches) readScreenSize(screen);
  if (!_enableWatermark) return;
  readWatermarkScreen(screen);
  // Placed anew within the new canvas: a line drawn for the old one may lie outside it.
  _watermark->setBehaviourType(_watermark->getBehaviourType());
  for (const auto& label : _textViews) label->setFont(_font);
}

void OverlayView::showWatermark() {
  if (_enableWatermark) return;
  _enableWatermark = true;
  readWatermarkScreen(UIScreen::mainScreen().bounds().size);
  _watermark->setBehaviourType(WatermarkBehaviourTypeTicker);
  // Weakly held: the timer must not keep a let-go overlay alive, nor tick a destroyed one.
  std::weak_ptr<UIResponder> weakSelf = weak_from_this();
  _timer = Platform::current().scheduledTimer(kTimerInterval, [weakSelf] {
    if (const auto self = std::static_pointer_cast<OverlayView>(weakSelf.lock())) self->timerFired(self->_timer.get());
  });
}

CGSize OverlayView::measureText(const std::string& text, const TextAttributes& attributes) const {
  return sizeWithAttributes(text, attributes);
}

CGRect OverlayView::labelFrame(const RenderItem& item) const {
  return CGRectMake(item.x(), item.y(), _watermark->getTextWidth(), _watermark->getTextHeight());
}

std::shared_ptr<UILabel> OverlayView::makeLabel(CGRect frame, const std::string& text) const {
  auto label = std::make_shared<UILabel>(frame);
  label->setText(text);
  label->setTextColor(UIColor::whiteColor());
  label->setBackgroundColor(UIColor::clearColor());
  label->setFont(_font);
  return label;
}

void OverlayView::timerFired(Timer* /*timer*/) {
  if (!_watermark) return;
  // The update still sees the previous tick's text size (none on the first tick).
  _watermark->updateWithDelta(kTickStep);
  static const std::shared_ptr<UIColor> white = UIColor::whiteColor();
  const TextAttributes attributes{_font, white};
  // Composed in a buffer kept from tick to tick, from getTimestamp and getUserId's texts: a
  // tick allocates nothing.
  std::string& text = _text;
  assignTimestamp(text);
  text.push_back('-');
  appendUserId(text);
  const CGSize size = measureText(text, attributes);
  // Not rounded up to whole points: the labels are as wide as the text with its fraction.
  _watermark->setTextDimensionsWithWidth(static_cast<float>(size.width), static_cast<float>(size.height));
  std::vector<RenderItem>& items = _nextRenderItems;
  if (!_watermark->fillRenderList(items)) return;

  if (!_renderItems) {
    _renderItems.emplace().swap(items);
    for (const RenderItem& item : *_renderItems) {
      auto label = makeLabel(labelFrame(item), text);
      addSubview(label);
      _textViews.push_back(std::move(label));
    }
    return;
  }
  // The pool follows the list's length at its end only: the labels at the front live on.
  for (std::size_t count = _renderItems->size(); count > items.size(); --count) {
    const auto label = std::move(_textViews.back());
    _textViews.pop_back();
    label->removeFromSuperview();
  }
  for (std::size_t count = _renderItems->size(); count < items.size(); ++count) {
    auto label = makeLabel(CGRectZero, text);
    addSubview(label);
    _textViews.push_back(std::move(label));
  }
  // The old list's buffer takes the next tick's.
  _renderItems->swap(items);
  // Taken off and put back in list order, so the labels end up in front of any touch mark.
  for (std::size_t i = 0; i < _renderItems->size(); ++i) {
    const auto& label = _textViews[i];
    label->removeFromSuperview();
    label->setFrame(labelFrame((*_renderItems)[i]));
    if (label->text() != text) label->setText(text);
    addSubview(label);
  }
}

void OverlayView::touchesBegan(const UITouchSet& touches, const UIEvent* event) {
  UIView::touchesBegan(touches, event);
  if (!_enableTouches) return;
  for (const auto& touch : touches) {
    if (_touchViews.empty()) continue;
    const auto mark = _touchViews.front();
    mark->setCenter(touch->locationInView(this));
    addSubview(mark);
    _touchViews.erase(_touchViews.begin());
    _touchViewCache[touch.get()] = mark;
  }
}

void OverlayView::touchesMoved(const UITouchSet& touches, const UIEvent* event) {
  UIView::touchesMoved(touches, event);
  if (!_enableTouches) return;
  auto& sdk = TavrelSDK::sharedInstance();
  for (const auto& touch : touches) {
    const CGPoint location = touch->locationInView(this);
    const auto found = _touchViewCache.find(touch.get());
    TouchMark* mark = found == _touchViewCache.end() ? nullptr : found->second.get();
    sdk.emitInputEvent({6, 0, 6, mark ? mark->index() : kNoMark, scaledCoordinate(location.x, _width),
                        scaledCoordinate(location.y, _height), _width > _height ? 1 : 0});
    // The mark follows the finger whatever the rate limit kept of the records.
    if (mark) mark->setCenter(location);
  }
}

void OverlayView::touchesEnded(const UITouchSet& touches, const UIEvent* event) {
  UIView::touchesEnded(touches, event);
  if (_enableTouches) endTouches(touches);
}

void OverlayView::touchesCancelled(const UITouchSet& touches, const UIEvent* event) {
  UIView::touchesCancelled(touches, event);
  if (_enableTouches) endTouches(touches);
}

void OverlayView::endTouches(const UITouchSet& touches) {
  auto& sdk = TavrelSDK::sharedInstance();
  for (const auto& touch : touches) {
    const auto found = _touchViewCache.find(touch.get());
    std::shared_ptr<TouchMark> mark = found == _touchViewCache.end() ? nullptr : found->second;
    if (mark) mark->removeFromSuperview();
    sdk.emitInputEvent({3, 0, 7, mark ? mark->index() : kNoMark});
    // A dropped record still gives the mark back.
    if (mark) {
      _touchViews.push_back(std::move(mark));
      _touchViewCache.erase(found);
    }
  }
}

}  // namespace tavrel
