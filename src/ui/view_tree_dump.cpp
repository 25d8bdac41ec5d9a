// The key window's tree as JSON, for scripts and for seeing what the toolkit shows.

#include <tavrel_sdk/ui/application.hpp>
#include <tavrel_sdk/ui/controls.hpp>
#include <tavrel_sdk/ui/host.hpp>

#include "ui/class_name.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <vector>

namespace tavrel {

namespace {

// Keys in the order written: a view reads from its class down to its subviews.
using json = nlohmann::ordered_json;

json colorJson(const std::shared_ptr<UIColor>& color) {
  if (!color) return nullptr;
  return json::array({color->red(), color->green(), color->blue(), color->alpha()});
}

json fontJson(const std::shared_ptr<UIFont>& font) {
  if (!font) return nullptr;
  return {{"family", font->familyName()},
          {"size", font->pointSize()},
          {"monospacedDigits", font->monospacedDigits()},
          {"weight", font->weight()}};
}

json viewJson(const UIView& view, bool withSubviews = true);

void addControlKeys(json& out, const UIView& view) {
  if (const auto* label = dynamic_cast<const UILabel*>(&view)) {
    out["text"] = label->text() ? json(*label->text()) : json(nullptr);
    out["textColor"] = colorJson(label->textColor());
    out["font"] = fontJson(label->font());
    out["adjustsFontSizeToFitWidth"] = label->adjustsFontSizeToFitWidth();
    out["numberOfLines"] = label->numberOfLines();
  } else if (const auto* field = dynamic_cast<const UITextField*>(&view)) {
    out["text"] = field->text();
    out["placeholder"] = field->placeholder() ? json(*field->placeholder()) : json(nullptr);
    out["secureTextEntry"] = field->isSecureTextEntry();
    out["isFirstResponder"] = field->isFirstResponder();
    out["leftView"] = field->leftView() ? viewJson(*field->leftView()) : json(nullptr);
    out["leftViewMode"] = static_cast<int>(field->leftViewMode());
    out["enabled"] = field->isEnabled();
  } else if (const auto* button = dynamic_cast<const UIButton*>(&view)) {
    json titles = json::object();
    json titleColors = json::object();
    for (const auto& [name, state] : {std::pair{"normal", UIControlStateNormal},
                                      std::pair{"disabled", UIControlStateDisabled},
                                      std::pair{"highlighted", UIControlStateHighlighted}}) {
      const auto title = button->titleForState(state);
      titles[name] = title ? json(*title) : json(nullptr);
      titleColors[name] = colorJson(button->titleColorForState(state));
    }
    out["titles"] = std::move(titles);
    out["titleColors"] = std::move(titleColors);
    out["enabled"] = button->isEnabled();
    out["highlighted"] = button->isHighlighted();
    const auto current = button->currentTitle();
    out["currentTitle"] = current ? json(*current) : json(nullptr);
  } else if (const auto* imageView = dynamic_cast<const UIImageView*>(&view)) {
    const auto& image = imageView->image();
    out["image"] = image ? json{{"width", image->size().width}, {"height", image->size().height}} : json(nullptr);
  }
}

json viewJson(const UIView& view, bool withSubviews) {
  const CGRect frame = view.frame();
  const CALayer& layer = view.layer();
  json out{{"class", className(typeid(view))},
           {"frame", {frame.origin.x, frame.origin.y, frame.size.width, frame.size.height}},
           {"alpha", view.alpha()},
           {"hidden", view.isHidden()},
           {"backgroundColor", colorJson(view.backgroundColor())},
           {"cornerRadius", layer.cornerRadius()},
           {"masksToBounds", layer.masksToBounds()},
           {"borderWidth", layer.borderWidth()},
           {"userInteractionEnabled", view.isUserInteractionEnabled()}};
  const auto border = layer.borderColor();
  out["borderColor"] = border ? json::array({border->red, border->green, border->blue, border->alpha}) : json(nullptr);
  addControlKeys(out, view);
  if (!withSubviews) return out;
  json subviews = json::array();
  for (const auto& subview : view.subviews()) {
    // A text field's left view is shown under its own key.
    if (const auto* field = dynamic_cast<const UITextField*>(&view); field && subview == field->leftView()) continue;
    subviews.push_back(viewJson(*subview));
  }
  out["subviews"] = std::move(subviews);
  return out;
}

json controllerJson(const std::shared_ptr<UIViewController>& controller) {
  if (!controller) return nullptr;
  const UIViewController& object = *controller;
  json out{{"class", className(typeid(object))},
           {"modalPresentationStyle", static_cast<int>(controller->modalPresentationStyle())},
           {"view", controller->isViewLoaded() ? viewJson(*controller->view()) : json(nullptr)},
           {"presentedViewController", controllerJson(controller->presentedViewController())}};
  if (const auto* alert = dynamic_cast<const UIAlertController*>(controller.get())) {
    out["title"] = alert->title() ? json(*alert->title()) : json(nullptr);
    out["message"] = alert->message() ? json(*alert->message()) : json(nullptr);
    out["preferredStyle"] = static_cast<int>(alert->preferredStyle());
    json actions = json::array();
    for (const auto& action : alert->actions()) {
      actions.push_back({{"title", action->title() ? json(*action->title()) : json(nullptr)},
                         {"style", static_cast<int>(action->style())}});
    }
    out["actions"] = std::move(actions);
  }
  return out;
}

}  // namespace

std::string dumpViewTree() {
  const auto window = UIApplication::sharedApplication().keyWindow();
  if (!window) return "null";
  json out = viewJson(*window, false);
  // The root controller and what it presents carry their own views; the window's list keeps
  // the rest, such as what a controller other than the root presents.
  std::vector<const UIViewController*> shown;
  for (auto controller = window->rootViewController(); controller; controller = controller->presentedViewController()) {
    shown.push_back(controller.get());
  }
  json direct = json::array();
  for (const auto& subview : window->subviews()) {
    if (std::find(shown.begin(), shown.end(), subview->viewController()) == shown.end()) {
      direct.push_back(viewJson(*subview));
    }
  }
  out["subviews"] = std::move(direct);
  out["rootViewController"] = controllerJson(window->rootViewController());
  return out.dump(2);
}

}  // namespace tavrel
