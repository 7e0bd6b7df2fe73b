#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quillmar/platform/Clock.h"

namespace quillmar {

/// Arithmetic on the local calendar of a clock's time zone. The results are those of ICU's Gregorian calendar.
class Calendar {
 public:
  using TimePoint = platform::Clock::TimePoint;

  explicit Calendar(const platform::Clock& clock) noexcept : clock_(clock) {}

  /// The instant `days` days later at the same wall-clock time, or the last (first) that a clock can hold. A time that
  /// a change of the clocks skips moves by the size of the gap.
  TimePoint addingDays(TimePoint from, std::int64_t days) const;

  /// The whole days between two instants: the largest number that can be added to `from` without passing `to`;
  /// negative, and towards zero, when `to` comes first.
  std::int64_t wholeDays(TimePoint from, TimePoint to) const;

  /// The whole hours between two instants, towards zero. Hours are of equal length, whatever the clocks do.
  static std::int64_t wholeHours(TimePoint from, TimePoint to);

 private:
  const platform::Clock& clock_;
};

/// The standard description of a date: "2026-11-21 09:30:00 +0000", in UTC.
std::string dateDescription(platform::Clock::TimePoint date);

}  // namespace quillmar
