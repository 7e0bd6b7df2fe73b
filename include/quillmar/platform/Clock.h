#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// The time, the local time zone and timers.
class QUILLMAR_API Clock {
 public:
  using TimePoint = std::chrono::system_clock::time_point;
  using TimerId = std::uint64_t;

  virtual ~Clock() = default;

  /// The current wall-clock time. Called from any thread; does not block. It may jump in either direction.
  virtual TimePoint now() const noexcept = 0;

  /// How far the local time zone is ahead of UTC at `instant`. Called from any thread; does not block.
  virtual std::chrono::seconds localOffset(TimePoint instant) const noexcept = 0;

  /// Calls `callback` once when `delay` has passed, on a thread of the clock's choosing, never inside this call.
  /// Called from any thread; does not block. The callback is short: it only hands on to an executor.
  virtual TimerId after(std::chrono::nanoseconds delay, std::function<void()> callback) = 0;

  /// Drops the timer and destroys its callback. A timer that fired already, or is firing, is left alone.
  virtual void cancel(TimerId timer) noexcept = 0;
};

}  // namespace quillmar::platform
