#include "quillmar/platform/InProcessSubscriptionUpdates.h"

#include <algorithm>
#include <deque>
#include <utility>

namespace quillmar::platform {

class InProcessSubscriptionUpdates::Subscription : public SubscriptionStatusSubscription {
 public:
  void next(Callback callback) override {
    std::optional<SubscriptionStatusUpdate> update;
    {
      const std::lock_guard lock(mutex_);
      if (!kept_.empty()) {
        update = std::move(kept_.front());
        kept_.pop_front();
      } else if (!ended_) {
        waiting_ = std::move(callback);
        return;
      }
    }
    callback(std::move(update));
  }

  void cancel() noexcept override {
    {
      const std::lock_guard lock(mutex_);
      cancelled_ = true;
    }
    end();
  }

  void offer(const SubscriptionStatusUpdate& update) {
    Callback waiting;
    {
      const std::lock_guard lock(mutex_);
      if (ended_) {
        return;
      }
      if (!waiting_) {
        kept_.push_back(update);
        return;
      }
      waiting.swap(waiting_);
    }
    waiting(update);
  }

  void end() {
    Callback waiting;
    {
      const std::lock_guard lock(mutex_);
      ended_ = true;
      waiting.swap(waiting_);
    }
    if (waiting) {
      waiting(std::nullopt);
    }
  }

  bool isCancelled() const {
    const std::lock_guard lock(mutex_);
    return cancelled_;
  }

 private:
  mutable std::mutex mutex_;
  std::deque<SubscriptionStatusUpdate> kept_;
  Callback waiting_;
  bool ended_ = false;
  bool cancelled_ = false;
};

InProcessSubscriptionUpdates::~InProcessSubscriptionUpdates() {
  end();
}

std::shared_ptr<SubscriptionStatusSubscription> InProcessSubscriptionUpdates::subscribe() {
  auto subscription = std::make_shared<Subscription>();
  const std::lock_guard lock(mutex_);
  if (ended_) {
    subscription->end();
  }
  std::erase_if(subscriptions_, [](const auto& entry) { return entry.expired(); });
  subscriptions_.push_back(subscription);
  return subscription;
}

void InProcessSubscriptionUpdates::post(const SubscriptionStatusUpdate& update) {
  for (const auto& subscription : alive()) {
    subscription->offer(update);
  }
}

void InProcessSubscriptionUpdates::end() {
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }
  for (const auto& subscription : alive()) {
    subscription->end();
  }
}

std::size_t InProcessSubscriptionUpdates::listeners() const {
  const auto subscriptions = alive();
  return static_cast<std::size_t>(std::count_if(subscriptions.begin(), subscriptions.end(),
                                                [](const auto& entry) { return !entry->isCancelled(); }));
}

std::vector<std::shared_ptr<InProcessSubscriptionUpdates::Subscription>> InProcessSubscriptionUpdates::alive() const {
  std::vector<std::shared_ptr<Subscription>> alive;
  const std::lock_guard lock(mutex_);
  for (const auto& entry : subscriptions_) {
    if (auto subscription = entry.lock()) {
      alive.push_back(std::move(subscription));
    }
  }
  return alive;
}

}  // namespace quillmar::platform
