#pragma once

// The view toolkit: the platform's views, controls, controllers, touches and text, drawn with
// Cairo and Pango, and the host seam that shows them.

#include <tavrel_sdk/ui/application.hpp>
#include <tavrel_sdk/ui/color.hpp>
#include <tavrel_sdk/ui/controls.hpp>
#include <tavrel_sdk/ui/font.hpp>
#include <tavrel_sdk/ui/geometry.hpp>
#include <tavrel_sdk/ui/host.hpp>
#include <tavrel_sdk/ui/image.hpp>
#include <tavrel_sdk/ui/responder.hpp>
#include <tavrel_sdk/ui/view.hpp>
#include <tavrel_sdk/ui/view_controller.hpp>
