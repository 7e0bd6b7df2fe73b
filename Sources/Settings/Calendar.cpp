#include "Settings/Calendar.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace quillmar {

using std::chrono::days;
using std::chrono::microseconds;
using std::chrono::seconds;

namespace {

/// Wide enough that no date a store or a clock can hold overflows on the way.
using Instant = std::chrono::sys_time<microseconds>;

/// The first whole microsecond that a clock can hold.
Instant lowestInstant() {
  return std::chrono::ceil<microseconds>(Calendar::TimePoint::min());
}

Instant instantOf(Calendar::TimePoint point) {
  return std::max<Instant>(std::chrono::floor<microseconds>(point), lowestInstant());
}

Calendar::TimePoint pointOf(Instant instant) {
  const Instant lowest = lowestInstant();
  const Instant highest = instantOf(Calendar::TimePoint::max());
  return std::chrono::time_point_cast<Calendar::TimePoint::duration>(std::clamp(instant, lowest, highest));
}

Instant plusDays(const platform::Clock& clock, Instant from, std::int64_t count) {
  const auto offsetAt = [&clock](Instant instant) { return clock.localOffset(pointOf(instant)); };
  const Instant unadjusted = from + days(count);
  const seconds offsetBefore = offsetAt(from);
  const seconds offsetAfter = offsetAt(unadjusted);
  if (offsetBefore == offsetAfter) {
    return unadjusted;
  }
  // A zone that moved across the date line changes by a whole day; the date then follows the elapsed time.
  const seconds adjustment = (offsetBefore - offsetAfter) % days(1);
  const Instant adjusted = unadjusted + adjustment;
  const bool wallTimeKept = (offsetAt(adjusted) - offsetBefore + adjustment) % days(1) == seconds(0);
  // Where the wall time does not exist on that date, it is read with the offset before the gap.
  return wallTimeKept || adjustment >= seconds(0) ? adjusted : unadjusted;
}

}  // namespace

Calendar::TimePoint Calendar::addingDays(TimePoint from, std::int64_t count) const {
  const Instant whole = instantOf(from);
  // What a clock counts below a microsecond is kept.
  return pointOf(plusDays(clock_, whole, count)) + (from - whole);
}

std::int64_t Calendar::wholeDays(TimePoint from, TimePoint to) const {
  const Instant start = instantOf(from);
  const Instant end = instantOf(to);
  const std::int64_t sign = end < start ? -1 : 1;
  const auto reaches = [&](std::int64_t count) {
    const Instant there = plusDays(clock_, start, sign * count);
    return sign > 0 ? there <= end : there >= end;
  };
  // The elapsed days are off by no more than the sum of the zone's changes, which is below two days.
  std::int64_t count = std::chrono::abs(end - start) / days(1) + 2;
  while (count > 0 && !reaches(count)) {
    --count;
  }
  return sign * count;
}

std::int64_t Calendar::wholeHours(TimePoint from, TimePoint to) {
  return (instantOf(to) - instantOf(from)) / std::chrono::hours(1);
}

std::string dateDescription(platform::Clock::TimePoint date) {
  const auto whole = std::chrono::floor<seconds>(date);
  const auto midnight = std::chrono::floor<days>(whole);
  const std::chrono::year_month_day day{midnight};
  const std::chrono::hh_mm_ss time{whole - midnight};
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", static_cast<int>(day.year()),
                     static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()), time.hours().count(),
                     time.minutes().count(), time.seconds().count());
}

}  // namespace quillmar
