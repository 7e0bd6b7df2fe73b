#pragma once

#include <memory>
#include <string_view>
#include <system_error>

#include "Network/EventServerLogApiClientProtocol.h"
#include "Persistence/EventServerLogRepositoryProtocol.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

enum class EventServerLogRepositoryError {
  failedToLogEvent = 1,
  missingQuillMarId,  ///< never thrown
};

std::error_code make_error_code(EventServerLogRepositoryError error) noexcept;

class EventServerLogRepository final : public EventServerLogRepositoryProtocol {
 public:
  EventServerLogRepository(std::shared_ptr<EventServerLogApiClientProtocol> apiClient,
                           std::shared_ptr<platform::UserDefaults> userDefaults) noexcept;

  Task<bool> logEvent(std::string event) override;

 private:
  const std::shared_ptr<EventServerLogApiClientProtocol> apiClient_;
  const std::shared_ptr<platform::UserDefaults> userDefaults_;
};

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::EventServerLogRepositoryError> : std::true_type {};
