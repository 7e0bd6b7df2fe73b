#include "Network/ConfigApiClientClient.h"

#include <utility>

#include "Logging/Log.h"
#include "Network/Exchange.h"

namespace quillmar {

// The lines speak of conversion values and name the protocol. They are known by these words and stay.
Task<ConfigResponse> ConfigApiClientClient::fetchConfig() {
  Log::debug("ConfigApiClientProtocol - Building request to fetch conversion values");
  return performExchange<ConfigResponse>(
      networkManager(), createRequestBuilder().get("ios/config").build(),
      {"ConfigApiClientProtocol - Performing network request", "ConfigApiClientProtocol - Decoding response data",
       "ConfigApiClientProtocol - Successfully fetched and decoded conversion values"});
}

}  // namespace quillmar
