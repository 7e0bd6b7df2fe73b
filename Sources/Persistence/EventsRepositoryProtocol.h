#pragma once

#include <string>

#include "Async/Task.h"

namespace quillmar {

class EventsRepositoryProtocol {
 public:
  virtual ~EventsRepositoryProtocol() = default;

  /// Sends a serialised document to the service. Throws the client's error, or
  /// `EventsRepositoryProtocolError::error` for an answer that is no success. The object must live until the task is
  /// done.
  virtual Task<void> send(std::string payload) = 0;
};

}  // namespace quillmar
