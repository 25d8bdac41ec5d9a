#include <tavrel_sdk/tavrel_sdk.hpp>

#include "platform/files.hpp"
#include "recording/event_log.hpp"

namespace tavrel {

using recording::describe;

void TavrelSDK::processEvents(const void* /*unused*/) {
  for (;;) {
    // The game event file first, then the input event file; neither waits for its upload.
    for (recording::EventLog* log : {&recording::gameEventLog(), &recording::inputEventLog()}) {
      std::optional<std::string> fileName, url;
      {
        // The URL and the file name of one set-up, never one of each.
        std::lock_guard lock(log->naming);
        if (log->url.isEmpty() || !log->hasUpdated.load(std::memory_order_acquire)) continue;
        fileName = log->filename.get();
        url = log->url.get();
      }
      std::atomic<bool>* flag = &log->hasUpdated;
      uploadFileToUrl(fileName, url, 0, [flag](bool uploaded) {
        if (uploaded) flag->store(false, std::memory_order_release);
      });
    }
    Platform::current().sleepForTimeInterval(30.0);
  }
}

void TavrelSDK::uploadFileToUrl(const std::optional<std::string>& fileName, const std::optional<std::string>& url,
                                std::int32_t retries, Completion callback) {
  const auto finish = [&callback](bool uploaded) {
    if (callback) callback(uploaded);
  };
  if (retries >= 2) {
    finish(false);
    return;
  }
  Platform& platform = Platform::current();
  const std::string path = appendingPathComponent(platform.documentsDirectory(), fileName.value_or(""));
  std::string error;
  std::optional<UrlBody> file = UrlBody::contentsOfFile(path, error);
  if (!file) {
    platform.log("SDK > Failed to read from " + path);
    finish(false);
    return;
  }

  UrlRequest request;
  request.url = url.value_or("");
  request.method = "PUT";
  request.headers = {{"Content-Type", "application/octet-stream"}};
  request.body = *std::move(file);
  request.keepsResponseBody = false;  // only the status counts
  // The attempt keeps the name and URL it began with, whatever a later set-up stores.
  platform.dataTask(std::move(request), [fileName, url, retries, callback](UrlResponse response) {
    Platform& platform = Platform::current();
    if (response.error) {
      platform.log("SDK > Failed to upload " + describe(fileName) + " to " + describe(url));
      platform.sleepForTimeInterval(1.0);
      // Read anew: the retry sends whatever the file holds by now.
      TavrelSDK::sharedInstance().uploadFileToUrl(fileName, url, retries + 1, callback);
    } else if (response.statusCode == 200) {
      if (callback) callback(true);
    } else {
      platform.log("SDK > Failed with code " + std::to_string(response.statusCode) + " to upload " +
                   describe(fileName) + " to " + describe(url));
      if (callback) callback(false);
    }
  });
  platform.log("SDK > Uploading " + describe(fileName) + " to " + describe(url));
}

}  // namespace tavrel
