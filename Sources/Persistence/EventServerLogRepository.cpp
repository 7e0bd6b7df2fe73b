#include "Persistence/EventServerLogRepository.h"

#include <utility>

#include "Logging/ErrorDescription.h"
#include "Logging/Logger.h"
#include "Platform/ErrorCategory.h"
#include "Settings/EnabledFlag.h"

namespace quillmar {

std::error_code make_error_code(EventServerLogRepositoryError error) noexcept {
  static const std::error_category& category = makeErrorCategory(
      "EventServerLogRepositoryError", {{"failedToLogEvent", "The event could not be logged to the service."},
                                        {"missingQuillMarId", "There is no install identifier."}});
  return {static_cast<int>(error), category};
}

EventServerLogRepository::EventServerLogRepository(std::shared_ptr<EventServerLogApiClientProtocol> apiClient,
                                                   std::shared_ptr<platform::UserDefaults> userDefaults) noexcept
    : apiClient_(std::move(apiClient)), userDefaults_(std::move(userDefaults)) {}

Task<bool> EventServerLogRepository::logEvent(std::string event) {
  if (!isSDKEnabled(*userDefaults_, "EventServerLogRepository - SDK enabled status")) {
    Logger::debug("EventServerLogRepository - SDK is disabled by server configuration, skipping event: {}", event);
    co_return false;
  }
  EventServerLogResponse answer;
  std::string failure = textualDescription(std::system_error(EventServerLogRepositoryError::failedToLogEvent));
  try {
    answer = co_await apiClient_->logEvent(std::move(event));
  } catch (const std::exception& error) {
    failure = textualDescription(error);
  }
  if (answer.status != "success") {
    Logger::error("EventServerLogRepository - Error logging event: {}", failure);
    throw std::system_error(EventServerLogRepositoryError::failedToLogEvent);
  }
  Logger::debug("EventServerLogRepository - Event logged successfully: {}", answer.message.value_or(""));
  co_return true;
}

}  // namespace quillmar
