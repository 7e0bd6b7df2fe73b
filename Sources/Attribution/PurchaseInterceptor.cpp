#include "Attribution/PurchaseInterceptor.h"

#include <utility>

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Platform/ErrorCategory.h"

// Progress is deliberately logged at the error level, so that it shows whenever the log is on.

namespace quillmar {

using platform::SubscriptionStatusUpdate;

/// What `next` gave, and the listener's being busy with it.
struct PurchaseInterceptor::Arrival {
  std::optional<SubscriptionStatusUpdate> update;
  Activity busy;
};

std::error_code make_error_code(PurchaseInterceptorError error) noexcept {
  static const std::error_category& category =
      makeErrorCategory("PurchaseInterceptorError", {{"unverifiedTransaction", "Transaction could not be verified"}});
  return {static_cast<int>(error), category};
}

PurchaseInterceptor::PurchaseInterceptor(std::shared_ptr<PurchaseProcessorProtocol> purchaseProcessor,
                                         std::shared_ptr<platform::SubscriptionStatusUpdates> updates,
                                         std::shared_ptr<platform::Executor> executor,
                                         std::shared_ptr<ActivityCounter> activity,
                                         std::shared_ptr<PurchaseCounters> counters)
    : purchaseProcessor_(std::move(purchaseProcessor)),
      updates_(std::move(updates)),
      serial_(std::make_shared<SerialExecutor>(std::move(executor), "com.quillmar.purchaseInterceptor")),
      activity_(std::move(activity)),
      counters_(std::move(counters)) {}

PurchaseInterceptor::~PurchaseInterceptor() {
  cancelListener();
}

Task<void> PurchaseInterceptor::startListeningForPurchases() {
  Task<void> start = startListening(shared_from_this());
  return runOn(serial_, std::move(start));
}

Task<void> PurchaseInterceptor::stopListeningForPurchases() {
  Task<void> stop = stopListening(shared_from_this());
  return runOn(serial_, std::move(stop));
}

Task<void> PurchaseInterceptor::startListening(std::shared_ptr<PurchaseInterceptor> self) {
  Log::error("PurchaseInterceptor - Starting to listen for purchases");
  self->cancelListener();
  auto handle = std::make_shared<TaskHandle>();
  self->purchaseListenerTask_ = handle;
  Activity busy(self->activity_);
  Task<void> listener =
      listen(self, std::move(handle), self->updates_, self->activity_, self->counters_, std::move(busy));
  spawn(self->serial_, std::move(listener));
  Log::error("PurchaseInterceptor - Purchase listener task created");
  co_return;
}

Task<void> PurchaseInterceptor::stopListening(std::shared_ptr<PurchaseInterceptor> self) {
  Log::debug("PurchaseInterceptor - Stopping purchase listener");
  self->cancelListener();
  co_return;
}

void PurchaseInterceptor::cancelListener() noexcept {
  if (const auto handle = std::exchange(purchaseListenerTask_, nullptr)) {
    handle->cancel();
  }
}

Task<void> PurchaseInterceptor::listen(std::weak_ptr<PurchaseInterceptor> weak, std::shared_ptr<TaskHandle> handle,
                                       std::shared_ptr<platform::SubscriptionStatusUpdates> updates,
                                       std::shared_ptr<ActivityCounter> counter,
                                       std::shared_ptr<PurchaseCounters> counters, Activity starting) {
  Log::error("PurchaseInterceptor - Task started, beginning Product.SubscriptionInfo.Status.updates loop");
  const std::shared_ptr<platform::SubscriptionStatusSubscription> subscription = updates->subscribe();
  handle->onCancel([subscription] { subscription->cancel(); });
  const auto busy = std::make_shared<Activity>(std::move(starting));
  for (;;) {
    std::function<void(std::function<void(Arrival)>)> next = [subscription, counter,
                                                              busy](std::function<void(Arrival)> arrived) {
      subscription->next([counter, arrived = std::move(arrived)](std::optional<SubscriptionStatusUpdate> update) {
        arrived(Arrival{std::move(update), Activity(counter)});
      });
      busy->end();  // only now: an update that was there already keeps the listener busy without a gap
    };
    Arrival arrival = co_await awaitCallback<Arrival>(std::move(next));
    *busy = std::move(arrival.busy);
    if (!arrival.update) {
      break;
    }
    auto self = handle->isCancelled() ? nullptr : weak.lock();
    if (!self) {  // it came while this listened, and is too late
      counters->dropped.fetch_add(1, std::memory_order_relaxed);
      continue;
    }
    Log::error("PurchaseInterceptor - Subscription status update received!");
    Task<void> handling =
        handleSubscriptionStatusUpdate(self->purchaseProcessor_, counters, std::move(*arrival.update));
    self.reset();
    co_await std::move(handling);
  }
  handle->onCancel(nullptr);
  Log::error("PurchaseInterceptor - Product.SubscriptionInfo.Status.updates loop ended");
}

Task<void> PurchaseInterceptor::handleSubscriptionStatusUpdate(std::shared_ptr<PurchaseProcessorProtocol> processor,
                                                               std::shared_ptr<PurchaseCounters> counters,
                                                               SubscriptionStatusUpdate update) {
  Log::error("PurchaseInterceptor - Handling subscription status update");
  for (const auto* failure : {&update.transaction.verificationError, &update.renewalInfo.verificationError}) {
    if (*failure) {
      Log::error("PurchaseInterceptor - Failed to verify subscription status: {}", (*failure)->localizedDescription);
      counters->unverified.fetch_add(1, std::memory_order_relaxed);
      co_return;
    }
  }
  Log::error("PurchaseInterceptor - Verified subscription status received, state: {}", update.renewalState);
  co_await processSubscriptionStatusUpdate(std::move(processor), std::move(counters), std::move(update));
}

Task<void> PurchaseInterceptor::processSubscriptionStatusUpdate(std::shared_ptr<PurchaseProcessorProtocol> processor,
                                                                std::shared_ptr<PurchaseCounters> counters,
                                                                SubscriptionStatusUpdate update) {
  try {
    co_await processor->processPurchase(std::move(update.transaction), std::move(update.renewalInfo),
                                        update.renewalState);
  } catch (...) {
    Log::error("PurchaseInterceptor - Failed to process subscription status update: {}",
               localizedDescription(std::current_exception()));
    counters->failed.fetch_add(1, std::memory_order_relaxed);
  }
}

}  // namespace quillmar
