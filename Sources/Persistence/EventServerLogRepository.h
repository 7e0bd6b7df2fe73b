#pragma once

#include <memory>
#include <system_error>

#include "Async/Task.h"
#include "Network/EventServerLogApiClientProtocol.h"
#include "quillmar/EventServerLogRepositoryProtocol.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

enum class EventServerLogRepositoryError {
  failedToLogEvent = 1,
  missingQuillMarId,  ///< never thrown
};

std::error_code make_error_code(EventServerLogRepositoryError error) noexcept;

/// Logs events through the API client, on `executor`. Its only failure is `failedToLogEvent`.
class EventServerLogRepository final : public EventServerLogRepositoryProtocol,
                                       public std::enable_shared_from_this<EventServerLogRepository> {
 public:
  EventServerLogRepository(std::shared_ptr<EventServerLogApiClientProtocol> apiClient,
                           std::shared_ptr<platform::UserDefaults> userDefaults,
                           std::shared_ptr<platform::Executor> executor) noexcept;

  void logEvent(std::string event, Completion completion) override;
  void logEventAs(std::string event, std::string identifier, Completion completion) override;

 private:
  static Task<void> logTask(std::shared_ptr<EventServerLogRepository> self, std::string event, std::string identifier,
                            Completion completion);

  const std::shared_ptr<EventServerLogApiClientProtocol> apiClient_;
  const std::shared_ptr<platform::UserDefaults> userDefaults_;
  const std::shared_ptr<platform::Executor> executor_;
};

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::EventServerLogRepositoryError> : std::true_type {};
