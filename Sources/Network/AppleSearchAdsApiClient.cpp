#include "Network/AppleSearchAdsApiClient.h"

#include <utility>

#include "Logging/Log.h"
#include "Network/AppleRequestBuilder.h"
#include "Network/Exchange.h"

namespace quillmar {

AppleSearchAdsApiClient::AppleSearchAdsApiClient(std::shared_ptr<NetworkManagerProtocol> networkManager,
                                                 std::string baseUrl) noexcept
    : networkManager_(std::move(networkManager)), baseUrl_(std::move(baseUrl)) {}

Task<ASAAttributionResponse> AppleSearchAdsApiClient::fetchAttributionData(std::string token) {
  Log::debug("AppleSearchAdsApiClient - Building request to fetch attribution data from Apple");
  auto body = std::make_shared<PlainTextBodyContainer>(std::move(token));
  AppleRequestBuilder builder({}, baseUrl_);
  builder.post("api/v1").headers({{"Content-Type", "text/plain"}}).body(std::move(body));
  return performExchange<ASAAttributionResponse>(
      networkManager_, builder.build(),
      {"AppleSearchAdsApiClient - Performing network request to Apple",
       "AppleSearchAdsApiClient - Decoding Apple attribution response",
       "AppleSearchAdsApiClient - Successfully fetched attribution data from Apple"});
}

}  // namespace quillmar
