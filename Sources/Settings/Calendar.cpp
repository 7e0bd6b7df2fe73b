#include "Settings/Calendar.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <type_traits>

namespace quillmar {

using std::chrono::days;
using std::chrono::seconds;

namespace {

using TimePoint = Calendar::TimePoint;
// The time between two instants may be more than a clock's duration can hold, but not more than that without a sign.
using Ticks = std::uint64_t;
static_assert(TimePoint::period::num == 1 && std::is_integral_v<TimePoint::rep>);
constexpr Ticks ticksASecond = TimePoint::period::den;

Ticks ticksOf(TimePoint point) {
  return static_cast<Ticks>(point.time_since_epoch().count());
}

Ticks ticksBetween(TimePoint a, TimePoint b) {
  return a < b ? ticksOf(b) - ticksOf(a) : ticksOf(a) - ticksOf(b);
}

Ticks ticksOf(seconds unit) {
  return static_cast<Ticks>(unit.count()) * ticksASecond;
}

/// Nothing when a clock cannot hold it.
std::optional<TimePoint> plus(TimePoint from, std::int64_t count, seconds unit) {
  const Ticks times = count < 0 ? 0 - static_cast<Ticks>(count) : static_cast<Ticks>(count);
  Ticks ticks = 0;
  if (__builtin_mul_overflow(times, ticksOf(unit), &ticks) ||
      ticks > ticksBetween(from, count < 0 ? TimePoint::min() : TimePoint::max())) {
    return std::nullopt;
  }
  ticks = count < 0 ? ticksOf(from) - ticks : ticksOf(from) + ticks;
  return TimePoint(TimePoint::duration(static_cast<TimePoint::rep>(ticks)));
}

std::optional<TimePoint> plusDays(const platform::Clock& clock, TimePoint from, std::int64_t count) {
  const std::optional<TimePoint> unadjusted = plus(from, count, days(1));
  if (!unadjusted) {
    return std::nullopt;
  }
  const seconds offsetBefore = clock.localOffset(from);
  const seconds offsetAfter = clock.localOffset(*unadjusted);
  if (offsetBefore == offsetAfter) {
    return unadjusted;
  }
  // A zone that moved across the date line changes by a whole day; the date then follows the elapsed time.
  const seconds adjustment = (offsetBefore - offsetAfter) % days(1);
  const std::optional<TimePoint> adjusted = plus(*unadjusted, adjustment.count(), seconds(1));
  if (!adjusted) {
    return std::nullopt;
  }
  const bool wallTimeKept = (clock.localOffset(*adjusted) - offsetBefore + adjustment) % days(1) == seconds(0);
  // Where the wall time does not exist on that date, it is read with the offset before the gap.
  return wallTimeKept || adjustment >= seconds(0) ? adjusted : unadjusted;
}

}  // namespace

Calendar::TimePoint Calendar::addingDays(TimePoint from, std::int64_t count) const {
  return plusDays(clock_, from, count).value_or(count < 0 ? TimePoint::min() : TimePoint::max());
}

std::int64_t Calendar::wholeDays(TimePoint from, TimePoint to) const {
  const std::int64_t sign = to < from ? -1 : 1;
  const auto reaches = [&](std::int64_t count) {
    const std::optional<TimePoint> there = plusDays(clock_, from, sign * count);
    return there && (sign > 0 ? *there <= to : *there >= to);
  };
  // The elapsed days are off by no more than the sum of the zone's changes, which is below two days.
  auto count = static_cast<std::int64_t>(ticksBetween(from, to) / ticksOf(days(1))) + 2;
  while (count > 0 && !reaches(count)) {
    --count;
  }
  return sign * count;
}

std::int64_t Calendar::wholeHours(TimePoint from, TimePoint to) {
  const auto hours = static_cast<std::int64_t>(ticksBetween(from, to) / ticksOf(std::chrono::hours(1)));
  return to < from ? -hours : hours;
}

std::string dateDescription(platform::Clock::TimePoint date) {
  const auto whole = std::chrono::floor<seconds>(date);
  const auto midnight = std::chrono::floor<days>(whole);
  // The years of <chrono> end at 32767, a clock need not. The calendar repeats itself every 400 years.
  constexpr std::int64_t cycle = 146'097;  // in days
  const std::int64_t sinceEpoch = midnight.time_since_epoch().count();
  const std::int64_t cycles = (sinceEpoch < 0 ? sinceEpoch - cycle + 1 : sinceEpoch) / cycle;
  const std::chrono::year_month_day day{std::chrono::sys_days(days(static_cast<int>(sinceEpoch - cycles * cycle)))};
  const std::chrono::hh_mm_ss time{whole - midnight};
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", 400 * cycles + static_cast<int>(day.year()),
                     static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()), time.hours().count(),
                     time.minutes().count(), time.seconds().count());
}

}  // namespace quillmar
