#pragma once

#include <cstdint>

#include "Async/Task.h"
#include "quillmar/platform/SubscriptionUpdates.h"

namespace quillmar {

class PurchaseProcessorProtocol {
 public:
  virtual ~PurchaseProcessorProtocol() = default;

  /// Sends one verified subscription transaction to the service. Throws a `PurchaseProcessorError`. The object must
  /// live until the task is done.
  virtual Task<void> processPurchase(platform::SubscriptionTransaction transaction,
                                     platform::SubscriptionRenewalInfo renewalInfo, std::int64_t state) = 0;
};

}  // namespace quillmar
