#include "Conversion/EventTracker.h"

#include <gmock/gmock.h>

#include <cmath>
#include <map>
#include <thread>

#include "support/FaultyStores.h"
#include "support/LogCapture.h"
#include "support/RandomRules.h"

using namespace quillmar;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

constexpr auto storeKey = EventTracker::completedEventsKey;

class EventTrackerTest : public testing::Test {
 protected:
  const test::LogCapture log_;
  std::error_code error_;  ///< that writing ends with
  std::map<std::string, int, std::less<>> storeCalls_;
  const std::shared_ptr<test::FaultyDefaults> store_ =
      std::make_shared<test::FaultyDefaults>([this](std::string_view call) {
        ++storeCalls_[std::string(call)];
        return call == "object" ? std::error_code() : error_;
      });
  /// 2001-01-01 00:01:40.5 UTC
  const std::shared_ptr<simulated::ManualClock> clock_ =
      std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint(978307300500ms));
  EventTracker tracker_{store_, clock_};
};

TEST_F(EventTrackerTest, storesWhatJsonCanExpress) {
  tracker_.trackEvent("purchase", NamedParameters{{"revenue", "9.99"}, {"currency", "EUR"}, {"qty", 2}, {"new", true}});
  tracker_.trackEvent("infinite", NamedParameters{{"revenue", HUGE_VAL}});
  tracker_.trackEvent("undefined", NamedParameters{{"x", std::nan("")}});
  clock_->advance(1s);
  tracker_.trackEvents({{"caf\u00e9 \"x\"", {}}, {"broken \xFF", {}}, {"y", {}}});
  EXPECT_EQ(store_->data(storeKey), R"([{"name":"purchase","parameters":{"qty":2,"revenue":9.99},"timestamp":100.5},)"
                                    "{\"name\":\"caf\u00e9 \\\"x\\\"\",\"parameters\":{},\"timestamp\":101.5},"
                                    R"({"name":"y","parameters":{},"timestamp":101.5}])");
}

// How revenue counts, and histories of all kinds: fuzz/EventHistory.cpp. Which halves are complete: tests/insight.
TEST_F(EventTrackerTest, forgetsWhatIsOldWithItsDigest) {
  for (int i = 0; i < 450; ++i) {
    tracker_.trackEvent(i < 100 ? "old" : "new", std::nullopt);
    // All records are of one length: the digest's bytes come to lie on others like them.
    clock_->advance(i == 99 ? 100s : 0s);
  }
  tracker_.forgetBefore(clock_->now());
  EXPECT_EQ(tracker_.getAllTrackedEvents().size(), 350u);
  tracker_.trackEvent("behind", std::nullopt);
  EventTracker other(store_, clock_);
  for (EventTracker* const tracker : {&tracker_, &other}) {
    EXPECT_THAT(tracker->getTrackedEventNames(), ElementsAre("behind", "new"));
    EXPECT_FALSE(tracker->areEventsCompleted({"new", "old"}));
  }
}

TEST_F(EventTrackerTest, remembersWhatIsCompleteOnlyWhileTheHistoryGrows) {
  test::RandomRules random(7);
  EventTracker other(store_, clock_);
  std::shared_ptr<const ConversionValues> document, before;
  for (std::size_t i = 0; i < 5'000; ++i) {
    Window window = Window::window0;
    const std::size_t turn = random.below(100);
    if (!document || turn == 0) {
      before = std::exchange(document, std::make_shared<ConversionValues>(random.next().values()));
    } else if (before && turn == 1) {
      document.swap(before);
    } else if (turn < 5) {
      (turn < 3 ? other : tracker_).clearCompletedEvents();
    } else if (turn == 5) {
      window = Window::window1;
    } else if (turn < 50) {
      const NamedParameters revenue{{"revenue", 0.5 + 0.5 * static_cast<double>(random.below(5))}};
      (turn < 10 ? other : tracker_).trackEvent(random.below(3) == 0 ? "b" : "a", revenue);
    }
    ASSERT_EQ(tracker_.followCompletedConversionValues(document, window),
              tracker_.findCompletedConversionValues(*document, window))
        << i;
  }
}

TEST_F(EventTrackerTest, aDigestSparesReadingTheHistoryAndIsNotBelievedAgainstIt) {
  const auto older = std::make_shared<test::MinimalUserDefaults>(store_);  // a library that knows of no digest
  test::RandomRules random(39);
  const auto lives = [&](std::shared_ptr<platform::UserDefaults> store, int count) {
    EventTracker tracker(std::move(store), clock_);
    if (random.below(12) == 0) {
      tracker.clearCompletedEvents();
    }
    clock_->advance(1ms);
    std::vector<EventTracker::NewEvent> events;
    for (int i = 0; i < count; ++i) {
      events.push_back({random.below(20) == 0 ? "b" + std::to_string(random.below(20)) : "a",
                        NamedParameters{{"revenue", 0.01 * static_cast<double>(random.below(3000))},
                                        {"a parameter with a long name, so that the history is long soon", 1}}});
    }
    tracker.trackEvents(events);
  };
  const auto digest = [this] { return store_->data(HistoryDigest::key).value_or(""); };
  for (int i = 0; i < 40; ++i) {
    random.below(3) == 0 ? lives(older, 250) : lives(store_, 80);
    if (std::string damaged = digest(); !damaged.empty() && random.below(4) == 0) {
      damaged[random.below(random.below(2) == 0 ? 60 : damaged.size())] ^= 1;
      store_->set(HistoryDigest::key, platform::PropertyListValue::Data{damaged});
    }
    EventTracker now(store_, clock_), plain(older, clock_);
    const ConversionValues values = random.next().values();
    ASSERT_EQ(now.findCompletedConversionValues(values, Window::window0),
              plain.findCompletedConversionValues(values, Window::window0))
        << i;
    ASSERT_EQ(now.getTrackedEventNames(), plain.getTrackedEventNames()) << i;
    ASSERT_LT(digest().size(), HistoryDigest::limit + 1000);
  }
  tracker_.clearCompletedEvents();
  lives(store_, 250);
  std::string damaged = digest();
  damaged[10] = 'z';  // a name
  store_->set(HistoryDigest::key, platform::PropertyListValue::Data{damaged});
  EXPECT_FALSE(EventTracker(store_, clock_).areEventsCompleted({std::string(damaged, 10, damaged.find('"', 10) - 10)}));
  tracker_.trackEvent("a", std::nullopt);
  const std::set<std::string> names = tracker_.getTrackedEventNames();
  const std::string history = *store_->data(storeKey);
  store_->set(storeKey, platform::PropertyListValue::Data{"[no JSON" + history.substr(8)});
  EXPECT_EQ(tracker_.getTrackedEventNames(), names) << "the beginning is not read";
  tracker_.clearCompletedEvents();
  EXPECT_EQ(digest(), "");
}

TEST_F(EventTrackerTest, callsWriteOnceAndDoNotReadTheHistoryAgain) {
  tracker_.trackEvents({{"x", {}}, {"y", {}}});
  for (int i = 0; i < 100; ++i) {
    tracker_.trackEvent("e", NamedParameters{{"revenue", i}});
    tracker_.areEventsCompleted({"e"});
    tracker_.findCompletedConversionValues({}, Window::window0);
  }
  EXPECT_EQ(storeCalls_["object"], 1);
  EXPECT_EQ(storeCalls_["set"], 1) << "later calls append";
}

TEST_F(EventTrackerTest, anEventThatTheStoreRefusesIsNotTracked) {
  const std::error_code full = std::make_error_code(std::errc::no_space_on_device);
  const auto trackRefused = [&](const char* event) {
    error_ = full;
    tracker_.trackEvent(event, std::nullopt);
    error_ = {};
    EXPECT_EQ(log_.messages().back(), "error: EventTracker - Failed to store event: " + full.message());
  };
  tracker_.trackEvent("a", std::nullopt);
  trackRefused("b");
  tracker_.trackEvent("c", std::nullopt);
  EXPECT_THAT(tracker_.getTrackedEventNames(), ElementsAre("a", "c"));
  EXPECT_EQ(tracker_.getAllTrackedEvents().size(), 2u);

  // The store keeps the first event of a list in its memory although it could not write it: both must agree on it.
  tracker_.clearCompletedEvents();
  trackRefused("d");
  tracker_.trackEvent("e", std::nullopt);
  EXPECT_EQ(tracker_.getAllTrackedEvents().size(), tracker_.getTrackedEventNames().size());
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
  EXPECT_EQ(tracker_.getAllTrackedEvents().size(), 300u);
}

}  // namespace
