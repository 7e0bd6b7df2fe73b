#include "Network/EventServerLogApiClient.h"

#include <utility>

#include "Logging/Logger.h"
#include "Network/EventServerLogRequest.h"
#include "Network/RequestDecoder.h"

namespace quillmar {

EventServerLogApiClient::EventServerLogApiClient(std::shared_ptr<NetworkManagerProtocol> networkManager,
                                                 std::string quillmarVerificationKey,
                                                 std::shared_ptr<platform::UserDefaults> quillMarDefaults,
                                                 std::string baseUrl)
    : BaseApiClient(std::move(networkManager), std::move(quillmarVerificationKey), std::move(baseUrl)),
      quillMarDefaults_(std::move(quillMarDefaults)) {}

Task<EventServerLogResponse> EventServerLogApiClient::logEvent(std::string event) {
  Logger::debug("EventServerLogApiClient - Building request to log event");
  EventServerLogRequest record = EventServerLogRequest::make(std::move(event), *quillMarDefaults_);
  platform::HttpRequest request = createRequestBuilder().post("ios/events").json(std::move(record)).build();
  Logger::debug("EventServerLogApiClient - Performing network request");
  const NetworkResponse response = co_await networkManager().perform(std::move(request));
  auto answer = RequestDecoder::decode<EventServerLogResponse>(response);
  Logger::debug("EventServerLogApiClient - Successfully logged event");
  co_return answer;
}

}  // namespace quillmar
