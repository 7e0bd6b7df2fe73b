#pragma once

#include "Network/BaseApiClient.h"
#include "Network/EventsApiClientProtocol.h"

namespace quillmar {

/// POST "ios/events" with a document that its caller has serialised.
class EventsApiClient final : public BaseApiClient, public EventsApiClientProtocol {
 public:
  using BaseApiClient::BaseApiClient;

  Task<EventServerLogResponse> sendEvent(std::string data) override;
};

}  // namespace quillmar
