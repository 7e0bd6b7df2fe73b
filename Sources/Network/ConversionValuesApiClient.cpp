#include "Network/ConversionValuesApiClient.h"

#include <utility>

#include "Logging/Logger.h"
#include "Network/RequestDecoder.h"

namespace quillmar {

Task<ConversionValues> ConversionValuesApiClient::fetchConversionValues() {
  Logger::debug("ConversionValuesApiClient - Building request to fetch conversion values");
  platform::HttpRequest request = createRequestBuilder().get("v2/conversionValues").build();
  Logger::debug("ConversionValuesApiClient - Performing network request");
  const NetworkResponse response = co_await networkManager().perform(std::move(request));
  Logger::debug("ConversionValuesApiClient - Decoding response data");
  auto conversionValues = RequestDecoder::decode<ConversionValues>(response);
  Logger::debug("ConversionValuesApiClient - Successfully fetched and decoded conversion values");
  co_return conversionValues;
}

}  // namespace quillmar
