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

namespace {

constexpr auto storeKey = EventTracker::completedEventsKey;

/// A store in memory that counts reads and writes of whole values and can refuse to write.
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
  std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) override {
    ++appends;
    return error ? error : InMemoryUserDefaults::replaceDataTail(key, keep, tail);
  }

  mutable int reads = 0;
  int sets = 0;
  int appends = 0;
  std::error_code error;
};

class EventTrackerTest : public testing::Test {
 protected:
  std::string historyNames() {
    std::string names;
    for (const TrackedEvent& event : tracker_.getAllTrackedEvents()) {
      names += event.name + " ";
    }
    return names;
  }

  const test::LogCapture log_;
  const std::shared_ptr<ScriptedUserDefaults> store_ = std::make_shared<ScriptedUserDefaults>();
  /// 2001-01-01 00:01:40.5 UTC
  const std::shared_ptr<simulated::ManualClock> clock_ =
      std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint(978307300500ms));
  EventTracker tracker_{store_, clock_};
};

TEST_F(EventTrackerTest, storesNumbersAndNumericTextsThatJsonCanExpress) {
  tracker_.trackEvent("purchase", NamedParameters{{"revenue", "9.99"}, {"currency", "EUR"}, {"qty", 2}, {"new", true}});
  clock_->advance(1s);
  tracker_.trackEvent("caf\u00e9 \"x\"", std::nullopt);
  EXPECT_THAT(
      log_.messages(),
      ElementsAre("debug: EventTracker - Tracked event: purchase with parameters: [\"qty\": 2, \"revenue\": 9.99]",
                  "debug: EventTracker - Tracked event: caf\u00e9 \"x\" with parameters: [:]"));
  tracker_.trackEvent("infinite", NamedParameters{{"revenue", HUGE_VAL}});
  tracker_.trackEvent("undefined", NamedParameters{{"x", std::nan("")}});
  tracker_.trackEvent("broken \xFF", std::nullopt);
  EXPECT_EQ(store_->data(storeKey), R"([{"name":"purchase","parameters":{"qty":2,"revenue":9.99},"timestamp":100.5},)"
                                    "{\"name\":\"caf\u00e9 \\\"x\\\"\",\"parameters\":{},\"timestamp\":101.5}]");
  EXPECT_THAT(tracker_.getAllTrackedEvents(),
              ElementsAre(TrackedEvent{"purchase", {{"revenue", 9.99}, {"qty", 2}}, clock_->now() - 1s},
                          TrackedEvent{"caf\u00e9 \"x\"", {}, clock_->now()}));
}

// How revenue counts, and histories of all kinds: fuzz/EventHistory.cpp.
TEST_F(EventTrackerTest, onePartWithAllItsEventsIsEnough) {
  tracker_.trackEvent("a", std::nullopt);
  const ConversionValues::FineValue fineA{1, {{"a", {}, {}}}}, fineAB{2, {{"a", {}, {}}, {"b", {}, {}}}};
  const ConversionValues::CoarseValueData coarseB{CoarseValue::high, {{"b", {}, {}}}}, coarseFree{CoarseValue::low, {}};
  ConversionValues values;
  for (const ConversionValues::WindowValue& value :
       std::vector<ConversionValues::WindowValue>{{fineA, coarseB}, {fineAB, coarseFree}, {fineAB, coarseB}, {}}) {
    values.values.push_back({"rule", {{"window1", value}, {"window2", {fineA, {}}}}});
  }
  EXPECT_THAT(tracker_.findCompletedConversionValues(values, Window::window1),
              ElementsAre(&values.values[0], &values.values[1]));
  EXPECT_TRUE(tracker_.areEventsCompleted({}) && tracker_.areEventsCompleted({"a"}));
  EXPECT_FALSE(tracker_.areEventsCompleted({"a", "b"}));
}

TEST_F(EventTrackerTest, followsWhatOthersClear) {
  tracker_.trackEvent("a", std::nullopt);
  EventTracker(store_, clock_).clearCompletedEvents();
  EXPECT_EQ(log_.messages().back(), "debug: EventTracker - Cleared all tracked events");
  EXPECT_FALSE(store_->object(storeKey));
  EXPECT_FALSE(tracker_.areEventsCompleted({"a"}));
  store_->set(storeKey, "a text is no data");
  tracker_.trackEvent("b", std::nullopt);
  EXPECT_EQ(historyNames(), "b ");
}

TEST_F(EventTrackerTest, neitherTrackingNorMatchingReadsTheHistoryAgain) {
  for (int i = 0; i < 100; ++i) {
    tracker_.trackEvent("e", NamedParameters{{"revenue", i}});
    tracker_.areEventsCompleted({"e"});
    tracker_.findCompletedConversionValues({}, Window::window0);
  }
  EXPECT_EQ(store_->reads, 1);
  EXPECT_EQ(store_->sets, 1);
  EXPECT_EQ(tracker_.getAllTrackedEvents().size(), 100u);
}

TEST_F(EventTrackerTest, anEventThatTheStoreRefusesIsNotTracked) {
  const std::error_code full = std::make_error_code(std::errc::no_space_on_device);
  const auto trackRefused = [&](const char* event) {
    store_->error = full;
    tracker_.trackEvent(event, std::nullopt);
    store_->error = {};
    EXPECT_EQ(log_.messages().back(), "error: EventTracker - Failed to store event: " + full.message());
  };
  tracker_.trackEvent("a", std::nullopt);
  trackRefused("b");
  tracker_.trackEvent("c", std::nullopt);
  EXPECT_THAT(tracker_.getTrackedEventNames(), ElementsAre("a", "c"));
  EXPECT_EQ(historyNames(), "a c ");

  // The store keeps the first event of a list in its memory although it could not write it: both must agree on it.
  tracker_.clearCompletedEvents();
  trackRefused("d");
  tracker_.trackEvent("e", std::nullopt);
  EXPECT_EQ(tracker_.getAllTrackedEvents().size(), tracker_.getTrackedEventNames().size());
  EXPECT_TRUE(tracker_.areEventsCompleted({"e"}));
}

TEST_F(EventTrackerTest, eventsOfOneCallAreOneWrite) {
  tracker_.trackEvents({{"x", {}}, {"broken \xFF", {}}, {"y", {}}});
  EXPECT_EQ(historyNames(), "x y ");
  EXPECT_EQ(store_->sets + store_->appends, 1);
  EventTracker(store_, clock_).trackEvents({{"z", {}}, {"x", {}}});
  EXPECT_EQ(historyNames(), "x y z x ");
  EXPECT_EQ(store_->sets + store_->appends, 2);
  EXPECT_THAT(tracker_.getTrackedEventNames(), ElementsAre("x", "y", "z"));
}

TEST_F(EventTrackerTest, trackersOnOneStoreLoseNothingOnManyThreads) {
  const auto track = [this] {
    for (int i = 0; i < 50; ++i) {
      EventTracker(store_, clock_).trackEvents({{"a", {}}, {"b", {}}});
    }
  };
  {
    const std::jthread first(track), second(track), third(track);
  }
  EXPECT_EQ(historyNames().size(), 600u);
}

}  // namespace
