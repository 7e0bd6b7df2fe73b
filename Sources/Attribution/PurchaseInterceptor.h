#pragma once

#include <memory>
#include <optional>
#include <system_error>

#include "Async/ActivityCounter.h"
#include "Async/SerialExecutor.h"
#include "Async/Task.h"
#include "Async/TaskHandle.h"
#include "Attribution/PurchaseCounters.h"
#include "Attribution/PurchaseInterceptorProtocol.h"
#include "Attribution/PurchaseProcessorProtocol.h"
#include "quillmar/platform/SubscriptionUpdates.h"

namespace quillmar {

/// Part of the interface, never thrown: a failed verification is logged with the platform's own error.
enum class PurchaseInterceptorError { unverifiedTransaction = 1 };

std::error_code make_error_code(PurchaseInterceptorError error) noexcept;

/// Hands each verified subscription update to the processor, one after the other.
///
/// An actor: its state is touched only on its own serial queue, where its tasks run too. The listener holds it weakly;
/// when it is destroyed, which may happen while an update is being sent, the listener ends.
class PurchaseInterceptor final : public PurchaseInterceptorProtocol,
                                  public std::enable_shared_from_this<PurchaseInterceptor> {
 public:
  /// `activity` counts a listener that is not waiting for an update. `counters` gets what was unverified, failed
  /// or dropped.
  PurchaseInterceptor(std::shared_ptr<PurchaseProcessorProtocol> purchaseProcessor,
                      std::shared_ptr<platform::SubscriptionStatusUpdates> updates,
                      std::shared_ptr<platform::Executor> executor, std::shared_ptr<ActivityCounter> activity,
                      std::shared_ptr<PurchaseCounters> counters = std::make_shared<PurchaseCounters>());
  ~PurchaseInterceptor() override;

  Task<void> startListeningForPurchases() override;
  Task<void> stopListeningForPurchases() override;

 private:
  struct Arrival;

  static Task<void> startListening(std::shared_ptr<PurchaseInterceptor> self);
  static Task<void> stopListening(std::shared_ptr<PurchaseInterceptor> self);
  static Task<void> listen(std::weak_ptr<PurchaseInterceptor> weak, std::shared_ptr<TaskHandle> handle,
                           std::shared_ptr<platform::SubscriptionStatusUpdates> updates,
                           std::shared_ptr<ActivityCounter> counter, std::shared_ptr<PurchaseCounters> counters,
                           Activity starting);
  static Task<void> handleSubscriptionStatusUpdate(std::shared_ptr<PurchaseProcessorProtocol> processor,
                                                   std::shared_ptr<PurchaseCounters> counters,
                                                   platform::SubscriptionStatusUpdate update);
  static Task<void> processSubscriptionStatusUpdate(std::shared_ptr<PurchaseProcessorProtocol> processor,
                                                    std::shared_ptr<PurchaseCounters> counters,
                                                    platform::SubscriptionStatusUpdate update);
  void cancelListener() noexcept;

  const std::shared_ptr<PurchaseProcessorProtocol> purchaseProcessor_;
  const std::shared_ptr<platform::SubscriptionStatusUpdates> updates_;
  const std::shared_ptr<SerialExecutor> serial_;
  const std::shared_ptr<ActivityCounter> activity_;
  const std::shared_ptr<PurchaseCounters> counters_;
  std::shared_ptr<TaskHandle> purchaseListenerTask_;  // touched on serial_ only
};

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::PurchaseInterceptorError> : std::true_type {};
