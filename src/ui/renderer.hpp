#pragma once

// The host's renderer: the frame buffer and what was drawn last time. Main thread only.

#include <tavrel_sdk/ui/host.hpp>

namespace tavrel {

struct UIHost::Renderer {
  UIFrame frame;
};

}  // namespace tavrel
