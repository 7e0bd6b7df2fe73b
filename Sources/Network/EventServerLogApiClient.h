#pragma once

#include <memory>
#include <string>

#include "Network/BaseApiClient.h"
#include "Network/EventServerLogApiClientProtocol.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// POST "ios/events" with a record that it builds itself.
class EventServerLogApiClient final : public BaseApiClient, public EventServerLogApiClientProtocol {
 public:
  /// The identifiers of the record come from `quillMarDefaults`, the library's own settings suite.
  EventServerLogApiClient(std::shared_ptr<NetworkManagerProtocol> networkManager, std::string quillmarVerificationKey,
                          std::shared_ptr<platform::UserDefaults> quillMarDefaults,
                          std::string baseUrl = std::string(Config::urlString), std::string userAgent = {});

  Task<EventServerLogResponse> logEvent(std::string event, std::string eventId) override;

 private:
  const std::shared_ptr<platform::UserDefaults> quillMarDefaults_;
};

}  // namespace quillmar
