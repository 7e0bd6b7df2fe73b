#pragma once

#include "Network/BaseApiClient.h"
#include "Network/ConversionValuesApiClientProtocol.h"

namespace quillmar {

/// GET "v2/conversionValues".
class ConversionValuesApiClient final : public BaseApiClient, public ConversionValuesApiClientProtocol {
 public:
  using BaseApiClient::BaseApiClient;

  Task<ConversionValues> fetchConversionValues() override;
};

}  // namespace quillmar
