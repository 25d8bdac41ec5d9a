#pragma once

#include <tavrel_sdk/export.hpp>

#include <string>

namespace tavrel {

// A new random UUID as 36 upper-case characters (NSUUID UUIDString).
TAVREL_EXPORT std::string makeUuidString();

}  // namespace tavrel
