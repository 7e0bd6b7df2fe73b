#pragma once

#include <string>

#include "Async/Task.h"

namespace quillmar {

class EventServerLogRepositoryProtocol {
 public:
  virtual ~EventServerLogRepositoryProtocol() = default;

  /// Logs one event to the service, unless the service has switched the library off. True when the service has
  /// accepted it, false when it was not asked. Throws `EventServerLogRepositoryError::failedToLogEvent`. The object
  /// must live until the task is done.
  virtual Task<bool> logEvent(std::string event) = 0;
};

}  // namespace quillmar
