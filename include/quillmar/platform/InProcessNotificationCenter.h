#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "quillmar/Export.h"
#include "quillmar/platform/NotificationCenter.h"

namespace quillmar::platform {

/// A notification centre for hosts that know themselves when they become active.
class QUILLMAR_API InProcessNotificationCenter : public NotificationCenter {
 public:
  ObserverId addObserver(Notification notification, std::function<void()> callback) override;
  void removeObserver(ObserverId observer) noexcept override;

  /// Calls the observers of `notification` on the calling thread, in the order of their registration. One that is
  /// removed meanwhile is not called any more; one that is added is called from the next notification on.
  void post(Notification notification);

 private:
  std::mutex mutex_;
  ObserverId lastObserver_ = 0;
  std::map<ObserverId, std::pair<Notification, std::shared_ptr<const std::function<void()>>>> observers_;
};

}  // namespace quillmar::platform
