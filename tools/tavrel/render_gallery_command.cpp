// tavrel render gallery: every control of the toolkit in each of its states on one screen,
// with an alert over them, to look at what the toolkit draws.

#include "commands.hpp"
#include "render_support.hpp"

#include <tavrel_sdk/ui.hpp>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tavrel::cli {
namespace {

constexpr double kMargin = 16.0;
constexpr double kTop = 20.0;
constexpr double kGap = 10.0;
constexpr double kPictureSide = 16.0;
constexpr int kMaxColumns = 4;
// Long enough for the alert's fade to end.
constexpr double kSettleSeconds = 1.0;

std::shared_ptr<UIColor> rgb(double r, double g, double b) { return UIColor::colorWithRed(r, g, b, 1.0); }

// A small picture drawn by the toolkit itself and encoded as PNG: a two-way gradient with a
// white disc, on a screen of its own for the moment it takes.
std::shared_ptr<UIImage> makePicture() {
  UIHost::install(std::make_shared<HeadlessHost>(CGSize{kPictureSide, kPictureSide}, 4.0));
  auto window = std::make_shared<UIWindow>();
  window->setRootViewController(std::make_shared<UIViewController>());
  const int cells = static_cast<int>(kPictureSide);
  for (int y = 0; y < cells; ++y) {
    for (int x = 0; x < cells; ++x) {
      auto cell = std::make_shared<UIView>(CGRectMake(x, y, 1, 1));
      cell->setBackgroundColor(rgb(x / (kPictureSide - 1), 0.3, y / (kPictureSide - 1)));
      window->addSubview(cell);
    }
  }
  auto disc = std::make_shared<UIView>(CGRectMake(4, 4, 8, 8));
  disc->setBackgroundColor(UIColor::colorWithRed(1, 1, 1, 0.8));
  disc->layer().setCornerRadius(4);
  window->addSubview(disc);
  window->makeKeyAndVisible();
  const std::string png = UIHost::current().renderPNG();
  auto image = UIImage::imageWithData(png);
  if (!image) throw std::runtime_error("the gallery's picture did not encode");
  return image;
}

std::shared_ptr<UILabel> makeLabel(const std::string& text) {
  auto label = std::make_shared<UILabel>();
  label->setText(text);
  return label;
}

std::shared_ptr<UITextField> makeField(const std::string& placeholder, const std::string& text) {
  auto field = std::make_shared<UITextField>();
  field->setPlaceholder(placeholder);
  field->setText(text);
  field->setBackgroundColor(UIColor::whiteColor());
  field->layer().setCornerRadius(8);
  field->layer().setBorderWidth(1);
  field->layer().setBorderColor(CGColorRef{0.75, 0.75, 0.78, 1.0});
  field->setLeftView(std::make_shared<UIView>(CGRectMake(0, 0, 12, 44)));
  field->setLeftViewMode(UITextFieldViewMode::Always);
  return field;
}

std::shared_ptr<UIButton> makeButton(const std::string& title, UIControlState state) {
  auto button = UIButton::buttonWithType(UIButtonType::Custom);
  button->setTitle(title, UIControlStateNormal);
  button->setTitleColor(UIColor::whiteColor(), UIControlStateNormal);
  button->setBackgroundColor(rgb(1.0, 0.4, 0.0));
  button->layer().setCornerRadius(8);
  button->layer().setMasksToBounds(true);
  if (state & UIControlStateDisabled) {
    button->setEnabled(false);
    button->setAlpha(0.5);
  }
  if (state & UIControlStateHighlighted) button->setHighlighted(true);
  return button;
}

// One row of the gallery: its height and how to lay its views out in a given frame.
struct Row {
  double height;
  std::vector<std::shared_ptr<UIView>> views;  // side by side, equal widths
};

bool overlaps(CGRect a, CGRect b) {
  return a.minX() < b.maxX() && b.minX() < a.maxX() && a.minY() < b.maxY() && b.minY() < a.maxY();
}

// Places the rows top down in `columns` columns, around `keepOut`; false when they do not fit.
bool layOut(const std::vector<Row>& rows, CGSize size, CGRect keepOut, int columns, bool place) {
  const double columnWidth = (size.width - kMargin * (columns + 1)) / columns;
  int column = 0;
  double y = kTop;
  for (const Row& row : rows) {
    for (;;) {
      const double x = kMargin + column * (columnWidth + kMargin);
      const CGRect band = CGRectMake(x, y - kGap, columnWidth, row.height + 2 * kGap);
      if (!keepOut.isEmpty() && overlaps(band, keepOut)) {
        y = keepOut.maxY() + kGap;
      } else if (y + row.height > size.height - kMargin) {
        if (++column == columns) return false;
        y = kTop;
      } else {
        break;
      }
    }
    if (place) {
      const double x = kMargin + column * (columnWidth + kMargin);
      const double count = static_cast<double>(row.views.size());
      const double width = (columnWidth - kGap * (count - 1)) / count;
      for (std::size_t i = 0; i < row.views.size(); ++i) {
        row.views[i]->setFrame(CGRectMake(x + static_cast<double>(i) * (width + kGap), y, width, row.height));
      }
    }
    y += row.height + kGap;
  }
  return true;
}

int run(const RenderOptions& options) {
  const auto picture = makePicture();
  RenderScreen screen(options);
  UIView& page = *screen.root().view();
  page.setBackgroundColor(rgb(0.94, 0.94, 0.96));

  auto shrunk = makeLabel("A label far too long for its frame, shrunk to fit its width");
  shrunk->setAdjustsFontSizeToFitWidth(true);
  auto centred = makeLabel("A centred label in white on blue");
  centred->setTextAlignment(NSTextAlignment::Center);
  centred->setTextColor(UIColor::whiteColor());
  centred->setBackgroundColor(rgb(0.0, 122.0 / 255.0, 1.0));
  auto focused = makeField("Focused", "Focused, caret after");
  auto secure = makeField("Password", "secret");
  secure->setSecureTextEntry(true);
  auto image = std::make_shared<UIImageView>(picture);

  const std::vector<Row> rows = {
      {30, {makeLabel("A label, left aligned, in the 17-point system font")}},
      {30, {shrunk}},
      {30, {centred}},
      {44, {makeField("Empty: the placeholder shows", "")}},
      {44, {makeField("Placeholder", "Typed text")}},
      {44, {secure}},
      {44, {focused}},
      {44, {makeButton("Login", UIControlStateNormal), makeButton("Disabled", UIControlStateDisabled),
            makeButton("Pressed", UIControlStateHighlighted)}},
      {100, {image}},
  };

  // The alert first: the rows flow around its box, so that every state stays in sight.
  auto alert = UIAlertController::alertControllerWithTitle(
      "An alert", "It lies over the gallery, which it dims; its buttons take the touches.", UIAlertControllerStyle::Alert);
  alert->addAction(UIAlertAction::actionWithTitle("Cancel", UIAlertActionStyle::Cancel, nullptr));
  alert->addAction(UIAlertAction::actionWithTitle("OK", UIAlertActionStyle::Default, nullptr));
  screen.root().presentViewController(alert, true, nullptr);
  screen.run(kSettleSeconds);
  const CGSize size = page.bounds().size;
  CGRect keepOut = CGRectZero;
  for (const auto& part : alert->view()->subviews()) {
    if (part->frame().size.width < size.width) keepOut = part->frame();
  }

  int columns = 1;
  while (!layOut(rows, size, keepOut, columns, false) && columns < kMaxColumns) ++columns;
  layOut(rows, size, keepOut, columns, true);
  for (const Row& row : rows) {
    for (const auto& view : row.views) page.addSubview(view);
  }
  // Focused last: the caret shows from the moment the field takes the focus.
  focused->becomeFirstResponder();

  const int status = screen.writeOutputs();
  if (status == 0) {
    std::cout << options.output << ": " << size.width << " x " << size.height << " points at scale " << options.scale
              << ", " << columns << (columns == 1 ? " column" : " columns") << ", an alert over it\n";
  }
  return status;
}

}  // namespace

void addRenderGalleryCommand(CLI::App& render, int& exitStatus) {
  auto options = std::make_shared<RenderOptions>();
  auto* command = render.add_subcommand("gallery", "Every control in each of its states, with an alert over them");
  addRenderOptions(*command, *options);
  command->callback([options, &exitStatus] { exitStatus = run(*options); });
}

}  // namespace tavrel::cli
