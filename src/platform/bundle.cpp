#include "platform/bundle.hpp"

#include "platform/json.hpp"

#include <tavrel_sdk/platform.hpp>

namespace tavrel {

nlohmann::json objectForInfoDictionaryKey(const std::string& key) {
  const nlohmann::json info = parseJson(Platform::current().infoDictionaryJson());
  if (!info.is_object()) return nullptr;
  const auto it = info.find(key);
  return it == info.end() ? nlohmann::json(nullptr) : *it;
}

std::optional<std::string> firstUrlScheme() {
  const nlohmann::json types = objectForInfoDictionaryKey("CFBundleURLTypes");
  if (!types.is_array() || types.empty() || !types[0].is_object()) return std::nullopt;
  const auto schemes = types[0].find("CFBundleURLSchemes");
  if (schemes == types[0].end() || !schemes->is_array() || schemes->empty() || !(*schemes)[0].is_string()) {
    return std::nullopt;
  }
  return (*schemes)[0].get<std::string>();
}

}  // namespace tavrel
