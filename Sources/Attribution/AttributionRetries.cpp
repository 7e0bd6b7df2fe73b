#include "Attribution/AttributionRetries.h"

#include <algorithm>
#include <array>

#include "Delivery/SendResult.h"
#include "Network/NetworkManager.h"

namespace quillmar {

namespace {

using std::chrono::seconds;

/// The service makes the record some seconds after the install, and wants to be asked again so.
constexpr std::array notReadyWaits{seconds(5), seconds(5), seconds(5)};

/// A service that is down, or a device without a network, is back sooner or later; the next start of the app asks, too.
constexpr std::array passingWaits{seconds(60), seconds(600), seconds(3600)};

/// What the repository found; `failure` itself when that came from elsewhere.
std::exception_ptr causeOf(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::nested_exception& nested) {
    return nested.nested_ptr();
  } catch (...) {
    return failure;
  }
}

bool isNotReady(const std::exception_ptr& cause) {
  try {
    std::rethrow_exception(cause);
  } catch (const HttpStatusError& error) {
    return error.status() == 404;
  } catch (...) {
    return false;
  }
}

}  // namespace

std::optional<seconds> AttributionRetries::waitAfter(const std::exception_ptr& failure,
                                                     platform::Clock::TimePoint now) {
  const std::exception_ptr cause = causeOf(failure);
  if (isNotReady(cause)) {
    return notReady_ < notReadyWaits.size() ? std::optional(notReadyWaits[notReady_++]) : std::nullopt;
  }
  const SendResult result = resultOf(cause, now);
  if (result.verdict != SendResult::Verdict::passes || passing_ == passingWaits.size()) {
    return std::nullopt;
  }
  return std::max(passingWaits[passing_++], result.retryAfter);
}

}  // namespace quillmar
