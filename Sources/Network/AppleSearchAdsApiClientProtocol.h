#pragma once

#include <string>

#include "Async/Task.h"
#include "Network/ASAAttributionResponse.h"

namespace quillmar {

class AppleSearchAdsApiClientProtocol {
 public:
  virtual ~AppleSearchAdsApiClientProtocol() = default;

  /// Exchanges a token for the attribution of this installation. Throws the errors of building, transport and
  /// decoding. The object must live until the task is done.
  virtual Task<ASAAttributionResponse> fetchAttributionData(std::string token) = 0;
};

}  // namespace quillmar
