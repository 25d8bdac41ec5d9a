#include "platform/notification_center.hpp"

#include <algorithm>

namespace tavrel {

NotificationCenter& NotificationCenter::defaultCenter() {
  static NotificationCenter* center = new NotificationCenter();  // never destroyed, like the platform's
  return *center;
}

void NotificationCenter::addObserver(const void* observer, std::string name, const void* object, Handler handler) {
  std::lock_guard lock(mutex_);
  registrations_.push_back({observer, std::move(name), object, std::make_shared<Handler>(std::move(handler))});
}

void NotificationCenter::postNotificationName(const std::string& name, const void* object, nlohmann::json userInfo) {
  std::vector<std::shared_ptr<Handler>> handlers;
  {
    std::lock_guard lock(mutex_);
    for (const auto& r : registrations_) {
      if (r.name == name && (r.object == nullptr || r.object == object)) handlers.push_back(r.handler);
    }
  }
  const Notification notification{name, object, std::move(userInfo)};
  // Outside the lock: a handler may post or change registrations.
  for (const auto& handler : handlers) (*handler)(notification);
}

void NotificationCenter::removeObserver(const void* observer, const std::optional<std::string>& name,
                                        const void* object) {
  std::lock_guard lock(mutex_);
  std::erase_if(registrations_, [&](const Registration& r) {
    return r.observer == observer && (!name || r.name == *name) && (object == nullptr || r.object == object);
  });
}

}  // namespace tavrel
