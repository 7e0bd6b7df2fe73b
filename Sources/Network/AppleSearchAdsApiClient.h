#pragma once

#include <memory>
#include <string>

#include "Network/AppleSearchAdsApiClientProtocol.h"
#include "Network/NetworkManagerProtocol.h"
#include "quillmar/Config.h"
#include "quillmar/QuillmarOptions.h"

namespace quillmar {

/// POST "api/v1" at the attribution service, with the bare token as the body and without the verification key. It
/// tries once. Identifiers that are integers are refused, unless `liveAttribution` is on.
class AppleSearchAdsApiClient final : public AppleSearchAdsApiClientProtocol {
 public:
  explicit AppleSearchAdsApiClient(std::shared_ptr<NetworkManagerProtocol> networkManager,
                                   std::string baseUrl = std::string(Config::attributionUrlString),
                                   const QuillmarOptions& options = {}) noexcept;

  Task<ASAAttributionResponse> fetchAttributionData(std::string token) override;

 private:
  const std::shared_ptr<NetworkManagerProtocol> networkManager_;
  const std::string baseUrl_;
  const QuillmarOptions options_;
};

}  // namespace quillmar
