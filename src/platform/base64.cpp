#include "platform/base64.hpp"

#include <glib.h>

namespace tavrel {
namespace {

bool isAlphabetCharacter(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

}  // namespace

std::optional<std::string> dataWithBase64EncodedString(std::string_view text, bool ignoreUnknownCharacters) {
  // GLib's decoder always skips unknown characters and takes "=" anywhere, as a zero; the
  // platform is strict about both, so the shape is checked here and GLib only decodes.
  std::size_t characters = 0;
  std::size_t padding = 0;
  for (unsigned char c : text) {
    if (c == '=') {
      ++padding;
    } else if (isAlphabetCharacter(c)) {
      if (padding > 0) return std::nullopt;
      ++characters;
    } else if (!ignoreUnknownCharacters) {
      return std::nullopt;
    }
  }
  if (padding > 2 || (characters + padding) % 4 != 0) return std::nullopt;

  std::string data(text.size() / 4 * 3 + 3, '\0');
  gint state = 0;
  guint save = 0;
  const gsize length =
      g_base64_decode_step(text.data(), text.size(), reinterpret_cast<guchar*>(data.data()), &state, &save);
  data.resize(length);
  return data;
}

}  // namespace tavrel
