#include "quillmar/simulated/SimulatedAttributionToken.h"

#include <utility>

namespace quillmar::simulated {

void SimulatedAttributionToken::requestToken(Completion completion) {
  platform::AttributionTokenResult result;
  {
    const std::lock_guard lock(mutex_);
    ++requests_;
    if (error_) {
      result = platform::PlatformError{*error_};
    } else {
      result = token_;
    }
  }
  completion(std::move(result));
}

void SimulatedAttributionToken::setToken(std::string token) {
  const std::lock_guard lock(mutex_);
  token_ = std::move(token);
}

void SimulatedAttributionToken::setError(std::optional<std::string> localizedDescription) {
  const std::lock_guard lock(mutex_);
  error_ = std::move(localizedDescription);
}

std::size_t SimulatedAttributionToken::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

}  // namespace quillmar::simulated
