#pragma once

#include "quillmar/platform/StoreKitAdNetwork.h"

namespace quillmar::platform {

/// For a system without StoreKit: does nothing and never completes.
class NoStoreKitAdNetwork : public StoreKitAdNetwork {
 public:
  void registerAppForAdNetworkAttribution() override {}
  void updateConversionValue(int) override {}
  void updatePostbackConversionValue(int, AdNetworkCompletion) override {}
  void updatePostbackConversionValue(int, SKAdNetworkCoarseConversionValue, bool, AdNetworkCompletion) override {}
};

}  // namespace quillmar::platform
