#pragma once

#include <any>

#include "quillmar/platform/StoreKitAdNetwork.h"

namespace quillmar {

/// The operations of the ad network, named after the system that introduced each. A completion handler may be null.
class SKAdNetworkProtocol {
 public:
  using CompletionHandler = platform::AdNetworkCompletion;

  virtual ~SKAdNetworkProtocol() = default;

  /// `coarseValue` holds a `platform::SKAdNetworkCoarseConversionValue`.
  virtual void updatePostbackConversionValue_iOS16_1_WithCoarse(int fineValue, std::any coarseValue, bool lockWindow,
                                                                CompletionHandler completionHandler) = 0;
  virtual void updatePostbackConversionValue_iOS16_1_WithoutCoarse(int fineValue, bool lockWindow,
                                                                   CompletionHandler completionHandler) = 0;
  virtual void updatePostbackConversionValue_iOS15_4(int fineValue, CompletionHandler completionHandler) = 0;
  virtual void updateConversionValue_iOS14_0(int fineValue) = 0;
  virtual void registerAppForAdNetworkAttribution() = 0;
};

}  // namespace quillmar
