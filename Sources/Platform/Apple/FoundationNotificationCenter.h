#pragma once

#include <functional>
#include <memory>

#include "quillmar/platform/NotificationCenter.h"

namespace quillmar::platform {

/// The app's default notification centre. UIKit's notifications are known by their names, so that nothing links UIKit:
/// in an extension they never come.
class FoundationNotificationCenter : public NotificationCenter {
 public:
  FoundationNotificationCenter();

  /// Ends all registrations.
  ~FoundationNotificationCenter() override;

  ObserverId addObserver(Notification notification, std::function<void()> callback) override;
  void removeObserver(ObserverId observer) noexcept override;

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace quillmar::platform
