#pragma once

#include "quillmar/platform/StoreKitAdNetwork.h"

namespace quillmar::platform {

/// StoreKit's `SKAdNetwork`. On a system that lacks an operation it does nothing and destroys the completion.
class SKAdNetworkAdapter : public StoreKitAdNetwork {
 public:
  void registerAppForAdNetworkAttribution() override;
  void updateConversionValue(int fineValue) override;
  void updatePostbackConversionValue(int fineValue, AdNetworkCompletion completion) override;
  void updatePostbackConversionValue(int fineValue, SKAdNetworkCoarseConversionValue coarseValue, bool lockWindow,
                                     AdNetworkCompletion completion) override;
};

}  // namespace quillmar::platform
