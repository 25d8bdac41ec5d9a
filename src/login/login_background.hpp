#pragma once

// The login page's background picture, carried in the library as text (its source is generated
// by tools/login_background).

#include <tavrel_sdk/export.hpp>

#include <string_view>

namespace tavrel {

// A 320 x 480 RGBA PNG of 217,841 bytes as base64: 290,456 characters in one line, no line breaks.
TAVREL_EXPORT std::string_view loginBackgroundBase64();

}  // namespace tavrel
