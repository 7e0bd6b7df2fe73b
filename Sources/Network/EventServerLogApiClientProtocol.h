#pragma once

#include <string>

#include "Async/Task.h"
#include "Network/EventServerLogResponse.h"

namespace quillmar {

class EventServerLogApiClientProtocol {
 public:
  virtual ~EventServerLogApiClientProtocol() = default;

  /// Logs an event by its name, under an identifier; empty: a fresh one. Throws the errors of building, transport and
  /// decoding; judges no answer.
  virtual Task<EventServerLogResponse> logEvent(std::string event, std::string eventId) = 0;
};

}  // namespace quillmar
