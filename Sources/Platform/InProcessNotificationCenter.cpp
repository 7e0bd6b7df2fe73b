#include "quillmar/platform/InProcessNotificationCenter.h"

#include <vector>

namespace quillmar::platform {

NotificationCenter::ObserverId InProcessNotificationCenter::addObserver(Notification notification,
                                                                        std::function<void()> callback) {
  const std::lock_guard lock(mutex_);
  observers_.emplace(++lastObserver_, std::pair(notification, std::move(callback)));
  return lastObserver_;
}

void InProcessNotificationCenter::removeObserver(ObserverId observer) noexcept {
  std::function<void()> removed;  // destroyed outside the lock
  const std::lock_guard lock(mutex_);
  if (const auto found = observers_.find(observer); found != observers_.end()) {
    removed = std::move(found->second.second);
    observers_.erase(found);
  }
}

void InProcessNotificationCenter::post(Notification notification) {
  std::vector<std::function<void()>> callbacks;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [observer, registration] : observers_) {
      if (registration.first == notification) {
        callbacks.push_back(registration.second);
      }
    }
  }
  for (const auto& callback : callbacks) {
    callback();
  }
}

}  // namespace quillmar::platform
