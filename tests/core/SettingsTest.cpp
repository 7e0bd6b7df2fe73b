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

/// One hour east of UTC, two in the summer of 2026; from 2030 on ten hours west until the zone moves across the date
/// line at the end of 2035-06-29.
seconds offsetAt(TimePoint instant) {
  if (instant >= utc(2030, 1, 1)) {
    return instant < utc(2035, 6, 30, 10) ? hours(-10) : hours(14);
  }
  return instant >= utc(2026, 3, 29, 1) && instant < utc(2026, 10, 25, 1) ? hours(2) : hours(1);
}

class CalendarTest : public testing::Test {
 protected:
  CalendarTest() { clock_.setTimeZone(offsetAt); }
  simulated::ManualClock clock_{TimePoint{}};
  Calendar calendar_{clock_};
};

TEST_F(CalendarTest, addedDaysKeepTheWallTime) {
  const struct {
    const char* what;
    TimePoint from;
    std::int64_t days;
    TimePoint expected;
  } rows[] = {
      {"into the summer", utc(2026, 3, 1, 11), 60, utc(2026, 4, 30, 10)},
      {"into the winter", utc(2026, 10, 1, 10), 60, utc(2026, 11, 30, 11)},
      {"02:30 is skipped and becomes 03:30", utc(2026, 3, 28, 1, 30), 1, utc(2026, 3, 29, 1, 30)},
      {"02:30 comes twice, the first counts", utc(2026, 10, 24, 0, 30), 1, utc(2026, 10, 25, 0, 30)},
      {"02:30 comes twice, from the other side", utc(2026, 10, 26, 1, 30), -1, utc(2026, 10, 25, 1, 30)},
      {"a date that does not exist", utc(2035, 6, 29, 22), 1, utc(2035, 6, 30, 22)},
      {"beyond the end of time", TimePoint::max(), 5, TimePoint::max()},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(calendar_.addingDays(row.from, row.days), row.expected) << row.what;
  }
  const TimePoint fine = utc(2026, 3, 1, 11) + nanoseconds(123456789);
  EXPECT_EQ(calendar_.addingDays(fine, 60) - utc(2026, 4, 30, 10), nanoseconds(123456789));
}

TEST_F(CalendarTest, wholeDaysFollowTheWallTime) {
  const struct {
    const char* what;
    TimePoint from, to;
    std::int64_t expected;
  } rows[] = {
      {"exactly", utc(2026, 1, 1, 12), utc(2026, 2, 7, 12), 37},
      {"23 hours in spring are a day", utc(2026, 3, 28, 11), utc(2026, 3, 29, 10), 1},
      {"a second less is none", utc(2026, 3, 28, 11), utc(2026, 3, 29, 9, 59, 59), 0},
      {"24 hours in autumn are none", utc(2026, 10, 24, 10), utc(2026, 10, 25, 10), 0},
      {"25 hours in autumn are a day", utc(2026, 10, 24, 10), utc(2026, 10, 25, 11), 1},
      {"backwards", utc(2026, 3, 29, 10), utc(2026, 3, 28, 11), -1},
      {"backwards, a second short", utc(2026, 3, 29, 10), utc(2026, 3, 28, 11, 0, 1), 0},
      {"across the date line", utc(2035, 6, 29, 22), utc(2035, 6, 30, 22), 1},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(calendar_.wholeDays(row.from, row.to), row.expected) << row.what;
  }
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
