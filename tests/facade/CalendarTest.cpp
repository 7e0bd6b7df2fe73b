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
    {"spring on the second day", days(1) + 2h, 1h, 2h, 2, -1h},
    {"autumn between the windows", days(20), 2h, 1h, 21, 1h},
    {"spring by half an hour, in the last window", days(35) + 1h, 10h + 30min, 11h, 36, -30min},
    {"day 3 begins in the hour that spring skips", days(3), -5h, -4h, 4, -1h},
    {"day 36 begins in the hour that comes twice", days(36) - 30min, -4h, -5h, 36, 1h},
    {"across the date line", days(10), -10h, 14h, 0, 0s},
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
  const struct {
    int day;
    std::optional<int> windowBefore, window;
  } windows[] = {{3, 0, 1}, {8, 1, 2}, {36, 2, {}}};
  const struct {
    bool mock;
    int day;
    const char *goesOn, *refuses;
  } limits[] = {{true, 36, "Less than 35 days since first run. Continuing with initialization.",
                 "More than 35 days have passed since first run. SDK will not be initialized."},
                {false, 38, "Days since first run: 37.",
                 "SDK not initialized. More than 37 days have passed since the first run."}};
  for (const Zone& zone : zones) {
    ZonedHost host(zone);
    host.configure();
    for (const auto& [day, windowBefore, window] : windows) {
      host.setTime(zone.begin(day) - 1s);
      EXPECT_EQ(host.quillmar->state().window, windowBefore) << zone.name << ", day " << day;
      host.setTime(zone.begin(day));
      EXPECT_EQ(host.quillmar->state().window, window) << zone.name << ", day " << day;
    }
    for (const auto& limit : limits) {
      SCOPED_TRACE(std::string(zone.name) + ", " + limit.refuses);
      Quillmar::setUseMock(limit.mock);
      host.setTime(zone.begin(limit.day) - 1s);
      EXPECT_TRUE(host.starts());
      EXPECT_TRUE(host.logged(limit.goesOn));
      const auto requests = host.configRequests();
      host.setTime(zone.begin(limit.day));
      EXPECT_FALSE(host.starts());
      EXPECT_TRUE(host.logged(limit.refuses));
      EXPECT_EQ(host.quillmar->conversionValuesRepository(), nullptr);
      EXPECT_EQ(host.configRequests(), requests);
    }
  }
}

TEST(CalendarBorders, lockHoursAreElapsedHoursFromTheBeginOfTheWindow) {
  for (const Zone& zone : zones) {
    ZonedHost host(zone);
    host.configBody = configuration(R"({"window0":{"type":"time","value":60},"window1":{"type":"time","value":100},)"
                                    R"("window2":{"type":"time","value":660}})");
    host.configure();
    host.send("session");
    std::size_t calls = 1;
    for (const auto& [day, hours] : {std::pair(0, 60h), {3, 100h}, {8, 660h}}) {
      for (const seconds early : {1s, 0s}) {
        host.setTime(zone.begin(day) + hours - early);
        host.defaults->remove("LastConversionValuesFetchTimestamp");  // the lock is looked at after a fetch
        host.activate();
        calls += early == 0s ? 1 : 0;
        ASSERT_EQ(host.calls().size(), calls) << zone.name << ", day " << day << ", " << early.count() << " s early";
      }
      EXPECT_EQ(host.calls().back().lockWindow, true);
    }
  }
}

TEST(ClockChanges, ofYearsCloseTheWindowsUntilTheClockIsRightAgain) {
  for (const auto& [by, starts] : {std::pair(days(3652), false), {-days(3652), true}}) {
    SCOPED_TRACE(by.count());
    ZonedHost host(zones[0]);
    host.configBody = configuration(R"({"window0":{"type":"time","value":0}})");
    host.configure();
    host.send("session");
    host.setTime(by);
    host.send("session");
    EXPECT_EQ(host.eventNames().size(), 2u) << "logged to the service all the same";
    EXPECT_TRUE(host.logged("info: No event sent. The event window has expired."));
    host.activate();
    EXPECT_EQ(host.configRequests(), by > days(0) ? 2u : 1u) << "a fetch in the future is not repeated";
    EXPECT_EQ(host.starts(), starts);
    EXPECT_EQ(host.calls().size(), 1u) << "neither sent nor locked";

    host.setTime(1h);
    EXPECT_TRUE(host.starts());
    EXPECT_EQ(host.quillmar->state().window, 0);
    EXPECT_EQ(host.defaults->date("QuillmarFirstRunDate"), startOfTests);
    host.send("session");
    EXPECT_EQ(host.calls().size(), 3u) << "the lock, then the event";

    host.setTime(-days(1000));
    host.defaults->set("QuillmarFirstRunDate", platform::Clock::TimePoint::max());
    EXPECT_EQ(host.quillmar->state().window, std::nullopt) << "further away than a clock can tell";
  }
}

}  // namespace
}  // namespace quillmar::test
