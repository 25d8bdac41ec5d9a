// Uploads to real object storage: s3rver, an S3-compatible server that checks the signature of
// each pre-signed URL, on 127.0.0.1 (scripts/setup installs it). The session runs in virtual
// time; the requests are real.

#include "recording_fixture.hpp"
#include "session/launch_url.hpp"
#include "support/serve_process.hpp"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <ctime>
#include <filesystem>
#include <memory>

namespace tavrel::testing {
namespace {

constexpr const char* kToken = "object-store-token-00000" "player-s3-00000000000001";

class ObjectStore : public RecordingTest {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(TAVREL_S3RVER)) GTEST_SKIP() << TAVREL_S3RVER << " is missing (scripts/setup installs it)";
    RecordingTest::SetUp();
    s3rver_ = std::make_unique<ChildProcess>(std::vector<std::string>{
        TAVREL_S3RVER, "--silent", "-a", "127.0.0.1", "-p", "0", "-d", store_.path(), "--configure-bucket", "uploads"});
    for (std::string line; port_.empty() && (!(line = s3rver_->readLine()).empty() || !s3rver_->ended());) {
      if (line.starts_with("S3rver listening on")) port_ = line.substr(line.rfind(':') + 1);
    }
    ASSERT_FALSE(port_.empty()) << "s3rver did not start";
  }
  void TearDown() override {
    if (!IsSkipped()) RecordingTest::TearDown();
  }

  // A PUT URL pre-signed as a service signs one (signature version 2, the Content-Type the
  // library sends in the signed text), with a signature that holds both "+" and "/", so that a
  // client that decodes and re-encodes the query would break it.
  std::string presignedPut(const std::string& key, const std::string& secret = "S3RVER") {
    for (std::int64_t expires = std::time(nullptr) + 3600;; ++expires) {
      const std::string signed_ =
          "PUT\n\napplication/octet-stream\n" + std::to_string(expires) + "\n/uploads/" + key;
      unsigned char mac[EVP_MAX_MD_SIZE];
      unsigned int macLength = 0;
      HMAC(EVP_sha1(), secret.data(), static_cast<int>(secret.size()),
           reinterpret_cast<const unsigned char*>(signed_.data()), signed_.size(), mac, &macLength);
      unsigned char base64[64];
      const int length = EVP_EncodeBlock(base64, mac, static_cast<int>(macLength));
      const std::string signature(reinterpret_cast<const char*>(base64), static_cast<std::size_t>(length));
      if (signature.find('+') == std::string::npos || signature.find('/') == std::string::npos) continue;
      std::string encoded;
      for (const char c : signature) {
        encoded += c == '+' ? "%2B" : c == '/' ? "%2F" : c == '=' ? "%3D" : std::string(1, c);
      }
      return "http://127.0.0.1:" + port_ + "/uploads/" + key + "?AWSAccessKeyId=S3RVER&Expires=" +
             std::to_string(expires) + "&Signature=" + encoded;
    }
  }

  void launch(const std::string& gameUrl, const std::string& inputUrl) {
    sdk().processUrlRequest(composeLaunchUrl({"tavreldemo", kToken, gameUrl, inputUrl, originMs()}));
    sim().runUntilIdle();
  }

  void playFor(double seconds) {
    for (int i = 0; i < 5; ++i) {
      sdk().emitGameEvent("level-" + std::to_string(i), "start");
      sdk().emitInputEvent({6, 0, 6, i, 100 * i, 200, 0});
    }
    sim().advance(seconds);
  }

  // The object as the store keeps it; nothing when none was stored.
  std::optional<std::string> stored(const std::string& key) {
    const std::string path = store_.path() + "/uploads/" + key + "._S3rver_object";
    if (!std::filesystem::exists(path)) return std::nullopt;
    return readFile(path);
  }

  TemporaryDirectory store_;
  std::unique_ptr<ChildProcess> s3rver_;
  std::string port_;
};

TEST_F(ObjectStore, ARightSignatureStoresTheFileByteForByteAndAWrongOneIsRefused) {
  // The input log's URL is signed with another secret: refused, and its file waits for the next pass.
  launch(presignedPut("g.evt"), presignedPut("i.evt", "another secret"));
  playFor(30);
  EXPECT_EQ(stored("g.evt"), readFile(gameEventPath()));
  EXPECT_EQ(stored("i.evt"), std::nullopt);
  ASSERT_EQ(logs().size(), 1u);
  EXPECT_TRUE(logs()[0].starts_with("SDK > Failed with code 403 to upload " + _inputEventFilename.get().value()))
      << logs()[0];
  EXPECT_TRUE(_hasUpdatedInputEvents.load());
  EXPECT_FALSE(_hasUpdatedGameEvents.load());
}

}  // namespace
}  // namespace tavrel::testing
