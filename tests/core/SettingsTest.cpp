#include <gmock/gmock.h>

#include <regex>

#include "Settings/Calendar.h"
#include "Settings/QuillMarDefaults.h"
#include "Settings/Uuid.h"
#include "quillmar/EventValue.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "quillmar/simulated/ManualClock.h"

using namespace quillmar;
using namespace std::chrono;
using TimePoint = Calendar::TimePoint;

namespace {

template <class Value, class... Pointers>
constexpr bool takesNone = (!std::is_constructible_v<Value, Pointers> && ...);
template <class Value>
constexpr bool takesNoPointers =
    takesNone<Value, std::nullptr_t, void*, int*, const double*, const wchar_t*, Value*, int Value::*, void (*)()>;
static_assert(takesNoPointers<EventValue> && takesNoPointers<platform::PropertyListValue>, "a pointer is no Boolean");

TEST(Values, nullIsAnEmptyText) {
  const char* const null = nullptr;
  char buffer[] = "text";
  EXPECT_EQ(EventValue(null), EventValue(std::string()));
  EXPECT_EQ(EventValue(buffer), EventValue(std::string("text")));
  EXPECT_EQ(platform::PropertyListValue(null), platform::PropertyListValue(std::string()));
}

// How days are counted and added where clocks change is compared with another library's calendar in tests/calendar.
TEST(Calendar, countsUpToTheEndsOfTime) {
  constexpr TimePoint first = TimePoint::min(), last = TimePoint::max();
  simulated::ManualClock clock{TimePoint{}};
  for (const seconds offset : {0s, 50400s, -43200s}) {
    clock.setTimeZone([&](TimePoint instant) { return instant < first + 30h || instant > last - 30h ? offset : 0s; });
    const Calendar calendar(clock);
    EXPECT_EQ(calendar.addingDays(last, 1), last);
    EXPECT_EQ(calendar.addingDays(first, 0), first);
    EXPECT_EQ(calendar.addingDays(first, -1), first);
    EXPECT_EQ(calendar.addingDays(last, std::numeric_limits<std::int64_t>::min()), first);
    EXPECT_EQ(calendar.wholeDays(last - TimePoint::duration(1), last), 0);
    EXPECT_GE(calendar.wholeDays(first, last), (last.time_since_epoch() / days(1)) * 2);
    EXPECT_LE(calendar.wholeDays(last, first), -(last.time_since_epoch() / days(1)) * 2);
  }
  const auto half = last.time_since_epoch().count(), hour = TimePoint::duration(1h).count();
  EXPECT_EQ(Calendar::wholeHours(first, last), half / hour * 2 + (half % hour * 2 + 1) / hour)
      << "with what is left of each half";
  EXPECT_EQ(Calendar::wholeHours(last, first), -Calendar::wholeHours(first, last));
}

TEST(Calendar, datesAreDescribedInUtc) {
  EXPECT_EQ(dateDescription(sys_days(2026y / 11 / 21) + 9h + 30min + 999ms), "2026-11-21 09:30:00 +0000");
  EXPECT_EQ(dateDescription(TimePoint{} - 1ms), "1969-12-31 23:59:59 +0000");
  const std::regex form("-?[0-9]{4,6}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} \\+0000");
  EXPECT_TRUE(std::regex_match(dateDescription(TimePoint::min()), form)) << dateDescription(TimePoint::min());
}

TEST(Uuid, isOfVersion4InUpperCase) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  for (int i = 0; i < 200; ++i) {
    const std::string uuid = makeUuid();
    EXPECT_TRUE(std::regex_match(uuid, form)) << uuid;
  }
}

// That the standard store takes the place of a suite that cannot be opened: tests/scenarios.
TEST(QuillMarDefaults, opensTheSuiteOnceAtFirstUseAndPassesTheQuickCallsOn) {
  struct QuickStore : simulated::InMemoryUserDefaults {
    std::optional<std::string> dataTail(std::string_view key, std::size_t skip) const override {
      return "quickly " + InMemoryUserDefaults::dataTail(key, skip).value_or("nothing");
    }
  };
  struct CountingProvider : simulated::InMemoryUserDefaultsProvider {
    std::shared_ptr<platform::UserDefaults> openSuite(const std::string& /*name*/) override {
      ++opened;
      return std::make_shared<QuickStore>();
    }
    int opened = 0;
  };
  const auto provider = std::make_shared<CountingProvider>();
  const auto store = quillMarDefaults(provider);
  EXPECT_EQ(quillMarDefaults(provider), store);
  EXPECT_EQ(provider->opened, 0);
  store->set("k", platform::PropertyListValue::Data{"abc"});
  store->replaceDataTail("k", 1, "-");
  EXPECT_EQ(store->data("k"), "a-");
  EXPECT_EQ(store->dataTail("k", 1), "quickly -");
  EXPECT_EQ(store->revision("k"), 2u);
  EXPECT_EQ(provider->opened, 1);
}

}  // namespace
