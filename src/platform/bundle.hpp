#pragma once

// The host bundle's settings (NSBundle mainBundle objectForInfoDictionaryKey:).

#include <tavrel_sdk/export.hpp>

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace tavrel {

// The value under `key` of the installed platform's Info dictionary; null when absent or when
// the dictionary is not a JSON object.
TAVREL_EXPORT nlohmann::json objectForInfoDictionaryKey(const std::string& key);

// The game's first URL scheme of its first URL type: CFBundleURLTypes[0].CFBundleURLSchemes[0].
TAVREL_EXPORT std::optional<std::string> firstUrlScheme();

}  // namespace tavrel
