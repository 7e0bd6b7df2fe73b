#include "Conversion/EventTracker.h"

#include <gmock/gmock.h>

#include <cmath>
#include <thread>

#include "quillmar/simulated/InMemoryUserDefaults.h"
#include "support/LogCapture.h"

using namespace quillmar;
using namespace std::chrono_literals;
using platform::PropertyListValue;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr auto storeKey = EventTracker::completedEventsKey;

/// A store in memory that counts reads and writes of whole values, can refuse to write, and can be one of those that
/// neither know revisions nor append by themselves.
class ScriptedUserDefaults : public simulated::InMemoryUserDefaults {
 public:
  std::optional<PropertyListValue> object(std::string_view key) const override {
    ++reads;
    return InMemoryUserDefaults::object(key);
  }
  std::error_code set(std::string_view key, PropertyListValue value) override {
    ++sets;
    InMemoryUserDefaults::set(key, std::move(value));  // also when it fails, as the seam demands
    return error;
  }
  std::optional<std::uint64_t> revision(std::string_view key) const override {
    return simple ? std::nullopt : InMemoryUserDefaults::revision(key);
  }
  std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) override {
    if (simple) {
      return UserDefaults::replaceDataTail(key, keep, tail);
    }
    return error ? error : InMemoryUserDefaults::replaceDataTail(key, keep, tail);
  }

  mutable int reads = 0;
  int sets = 0;
  bool simple = false;
  std::error_code error;
};

/// All of it runs on both kinds of stores.
class EventTrackerTest : public testing::TestWithParam<bool> {
 protected:
  EventTrackerTest() { store_->simple = GetParam(); }
  bool met(const ConversionValues::RequiredEvent& event) {
    ConversionValues values;
    values.values = {{"k", {{"window1", {{{1, {event}}}, {}}}}}};
    return !tracker_.findCompletedConversionValues(values, Window::window1).empty();
  }
  std::string historyNames() {
    std::string names;
    for (const TrackedEvent& event : tracker_.getAllTrackedEvents()) {
      names += event.name + " ";
    }
    return names;
  }
  std::string stored() const { return store_->data(storeKey).value_or("absent"); }
  void storeData(std::string bytes) { store_->set(storeKey, PropertyListValue::Data{std::move(bytes)}); }

  const std::shared_ptr<ScriptedUserDefaults> store_ = std::make_shared<ScriptedUserDefaults>();
  /// 2001-01-01 00:01:40.5 UTC
  const std::shared_ptr<simulated::ManualClock> clock_ =
      std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint(978307300500ms));
  EventTracker tracker_{store_, clock_};
};
INSTANTIATE_TEST_SUITE_P(Stores, EventTrackerTest, testing::Bool(),
                         [](const auto& simple) { return simple.param ? "simple" : "withRevisions"; });

TEST_P(EventTrackerTest, storesNumbersAndNumericTextsThatJsonCanExpress) {
  const test::LogCapture log;
  tracker_.trackEvent("purchase", NamedParameters{{"revenue", "9.99"}, {"currency", "EUR"}, {"qty", 2}, {"new", true}});
  clock_->advance(1s);
  tracker_.trackEvent("caf\u00e9 \"x\"", std::nullopt);
  EXPECT_THAT(
      log.messages(),
      ElementsAre("debug: EventTracker - Tracked event: purchase with parameters: [\"qty\": 2, \"revenue\": 9.99]",
                  "debug: EventTracker - Tracked event: caf\u00e9 \"x\" with parameters: [:]"));
  tracker_.trackEvent("infinite", NamedParameters{{"revenue", HUGE_VAL}});
  tracker_.trackEvent("undefined", NamedParameters{{"x", std::nan("")}});
  tracker_.trackEvent("broken \xFF", std::nullopt);
  EXPECT_EQ(stored(), R"([{"name":"purchase","parameters":{"qty":2,"revenue":9.99},"timestamp":100.5},)"
                      "{\"name\":\"caf\u00e9 \\\"x\\\"\",\"parameters\":{},\"timestamp\":101.5}]");
  EXPECT_THAT(tracker_.getAllTrackedEvents(),
              ElementsAre(TrackedEvent{"purchase", {{"revenue", 9.99}, {"qty", 2}}, clock_->now() - 1s},
                          TrackedEvent{"caf\u00e9 \"x\"", {}, clock_->now()}));
  EXPECT_EQ(tracker_.getTrackedEventNames().size(), 2u);
}

TEST_P(EventTrackerTest, revenueCountsOnlyBetweenTwoBounds) {
  tracker_.trackEvent("purchase", std::nullopt);
  EXPECT_FALSE(met({"purchase", 5.0, 10.0})) << "no revenue at all";
  tracker_.trackEvent("purchase", NamedParameters{{"revenue", 1}});
  tracker_.trackEvent("other", NamedParameters{{"revenue", 7}});
  tracker_.trackEvent("purchase", NamedParameters{{"revenue", "10.01"}, {"Revenue", 7}});
  const std::pair<ConversionValues::RequiredEvent, bool> rows[] = {
      {{"purchase", {}, {}}, true},    {{"Purchase", {}, {}}, false},  {{"absent", {}, {}}, false},
      {{"purchase", 5.0, {}}, true},   {{"purchase", {}, 0.5}, true},  {{"purchase", 5.0, 10.0}, false},
      {{"purchase", 10.01, 11}, true}, {{"purchase", 0.0, 1.0}, true}, {{"purchase", 1.0, 1.0}, true},
      {{"purchase", 11.0, 99}, false}, {{"purchase", 2.0, 0.5}, false}};
  for (const auto& [event, expected] : rows) {
    EXPECT_EQ(met(event), expected) << event.name << " from " << event.revenueMin.value_or(-1);
  }
  tracker_.trackEvent("purchase", NamedParameters{{"revenue", 10.0f}});
  EXPECT_TRUE(met({"purchase", 5.0, 10.0}));
}

TEST_P(EventTrackerTest, onePartWithAllItsEventsIsEnough) {
  tracker_.trackEvent("a", std::nullopt);
  const ConversionValues::FineValue fineA{1, {{"a", {}, {}}}}, fineAB{2, {{"a", {}, {}}, {"b", {}, {}}}};
  const ConversionValues::CoarseValueData coarseB{CoarseValue::high, {{"b", {}, {}}}}, coarseFree{CoarseValue::low, {}};
  ConversionValues values;
  values.values = {{"fine", {{"window1", {fineA, coarseB}}}},
                   {"coarse", {{"window1", {fineAB, coarseFree}}}},
                   {"none", {{"window1", {fineAB, coarseB}}}},
                   {"empty", {{"window1", {}}}},
                   {"other window", {{"window2", {fineA, {}}}}}};
  EXPECT_THAT(tracker_.findCompletedConversionValues(values, Window::window1),
              ElementsAre(&values.values[0], &values.values[1]));
  EXPECT_THAT(tracker_.findCompletedConversionValues(values, Window::window0), IsEmpty());
  EXPECT_TRUE(tracker_.areEventsCompleted({}));
  EXPECT_FALSE(tracker_.areEventsCompleted({"a", "b"}));
}

TEST_P(EventTrackerTest, followsWhatOthersStoreAndClear) {
  tracker_.trackEvent("a", std::nullopt);
  EventTracker second(store_, clock_);
  EXPECT_TRUE(second.areEventsCompleted({"a"})) << "after a launch";
  second.trackEvent("b", NamedParameters{{"revenue", 3}});
  EXPECT_TRUE(met({"b", 3.0, 3.0}));
  tracker_.trackEvent("c", std::nullopt);
  second.trackEvent("d", std::nullopt);
  EXPECT_EQ(historyNames(), "a b c d ");
  const test::LogCapture log;
  second.clearCompletedEvents();
  EXPECT_THAT(log.messages(), ElementsAre("debug: EventTracker - Cleared all tracked events"));
  EXPECT_EQ(stored(), "absent");
  EXPECT_THAT(tracker_.getAllTrackedEvents(), IsEmpty());
  EXPECT_FALSE(tracker_.areEventsCompleted({"a"}));
  tracker_.trackEvent("e", std::nullopt);
  EXPECT_EQ(historyNames(), "e ");
}

TEST_P(EventTrackerTest, readsAnyValidHistoryAndOverwritesTheRest) {
  storeData(" [ {\"timestamp\": -1e300, \"parameters\": {\"revenue\": 2}, \"name\": \"old\", \"x\": []} ]\n ");
  EXPECT_TRUE(met({"old", 2.0, 2.0}));
  tracker_.trackEvent("new", std::nullopt);
  EXPECT_EQ(historyNames(), "old new ");
  for (const char* bytes : {"", "[", "{}", "[1]", "[]", R"([{"name":"a","parameters":{}}])",
                            R"([{"name":"a","parameters":{"x":"1"},"timestamp":0}])",
                            R"([{"name":"a","parameters":{},"timestamp":0},{"name":"b"}])"}) {
    storeData(bytes);
    EXPECT_EQ(historyNames(), "") << bytes;
    tracker_.trackEvent("new", std::nullopt);
    EXPECT_EQ(historyNames(), "new ") << bytes;
  }
  store_->set(storeKey, "a text is no data");
  EXPECT_THAT(tracker_.getTrackedEventNames(), IsEmpty());
}

TEST(EventTracker, neitherTrackingNorMatchingReadsTheHistoryAgain) {
  const auto store = std::make_shared<ScriptedUserDefaults>();
  EventTracker tracker(store, std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{}));
  for (int i = 0; i < 100; ++i) {
    tracker.trackEvent("e", NamedParameters{{"revenue", i}});
    tracker.areEventsCompleted({"e"});
    tracker.findCompletedConversionValues({}, Window::window0);
  }
  EXPECT_EQ(store->reads, 1);
  EXPECT_EQ(store->sets, 1);
  EXPECT_EQ(tracker.getAllTrackedEvents().size(), 100u);
}

TEST(EventTracker, anEventThatTheStoreRefusesIsNotTracked) {
  const test::LogCapture log;
  const auto store = std::make_shared<ScriptedUserDefaults>();
  EventTracker tracker(store, std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{}));
  const std::error_code full = std::make_error_code(std::errc::no_space_on_device);
  const auto trackRefused = [&](const char* event) {
    store->error = full;
    tracker.trackEvent(event, std::nullopt);
    store->error = {};
    EXPECT_EQ(log.messages().back(), "error: EventTracker - Failed to store event: " + full.message());
  };
  tracker.trackEvent("a", std::nullopt);
  trackRefused("b");
  tracker.trackEvent("c", std::nullopt);
  EXPECT_THAT(tracker.getTrackedEventNames(), ElementsAre("a", "c"));
  EXPECT_EQ(tracker.getAllTrackedEvents().size(), 2u);

  // The store keeps the first event of a list in its memory although it could not write it: both must agree on it.
  tracker.clearCompletedEvents();
  trackRefused("d");
  tracker.trackEvent("e", std::nullopt);
  EXPECT_EQ(tracker.getAllTrackedEvents().size(), tracker.getTrackedEventNames().size());
  EXPECT_TRUE(tracker.areEventsCompleted({"e"}));
}

TEST(EventTracker, trackersOnOneStoreLoseNothingOnManyThreads) {
  const auto store = std::make_shared<simulated::InMemoryUserDefaults>();
  const auto clock = std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{});
  EventTracker trackers[] = {{store, clock}, {store, clock}};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&tracker = trackers[t % 2], t] {
      for (int i = 0; i < 25; ++i) {
        tracker.trackEvent(std::string(static_cast<std::size_t>(i % 7 + 1), static_cast<char>('a' + t)), std::nullopt);
        tracker.areEventsCompleted({"a"});
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (EventTracker& tracker : trackers) {
    EXPECT_EQ(tracker.getAllTrackedEvents().size(), 100u);
    EXPECT_EQ(tracker.getTrackedEventNames().size(), 28u);
  }
}

}  // namespace
