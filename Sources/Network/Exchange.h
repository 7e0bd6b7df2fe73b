#pragma once

#include <memory>
#include <utility>

#include "Async/Task.h"
#include "Logging/Log.h"
#include "Network/NetworkManagerProtocol.h"
#include "Network/RequestDecoder.h"

namespace quillmar {

/// What a client says in the log, at the debug level, while a request is on its way.
struct ExchangeLines {
  const char* performing;
  const char* decoding;  ///< null: nothing is said
  const char* done;
};

/// Performs a request and decodes the answer. Throws the errors of the transport and of decoding.
template <class Answer>
Task<Answer> performExchange(std::shared_ptr<NetworkManagerProtocol> networkManager, platform::HttpRequest request,
                             ExchangeLines lines) {
  Log::debug(lines.performing);
  const NetworkResponse response = co_await networkManager->perform(std::move(request));
  if (lines.decoding != nullptr) {
    Log::debug(lines.decoding);
  }
  auto answer = RequestDecoder::decode<Answer>(response);
  Log::debug(lines.done);
  co_return answer;
}

}  // namespace quillmar
