// The host's input side: fingers become UITouch objects delivered through the key window,
// keys go to the first responder.

#include <tavrel_sdk/platform.hpp>
#include <tavrel_sdk/ui/application.hpp>
#include <tavrel_sdk/ui/controls.hpp>
#include <tavrel_sdk/ui/host.hpp>

#include <algorithm>
#include <optional>
#include <string>

namespace tavrel {

namespace {

// The finger tapElement() taps with; hosts number theirs from 0, the mouse's.
constexpr int kScriptedFingerId = -1;
constexpr int kMouseFingerId = 0;

struct ActiveTouch {
  std::shared_ptr<UITouch> touch;
  // The view's owner, so that a view destroyed mid-touch is noticed; unset for a view that
  // no std::shared_ptr owns, which then has to outlive the touch.
  std::weak_ptr<UIResponder> viewOwner;
  bool ownedView = false;
  bool covered = false;  // began while a presented controller covered the game
};

// The touches of one call that went to one view.
struct Group {
  UIView* view = nullptr;
  std::shared_ptr<UIResponder> keepAlive;
  UITouchSet touches;
};

struct InputState {
  const UIHost* host = nullptr;
  std::vector<ActiveTouch> active;
  // Scratch kept between calls, so that a touch allocates nothing beyond its UITouch and event.
  std::vector<Group> groups;
  std::size_t groupCount = 0;
  std::vector<std::size_t> finished;
};

InputState& inputState(const UIHost* host) {
  static InputState state;
  if (state.host != host) {
    state = InputState{};
    state.host = host;
  }
  return state;
}

bool viewHasTouch(const InputState& state, const UIView* view) {
  // A touch whose view has gone does not count: a new view may stand at its address.
  return std::any_of(state.active.begin(), state.active.end(), [view](const ActiveTouch& a) {
    return a.touch->view() == view && !(a.ownedView && a.viewOwner.expired());
  });
}

void addToGroup(InputState& state, UIView* view, std::shared_ptr<UIResponder> keepAlive,
                const std::shared_ptr<UITouch>& touch) {
  for (std::size_t i = 0; i < state.groupCount; ++i) {
    if (state.groups[i].view == view) {
      state.groups[i].touches.push_back(touch);
      return;
    }
  }
  if (state.groupCount == state.groups.size()) state.groups.emplace_back();
  Group& group = state.groups[state.groupCount++];
  group.view = view;
  group.keepAlive = std::move(keepAlive);
  group.touches.push_back(touch);
}

void deliverGroup(const Group& group, UITouchPhase phase, const UIEvent& event) {
  switch (phase) {
    case UITouchPhase::Began: group.view->touchesBegan(group.touches, &event); break;
    case UITouchPhase::Moved:
    case UITouchPhase::Stationary: group.view->touchesMoved(group.touches, &event); break;
    case UITouchPhase::Ended: group.view->touchesEnded(group.touches, &event); break;
    case UITouchPhase::Cancelled: group.view->touchesCancelled(group.touches, &event); break;
  }
}

bool deliverFingers(const UIHost* host, UITouchPhase phase, const std::vector<Finger>& fingers) {
  auto window = UIApplication::sharedApplication().keyWindow();
  if (!window) return false;
  InputState& state = inputState(host);
  const double now = Platform::current().timeIntervalSince1970();
  const CGPoint origin = window->frame().origin;
  const bool covered = window->topPresentedView() != nullptr;
  UITouchSet all;
  bool onPresented = false;
  state.groupCount = 0;
  state.finished.clear();

  for (const Finger& finger : fingers) {
    const CGPoint location{finger.location.x - origin.x, finger.location.y - origin.y};
    auto it = std::find_if(state.active.begin(), state.active.end(),
                           [&finger](const ActiveTouch& a) { return a.touch->fingerId() == finger.id; });
    if (phase == UITouchPhase::Began) {
      if (it != state.active.end()) continue;  // already down
      UIView* view = window->hitTest(location, nullptr);
      // A view without multiple touch keeps to its first finger until that one is lifted.
      if (view && !view->isMultipleTouchEnabled() && viewHasTouch(state, view)) view = nullptr;
      ActiveTouch entry{std::make_shared<UITouch>(finger.id, location, window.get(), view, now), {}, false, covered};
      if (view) {
        entry.viewOwner = view->weak_from_this();
        entry.ownedView = !entry.viewOwner.expired();
      }
      state.active.push_back(std::move(entry));
      it = std::prev(state.active.end());
    } else {
      if (it == state.active.end()) continue;
      it->touch->update(phase, location, now);
      if (phase == UITouchPhase::Ended || phase == UITouchPhase::Cancelled) {
        state.finished.push_back(static_cast<std::size_t>(it - state.active.begin()));
      }
    }
    onPresented = onPresented || it->covered;
    all.push_back(it->touch);
    UIView* view = it->touch->view();
    if (!view) continue;
    std::shared_ptr<UIResponder> keepAlive;
    if (it->ownedView) {
      keepAlive = it->viewOwner.lock();
      if (!keepAlive) {
        it->touch->detachFromView();
        continue;
      }
    }
    addToGroup(state, view, std::move(keepAlive), it->touch);
  }

  // Lifted fingers leave before the handlers run, so that a handler sees its view free again.
  std::sort(state.finished.rbegin(), state.finished.rend());
  for (std::size_t index : state.finished) state.active.erase(state.active.begin() + static_cast<std::ptrdiff_t>(index));

  const UIEvent event(std::move(all), now);
  for (std::size_t i = 0; i < state.groupCount; ++i) deliverGroup(state.groups[i], phase, event);
  for (std::size_t i = 0; i < state.groupCount; ++i) {
    state.groups[i].touches.clear();
    state.groups[i].keepAlive.reset();
  }
  state.groupCount = 0;
  return onPresented;
}

// Front to back, as a finger would meet them: the first visible view for which `matches` holds.
template <class Predicate>
UIView* findFrontmost(UIView& view, const Predicate& matches) {
  if (view.isHidden() || view.alpha() <= 0.01) return nullptr;
  const auto& subviews = view.subviews();
  for (auto it = subviews.rbegin(); it != subviews.rend(); ++it) {
    if (UIView* found = findFrontmost(**it, matches)) return found;
  }
  return matches(view) ? &view : nullptr;
}

// The text a script finds an element by: a button's title, a label's text, a field's text or
// else its placeholder.
std::optional<std::string> shownText(const UIView& view) {
  if (const auto* button = dynamic_cast<const UIButton*>(&view)) return button->currentTitle();
  if (const auto* label = dynamic_cast<const UILabel*>(&view)) return label->text();
  if (const auto* field = dynamic_cast<const UITextField*>(&view)) {
    return field->text().empty() ? field->placeholder() : std::optional<std::string>(field->text());
  }
  return std::nullopt;
}

// Front to back, the elements with a text that a finger could reach: on the top presentation
// while one covers the game, with their centre on the screen (not still sliding in, not
// scrolled away). Stops at the first for which `visit(text, centre on screen)` is true.
template <class Visit>
void findReachable(const UIHost& host, const Visit& visit) {
  const auto window = UIApplication::sharedApplication().keyWindow();
  if (!window) return;
  const CGPoint origin = window->frame().origin;
  const CGRect screen{{0.0, 0.0}, host.screenSize()};
  UIView* top = window->topPresentedView();
  findFrontmost(top ? *top : *window, [&](const UIView& view) {
    const std::optional<std::string> text = shownText(view);
    if (!text) return false;
    const CGRect bounds = view.bounds();
    const CGPoint inWindow = view.convertPointToView({bounds.midX(), bounds.midY()}, nullptr);
    const CGPoint onScreen{inWindow.x + origin.x, inWindow.y + origin.y};
    return screen.containsPoint(onScreen) && visit(*text, onScreen);
  });
}

}  // namespace

bool UIHost::fingersDown(const std::vector<Finger>& fingers) {
  return deliverFingers(this, UITouchPhase::Began, fingers);
}

bool UIHost::fingersMoved(const std::vector<Finger>& fingers) {
  return deliverFingers(this, UITouchPhase::Moved, fingers);
}

bool UIHost::fingersUp(const std::vector<Finger>& fingers) { return deliverFingers(this, UITouchPhase::Ended, fingers); }

bool UIHost::fingersCancelled(const std::vector<Finger>& fingers) {
  return deliverFingers(this, UITouchPhase::Cancelled, fingers);
}

bool UIHost::typeText(std::string_view utf8) {
  UIResponder* responder = UIResponder::currentFirstResponder();
  if (!responder) return false;
  responder->insertText(utf8);
  return true;
}

bool UIHost::pressReturn() { return typeText("\n"); }

bool UIHost::pressBackspace() {
  UIResponder* responder = UIResponder::currentFirstResponder();
  if (!responder) return false;
  responder->deleteBackward();
  return true;
}

bool UIHost::tapElement(std::string_view text) {
  std::optional<CGPoint> centre;
  findReachable(*this, [&](const std::string& shown, CGPoint onScreen) {
    if (shown != text) return false;
    centre = onScreen;
    return true;
  });
  if (!centre) return false;
  const std::vector<Finger> finger{{kScriptedFingerId, *centre}};
  fingersDown(finger);
  fingersUp(finger);
  return true;
}

std::vector<std::string> UIHost::reachableTexts() const {
  std::vector<std::string> texts;
  findReachable(*this, [&](const std::string& shown, CGPoint) {
    texts.push_back(shown);
    return false;
  });
  return texts;
}

bool MouseFinger::press(CGPoint location) {
  UIHost& host = UIHost::current();
  if (down_) return host.isCovered();
  down_ = true;
  return host.fingersDown({{kMouseFingerId, location}}) || host.isCovered();
}

bool MouseFinger::move(CGPoint location) {
  UIHost& host = UIHost::current();
  if (!down_) return host.isCovered();
  return host.fingersMoved({{kMouseFingerId, location}}) || host.isCovered();
}

bool MouseFinger::release(CGPoint location) {
  UIHost& host = UIHost::current();
  if (!down_) return host.isCovered();
  down_ = false;
  return host.fingersUp({{kMouseFingerId, location}}) || host.isCovered();
}

bool MouseFinger::cancel() {
  if (!down_) return false;
  down_ = false;
  UIHost::current().fingersCancelled({{kMouseFingerId, {}}});
  return true;
}

bool UIHost::isCovered() const {
  auto window = UIApplication::sharedApplication().keyWindow();
  return window && window->topPresentedView();
}

}  // namespace tavrel
