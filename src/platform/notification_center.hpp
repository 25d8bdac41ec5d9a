#pragma once

// NSNotificationCenter: delivery by name and object, synchronously, on the posting thread.

#include <tavrel_sdk/export.hpp>

#include <nlohmann/json.hpp>

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tavrel {

struct Notification {
  std::string name;
  const void* object = nullptr;
  nlohmann::json userInfo;  // null when the poster gave none
};

class TAVREL_EXPORT NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;

  static NotificationCenter& defaultCenter();

  // `observer` identifies the registration for removeObserver; a null `object` matches every
  // poster, otherwise only posts with that object are delivered.
  void addObserver(const void* observer, std::string name, const void* object, Handler handler);
  // Runs every matching handler, in registration order, before it returns. A handler may add
  // or remove observers; such changes apply from the next post.
  void postNotificationName(const std::string& name, const void* object, nlohmann::json userInfo = nullptr);
  // Removes the observer's registrations for `name` (all names when absent) and `object`
  // (all objects when null).
  void removeObserver(const void* observer, const std::optional<std::string>& name = std::nullopt,
                      const void* object = nullptr);

 private:
  struct Registration {
    const void* observer;
    std::string name;
    const void* object;
    std::shared_ptr<Handler> handler;
  };
  std::mutex mutex_;
  std::vector<Registration> registrations_;
};

}  // namespace tavrel
