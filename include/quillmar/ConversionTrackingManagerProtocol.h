#pragma once

#include "quillmar/ConversionValues.h"
#include "quillmar/Export.h"

namespace quillmar {

/// Reports conversion values to the platform.
class QUILLMAR_API ConversionTrackingManagerProtocol {
 public:
  virtual ~ConversionTrackingManagerProtocol() = default;

  /// Starts an update of the platform's conversion value with what `conversionValue` has for `window`, and returns
  /// without waiting for the platform's answer. With `forceLockWindow` the window is locked. Called on the platform's
  /// main executor, one call at a time; must not block.
  virtual void send(const ConversionValues::ConversionValue& conversionValue, Window window, bool forceLockWindow) = 0;
};

}  // namespace quillmar
