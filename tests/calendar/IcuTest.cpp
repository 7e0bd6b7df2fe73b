#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>
#include <unicode/basictz.h>
#include <unicode/gregocal.h>
#include <unicode/strenum.h>
#include <unicode/tztrans.h>

#include <set>

#include "Platform/Posix/SystemClock.h"
#include "Settings/Calendar.h"
#include "quillmar/simulated/ManualClock.h"

namespace quillmar {
namespace {

using namespace std::chrono;
using TimePoint = Calendar::TimePoint;

constexpr int longestDays = 40;  ///< beyond the last day that the library asks for
/// Each transition is tried with every so many numbers of days, and the next one with the numbers next to them.
constexpr int stride = QUILLMAR_CALENDAR_STRIDE;

const TimePoint firstInstant = sys_days(year(1990) / 1 / 1);  // three zones cross the date line by 1995
const TimePoint lastInstant = sys_days(year(2038) / 1 / 1);

double icuDate(TimePoint instant) {
  return static_cast<double>(floor<milliseconds>(instant).time_since_epoch().count());
}

/// A time zone of ICU; calls that fail leave their results at 0.
struct Zone {
  explicit Zone(const icu::UnicodeString& id)
      : zone(dynamic_cast<icu::BasicTimeZone*>(icu::TimeZone::createTimeZone(id))) {}

  seconds offset(TimePoint instant) const {
    std::int32_t raw = 0, saving = 0;
    UErrorCode error = U_ZERO_ERROR;
    zone->getOffset(icuDate(instant), false, raw, saving, error);
    return duration_cast<seconds>(milliseconds(raw + saving));
  }

  /// When the offset changes, and what it changes to, from the first instant on.
  std::vector<std::pair<TimePoint, seconds>> transitions() const {
    std::vector<std::pair<TimePoint, seconds>> result{{firstInstant, offset(firstInstant)}};
    icu::TimeZoneTransition next;
    while (zone->getNextTransition(icuDate(result.back().first), false, next) &&
           next.getTime() < icuDate(lastInstant)) {
      const TimePoint instant{milliseconds(static_cast<std::int64_t>(next.getTime()))};
      result.emplace_back(instant, offset(instant));
    }
    return result;
  }

  std::unique_ptr<icu::BasicTimeZone> zone;
};

TEST(CalendarNextToIcu, agreesInAllZonesAroundTheirTransitionsAndBetween) {
  constexpr seconds around[] = {-1h, -30min, -1s, 0s, 1s, 30min, 1h, 12h};
  std::set<std::vector<std::pair<TimePoint, seconds>>> seen;  // many zones have gone like another one for all this time
  UErrorCode error = U_ZERO_ERROR;
  const std::unique_ptr<icu::StringEnumeration> ids(icu::TimeZone::createEnumeration(error));
  while (const icu::UnicodeString* const id = ids->snext(error)) {
    const Zone zone(*id);
    auto changes = zone.transitions();
    if (!seen.insert(changes).second) {
      continue;
    }
    // Besides the transitions, ordinary instants at changing times of the day.
    for (TimePoint instant = firstInstant; instant < lastInstant; instant += days(211) + 1h + 7min) {
      changes.emplace_back(instant, 0s);
    }
    simulated::ManualClock clock{TimePoint{}};
    clock.setTimeZone([&zone](TimePoint instant) { return zone.offset(instant); });
    const Calendar calendar(clock);
    icu::GregorianCalendar icuCalendar(*zone.zone, error);
    const auto difference = [&](TimePoint from, TimePoint to, UCalendarDateFields field) {
      icuCalendar.setTime(icuDate(from), error);
      return icuCalendar.fieldDifference(icuDate(to), field, error);
    };
    const auto sum = [&](TimePoint from, std::int32_t count) {
      icuCalendar.setTime(icuDate(from), error);
      icuCalendar.add(UCAL_DATE, count, error);
      return icuCalendar.getTime(error);
    };
    std::size_t turn = 0;
    for (const auto& [instant, offset] : changes) {
      for (auto count = static_cast<int>(turn % stride); count <= longestDays; count += stride) {
        const seconds nearFrom = around[turn % std::size(around)];
        const seconds nearTo = around[turn / std::size(around) % std::size(around)];
        ++turn;
        // Up to the instant, and on from it.
        for (const TimePoint from : {instant - days(count) + nearFrom, instant + nearFrom}) {
          const TimePoint to = from + days(count) - nearFrom + nearTo;
          const auto ours =
              std::tuple(calendar.wholeDays(from, to), calendar.wholeDays(to, from), Calendar::wholeHours(from, to),
                         icuDate(calendar.addingDays(from, count)), icuDate(calendar.addingDays(to, -count)));
          const auto icus = std::tuple(difference(from, to, UCAL_DATE), difference(to, from, UCAL_DATE),
                                       difference(from, to, UCAL_HOUR), sum(from, count), sum(to, -count));
          std::string name;
          ASSERT_EQ(ours, icus) << id->toUTF8String(name) << ": " << dateDescription(from) << " to "
                                << dateDescription(to) << ", " << count << " days";
        }
      }
    }
  }
  EXPECT_GT(seen.size(), 100u) << "zones with a course of their own";
}

// Zones whose rules have not been changed of late, so that the data of ICU and of the system say the same.
TEST(SystemClockNextToIcu, hasTheSameOffsets) {
  const platform::SystemClock clock(nullptr);
  for (const char* id : {"Europe/Dublin", "America/St_Johns", "Australia/Lord_Howe", "Pacific/Apia"}) {
    clock.localOffset({});  // the clock reads the variable once; from then on the test says when
    ::setenv("TZ", id, 1);
    ::tzset();
    for (const auto& [instant, offset] : Zone(id).transitions()) {
      EXPECT_EQ(clock.localOffset(instant), offset) << id << " at " << dateDescription(instant);
    }
  }
}

}  // namespace
}  // namespace quillmar
