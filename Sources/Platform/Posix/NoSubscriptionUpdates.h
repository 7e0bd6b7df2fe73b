#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "quillmar/platform/SubscriptionUpdates.h"

namespace quillmar::platform {

/// For a system without StoreKit: a stream without updates, which ends only when it is cancelled.
class NoSubscriptionUpdates : public SubscriptionStatusUpdates {
 public:
  std::shared_ptr<SubscriptionStatusSubscription> subscribe() override { return std::make_shared<Silence>(); }

 private:
  class Silence : public SubscriptionStatusSubscription {
   public:
    void next(Callback callback) override {
      {
        const std::lock_guard lock(mutex_);
        if (!cancelled_) {
          waiting_ = std::move(callback);
          return;
        }
      }
      callback(std::nullopt);
    }

    void cancel() noexcept override {
      Callback waiting;
      {
        const std::lock_guard lock(mutex_);
        cancelled_ = true;
        waiting.swap(waiting_);
      }
      if (waiting) {
        waiting(std::nullopt);
      }
    }

   private:
    std::mutex mutex_;
    bool cancelled_ = false;
    Callback waiting_;
  };
};

}  // namespace quillmar::platform
