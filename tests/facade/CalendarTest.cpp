#include <gtest/gtest.h>

#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::days;
using std::chrono::seconds;

/// A zone whose clocks change once, and when its days then begin for an install of `startOfTests`.
struct Zone {
  const char* name;
  seconds changeAt;  ///< since the first run
  seconds offsetBefore, offsetAfter;
  int firstShiftedDay;
  seconds shift;

  seconds begin(int day) const { return days(day) + (day < firstShiftedDay ? 0s : shift); }
};

const Zone zones[] = {
    {"no daylight saving", days(1), 5h + 30min, 5h + 30min, 0, 0s},
    {"day 3 begins in the hour that spring skips", days(3), -5h, -4h, 4, -1h},
    {"day 36 begins in the hour that comes twice", days(36) - 30min, -4h, -5h, 36, 1h},
};

class ZonedHost : public FacadeHarness {
 public:
  explicit ZonedHost(const Zone& zone) {
    simulated.clock->setTimeZone([zone](platform::Clock::TimePoint instant) {
      return instant < startOfTests + zone.changeAt ? zone.offsetBefore : zone.offsetAfter;
    });
  }
  void setTime(seconds sinceFirstRun) { simulated.clock->setNow(startOfTests + sinceFirstRun); }
  bool starts() {
    restart();
    configure();
    return quillmar->isInitialized();
  }
};

TEST(CalendarBorders, windowsAndTheDayLimitsOfBothPathsAreExactToTheSecond) {
  const std::tuple<int, std::optional<int>, std::optional<int>> windows[] = {{3, 0, 1}, {8, 1, 2}, {36, 2, {}}};
  const std::tuple<bool, int, const char*> limits[] = {
      {true, 36, "More than 35 days have passed since first run. SDK will not be initialized."},
      {false, 38, "SDK not initialized. More than 37 days have passed since the first run."}};
  for (const Zone& zone : zones) {
    ZonedHost host(zone);
    host.configure();
    for (const auto& [day, before, from] : windows) {
      host.setTime(zone.begin(day) - 1s);
      EXPECT_EQ(host.quillmar->state().window, before) << zone.name << ", day " << day;
      host.setTime(zone.begin(day));
      EXPECT_EQ(host.quillmar->state().window, from) << zone.name << ", day " << day;
    }
    for (const auto& [mock, day, refusal] : limits) {
      Quillmar::setUseMock(mock);
      host.setTime(zone.begin(day) - 1s);
      EXPECT_TRUE(host.starts()) << zone.name;
      const auto requests = host.configRequests();
      host.setTime(zone.begin(day));
      EXPECT_FALSE(host.starts()) << zone.name;
      EXPECT_TRUE(host.logged(refusal));
      EXPECT_EQ(host.configRequests(), requests);
    }
  }
}

TEST(ClockChanges, ofYearsCloseTheWindowsUntilTheClockIsRightAgain) {
  for (const auto& [by, starts] : {std::pair(days(3652), false), {-days(3652), true}}) {
    SCOPED_TRACE(by.count());
    ZonedHost host(zones[0]);
    host.configure();
    host.setTime(by);
    host.send("session");
    EXPECT_TRUE(host.logged("info: No event sent. The event window has expired."));
    EXPECT_EQ(host.starts(), starts);
    EXPECT_TRUE(host.calls().empty());
    host.setTime(1h);
    EXPECT_TRUE(host.starts());
    EXPECT_EQ(host.defaults->date("QuillmarFirstRunDate"), startOfTests);
    host.send("session");
    EXPECT_EQ(host.calls().size(), 1u);
  }
}

}  // namespace
}  // namespace quillmar::test
