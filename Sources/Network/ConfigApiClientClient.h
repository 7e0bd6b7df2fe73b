#pragma once

#include "Network/BaseApiClient.h"
#include "Network/ConfigApiClientProtocol.h"

namespace quillmar {

/// GET "ios/config".
class ConfigApiClientClient final : public BaseApiClient, public ConfigApiClientProtocol {
 public:
  using BaseApiClient::BaseApiClient;

  Task<ConfigResponse> fetchConfig() override;
};

}  // namespace quillmar
