#include "Network/ConfigApiClientClient.h"

#include <utility>

#include "Logging/Logger.h"
#include "Network/RequestDecoder.h"

namespace quillmar {

Task<ConfigResponse> ConfigApiClientClient::fetchConfig() {
  // The texts speak of conversion values, and name the protocol, on purpose: they are known by these words.
  Logger::debug("ConfigApiClientProtocol - Building request to fetch conversion values");
  platform::HttpRequest request = createRequestBuilder().get("ios/config").build();
  Logger::debug("ConfigApiClientProtocol - Performing network request");
  const NetworkResponse response = co_await networkManager().perform(std::move(request));
  Logger::debug("ConfigApiClientProtocol - Decoding response data");
  auto config = RequestDecoder::decode<ConfigResponse>(response);
  Logger::debug("ConfigApiClientProtocol - Successfully fetched and decoded conversion values");
  co_return config;
}

}  // namespace quillmar
