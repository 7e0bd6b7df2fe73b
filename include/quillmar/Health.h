#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "quillmar/Decision.h"
#include "quillmar/Export.h"

namespace quillmar {

/// How an event ended, as far as the service is concerned. What became of its conversion value is another question: see
/// `Decision`.
enum class EventEnd : std::uint8_t {
  logged,       ///< the service has accepted it
  failed,       ///< the service did not accept it, and it is not sent again
  notAsked,     ///< it went on without its log: the host has put nothing in the place of the repository
  switchedOff,  ///< the service has switched the library off
  noConsent,    ///< `QuillmarOptions::requireConsent`
  keyInvalid,   ///< the verification key counts as invalid
  reset,        ///< a reset overtook it
  lost,         ///< memory ran out, or an executor or a repository of the host dropped it
  refused,      ///< with `reliableDelivery`: the service refused it for good
  expired,      ///< with `reliableDelivery`: it waited for 36 days
  displaced,    ///< with `reliableDelivery`: too many waited on disk
  parkedLimit,  ///< `QuillmarLimits::parkedEvents`
  queuedLimit,  ///< `QuillmarLimits::queuedEvents`
  tooLarge      ///< `QuillmarLimits::eventBytes`
};

/// How many ways there are to end.
constexpr std::size_t eventEndCount = static_cast<std::size_t>(EventEnd::tooLarge) + 1;

/// "logged", "failed" and so on, as the enumerators are spelled.
QUILLMAR_API std::string_view rawValue(EventEnd end) noexcept;

/// An event that the service has accepted.
struct HealthLoggedEvent {
  std::string name;
  std::chrono::system_clock::time_point at;
};

/// A call of the platform by the library's own conversion tracking manager.
struct HealthPlatformCall {
  std::string interface;  ///< as in `Decision::interface`
  std::chrono::system_clock::time_point at;
  Decision::Answer answer = Decision::Answer::none;  ///< none also as long as the platform has not answered
  std::string error;                                 ///< the platform's words for a failure
};

/// How an instance is, for a screen or an alarm. The counts begin when the instance is made.
///
/// Each event is in exactly one count:
///
/// | Where it is              | Count                                                                            |
/// |--------------------------|----------------------------------------------------------------------------------|
/// | waits for its turn       | `queued`: up to 64 are on their way; with `reliableDelivery` it waits for the disk |
/// | on its way to the service| `underWay`                                                                       |
/// | waits for a configuration, or for consent | `parked`                                                        |
/// | in the outbox            | `kept`                                                                           |
/// | ended                    | one of `ended`                                                                   |
///
/// Their sum is `sent` + `inherited`. While events move it may be a few less, as the counts are read one after the
/// other, but never more. An event ends when the service has answered: what it then does to the conversion value no
/// longer counts here.
struct QuillmarHealth {
  /// Since the last good fetch of the configuration, of this run or an earlier one; nothing before the first.
  std::optional<std::chrono::seconds> configurationAge;
  /// Why the last attempt to fetch it failed; empty when it succeeded, or there was none.
  std::string fetchError;

  bool verificationKeyValid = true;  ///< false after too many failures in a row
  std::int64_t failuresInARow = 0;   ///< over all instances; see `Quillmar::consecutiveAPIFailures`

  std::uint64_t sent = 0;       ///< calls of `sendEvent`
  std::uint64_t inherited = 0;  ///< events that earlier runs left in the outbox, and that have ended in this one
  std::uint64_t queued = 0;
  std::uint64_t underWay = 0;
  std::uint64_t parked = 0;
  std::uint64_t kept = 0;  ///< of this run; `unsent` has those of earlier runs, too
  std::array<std::uint64_t, eventEndCount> ended{};
  std::uint64_t unsent = 0;  ///< as `QuillmarStatistics::unsent`

  std::optional<HealthLoggedEvent> lastLogged;
  std::optional<HealthPlatformCall> lastPlatformCall;

  /// One of `ended`.
  std::uint64_t count(EventEnd end) const noexcept { return ended[static_cast<std::size_t>(end)]; }
};

/// Takes the health when something changed that an alarm wants to know.
using QuillmarHealthObserver = std::function<void(const QuillmarHealth&)>;

}  // namespace quillmar
