#include "backend/validation.hpp"

#include "platform/json.hpp"

#include <utility>

namespace tavrel {
namespace {

// Every failure reads as false: the caller cannot and need not tell them apart.
bool replyKeyIsTrue(const UrlResponse& response, const char* key) {
  if (response.error) return false;
  const nlohmann::json body = parseJson(response.data);
  // Only an object has keys; the platform's parser refuses anything else at the top level.
  if (!body.is_object()) return false;
  const auto it = body.find(key);
  return it != body.end() && boolValue(*it);
}

void send(UrlRequest request, const char* key, Completion callback) {
  request.maxResponseBytes = kMaxServiceReplyBytes;
  Platform::current().dataTask(
      std::move(request), [key, callback = std::move(callback)](UrlResponse response) {
        const bool result = replyKeyIsTrue(response, key);
        // The body may hold session data: drop it before handing control to the caller.
        response = UrlResponse{};
        if (callback) callback(result);
      });
}

}  // namespace

std::string Validation::serviceBaseUrl() {
  if (auto base = Platform::current().serviceBaseUrlOverride()) return *std::move(base);
  return std::string(kServiceBaseUrl);
}

void Validation::validate(const std::optional<std::string>& token, Completion callback) {
  UrlRequest request;
  request.url = serviceBaseUrl().append(kValidatePath);
  request.method = "GET";
  if (token) request.headers.emplace_back("Authorization", *token);
  send(std::move(request), "valid", std::move(callback));
}

void Validation::loginWithUsername(const std::string& username, const std::string& password,
                                   const std::string& urlScheme, Completion callback) {
  const nlohmann::json body = {
      {"username", username}, {"password", password}, {"urlScheme", urlScheme}};
  UrlRequest request;
  request.url = serviceBaseUrl().append(kLoginPath);
  request.method = "POST";
  request.headers = {{"Accept", "application/json"}, {"Content-Type", "application/json"}};
  // Compact, and never throwing: bytes that are not UTF-8 go out as U+FFFD.
  request.body = body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  send(std::move(request), "authed", std::move(callback));
}

}  // namespace tavrel
