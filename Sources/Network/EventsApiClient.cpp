#include "Network/EventsApiClient.h"

#include <memory>
#include <utility>

#include "Logging/Logger.h"
#include "Network/RequestDecoder.h"

namespace quillmar {

Task<EventServerLogResponse> EventsApiClient::sendEvent(std::string data) {
  Logger::debug("EventsApiClient - Building request to send event");
  auto body = std::make_shared<DataBodyContainer>(std::move(data));
  platform::HttpRequest request = createRequestBuilder().post("ios/events").body(std::move(body)).build();
  Logger::debug("EventsApiClient - Performing network request");
  const NetworkResponse response = co_await networkManager().perform(std::move(request));
  auto answer = RequestDecoder::decode<EventServerLogResponse>(response);
  Logger::debug("EventsApiClient - Successfully sent event");
  co_return answer;
}

}  // namespace quillmar
