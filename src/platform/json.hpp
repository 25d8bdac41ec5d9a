#pragma once

// JSON through nlohmann-json, with the platform's readings of values.

#include <tavrel_sdk/export.hpp>

#include <nlohmann/json.hpp>

#include <string_view>

namespace tavrel {

// boolValue as the platform reads an NSNumber or NSString: a number is true when not zero; a
// string is true when, after leading blanks, an optional sign and leading zeros, it starts with
// Y, y, T, t or a digit 1-9. Null, arrays and objects have no bool reading: false.
TAVREL_EXPORT bool boolValue(const nlohmann::json& value);

// JSONObjectWithData: null (discarded) when the bytes are not one JSON document.
TAVREL_EXPORT nlohmann::json parseJson(std::string_view bytes);

}  // namespace tavrel
