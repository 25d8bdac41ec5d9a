#include <tavrel_sdk/ui/host.hpp>

#include "ui/renderer.hpp"

#include <fstream>

namespace tavrel {

namespace {
std::shared_ptr<UIHost>& installedHost() {
  static std::shared_ptr<UIHost> host;
  return host;
}
}  // namespace

UIHost::UIHost() : renderer_(std::make_unique<Renderer>()) {}
UIHost::~UIHost() = default;

UIHost& UIHost::current() {
  auto& host = installedHost();
  if (!host) host = std::make_shared<HeadlessHost>(CGSize{390.0, 844.0}, 3.0);
  return *host;
}

void UIHost::install(std::shared_ptr<UIHost> host) { installedHost() = std::move(host); }

const UIFrame& UIHost::renderFrame() {
  renderer_->frame.scale = screenScale();
  presentFrame(renderer_->frame);
  return renderer_->frame;
}

bool UIHost::writePNG(const std::string& /*path*/) {
  renderFrame();
  return false;
}

HeadlessHost::HeadlessHost(CGSize screenSize, double scale) : screenSize_(screenSize), scale_(scale) {}

}  // namespace tavrel
