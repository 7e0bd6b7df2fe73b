#include "Network/AppleSearchAdsApiClient.h"

#include <utility>

#include "Logging/Logger.h"
#include "Network/AppleRequestBuilder.h"
#include "Network/RequestDecoder.h"

namespace quillmar {

AppleSearchAdsApiClient::AppleSearchAdsApiClient(std::shared_ptr<NetworkManagerProtocol> networkManager,
                                                 std::string baseUrl) noexcept
    : networkManager_(std::move(networkManager)), baseUrl_(std::move(baseUrl)) {}

Task<ASAAttributionResponse> AppleSearchAdsApiClient::fetchAttributionData(std::string token) {
  Logger::debug("AppleSearchAdsApiClient - Building request to fetch attribution data from Apple");
  auto body = std::make_shared<PlainTextBodyContainer>(std::move(token));
  AppleRequestBuilder builder({}, baseUrl_);
  builder.post("api/v1").headers({{"Content-Type", "text/plain"}}).body(std::move(body));
  platform::HttpRequest request = builder.build();
  Logger::debug("AppleSearchAdsApiClient - Performing network request to Apple");
  const NetworkResponse response = co_await networkManager_->perform(std::move(request));
  Logger::debug("AppleSearchAdsApiClient - Decoding Apple attribution response");
  auto record = RequestDecoder::decode<ASAAttributionResponse>(response);
  Logger::debug("AppleSearchAdsApiClient - Successfully fetched attribution data from Apple");
  co_return record;
}

}  // namespace quillmar
