#include <tavrel_sdk/ui/application.hpp>
#include <tavrel_sdk/ui/controls.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>

#include <algorithm>
#include <cmath>

namespace tavrel {

namespace {

// The platform's alert box, in points.
constexpr double kBoxWidth = 270.0;
constexpr double kBoxCornerRadius = 14.0;
constexpr double kTextInset = 16.0;
constexpr double kTopInset = 20.0;
constexpr double kTitleMessageGap = 4.0;
constexpr double kTextBottomInset = 20.0;
constexpr double kButtonHeight = 44.0;
constexpr double kTitleFontSize = 17.0;
constexpr double kMessageFontSize = 13.0;
constexpr double kActionFontSize = 17.0;
constexpr double kDimmingAlpha = 0.2;
// Word wrapping breaks lines early: a line holds a little less than its width of text.
constexpr double kWrapAllowance = 1.15;

// A button of the box: its background greys while pressed, as the platform's.
class AlertButton final : public UIButton {
 public:
  using UIButton::UIButton;
  void setHighlighted(bool highlighted) override {
    UIButton::setHighlighted(highlighted);
    setBackgroundColor(highlighted ? UIColor::colorWithRed(0.0, 0.0, 0.0, 0.1) : nullptr);
  }
};

std::shared_ptr<UIColor> actionTitleColor(UIAlertActionStyle style) {
  if (style == UIAlertActionStyle::Destructive) return UIColor::colorWithRed(1.0, 59.0 / 255.0, 48.0 / 255.0, 1.0);
  return UIColor::colorWithRed(0.0, 122.0 / 255.0, 1.0, 1.0);
}

std::shared_ptr<UIView> hairline(CGRect frame) {
  auto line = std::make_shared<UIView>(frame);
  line->setBackgroundColor(UIColor::colorWithRed(0.0, 0.0, 0.0, 0.2));
  line->setUserInteractionEnabled(false);
  return line;
}

std::shared_ptr<UILabel> centredLabel(const std::string& text, std::shared_ptr<UIFont> font, double y, double height) {
  auto label = std::make_shared<UILabel>(CGRectMake(kTextInset, y, kBoxWidth - 2.0 * kTextInset, height));
  label->setText(text);
  label->setFont(std::move(font));
  label->setTextAlignment(NSTextAlignment::Center);
  label->setNumberOfLines(0);
  return label;
}

// The height of `text` wrapped to the label width, in whole lines.
double wrappedHeight(const std::string& text, const std::shared_ptr<UIFont>& font) {
  const double width = sizeWithAttributes(text, {font, nullptr}).width * kWrapAllowance;
  const double lines = std::max(1.0, std::ceil(width / (kBoxWidth - 2.0 * kTextInset)));
  return std::ceil(lines * font->lineHeight());
}

// The box in the middle of the dimmed screen, on whole points.
void centreBox(UIView& dimming) {
  if (dimming.subviews().empty()) return;
  UIView& box = *dimming.subviews().front();
  const CGSize screen = dimming.bounds().size, size = box.bounds().size;
  box.setFrame({{std::floor((screen.width - size.width) / 2.0), std::floor((screen.height - size.height) / 2.0)}, size});
}

}  // namespace

UIAlertAction::UIAlertAction(std::optional<std::string> title, UIAlertActionStyle style, Handler handler)
    : title_(std::move(title)), style_(style), handler_(std::move(handler)) {}

std::shared_ptr<UIAlertAction> UIAlertAction::actionWithTitle(std::optional<std::string> title, UIAlertActionStyle style,
                                                              Handler handler) {
  return std::make_shared<UIAlertAction>(std::move(title), style, std::move(handler));
}

UIAlertController::UIAlertController(std::optional<std::string> title, std::optional<std::string> message,
                                     UIAlertControllerStyle preferredStyle)
    : title_(std::move(title)), message_(std::move(message)), preferredStyle_(preferredStyle) {
  // What the alert covers stays visible beneath the dimming.
  setModalPresentationStyle(UIModalPresentationStyle::OverFullScreen);
}

std::shared_ptr<UIAlertController> UIAlertController::alertControllerWithTitle(std::optional<std::string> title,
                                                                               std::optional<std::string> message,
                                                                               UIAlertControllerStyle preferredStyle) {
  return std::make_shared<UIAlertController>(std::move(title), std::move(message), preferredStyle);
}

void UIAlertController::addAction(std::shared_ptr<UIAlertAction> action) {
  if (action) actions_.push_back(std::move(action));
}

void UIAlertController::loadView() {
  const CGRect screen = UIScreen::mainScreen().bounds();
  const double hairlineWidth = 1.0 / std::max(1.0, UIScreen::mainScreen().scale());
  auto dimming = std::make_shared<UIView>(screen);
  dimming->setBackgroundColor(UIColor::colorWithRed(0.0, 0.0, 0.0, kDimmingAlpha));

  auto box = std::make_shared<UIView>();
  box->setBackgroundColor(UIColor::colorWithRed(0.97, 0.97, 0.97, 0.96));
  box->layer().setCornerRadius(kBoxCornerRadius);
  box->layer().setMasksToBounds(true);

  double y = kTopInset;
  if (title_) {
    auto font = UIFont::boldSystemFontOfSize(kTitleFontSize);
    const double height = wrappedHeight(*title_, font);
    box->addSubview(centredLabel(*title_, std::move(font), y, height));
    y += height;
  }
  if (message_) {
    if (title_) y += kTitleMessageGap;
    auto font = UIFont::systemFontOfSize(kMessageFontSize);
    const double height = wrappedHeight(*message_, font);
    box->addSubview(centredLabel(*message_, std::move(font), y, height));
    y += height;
  }
  y += kTextBottomInset;

  // Two actions stand side by side, any other number one above the other.
  const bool sideBySide = actions_.size() == 2;
  const double buttonWidth = sideBySide ? kBoxWidth / 2.0 : kBoxWidth;
  std::weak_ptr<UIAlertController> weakSelf = std::static_pointer_cast<UIAlertController>(weak_from_this().lock());
  for (std::size_t i = 0; i < actions_.size(); ++i) {
    const auto& action = actions_[i];
    const double x = sideBySide ? buttonWidth * static_cast<double>(i) : 0.0;
    if (!sideBySide || i == 0) {
      box->addSubview(hairline(CGRectMake(0.0, y, kBoxWidth, hairlineWidth)));
    } else {
      box->addSubview(hairline(CGRectMake(x, y, hairlineWidth, kButtonHeight)));
    }
    auto button = std::make_shared<AlertButton>(CGRectMake(x, y, buttonWidth, kButtonHeight));
    button->setTitle(action->title(), UIControlStateNormal);
    button->setTitleColor(actionTitleColor(action->style()), UIControlStateNormal);
    button->setTitleFont(action->style() == UIAlertActionStyle::Cancel ? UIFont::boldSystemFontOfSize(kActionFontSize)
                                                                       : UIFont::systemFontOfSize(kActionFontSize));
    button->addTarget(
        this,
        [weakSelf, action](UIControl*) {
          if (auto self = weakSelf.lock()) self->actionTapped(action);
        },
        UIControlEventTouchUpInside);
    box->addSubview(button);
    if (!sideBySide || i + 1 == actions_.size()) y += kButtonHeight;
  }

  box->setFrame(CGRectMake(0.0, 0.0, kBoxWidth, y));
  dimming->addSubview(box);
  centreBox(*dimming);
  setView(dimming);
}

void UIAlertController::viewWillLayoutSubviews() { centreBox(*view()); }

void UIAlertController::actionTapped(const std::shared_ptr<UIAlertAction>& action) {
  auto presenter = presentingViewController();
  if (!presenter || isBeingDismissed()) return;
  auto self = std::static_pointer_cast<UIAlertController>(shared_from_this());
  presenter->dismissViewControllerAnimated(true, [self, action] {
    if (action->handler()) action->handler()(action.get());
  });
}

}  // namespace tavrel
