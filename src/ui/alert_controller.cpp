#include <tavrel_sdk/ui/view_controller.hpp>

namespace tavrel {

UIAlertAction::UIAlertAction(std::optional<std::string> title, UIAlertActionStyle style, Handler handler)
    : title_(std::move(title)), style_(style), handler_(std::move(handler)) {}
std::shared_ptr<UIAlertAction> UIAlertAction::actionWithTitle(std::optional<std::string> title, UIAlertActionStyle style,
                                                              Handler handler) {
  return std::make_shared<UIAlertAction>(std::move(title), style, std::move(handler));
}
UIAlertController::UIAlertController(std::optional<std::string> title, std::optional<std::string> message,
                                     UIAlertControllerStyle preferredStyle)
    : title_(std::move(title)), message_(std::move(message)), preferredStyle_(preferredStyle) {}
std::shared_ptr<UIAlertController> UIAlertController::alertControllerWithTitle(std::optional<std::string> title,
                                                                               std::optional<std::string> message,
                                                                               UIAlertControllerStyle preferredStyle) {
  return std::make_shared<UIAlertController>(std::move(title), std::move(message), preferredStyle);
}
void UIAlertController::addAction(std::shared_ptr<UIAlertAction> action) { actions_.push_back(std::move(action)); }
void UIAlertController::loadView() { UIViewController::loadView(); }

}  // namespace tavrel
