#pragma once

// UIView and its layer: a retained tree of rectangles in points. A later subview lies above
// an earlier one. Drawing is the toolkit's (Cairo at the screen's scale); a subclass that
// draws content of its own overrides drawRect() and calls setNeedsDisplay() when it changes.
//
// Thread safety: main thread only.

#include <tavrel_sdk/export.hpp>
#include <tavrel_sdk/ui/color.hpp>
#include <tavrel_sdk/ui/geometry.hpp>
#include <tavrel_sdk/ui/responder.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

struct _cairo;  // cairo_t

namespace tavrel {

class UIView;
class UIViewController;
class UIWindow;

// How a view follows its superview's change of size (the platform's values; only these two).
enum UIViewAutoresizing : unsigned {
  UIViewAutoresizingNone = 0,
  UIViewAutoresizingFlexibleWidth = 1u << 1,
  UIViewAutoresizingFlexibleHeight = 1u << 4,
};

// The current Cairo context of a drawRect(), already in the view's coordinates in points.
using CGContextRef = _cairo*;

// The CALayer properties of a view.
class TAVREL_EXPORT CALayer {
 public:
  double cornerRadius() const { return cornerRadius_; }
  void setCornerRadius(double radius);
  bool masksToBounds() const { return masksToBounds_; }
  void setMasksToBounds(bool masks);
  double borderWidth() const { return borderWidth_; }
  void setBorderWidth(double width);
  // Opaque black by default, as the platform's; drawn only with a border width above 0.
  std::optional<CGColorRef> borderColor() const { return borderColor_; }
  void setBorderColor(std::optional<CGColorRef> color);

 private:
  friend class UIView;
  explicit CALayer(UIView& view) : view_(view) {}
  UIView& view_;
  double cornerRadius_ = 0.0;
  bool masksToBounds_ = false;
  double borderWidth_ = 0.0;
  std::optional<CGColorRef> borderColor_ = CGColorRef{0.0, 0.0, 0.0, 1.0};
};

class TAVREL_EXPORT UIView : public UIResponder {
 public:
  // initWithFrame:
  explicit UIView(CGRect frame = CGRectZero);
  ~UIView() override;

  CGRect frame() const;
  void setFrame(CGRect frame);
  CGRect bounds() const { return bounds_; }
  void setBounds(CGRect bounds);
  CGPoint center() const { return center_; }
  void setCenter(CGPoint center);
  double alpha() const { return alpha_; }
  void setAlpha(double alpha);
  bool isHidden() const { return hidden_; }
  void setHidden(bool hidden);
  // Null: nothing drawn behind the content (the platform's default).
  const std::shared_ptr<UIColor>& backgroundColor() const { return backgroundColor_; }
  void setBackgroundColor(std::shared_ptr<UIColor> color);
  bool isUserInteractionEnabled() const { return userInteractionEnabled_; }
  void setUserInteractionEnabled(bool enabled);
  bool isMultipleTouchEnabled() const { return multipleTouchEnabled_; }
  void setMultipleTouchEnabled(bool enabled);
  CALayer& layer() { return layer_; }
  const CALayer& layer() const { return layer_; }
  // When the superview changes size, a flexible width or height changes by as much.
  unsigned autoresizingMask() const { return autoresizingMask_; }
  void setAutoresizingMask(unsigned mask) { autoresizingMask_ = mask; }

  // --- The tree ---------------------------------------------------------------------------
  UIView* superview() const { return superview_; }
  // Back to front.
  const std::vector<std::shared_ptr<UIView>>& subviews() const { return subviews_; }
  // Takes the view from its old superview, if any, and puts it in front of its new siblings;
  // a view that is already a subview comes to the front. A view cannot take itself or an
  // ancestor: such a call changes nothing.
  void addSubview(std::shared_ptr<UIView> view);
  // The same at `index` among the subviews (0 is the back); past the end means the front.
  void insertSubview(std::shared_ptr<UIView> view, std::size_t index);
  void removeFromSuperview();
  UIWindow* window() const;
  bool isDescendantOfView(const UIView* view) const;
  // The controller whose root view this is; null for any other view.
  UIViewController* viewController() const { return viewController_; }

  // Lays out the subviews after the view's size changed, once the subviews with a flexible
  // size have followed, and after its controller's viewWillLayoutSubviews() for a
  // controller's root view; nothing by default.
  virtual void layoutSubviews() {}

  // Between this view's coordinates and `view`'s; a null view means the window's.
  CGPoint convertPointToView(CGPoint point, const UIView* view) const;
  CGPoint convertPointFromView(CGPoint point, const UIView* view) const;
  CGRect convertRectToView(CGRect rect, const UIView* view) const;

  // --- Touches ----------------------------------------------------------------------------
  // The frontmost descendant (or this view) that takes touches at `point` (in this view's
  // coordinates): not hidden, alpha above 0.01, user interaction on, the point inside.
  virtual UIView* hitTest(CGPoint point, const UIEvent* event);
  virtual bool pointInside(CGPoint point, const UIEvent* event) const;
  // The controller whose root view this is, else the superview (a window ends at the application).
  UIResponder* nextResponder() const override;

  // --- Drawing ----------------------------------------------------------------------------
  // The view's content is drawn again in the next frame. Every setter of the toolkit that
  // changes what a view draws of its own calls it; moving it, its alpha, hidden, its
  // background and its layer's look do not: what it drew is composited again.
  void setNeedsDisplay();
  // Only `rect` of the content (in the view's coordinates) is drawn again, as for a caret.
  void setNeedsDisplayInRect(CGRect rect);
  // Draws the view's own content above its background colour and below its border and
  // subviews; `rect` is the part to draw, in the view's coordinates. Nothing by default.
  virtual void drawRect(CGContextRef context, CGRect rect);
  // Bumped by setNeedsDisplay(); the renderer compares it between frames and draws the content
  // again only when it changed (else it composites what the view drew last, wherever the view
  // now stands, at whatever alpha).
  std::uint64_t displayVersion() const { return displayVersion_; }
  // Bumped by a change of the background colour or the layer's corner, mask or border: drawn
  // again around the content, which stays as drawn.
  std::uint64_t layerVersion() const { return layerVersion_; }
  // The part of the content that changed since displayVersion() was `version`, in the view's
  // coordinates; nullopt when all of it may have, or when that is too long ago to tell.
  std::optional<CGRect> displayChangeSince(std::uint64_t version) const;

 protected:
  // After the view (or an ancestor) joined or left a window.
  virtual void didMoveToWindow() {}

 private:
  friend class UIViewController;
  friend class UIWindow;
  friend class CALayer;
  void layerChanged();
  void setWindowForTree(UIWindow* window);
  CGPoint pointToSuperview(CGPoint point) const;
  CGPoint pointFromSuperview(CGPoint point) const;
  // After a change of size from `oldSize`: the flexible subviews follow, then the layout.
  void sizeChanged(CGSize oldSize);

  CGRect bounds_;
  CGPoint center_;
  double alpha_ = 1.0;
  bool hidden_ = false;
  std::shared_ptr<UIColor> backgroundColor_;
  bool userInteractionEnabled_ = true;
  bool multipleTouchEnabled_ = false;
  unsigned autoresizingMask_ = UIViewAutoresizingNone;
  CALayer layer_{*this};
  UIView* superview_ = nullptr;
  std::vector<std::shared_ptr<UIView>> subviews_;
  UIWindow* window_ = nullptr;
  UIViewController* viewController_ = nullptr;
  std::uint64_t displayVersion_ = 1;
  std::uint64_t layerVersion_ = 0;
  std::uint64_t wholeDisplayVersion_ = 1;  // the last setNeedsDisplay()
  struct PartialDisplay {
    std::uint64_t version;
    CGRect rect;
  };
  // The latest setNeedsDisplayInRect() calls since then, a few at most.
  std::vector<PartialDisplay> partialDisplays_;
};

}  // namespace tavrel
