#include "Persistence/EventServerLogRepository.h"

#include <utility>

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
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
                                                   std::shared_ptr<platform::UserDefaults> userDefaults,
                                                   std::shared_ptr<platform::Executor> executor) noexcept
    : apiClient_(std::move(apiClient)), userDefaults_(std::move(userDefaults)), executor_(std::move(executor)) {}

void EventServerLogRepository::logEvent(std::string event, Completion completion) {
  logEventAs(std::move(event), "", std::move(completion));
}

void EventServerLogRepository::logEventAs(std::string event, std::string identifier, Completion completion) {
  if (!isSDKEnabled(*userDefaults_, "EventServerLogRepository - SDK enabled status")) {
    Log::debug("EventServerLogRepository - SDK is disabled by server configuration, skipping event: {}", event);
    completion({nullptr, false});
    return;
  }
  spawn(executor_, logTask(shared_from_this(), std::move(event), std::move(identifier), std::move(completion)));
}

Task<void> EventServerLogRepository::logTask(std::shared_ptr<EventServerLogRepository> self, std::string event,
                                             std::string identifier, Completion completion) {
  const std::system_error notLogged(EventServerLogRepositoryError::failedToLogEvent);
  EventServerLogResponse answer;
  std::exception_ptr cause = std::make_exception_ptr(notLogged);
  try {
    answer = co_await self->apiClient_->logEvent(std::move(event), std::move(identifier));
  } catch (...) {
    cause = std::current_exception();
  }
  if (answer.status == "success") {
    Log::debug("EventServerLogRepository - Event logged successfully: {}", answer.message.value_or(""));
    completion({});
  } else {
    Log::error("EventServerLogRepository - Error logging event: {}", textualDescription(cause));
    completion({std::make_exception_ptr(notLogged), false, std::move(cause)});
  }
}

}  // namespace quillmar
