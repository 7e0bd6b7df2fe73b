#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "quillmar/Export.h"
#include "quillmar/platform/PlatformError.h"

namespace quillmar::platform {

/// On Apple systems: StoreKit's `SKAdNetwork.CoarseConversionValue`.
enum class SKAdNetworkCoarseConversionValue : std::uint8_t { high, medium, low };

/// Called once, on any thread, with nothing on success. An ad network that never calls it, because it lacks the
/// interface, must destroy it: `drain` waits for a completion that is still there.
using AdNetworkCompletion = std::function<void(std::optional<PlatformError>)>;

/// SKAdNetwork as StoreKit offers it. Called on the main executor; must not block.
///
/// The library calls an operation only on systems that have it (the version is named with each).
class QUILLMAR_API StoreKitAdNetwork {
 public:
  virtual ~StoreKitAdNetwork() = default;

  /// All systems. On Apple systems: `registerAppForAdNetworkAttribution`.
  virtual void registerAppForAdNetworkAttribution() = 0;

  /// 14.0 and later. `fineValue` is 0...63. On Apple systems: `updateConversionValue:`.
  virtual void updateConversionValue(int fineValue) = 0;

  /// 15.4 and later. On Apple systems: `updatePostbackConversionValue:completionHandler:`.
  virtual void updatePostbackConversionValue(int fineValue, AdNetworkCompletion completion) = 0;

  /// 16.1 and later. On Apple systems:
  /// `updatePostbackConversionValue:coarseValue:lockWindow:completionHandler:`.
  virtual void updatePostbackConversionValue(int fineValue, SKAdNetworkCoarseConversionValue coarseValue,
                                             bool lockWindow, AdNetworkCompletion completion) = 0;
};

}  // namespace quillmar::platform
