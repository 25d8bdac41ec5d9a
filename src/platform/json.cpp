#include "platform/json.hpp"

namespace tavrel {

bool boolValue(const nlohmann::json& value) {
  switch (value.type()) {
    case nlohmann::json::value_t::boolean:
      return value.get<bool>();
    case nlohmann::json::value_t::number_integer:
      return value.get<std::int64_t>() != 0;
    case nlohmann::json::value_t::number_unsigned:
      return value.get<std::uint64_t>() != 0;
    case nlohmann::json::value_t::number_float:
      return value.get<double>() != 0.0;
    case nlohmann::json::value_t::string: {
      const auto& text = value.get_ref<const std::string&>();
      std::size_t i = text.find_first_not_of(" \t\n\r\v\f");
      if (i == std::string::npos) return false;
      if (text[i] == '+' || text[i] == '-') ++i;
      while (i < text.size() && text[i] == '0') ++i;
      if (i == text.size()) return false;
      const char c = text[i];
      return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
    }
    default:
      return false;
  }
}

nlohmann::json parseJson(std::string_view bytes) {
  return nlohmann::json::parse(bytes, nullptr, /*allow_exceptions=*/false);
}

}  // namespace tavrel
