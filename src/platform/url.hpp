#pragma once

// URLWithString:, host and absoluteString.

#include <tavrel_sdk/export.hpp>

#include <optional>
#include <string>

namespace tavrel {

class TAVREL_EXPORT Url {
 public:
  // Null for text that is not a URL (spaces, a malformed authority, ...). Any scheme is taken.
  static std::optional<Url> URLWithString(std::string text);

  // As written, case kept; null when the URL has no authority.
  const std::optional<std::string>& host() const { return host_; }
  const std::string& absoluteString() const { return text_; }

 private:
  Url(std::string text, std::optional<std::string> host) : text_(std::move(text)), host_(std::move(host)) {}
  std::string text_;
  std::optional<std::string> host_;
};

}  // namespace tavrel
