#include "Network/ConversionValuesApiClient.h"

#include <utility>

#include "Logging/Log.h"
#include "Model/ConversionValuesCoding.h"
#include "Network/Exchange.h"

namespace quillmar {

Task<ConversionValues> ConversionValuesApiClient::fetchConversionValues() {
  Log::debug("ConversionValuesApiClient - Building request to fetch conversion values");
  return performExchange<ConversionValues>(
      networkManager(), createRequestBuilder().get("v2/conversionValues").build(),
      {"ConversionValuesApiClient - Performing network request", "ConversionValuesApiClient - Decoding response data",
       "ConversionValuesApiClient - Successfully fetched and decoded conversion values"});
}

}  // namespace quillmar
