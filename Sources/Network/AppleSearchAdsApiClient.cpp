#include "Network/AppleSearchAdsApiClient.h"

#include <utility>

#include "Logging/Log.h"
#include "Network/AppleRequestBuilder.h"
#include "Network/Exchange.h"

namespace quillmar {

namespace {

/// The record with identifiers as the service spells them.
struct LiveResponse {
  ASAAttributionResponse record;

  static LiveResponse decode(const JsonReader& document) {
    return {ASAAttributionResponse::decode(document, ASAAttributionResponse::Identifiers::textsOrIntegers)};
  }
};

Task<ASAAttributionResponse> recordOf(Task<LiveResponse> exchange) {
  LiveResponse response = co_await std::move(exchange);
  co_return std::move(response.record);
}

}  // namespace

AppleSearchAdsApiClient::AppleSearchAdsApiClient(std::shared_ptr<NetworkManagerProtocol> networkManager,
                                                 std::string baseUrl, const QuillmarOptions& options) noexcept
    : networkManager_(std::move(networkManager)), baseUrl_(std::move(baseUrl)), options_(options) {}

Task<ASAAttributionResponse> AppleSearchAdsApiClient::fetchAttributionData(std::string token) {
  Log::debug("AppleSearchAdsApiClient - Building request to fetch attribution data from Apple");
  auto body = std::make_shared<PlainTextBodyContainer>(std::move(token));
  AppleRequestBuilder builder({}, baseUrl_);
  builder.post("api/v1").headers({{"Content-Type", "text/plain"}}).body(std::move(body));
  constexpr ExchangeLines lines{"AppleSearchAdsApiClient - Performing network request to Apple",
                                "AppleSearchAdsApiClient - Decoding Apple attribution response",
                                "AppleSearchAdsApiClient - Successfully fetched attribution data from Apple"};
  return options_.liveAttribution ? recordOf(performExchange<LiveResponse>(networkManager_, builder.build(), lines))
                                  : performExchange<ASAAttributionResponse>(networkManager_, builder.build(), lines);
}

}  // namespace quillmar
