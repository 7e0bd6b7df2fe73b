#include <gmock/gmock.h>
#include <stdlib.h>
#include <time.h>
#include <unicode/basictz.h>
#include <unicode/gregocal.h>
#include <unicode/strenum.h>
#include <unicode/tztrans.h>

#include <filesystem>
#include <iostream>
#include <set>
#include <tuple>

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

seconds icuOffset(const icu::TimeZone& zone, TimePoint instant) {
  std::int32_t raw = 0;
  std::int32_t saving = 0;
  UErrorCode error = U_ZERO_ERROR;
  zone.getOffset(icuDate(instant), false, raw, saving, error);
  return duration_cast<seconds>(milliseconds(raw + saving));
}

/// When the zone's offset changes, and what it changes to.
std::vector<std::pair<TimePoint, seconds>> transitions(const icu::BasicTimeZone& zone) {
  std::vector<std::pair<TimePoint, seconds>> result;
  icu::TimeZoneTransition next;
  for (double at = icuDate(firstInstant);
       zone.getNextTransition(at, false, next) && next.getTime() < icuDate(lastInstant); at = next.getTime()) {
    const TimePoint instant{milliseconds(static_cast<std::int64_t>(next.getTime()))};
    result.emplace_back(instant, icuOffset(zone, instant));
  }
  return result;
}

/// The zones that ICU and the system know, links included.
std::vector<std::string> sharedZones() {
  std::vector<std::string> zones;
  UErrorCode error = U_ZERO_ERROR;
  const std::unique_ptr<icu::StringEnumeration> ids(icu::TimeZone::createEnumeration(error));
  while (const char* id = ids->next(nullptr, error)) {
    if (std::filesystem::is_regular_file(std::filesystem::path("/usr/share/zoneinfo") / id)) {
      zones.emplace_back(id);
    }
  }
  return zones;
}

std::unique_ptr<icu::BasicTimeZone> openZone(const std::string& id) {
  return std::unique_ptr<icu::BasicTimeZone>(
      dynamic_cast<icu::BasicTimeZone*>(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(id))));
}

// Both calendars take the offsets from ICU, whose data are not as new as the system's.
TEST(CalendarNextToIcu, agreesInAllZonesAroundTheirTransitionsAndBetween) {
  constexpr seconds around[] = {-1h, -30min, -1s, 0s, 1s, 30min, 1h, 12h};
  std::set<std::pair<seconds, std::vector<std::pair<TimePoint, seconds>>>> seen;
  std::size_t compared = 0;
  const std::vector<std::string> zones = sharedZones();
  ASSERT_GT(zones.size(), 400u) << "the system has no time-zone data";
  for (const std::string& id : zones) {
    const auto zone = openZone(id);
    ASSERT_TRUE(zone) << id;
    auto changes = transitions(*zone);
    if (!seen.emplace(icuOffset(*zone, firstInstant), changes).second) {
      continue;  // a link, or a zone that has gone like another one for all this time
    }
    // Besides the transitions, ordinary instants at changing times of the day.
    for (TimePoint instant = firstInstant; instant < lastInstant; instant += days(211) + 1h + 7min) {
      changes.emplace_back(instant, 0s);
    }
    simulated::ManualClock clock{TimePoint{}};
    clock.setTimeZone([&zone](TimePoint instant) { return icuOffset(*zone, instant); });
    const Calendar calendar(clock);
    UErrorCode error = U_ZERO_ERROR;
    icu::GregorianCalendar icuCalendar(*zone, error);
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
          ++compared;
          const auto ours =
              std::tuple(calendar.wholeDays(from, to), calendar.wholeDays(to, from), Calendar::wholeHours(from, to),
                         icuDate(calendar.addingDays(from, count)), icuDate(calendar.addingDays(to, -count)));
          const auto icus = std::tuple(difference(from, to, UCAL_DATE), difference(to, from, UCAL_DATE),
                                       difference(from, to, UCAL_HOUR), sum(from, count), sum(to, -count));
          ASSERT_EQ(ours, icus) << id << ": " << dateDescription(from) << " to " << dateDescription(to) << ", " << count
                                << " days";
        }
      }
    }
  }
  std::cout << zones.size() << " zones, " << seen.size() << " of them different, " << compared
            << " pairs of instants\n";
  EXPECT_GT(compared, 10'000u);
}

// Zones whose rules have not been changed of late, so that the data of ICU and of the system say the same.
TEST(SystemClockNextToIcu, hasTheSameOffsets) {
  const platform::SystemClock clock(nullptr);
  for (const char* id : {"UTC", "Europe/Berlin", "Europe/Dublin", "America/New_York", "America/St_Johns",
                         "Australia/Lord_Howe", "Asia/Kathmandu", "Asia/Kolkata", "Pacific/Apia", "Pacific/Chatham"}) {
    clock.localOffset({});  // the clock reads the variable once; from then on the test says when
    ::setenv("TZ", id, 1);
    ::tzset();
    const auto zone = openZone(id);
    ASSERT_TRUE(zone) << id;
    auto instants = transitions(*zone);
    instants.emplace_back(firstInstant, 0s);
    for (const auto& [instant, offset] : instants) {
      for (const seconds near : {-1s, 0s, 1s}) {
        ASSERT_EQ(clock.localOffset(instant + near), icuOffset(*zone, instant + near))
            << id << " at " << dateDescription(instant + near);
      }
    }
  }
}

}  // namespace
}  // namespace quillmar
