#include "support/sandbox.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tavrel::testing {

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tavrel-test-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void resetSessionGlobals() {
  _userId.set("no-user-id");
  _firstWriteToGameEventFile = true;
  _firstWriteToInputEventFile = true;
  _recordingStartedAt = -1;
  _authToken.set(std::nullopt);
  _validationCallbackSet = false;
  _gameEventFilename.set(std::nullopt);
  _gameEventUrl.set(std::nullopt);
  _inputEventFilename.set(std::nullopt);
  _startedEventThread = false;
  _lastUpdated = 0;
  _eventsSinceLastUpdate = 0;
  _hasUpdatedGameEvents = false;
  _hasUpdatedInputEvents = false;
  _inputEventUrl.set(std::nullopt);
  _validationCallback.set(nullptr);
  // The singleton's own fields belong to the session too.
  auto& sdk = TavrelSDK::sharedInstance();
  sdk.setOverlayView(nullptr);
  sdk.setParentViewController(nullptr);
  sdk.setTimer(nullptr);
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << "cannot read " << path;
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void SimulatedSession::SetUp() {
  sim_ = SimPlatform::create(simOptions);
  sim_->setDocumentsDirectory(documents_.path());
  Platform::install(sim_);
  resetSessionGlobals();
}

void SimulatedSession::TearDown() {
  sim_->shutdown();
  Platform::install(nullptr);
  sim_.reset();
  resetSessionGlobals();
}

}  // namespace tavrel::testing
