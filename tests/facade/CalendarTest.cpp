#include <gmock/gmock.h>

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

void PrintTo(const Zone& zone, std::ostream* out) {
  *out << zone.name;
}

const Zone zones[] = {
    {"no daylight saving", days(1), 5h + 30min, 5h + 30min, 0, 0s},
    {"spring on the second day", days(1) + 2h, 1h, 2h, 2, -1h},
    {"autumn between the windows", days(20), 2h, 1h, 21, 1h},
    {"spring by half an hour, in the last window", days(35) + 1h, 10h + 30min, 11h, 36, -30min},
    {"day 3 begins in the hour that spring skips", days(3), -5h, -4h, 4, -1h},
    {"day 36 begins in the hour that comes twice", days(36) - 30min, -4h, -5h, 36, 1h},
    {"across the date line", days(10), -10h, 14h, 0, 0s},
};

class CalendarBorders : public testing::TestWithParam<Zone>, protected FacadeHarness {
 protected:
  CalendarBorders() {
    simulated.clock->setTimeZone([](platform::Clock::TimePoint instant) {
      return instant < startOfTests + GetParam().changeAt ? GetParam().offsetBefore : GetParam().offsetAfter;
    });
  }
  void setTime(seconds sinceFirstRun) { simulated.clock->setNow(startOfTests + sinceFirstRun); }
  bool starts(bool mock) {
    Quillmar::setUseMock(mock);
    restart();
    configure();
    return quillmar->isInitialized();
  }
};

INSTANTIATE_TEST_SUITE_P(Zones, CalendarBorders, testing::ValuesIn(zones),
                         [](const auto& zone) { return "Zone" + std::to_string(zone.index); });

TEST_P(CalendarBorders, windowsAndDayLimitsAreExactToTheSecond) {
  configure();
  const struct {
    int day;
    std::optional<int> windowBefore, window;
  } windows[] = {{3, 0, 1}, {8, 1, 2}, {36, 2, {}}};
  for (const auto& row : windows) {
    SCOPED_TRACE(std::string(GetParam().name) + ", window of day " + std::to_string(row.day));
    setTime(GetParam().begin(row.day) - 1s);
    EXPECT_EQ(quillmar->state().window, row.windowBefore);
    setTime(GetParam().begin(row.day));
    EXPECT_EQ(quillmar->state().window, row.window);
  }
  for (const auto& [mock, day] : {std::pair(true, 36), {false, 38}}) {
    SCOPED_TRACE(std::string(GetParam().name) + ", limit of day " + std::to_string(day));
    setTime(GetParam().begin(day) - 1s);
    EXPECT_TRUE(starts(mock));
    setTime(GetParam().begin(day));
    EXPECT_FALSE(starts(mock));
  }
}

TEST_P(CalendarBorders, lockHoursAreElapsedHoursFromTheBeginOfTheWindow) {
  configBody = configuration(R"({"window0":{"type":"time","value":60},"window1":{"type":"time","value":100},)"
                             R"("window2":{"type":"time","value":660}})");
  configure();
  send("session");
  std::size_t calls = 1;
  for (const auto& [day, hours] : {std::pair(0, 60h), {3, 100h}, {8, 660h}}) {
    SCOPED_TRACE(std::string(GetParam().name) + ", window of day " + std::to_string(day));
    const seconds lockAt = GetParam().begin(day) + hours;
    for (const seconds early : {1s, 0s}) {
      setTime(lockAt - early);
      defaults->remove("LastConversionValuesFetchTimestamp");  // the lock is looked at after a fetch
      activate();
      calls += early == 0s ? 1 : 0;
      ASSERT_EQ(simulated.adNetwork->calls().size(), calls) << early.count() << " s early";
    }
    EXPECT_EQ(simulated.adNetwork->calls().back().lockWindow, true);
  }
}

TEST(ClockChanges, ofYearsCloseTheWindowsUntilTheClockIsRightAgain) {
  for (const auto& [by, starts] : {std::pair(days(3652), false), {-days(3652), true}}) {
    SCOPED_TRACE(by.count());
    FacadeHarness host;
    host.configBody = configuration(R"({"window0":{"type":"time","value":0}})");
    const auto configureAt = [&host](platform::Clock::TimePoint now) {
      host.simulated.clock->setNow(now);
      host.restart();
      host.configure();
      return host.quillmar->isInitialized();
    };
    host.configure();
    host.send("session");
    host.simulated.clock->setNow(startOfTests + by);
    host.send("session");
    EXPECT_EQ(host.eventNames().size(), 2u) << "logged to the service all the same";
    EXPECT_TRUE(host.logged("info: No event sent. The event window has expired."));
    host.activate();
    EXPECT_EQ(host.configRequests(), by > days(0) ? 2u : 1u) << "a fetch in the future is not repeated";
    EXPECT_EQ(configureAt(startOfTests + by), starts);
    EXPECT_EQ(host.simulated.adNetwork->calls().size(), 1u) << "neither sent nor locked";

    EXPECT_TRUE(configureAt(startOfTests + 1h));
    EXPECT_EQ(host.quillmar->state().window, 0);
    EXPECT_EQ(host.defaults->date("QuillmarFirstRunDate"), startOfTests);
    host.send("session");
    EXPECT_EQ(host.simulated.adNetwork->calls().size(), 3u) << "the lock, then the event";
  }
}

}  // namespace
}  // namespace quillmar::test
