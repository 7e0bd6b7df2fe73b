#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "quillmar/Export.h"
#include "quillmar/platform/StoreKitAdNetwork.h"

namespace quillmar::platform {

/// On Apple systems: AdAttributionKit's `CoarseConversionValue`.
enum class AttributionKitCoarseValue : std::uint8_t { high, medium, low };

/// On Apple systems: AdAttributionKit's `PostbackUpdate`.
struct PostbackUpdate {
  int fineConversionValue = 0;  ///< 0...63
  bool lockPostback = false;
  std::optional<AttributionKitCoarseValue> coarseConversionValue;
};

/// AdAttributionKit, on systems from 18.0. Called on the main executor; must not block.
class QUILLMAR_API AdAttributionKit {
 public:
  virtual ~AdAttributionKit() = default;

  /// Updates the conversion value of the current postback window. On Apple systems: `Postback.updateConversionValue`.
  virtual void updateConversionValue(const PostbackUpdate& update, AdNetworkCompletion completion) = 0;
};

}  // namespace quillmar::platform
