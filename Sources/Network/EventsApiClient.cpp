#include "Network/EventsApiClient.h"

#include <memory>
#include <utility>

#include "Logging/Log.h"
#include "Network/Exchange.h"

namespace quillmar {

Task<EventServerLogResponse> EventsApiClient::sendEvent(std::string data) {
  Log::debug("EventsApiClient - Building request to send event");
  auto body = std::make_shared<DataBodyContainer>(std::move(data));
  return performExchange<EventServerLogResponse>(
      networkManager(), createRequestBuilder().post("ios/events").body(std::move(body)).build(),
      {"EventsApiClient - Performing network request", nullptr, "EventsApiClient - Successfully sent event"});
}

}  // namespace quillmar
