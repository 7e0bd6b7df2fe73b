#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "quillmar/platform/SubscriptionUpdates.h"

namespace quillmar::simulated {

/// A stream of subscription updates that the host posts. Any thread.
class InMemorySubscriptionUpdates : public platform::SubscriptionStatusUpdates {
 public:
  /// Ends the stream.
  ~InMemorySubscriptionUpdates() override;

  std::shared_ptr<platform::SubscriptionStatusSubscription> subscribe() override;

  /// Hands the update to each listener. One that waits for it is called inside this call.
  void post(const platform::SubscriptionStatusUpdate& update);

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

}  // namespace quillmar::simulated
