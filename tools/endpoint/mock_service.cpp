#include "endpoint/mock_service.hpp"

#include <nlohmann/json.hpp>

#include <memory>

namespace tavrel::endpoint {
namespace {

// The service's own paths; the library's copies of them are what the end-to-end tests check.
constexpr const char* kValidatePath = "/m/launch/project/validate";
constexpr const char* kLoginPath = "/m/launch/project/auth/ios";

Reply keyed(int status, const char* key, bool value) {
  return {status, nlohmann::json{{key, value}}.dump(), "application/json"};
}

// A refusal that says nothing about the key: the library must read it as false all the same.
Reply unknown(const char* what) {
  return {401, nlohmann::json{{"error", what}}.dump(), "application/json"};
}

Reply validate(const MockService& service, const RecordedRequest& request) {
  const auto token = request.header("Authorization");
  if (token && service.refusedTokens.count(*token) != 0) return keyed(200, "valid", false);
  if (token && service.validTokens.count(*token) != 0) return keyed(200, "valid", true);
  return unknown("unknown token");
}

Reply login(const MockService& service, const RecordedRequest& request) {
  const auto body = nlohmann::json::parse(request.body, nullptr, /*allow_exceptions=*/false);
  if (!body.is_object()) return keyed(400, "authed", false);
  const auto member = [&body](const char* name) -> const std::string* {
    const auto it = body.find(name);
    return it != body.end() && it->is_string() ? it->get_ptr<const std::string*>() : nullptr;
  };
  const std::string* username = member("username");
  const std::string* password = member("password");
  const std::string* urlScheme = member("urlScheme");
  if (username == nullptr || password == nullptr || urlScheme == nullptr) {
    return keyed(400, "authed", false);
  }
  if (service.refusedUsers.count(*username) != 0) return keyed(200, "authed", false);
  if (urlScheme->empty() || service.users.count({*username, *password}) == 0) {
    return unknown("invalid user name or password");
  }
  return keyed(200, "authed", true);
}

}  // namespace

void MockService::install(HttpsServer& server) const {
  auto settings = std::make_shared<const MockService>(*this);
  server.addRoute("GET", kValidatePath, [settings](const RecordedRequest& request) {
    Reply reply = validate(*settings, request);
    reply.delay = settings->delay;
    return reply;
  });
  server.addRoute("POST", kLoginPath, [settings](const RecordedRequest& request) {
    Reply reply = login(*settings, request);
    reply.delay = settings->delay;
    return reply;
  });
  if (failedUploads > 0) server.answerStatus(500, failedUploads, "PUT");
}

}  // namespace tavrel::endpoint
