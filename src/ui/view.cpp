#include <tavrel_sdk/ui/view.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

#include "ui/renderer.hpp"

#include <algorithm>
#include <cmath>

namespace tavrel {

namespace {

// Alpha at or below this makes a view invisible to touches, as on the platform.
constexpr double kMinimumHitTestAlpha = 0.01;

}  // namespace

void CALayer::setCornerRadius(double radius) {
  if (cornerRadius_ == radius) return;
  cornerRadius_ = radius;
  view_.layerChanged();
}

void CALayer::setMasksToBounds(bool masks) {
  if (masksToBounds_ == masks) return;
  masksToBounds_ = masks;
  view_.layerChanged();
}

void CALayer::setBorderWidth(double width) {
  if (borderWidth_ == width) return;
  borderWidth_ = width;
  view_.layerChanged();
}

void CALayer::setBorderColor(std::optional<CGColorRef> color) {
  if (borderColor_ == color) return;
  borderColor_ = color;
  view_.layerChanged();
}

UIView::UIView(CGRect frame) : bounds_{{}, frame.size}, center_{frame.midX(), frame.midY()} {}

UIView::~UIView() {
  viewTreeChanges().viewDied(this);
  // Subviews may outlive their superview through other owners: they must not point back, and
  // all of them are let go before any handler of theirs runs.
  const auto subviews = std::move(subviews_);
  for (const auto& subview : subviews) subview->superview_ = nullptr;
  for (const auto& subview : subviews) subview->setWindowForTree(nullptr);
}

CGRect UIView::frame() const {
  return {{center_.x - bounds_.size.width / 2.0, center_.y - bounds_.size.height / 2.0}, bounds_.size};
}

void UIView::setFrame(CGRect frame) {
  const CGSize oldSize = bounds_.size;
  const CGPoint center{frame.midX(), frame.midY()};
  if (center == center_ && frame.size == oldSize) return;
  center_ = center;
  bounds_.size = frame.size;
  // Moved, it shows what it drew; a new size is drawn again.
  if (frame.size == oldSize) return;
  setNeedsDisplay();
  sizeChanged(oldSize);
}

void UIView::setBounds(CGRect bounds) {
  if (bounds == bounds_) return;
  const CGSize oldSize = bounds_.size;
  bounds_ = bounds;
  setNeedsDisplay();
  if (bounds.size != oldSize) sizeChanged(oldSize);
}

void UIView::sizeChanged(CGSize oldSize) {
  const double grownWidth = bounds_.size.width - oldSize.width;
  const double grownHeight = bounds_.size.height - oldSize.height;
  // On a copy: a subview's own layout may move views of this tree.
  const auto subviews = subviews_;
  for (const auto& subview : subviews) {
    const unsigned mask = subview->autoresizingMask_;
    if (!(mask & (UIViewAutoresizingFlexibleWidth | UIViewAutoresizingFlexibleHeight))) continue;
    CGRect frame = subview->frame();
    if (mask & UIViewAutoresizingFlexibleWidth) frame.size.width = std::max(0.0, frame.size.width + grownWidth);
    if (mask & UIViewAutoresizingFlexibleHeight) frame.size.height = std::max(0.0, frame.size.height + grownHeight);
    subview->setFrame(frame);
  }
  if (viewController_) viewController_->viewWillLayoutSubviews();
  layoutSubviews();
}

void UIView::setCenter(CGPoint center) {
  center_ = center;
}

void UIView::setAlpha(double alpha) {
  alpha_ = alpha;
}

void UIView::setHidden(bool hidden) {
  hidden_ = hidden;
}

void UIView::setBackgroundColor(std::shared_ptr<UIColor> color) {
  const bool same = color == backgroundColor_ || (color && backgroundColor_ && *color == *backgroundColor_);
  backgroundColor_ = std::move(color);
  if (!same) layerChanged();
}

void UIView::setUserInteractionEnabled(bool enabled) { userInteractionEnabled_ = enabled; }

void UIView::setMultipleTouchEnabled(bool enabled) { multipleTouchEnabled_ = enabled; }

void UIView::addSubview(std::shared_ptr<UIView> view) { insertSubview(std::move(view), subviews_.size()); }

void UIView::insertSubview(std::shared_ptr<UIView> view, std::size_t index) {
  // A view cannot hold itself or an ancestor; the platform rejects that too.
  if (!view || view.get() == this || isDescendantOfView(view.get())) return;
  if (view->superview_ == this) {
    auto it = std::find(subviews_.begin(), subviews_.end(), view);
    subviews_.erase(it);
  } else {
    view->removeFromSuperview();
    view->superview_ = this;
  }
  index = std::min(index, subviews_.size());
  subviews_.insert(subviews_.begin() + static_cast<std::ptrdiff_t>(index), view);
  view->setWindowForTree(window_);
}

void UIView::removeFromSuperview() {
  UIView* superview = superview_;
  if (!superview) return;
  auto& siblings = superview->subviews_;
  auto it = std::find_if(siblings.begin(), siblings.end(), [this](const auto& s) { return s.get() == this; });
  // Keeps this view alive until its fields are settled: the superview may have been its last owner.
  std::shared_ptr<UIView> self = std::move(*it);
  siblings.erase(it);
  superview_ = nullptr;
  setWindowForTree(nullptr);
}

UIWindow* UIView::window() const { return window_; }

bool UIView::isDescendantOfView(const UIView* view) const {
  for (const UIView* v = this; v; v = v->superview_) {
    if (v == view) return true;
  }
  return false;
}

CGPoint UIView::pointToSuperview(CGPoint point) const {
  const CGRect f = frame();
  return {point.x - bounds_.origin.x + f.origin.x, point.y - bounds_.origin.y + f.origin.y};
}

CGPoint UIView::pointFromSuperview(CGPoint point) const {
  const CGRect f = frame();
  return {point.x - f.origin.x + bounds_.origin.x, point.y - f.origin.y + bounds_.origin.y};
}

// Both directions go through the root of the tree (the window for views in one), which is
// where the window's coordinates live.
CGPoint UIView::convertPointToView(CGPoint point, const UIView* view) const {
  for (const UIView* v = this; v->superview_; v = v->superview_) point = v->pointToSuperview(point);
  return view ? view->convertPointFromView(point, nullptr) : point;
}

CGPoint UIView::convertPointFromView(CGPoint point, const UIView* view) const {
  if (view) point = view->convertPointToView(point, nullptr);
  if (!superview_) return point;
  return pointFromSuperview(superview_->convertPointFromView(point, nullptr));
}

CGRect UIView::convertRectToView(CGRect rect, const UIView* view) const {
  const CGPoint a = convertPointToView(rect.origin, view);
  const CGPoint b = convertPointToView({rect.origin.x + rect.size.width, rect.origin.y + rect.size.height}, view);
  return {{std::min(a.x, b.x), std::min(a.y, b.y)}, {std::abs(b.x - a.x), std::abs(b.y - a.y)}};
}

UIView* UIView::hitTest(CGPoint point, const UIEvent* event) {
  if (hidden_ || alpha_ <= kMinimumHitTestAlpha || !userInteractionEnabled_ || !pointInside(point, event)) {
    return nullptr;
  }
  for (auto it = subviews_.rbegin(); it != subviews_.rend(); ++it) {
    UIView* subview = it->get();
    if (UIView* hit = subview->hitTest(subview->pointFromSuperview(point), event)) return hit;
  }
  return this;
}

bool UIView::pointInside(CGPoint point, const UIEvent* /*event*/) const { return bounds_.containsPoint(point); }

UIResponder* UIView::nextResponder() const {
  if (viewController_) return viewController_;
  return superview_;
}

void UIView::setNeedsDisplay() {
  wholeDisplayVersion_ = ++displayVersion_;
  partialDisplays_.clear();
}

void UIView::layerChanged() { ++layerVersion_; }

void UIView::setNeedsDisplayInRect(CGRect rect) {
  // Kept few: a renderer a few changes behind draws the whole view again, as it would anyway.
  constexpr std::size_t kPartialDisplaysKept = 4;
  if (partialDisplays_.size() == kPartialDisplaysKept) partialDisplays_.erase(partialDisplays_.begin());
  partialDisplays_.push_back({++displayVersion_, rect});
}

std::optional<CGRect> UIView::displayChangeSince(std::uint64_t version) const {
  if (version >= displayVersion_) return CGRectZero;
  // Every change after `version` must be one of the partial ones still kept.
  if (wholeDisplayVersion_ > version || partialDisplays_.empty() || partialDisplays_.front().version > version + 1) {
    return std::nullopt;
  }
  CGRect changed = CGRectZero;
  for (const PartialDisplay& partial : partialDisplays_) {
    if (partial.version > version) changed = CGRectUnion(changed, partial.rect);
  }
  return changed;
}

ViewTreeChanges& viewTreeChanges() {
  static ViewTreeChanges changes;
  return changes;
}

bool& baseDrawRectReached() {
  static bool reached = false;
  return reached;
}

void UIView::drawRect(CGContextRef /*context*/, CGRect /*rect*/) { baseDrawRectReached() = true; }

void UIView::setWindowForTree(UIWindow* window) {
  if (window_ == window) return;
  window_ = window;
  ++viewTreeChanges().changes;
  // A responder that leaves the screen gives up the keyboard, as on the platform.
  if (!window && isFirstResponder()) resignFirstResponder();
  // On a copy: a field's resignation or a didMoveToWindow() may move views of this tree.
  const auto subviews = subviews_;
  for (const auto& subview : subviews) {
    if (subview->superview_ == this) subview->setWindowForTree(window_);
  }
  didMoveToWindow();
}

}  // namespace tavrel
