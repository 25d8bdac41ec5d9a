#include "platform/url.hpp"

#include <curl/curl.h>

#include <memory>

namespace tavrel {

std::optional<Url> Url::URLWithString(std::string text) {
  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> handle(curl_url(), &curl_url_cleanup);
  if (!handle) return std::nullopt;
  // Launch URLs use the game's own scheme, which curl does not know.
  if (curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
    return std::nullopt;
  }
  std::optional<std::string> host;
  char* part = nullptr;
  if (curl_url_get(handle.get(), CURLUPART_HOST, &part, 0) == CURLUE_OK && part) {
    host = part;
    curl_free(part);
  }
  return Url(std::move(text), std::move(host));
}

}  // namespace tavrel
