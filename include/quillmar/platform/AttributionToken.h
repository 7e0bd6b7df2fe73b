#pragma once

#include <functional>
#include <string>
#include <variant>

#include "quillmar/Export.h"
#include "quillmar/platform/PlatformError.h"

namespace quillmar::platform {

/// The token, or why there is none.
using AttributionTokenResult = std::variant<std::string, PlatformError>;

/// Gives the token that search-ads attribution is asked for with. On Apple systems: AdServices' `AAAttribution`.
class QUILLMAR_API AttributionTokenProvider {
 public:
  using Completion = std::function<void(AttributionTokenResult)>;

  virtual ~AttributionTokenProvider() = default;

  /// Asks for a fresh token. Called on the executor, where it may block for a while. `completion` is called once, on
  /// any thread, also inside this call; a provider that is destroyed may destroy it uncalled. The token is passed on
  /// as it is. On Apple systems: `attributionToken`.
  virtual void requestToken(Completion completion) = 0;
};

}  // namespace quillmar::platform
