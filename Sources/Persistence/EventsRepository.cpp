#include "Persistence/EventsRepository.h"

#include <utility>

#include "Logging/Log.h"
#include "Platform/ErrorCategory.h"

namespace quillmar {

std::error_code make_error_code(EventsRepositoryProtocolError error) noexcept {
  static const std::error_category& category =
      makeErrorCategory("EventsRepositoryProtocolError", {{"error", "The service did not accept the document."}});
  return {static_cast<int>(error), category};
}

EventsRepository::EventsRepository(std::shared_ptr<EventsApiClientProtocol> apiClient) noexcept
    : apiClient_(std::move(apiClient)) {}

Task<void> EventsRepository::send(std::string payload) {
  // The line names a component that does not exist. It is known by these words and stays.
  Log::debug("ProductSubscriptionStatusRepository - Sending event to server");
  const EventServerLogResponse answer = co_await apiClient_->sendEvent(std::move(payload));
  if (answer.status != "success") {
    throw std::system_error(EventsRepositoryProtocolError::error);
  }
}

}  // namespace quillmar
