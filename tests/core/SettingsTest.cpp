#include <gmock/gmock.h>

#include <regex>
#include <set>

#include "Settings/Calendar.h"
#include "Settings/QuillMarDefaults.h"
#include "Settings/Uuid.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "quillmar/simulated/ManualClock.h"

using namespace quillmar;
using namespace std::chrono;
using TimePoint = Calendar::TimePoint;

namespace {

TimePoint utc(int y, unsigned m, unsigned d, int h = 0, int min = 0, int s = 0) {
  return sys_days(year(y) / static_cast<int>(m) / static_cast<int>(d)) + hours(h) + minutes(min) + seconds(s);
}

// How days are counted and added where clocks change is compared with another library's calendar in tests/calendar.
TEST(Calendar, daysAreAddedWithTheirFractionsAndEndWithTime) {
  simulated::ManualClock clock{TimePoint{}};
  clock.setTimeZone([](TimePoint instant) { return instant < utc(2026, 3, 29, 1) ? 1h : 2h; });
  const Calendar calendar(clock);
  EXPECT_EQ(calendar.addingDays(utc(2026, 3, 1, 11) + 123456789ns, 60), utc(2026, 4, 30, 10) + 123456789ns);
  EXPECT_EQ(calendar.addingDays(TimePoint::max(), 5), TimePoint::max());
  EXPECT_EQ(calendar.wholeDays(utc(2026, 3, 28, 11), utc(2026, 3, 29, 10)), 1) << "of 23 hours";
}

TEST(Calendar, hoursAreElapsedAndDatesAreDescribedInUtc) {
  const TimePoint from = utc(2026, 3, 29);
  EXPECT_EQ(Calendar::wholeHours(from, from + minutes(119)), 1);
  EXPECT_EQ(Calendar::wholeHours(from, from - minutes(119)), -1);
  EXPECT_EQ(dateDescription(utc(2026, 11, 21, 9, 30) + milliseconds(999)), "2026-11-21 09:30:00 +0000");
  EXPECT_EQ(dateDescription(utc(1969, 12, 31, 23, 59, 59) + milliseconds(1)), "1969-12-31 23:59:59 +0000");
}

TEST(Uuid, isRandomAndOfVersion4InUpperCase) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> uuids;
  for (int i = 0; i < 200; ++i) {
    const auto [uuid, isNew] = uuids.insert(makeUuid());
    EXPECT_TRUE(isNew && std::regex_match(*uuid, form)) << *uuid;
  }
}

/// Counts what is opened, and may refuse the suite.
struct CountingProvider : simulated::InMemoryUserDefaultsProvider {
  std::shared_ptr<platform::UserDefaults> openSuite(const std::string& name) override {
    opened.push_back(name);
    return refuse ? nullptr : InMemoryUserDefaultsProvider::openSuite(name);
  }
  bool refuse = false;
  std::vector<std::string> opened;
};

TEST(QuillMarDefaults, opensTheSuiteOnceAtFirstUseElseTheStandardStore) {
  for (const bool refuse : {false, true}) {
    const auto provider = std::make_shared<CountingProvider>();
    provider->refuse = refuse;
    const auto store = quillMarDefaults(provider);
    EXPECT_EQ(quillMarDefaults(provider), store);
    EXPECT_NE(quillMarDefaults(std::make_shared<CountingProvider>()), store);
    EXPECT_THAT(provider->opened, testing::IsEmpty());
    store->set("k", platform::PropertyListValue::Data{"abc"});
    store->replaceDataTail("k", 1, "-");
    EXPECT_EQ(store->data("k"), "a-");
    EXPECT_EQ(store->revision("k"), 2u);
    EXPECT_EQ(provider->standard()->data("k").has_value(), refuse);
    EXPECT_THAT(provider->opened, testing::ElementsAre("tech.quill-mar.quillmaruserdefaults"));
    store->remove("k");
    EXPECT_FALSE(store->object("k"));
  }
}

}  // namespace
