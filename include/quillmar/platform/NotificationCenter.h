#pragma once

#include <cstdint>
#include <functional>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// What the library wants to be told.
enum class Notification : std::uint8_t {
  applicationDidBecomeActive,  ///< on Apple systems: UIKit's notification of that name
  sceneDidActivate,            ///< on Apple systems: UIKit's `UIScene.didActivateNotification`
};

/// Tells the library when the app or one of its scenes becomes active.
class QUILLMAR_API NotificationCenter {
 public:
  using ObserverId = std::uint64_t;

  virtual ~NotificationCenter() = default;

  /// Calls `callback` at each such notification, on the thread that posts it, until `removeObserver`. Two
  /// registrations are called twice. Called from any thread; does not block.
  virtual ObserverId addObserver(Notification notification, std::function<void()> callback) = 0;

  /// Ends a registration: the callback is not called any more; one that is running finishes. Called from any thread,
  /// also from a callback.
  virtual void removeObserver(ObserverId observer) noexcept = 0;
};

}  // namespace quillmar::platform
