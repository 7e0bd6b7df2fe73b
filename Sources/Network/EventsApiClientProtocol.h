#pragma once

#include <string>

#include "Async/Task.h"
#include "Network/EventServerLogResponse.h"

namespace quillmar {

class EventsApiClientProtocol {
 public:
  virtual ~EventsApiClientProtocol() = default;

  /// Sends serialised JSON byte for byte. Throws the errors of building, transport and decoding; judges no answer.
  virtual Task<EventServerLogResponse> sendEvent(std::string data) = 0;
};

}  // namespace quillmar
