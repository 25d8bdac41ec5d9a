#pragma once

// Base64 decoding as NSData's initWithBase64EncodedString:options: does it.

#include <tavrel_sdk/export.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace tavrel {

// The decoded bytes, or null when the text is malformed. A character outside the base64 alphabet
// and "=" makes it malformed, unless ignoreUnknownCharacters (option 1,
// NSDataBase64DecodingIgnoreUnknownCharacters) is set: then it is skipped. Either way the text
// is malformed when an alphabet character follows "=", when there are more than two "=", or when
// the alphabet characters and "=" together are not a multiple of four. Empty text gives no bytes.
TAVREL_EXPORT std::optional<std::string> dataWithBase64EncodedString(std::string_view text,
                                                                     bool ignoreUnknownCharacters);

}  // namespace tavrel
