#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "quillmar/Export.h"
#include "quillmar/platform/SubscriptionUpdates.h"

namespace quillmar::platform {

/// A stream of subscription updates for hosts that receive them from the platform themselves. Updates that come while
/// a listener is busy are kept for it. Any thread.
class QUILLMAR_API InProcessSubscriptionUpdates : public SubscriptionStatusUpdates {
 public:
  /// Ends the stream.
  ~InProcessSubscriptionUpdates() override;

  std::shared_ptr<SubscriptionStatusSubscription> subscribe() override;

  /// Hands the update to each listener. One that waits for it is called inside this call.
  void post(const SubscriptionStatusUpdate& update);

  /// Ends the stream: listeners get what was posted, then the end. Who subscribes later gets the end at once.
  void end();

  /// How many listen: have subscribed, and neither cancelled nor been let go.
  std::size_t listeners() const;

 private:
  class Subscription;

  std::vector<std::shared_ptr<Subscription>> alive() const;

  mutable std::mutex mutex_;
  bool ended_ = false;
  std::vector<std::weak_ptr<Subscription>> subscriptions_;
};

}  // namespace quillmar::platform
