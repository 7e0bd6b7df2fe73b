#include "Insight/InstallInspection.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "quillmar/Config.h"
#include "quillmar/simulated/ConfigurationBuilder.h"
#include "quillmar/simulated/SimulatedPlatform.h"

using namespace quillmar;
using namespace quillmar::insight;
using namespace ::testing;
using Dictionary = platform::PropertyListValue::Dictionary;
using Data = platform::PropertyListValue::Data;

namespace {

const platform::Clock::TimePoint firstRun{std::chrono::hours(500'000)};

std::string text(const InstallReport::Next& next) {
  const auto& sent = next.sent.value();
  return fmt::format("{}: {} {} {}", describe({next.event}), sent.key, sent.fineValue.value_or(-1),
                     rawValue(sent.coarseValue.value()));
}

TEST(InstallInspection, tellsWhatIsStoredAndWhatComesNext) {
  simulated::SimulatedPlatform simulated(firstRun);
  const InstallFiles files{std::make_shared<simulated::InMemoryUserDefaults>(),
                           simulated::ConfigurationBuilder()
                               .rule("session", Window::window1, {{}, {{CoarseValue::low, {{"session"}}}}})
                               .rule("large", Window::window1, {{}, {{CoarseValue::high, {{"purchase", 50, 90}}}}})
                               .json(),
                           R"({"attribution":true})"};
  files.settings->set(Config::quillMarId, "the-identifier");
  files.settings->set(Config::firstRunDateKey, firstRun);
  files.settings->set(Config::lastConversionValuesFetchTimestamp, firstRun);
  files.settings->set("com.quillmar.completedEvents",
                      Data{R"([{"name":"purchase","parameters":{"revenue":60},"timestamp":10},)"
                           R"({"name":"purchase","parameters":{"revenue":5,"x":1},"timestamp":30},)"
                           R"({"name":"purchase","parameters":{},"timestamp":20}])"});
  const platform::PropertyListValue names = platform::PropertyListValue::Array{"purchase"};
  files.settings->set(
      Config::lastWindowValue,
      Dictionary{{"key", "old"}, {"fineValue", std::int64_t{7}}, {"lockWindow", true}, {"completedEvents", names}});
  simulated.clock->advance(std::chrono::hours(24 * 7));
  const InstallReport report = inspectInstall(files, *simulated.clock);
  EXPECT_THAT(std::tie(report.identifier, report.day, report.window, report.daysLeft, report.rules),
              FieldsAre("the-identifier", 7, Window::window1, 1, 2U));
  EXPECT_EQ(report.age(), std::chrono::hours(24 * 7));
  ASSERT_EQ(report.history.size(), 1U);
  const InstallReport::Events& purchases = report.history.front();
  EXPECT_EQ(purchases.last - purchases.first, std::chrono::seconds(20));
  EXPECT_THAT(std::tie(purchases.count, purchases.withRevenue, purchases.lowestRevenue, purchases.highestRevenue,
                       purchases.totalRevenue),
              FieldsAre(3U, 2U, 5, 60, 65));
  EXPECT_TRUE(report.lastValue && report.lastValue->locked && report.lastValue->rule.key == "old");
  EXPECT_EQ(report.attribution, files.attribution);
  EXPECT_THAT(report.complete, ElementsAre("large"));
  std::vector<std::string> next;
  std::transform(report.next.begin(), report.next.end(), std::back_inserter(next), text);
  EXPECT_THAT(next, ElementsAre("\"any other event\": large 7 high", "\"session\": session 7 low"));
  EXPECT_THAT(report.problems, IsEmpty());

  files.settings->set(Config::sdkEnabled, false);
  EXPECT_THAT(inspectInstall(files, *simulated.clock).next, IsEmpty());
  simulated.clock->advance(std::chrono::hours(24 * 29));
  files.settings->set(Config::lastConversionValuesFetchTimestamp, platform::Clock::TimePoint::min());
  EXPECT_GT(inspectInstall(files, *simulated.clock).age(), std::chrono::hours(24 * 365 * 340));
  EXPECT_EQ(inspectInstall(files, *simulated.clock).window, std::nullopt);
}

TEST(InstallInspection, namesWhatIsDamaged) {
  simulated::SimulatedPlatform simulated(firstRun);
  const InstallFiles files{std::make_shared<simulated::InMemoryUserDefaults>(), "{}", "[]"};
  files.settings->set(Config::firstRunDateKey, "a text");
  files.settings->set("com.quillmar.completedEvents", Data{R"([{"name":"a","parameters":{},"timestamp":1},{}])"});
  files.settings->set(Config::lastWindowValue, Dictionary{});
  const InstallReport report = inspectInstall(files, *simulated.clock);
  EXPECT_THAT(
      report.problems,
      ElementsAre(
          HasSubstr("setting QuillmarFirstRunDate has another type"),
          HasSubstr("history of events cannot be read; the library begins a new one: \"name\" is missing in [1]"),
          HasSubstr("last value"), HasSubstr("attribution is an array"),
          HasSubstr("configuration cannot be used; no value is sent until the next fetch: \"values\"")));
  EXPECT_THAT(report.history, IsEmpty());
  EXPECT_FALSE(report.check->usable);
}

}  // namespace
