#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "quillmar/Export.h"
#include "quillmar/platform/PlatformError.h"

namespace quillmar::platform {

/// On Apple systems: StoreKit's `VerificationResult<Transaction>`.
struct SubscriptionTransaction {
  std::uint64_t identifier = 0;
  std::string jsonRepresentation;                  ///< the platform's own, passed on unchanged
  std::optional<PlatformError> verificationError;  ///< set when the platform's signature does not hold
};

/// On Apple systems: StoreKit's `VerificationResult<Product.SubscriptionInfo.RenewalInfo>`.
struct SubscriptionRenewalInfo {
  std::string jsonRepresentation;
  std::optional<PlatformError> verificationError;
};

/// On Apple systems: StoreKit's `Product.SubscriptionInfo.Status`.
struct SubscriptionStatusUpdate {
  SubscriptionTransaction transaction;
  SubscriptionRenewalInfo renewalInfo;
  std::int64_t renewalState = 0;  ///< the raw value of the renewal state
};

/// One listener's way through the updates. Its operations may be called from any thread.
class QUILLMAR_API SubscriptionStatusSubscription {
 public:
  /// Nothing: the stream has ended.
  using Callback = std::function<void(std::optional<SubscriptionStatusUpdate>)>;

  virtual ~SubscriptionStatusSubscription() = default;

  /// Asks for the next update, in the order of arrival; updates that come while nobody asks are kept. `callback` is
  /// owned until it is called, once, on any thread, also inside this call; it does not block. It is not called again
  /// before that: the listener decides the pace. After the end of the stream each call gives nothing at once.
  virtual void next(Callback callback) = 0;

  /// Ends the stream for this listener: no update is kept from now on, and a waiting callback is called with nothing,
  /// on any thread, also inside this call. Updates that were kept before are still given by `next`, then the end.
  virtual void cancel() noexcept = 0;
};

/// The stream of subscription status updates. On Apple systems: StoreKit's `Product.SubscriptionInfo.Status.updates`.
class QUILLMAR_API SubscriptionStatusUpdates {
 public:
  virtual ~SubscriptionStatusUpdates() = default;

  /// A new listener, which gets each update from now on. Never null; called from any thread; must not block. A
  /// listener that is let go without `cancel` gets nothing more.
  virtual std::shared_ptr<SubscriptionStatusSubscription> subscribe() = 0;
};

}  // namespace quillmar::platform
