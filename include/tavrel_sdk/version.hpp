#pragma once

#include <tavrel_sdk/export.hpp>

extern "C" {
TAVREL_EXPORT extern const double tavrel_sdkVersionNumber;
TAVREL_EXPORT extern const unsigned char tavrel_sdkVersionString[];
}
