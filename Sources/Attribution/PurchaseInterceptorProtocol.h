#pragma once

#include "Async/Task.h"

namespace quillmar {

class PurchaseInterceptorProtocol {
 public:
  virtual ~PurchaseInterceptorProtocol() = default;

  /// Listens for subscription updates from now on, with one listener; one that is there already is replaced. Done when
  /// the listener has been started. The task keeps the object alive.
  virtual Task<void> startListeningForPurchases() = 0;

  /// Ends the listener, if there is one. A purchase that is being sent is not called back.
  virtual Task<void> stopListeningForPurchases() = 0;
};

}  // namespace quillmar
