#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "quillmar/Export.h"
#include "quillmar/platform/StoreKitAdNetwork.h"

namespace quillmar::platform {

/// Source: AdAttributionKit's `CoarseConversionValue`.
enum class AttributionKitCoarseValue : std::uint8_t { high, medium, low };

/// Source: AdAttributionKit's `PostbackUpdate`.
struct PostbackUpdate {
  int fineConversionValue = 0;  ///< 0...63
  bool lockPostback = false;
  std::optional<AttributionKitCoarseValue> coarseConversionValue;
};

/// AdAttributionKit, on systems from 18.0. Called on the main executor; must not block.
class QUILLMAR_API AdAttributionKit {
 public:
  virtual ~AdAttributionKit() = default;

  /// Updates the conversion value of the current postback window. `completion` is called once, on any thread; a
  /// platform without AdAttributionKit never calls it. Source: `Postback.updateConversionValue`.
  virtual void updateConversionValue(const PostbackUpdate& update, AdNetworkCompletion completion) = 0;
};

}  // namespace quillmar::platform
