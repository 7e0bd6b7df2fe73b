#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "quillmar/platform/Clock.h"

namespace quillmar {

/// What became of one attempt to send something from an outbox.
struct SendResult {
  enum class Verdict : std::uint8_t {
    accepted,
    passes,        ///< a later attempt may succeed: no network, a service that is down or busy
    unauthorized,  ///< the service does not know the key
    refused,       ///< no further attempt will do
    notAsked,      ///< the service was not asked
  };
  Verdict verdict = Verdict::accepted;
  std::string why = {};                ///< for the log
  std::chrono::seconds retryAfter{0};  ///< the service does not want to be asked before
};

/// What a failed request says about further ones. A page that is no answer of the service (that of a network that wants
/// a sign-in) is a failure that passes, and so is an address at which there is no service now.
SendResult resultOf(const std::exception_ptr& failure, platform::Clock::TimePoint now);

/// How long the header "Retry-After" wants one to wait: seconds, or until a date of HTTP; at most a day. 0 for what is
/// neither.
std::chrono::seconds retryAfterOf(std::string_view header, platform::Clock::TimePoint now);

}  // namespace quillmar
