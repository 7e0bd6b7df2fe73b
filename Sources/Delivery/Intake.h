#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "quillmar/EventValue.h"
#include "quillmar/QuillmarOptions.h"
#include "quillmar/platform/Clock.h"

namespace quillmar {

/// Events between the host's call and the outbox. As bytes in blocks: an event of usual size takes some thirty, so that
/// a burst which is faster than the disk stays small. Any thread may put, one at a time may take.
class Intake {
 public:
  struct Event {
    std::string name;
    std::optional<NamedParameters> parameters;
    platform::Clock::TimePoint at;
    bool accepted = true;  ///< false: the service's switch has yet to be looked at
  };

  /// With a limit, an event goes when as many wait that the taker has not come to yet: the oldest of them or the new
  /// one. False when one has gone.
  bool put(const Event& event, const QuillmarLimits& limits = {});

  /// The oldest event; nothing when none waits.
  std::optional<Event> take();
  bool empty();
  /// Gives the number of those that waited.
  std::uint64_t clear();

 private:
  /// Of `incoming_`; under the mutex.
  void dropOldest() noexcept;

  std::mutex mutex_;  ///< short, and rarely taken by the taker: callers may be on a main thread
  std::deque<std::string> incoming_;
  std::size_t droppedUpTo_ = 0;  ///< in the first block of `incoming_`
  std::uint64_t incomingCount_ = 0;
  std::deque<std::string> taken_;  ///< what came before `incoming_`; the taker's
  std::size_t readUpTo_ = 0;       ///< in the first block of `taken_`
  std::uint64_t takenCount_ = 0;
};

}  // namespace quillmar
