// Uploads to s3rver, an S3-compatible server that checks each pre-signed URL's signature.

#include "recording_fixture.hpp"
#include "session/launch_url.hpp"
#include "support/serve_process.hpp"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <ctime>
#include <filesystem>

namespace tavrel::testing {
namespace {

using ObjectStore = RecordingTest;

// Signature version 2, with both "+" and "/" in it: a client that re-encodes the query breaks it.
std::string presignedPut(const std::string& port, const std::string& key, const std::string& secret) {
  for (std::int64_t expires = std::time(nullptr) + 3600;; ++expires) {
    const std::string text = "PUT\n\napplication/octet-stream\n" + std::to_string(expires) + "\n/uploads/" + key;
    unsigned char mac[EVP_MAX_MD_SIZE], base64[64];
    unsigned int macLength = 0;
    HMAC(EVP_sha1(), secret.data(), static_cast<int>(secret.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(), mac, &macLength);
    const std::string signature(reinterpret_cast<const char*>(base64),
                                static_cast<std::size_t>(EVP_EncodeBlock(base64, mac, static_cast<int>(macLength))));
    if (signature.find('+') == std::string::npos || signature.find('/') == std::string::npos) continue;
    std::string encoded;
    for (const char c : signature) encoded += c == '+' ? "%2B" : c == '/' ? "%2F" : c == '=' ? "%3D" : std::string(1, c);
    return "http://127.0.0.1:" + port + "/uploads/" + key + "?AWSAccessKeyId=S3RVER&Expires=" +
           std::to_string(expires) + "&Signature=" + encoded;
  }
}

TEST_F(ObjectStore, ARightSignatureStoresTheFileByteForByteAndAWrongOneIsRefused) {
  if (!std::filesystem::exists(TAVREL_S3RVER)) GTEST_SKIP() << TAVREL_S3RVER << " is missing (scripts/setup installs it)";
  TemporaryDirectory store;
  ChildProcess s3rver({TAVREL_S3RVER, "--silent", "-a", "127.0.0.1", "-p", "0", "-d", store.path(),
                       "--configure-bucket", "uploads"});
  std::string port;
  for (std::string line; port.empty() && (!(line = s3rver.readLine()).empty() || !s3rver.ended());) {
    if (line.starts_with("S3rver listening on")) port = line.substr(line.rfind(':') + 1);
  }
  ASSERT_FALSE(port.empty()) << "s3rver did not start";

  // The input log's URL is signed with another secret: refused, and its file waits for the next pass.
  sdk().processUrlRequest(composeLaunchUrl({"tavreldemo", "object-store-token-00000" "player-s3-00000000000001",
                                            presignedPut(port, "g.evt", "S3RVER"),
                                            presignedPut(port, "i.evt", "another secret"), originMs()}));
  sim().runUntilIdle();
  for (int i = 0; i < 5; ++i) {
    sdk().emitGameEvent("level-" + std::to_string(i), "start");
    sdk().emitInputEvent({6, 0, 6, i, 100 * i, 200, 0});
  }
  sim().advance(30);
  EXPECT_EQ(readFile(store.path() + "/uploads/g.evt._S3rver_object"), readFile(gameEventPath()));
  EXPECT_FALSE(std::filesystem::exists(store.path() + "/uploads/i.evt._S3rver_object"));
  ASSERT_EQ(logs().size(), 1u);
  EXPECT_TRUE(logs()[0].starts_with("SDK > Failed with code 403 to upload " + _inputEventFilename.get().value()))
      << logs()[0];
  EXPECT_EQ(std::pair(_hasUpdatedGameEvents.load(), _hasUpdatedInputEvents.load()), std::pair(false, true));
}

}  // namespace
}  // namespace tavrel::testing
