#include "Facade/SharedState.h"

#include <limits>

namespace quillmar {

SharedState& SharedState::instance() noexcept {
  static SharedState& state = *new SharedState;
  return state;
}

std::int64_t SharedState::incrementConsecutiveAPIFailures() {
  const std::lock_guard lock(sharedStateQueue_);
  if (consecutiveAPIFailures_ < std::numeric_limits<std::int64_t>::max()) {  // a host may have set it
    ++consecutiveAPIFailures_;
  }
  return consecutiveAPIFailures_;
}

std::int64_t SharedState::getConsecutiveAPIFailures() const {
  const std::lock_guard lock(sharedStateQueue_);
  return consecutiveAPIFailures_;
}

void SharedState::setConsecutiveAPIFailures(std::int64_t failures) {
  const std::lock_guard lock(sharedStateQueue_);
  consecutiveAPIFailures_ = failures;
}

bool SharedState::getVerificationKeyInvalid() const {
  const std::lock_guard lock(sharedStateQueue_);
  return isVerificationKeyInvalid_;
}

void SharedState::setVerificationKeyInvalid(bool invalid) {
  const std::lock_guard lock(sharedStateQueue_);
  isVerificationKeyInvalid_ = invalid;
}

std::int64_t SharedState::getEventRetryCount(std::string_view name) const {
  const std::lock_guard lock(sharedStateQueue_);
  const auto found = eventRetryCount_.find(name);
  return found == eventRetryCount_.end() ? 0 : found->second;
}

void SharedState::setEventRetryCount(std::int64_t count, std::string_view name) {
  const std::lock_guard lock(sharedStateQueue_);
  const auto found = eventRetryCount_.find(name);
  if (found == eventRetryCount_.end()) {
    if (count != 0) {
      eventRetryCount_.emplace(name, count);
    }
  } else if (count != 0) {
    found->second = count;
  } else {
    eventRetryCount_.erase(found);
  }
}

void SharedState::reset() {
  const std::lock_guard lock(sharedStateQueue_);
  consecutiveAPIFailures_ = 0;
  isVerificationKeyInvalid_ = false;
  eventRetryCount_.clear();
}

}  // namespace quillmar
