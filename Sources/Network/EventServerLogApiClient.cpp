#include "Network/EventServerLogApiClient.h"

#include <utility>

#include "Logging/Log.h"
#include "Network/EventServerLogRequest.h"
#include "Network/Exchange.h"

namespace quillmar {

EventServerLogApiClient::EventServerLogApiClient(std::shared_ptr<NetworkManagerProtocol> networkManager,
                                                 std::string quillmarVerificationKey,
                                                 std::shared_ptr<platform::UserDefaults> quillMarDefaults,
                                                 std::string baseUrl, std::string userAgent)
    : BaseApiClient(std::move(networkManager), std::move(quillmarVerificationKey), std::move(baseUrl),
                    std::move(userAgent)),
      quillMarDefaults_(std::move(quillMarDefaults)) {}

Task<EventServerLogResponse> EventServerLogApiClient::logEvent(std::string event, std::string eventId) {
  Log::debug("EventServerLogApiClient - Building request to log event");
  EventServerLogRequest record = EventServerLogRequest::make(std::move(event), std::move(eventId), *quillMarDefaults_);
  return performExchange<EventServerLogResponse>(
      networkManager(), createRequestBuilder().post("ios/events").json(std::move(record)).build(),
      {"EventServerLogApiClient - Performing network request", nullptr,
       "EventServerLogApiClient - Successfully logged event"});
}

}  // namespace quillmar
