#include "quillmar/platform/InProcessNotificationCenter.h"

#include <algorithm>

namespace quillmar::platform {

NotificationCenter::ObserverId InProcessNotificationCenter::addObserver(Notification notification,
                                                                        std::function<void()> callback) {
  auto shared = std::make_shared<const std::function<void()>>(std::move(callback));
  const std::lock_guard lock(mutex_);
  observers_.emplace(++lastObserver_, std::pair(notification, std::move(shared)));
  return lastObserver_;
}

void InProcessNotificationCenter::removeObserver(ObserverId observer) noexcept {
  std::unique_lock lock(mutex_);
  const auto removed = observers_.extract(observer);
  lock.unlock();  // the callback is destroyed outside the lock
}

void InProcessNotificationCenter::post(Notification notification) {
  std::unique_lock lock(mutex_);
  const ObserverId newest = lastObserver_;
  for (ObserverId last = 0;;) {
    const auto next = std::find_if(observers_.upper_bound(last), observers_.end(),
                                   [&](const auto& entry) { return entry.second.first == notification; });
    if (next == observers_.end() || next->first > newest) {
      return;
    }
    last = next->first;
    auto callback = next->second.second;
    lock.unlock();
    (*callback)();
    callback.reset();  // the last one to hold it, if it was removed: destroyed outside the lock
    lock.lock();
  }
}

}  // namespace quillmar::platform
