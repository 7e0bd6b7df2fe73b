#include "quillmar/platform/Clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/Posix/SystemClock.h"
#include "quillmar/simulated/ManualClock.h"

namespace quillmar::platform {
namespace {

using namespace std::chrono_literals;
using simulated::ManualClock;
using simulated::ManualExecutor;

const Clock::TimePoint start{1'795'000'000s};

struct Adapter {
  const char* name;
  std::shared_ptr<Clock> (*make)();
};

class ClockContract : public testing::TestWithParam<Adapter> {
 protected:
  ~ClockContract() override { clock_.reset(); }  // ends the threads before what they use goes

  void note(char event) {
    const std::lock_guard lock(mutex_);
    events_ += event;
    noted_.notify_all();
  }

  /// Lets the time pass until that many events are noted.
  std::string waitFor(std::size_t count) {
    if (auto* manual = dynamic_cast<ManualClock*>(clock_.get())) {
      manual->advance(1s);
    }
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(noted_.wait_for(lock, 30s, [&] { return events_.size() >= count; })) << events_;
    return events_;
  }

  std::mutex mutex_;
  std::condition_variable noted_;
  std::string events_;
  std::shared_ptr<Clock> clock_ = GetParam().make();
};

TEST_P(ClockContract, timersFireInTheirOrderAndNotEarly) {
  // Each but the first is set when its predecessor fires, except for the one that is set first and due last.
  const auto began = clock_->now();
  clock_->after(60ms, [this] { note('d'); });
  clock_->after(-5s, [this] {
    note('a');
    clock_->after(0s, [this] {
      note('b');
      clock_->after(5ms, [this] { note('c'); });
    });
  });
  EXPECT_THAT(waitFor(4), testing::AnyOf("abcd", "abdc", "adbc", "dabc")) << "a slow machine may be late";
  if (dynamic_cast<ManualClock*>(clock_.get()) != nullptr) {
    EXPECT_EQ(events_, "abcd");
  }
  EXPECT_GE(clock_->now() - began, 50ms) << "with room for a wall clock that is being slewed";
}

TEST_P(ClockContract, callbackIsNeverCalledInsideAfter) {
  std::unique_lock lock(mutex_);
  const auto timer = clock_->after(0s, [this] { note('a'); });  // needs the mutex
  EXPECT_EQ(events_, "");
  lock.unlock();
  EXPECT_EQ(waitFor(1), "a");
  clock_->cancel(timer);
}

TEST_P(ClockContract, cancelledTimersDoNotFireAndLoseTheirCallback) {
  const auto token = std::make_shared<int>();
  const auto later = clock_->after(500h, [token] { FAIL(); });
  const auto soon = clock_->after(5ms, [this, token] { note('x'); });
  EXPECT_NE(later, soon);
  clock_->cancel(soon);
  clock_->cancel(later);
  EXPECT_EQ(token.use_count(), 1);
  clock_->cancel(later);
  clock_->cancel(987654321);
  clock_->after(10ms, [this] { note('a'); });
  EXPECT_EQ(waitFor(1), "a");
}

TEST_P(ClockContract, timerMayCancelItselfWhileItFires) {
  std::atomic<Clock::TimerId> timer{0};
  timer = clock_->after(20ms, [&] {
    clock_->cancel(timer);
    note('a');
  });
  EXPECT_EQ(waitFor(1), "a");
  clock_.reset();
}

TEST_P(ClockContract, clockThatGoesDropsItsTimers) {
  const auto token = std::make_shared<int>();
  for (const auto delay : {std::chrono::nanoseconds(1h), std::chrono::nanoseconds::max()}) {
    clock_->after(delay, [token] { FAIL(); });
  }
  EXPECT_EQ(token.use_count(), 3);
  clock_.reset();
  EXPECT_EQ(token.use_count(), 1);
}

INSTANTIATE_TEST_SUITE_P(Adapters, ClockContract,
                         testing::Values(Adapter{"Manual",
                                                 []() -> std::shared_ptr<Clock> {
                                                   return std::make_shared<ManualClock>(
                                                       start, std::make_shared<ManualExecutor>());
                                                 }},
                                         Adapter{"System",
                                                 []() -> std::shared_ptr<Clock> {
                                                   return std::make_shared<SystemClock>(
                                                       std::make_shared<ThreadPoolExecutor>());
                                                 }}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ManualClock, advanceFiresEachTimerAtItsOwnTimeAndCranksTheExecutor) {
  const auto executor = std::make_shared<ManualExecutor>();
  ManualClock clock(start, executor);
  std::vector<std::string> events;
  const auto note = [&](const char* name) { events.push_back(name + std::to_string((clock.now() - start) / 1s)); };
  executor->post([&] { clock.after(10s, [&] { note("early "); }); });
  clock.after(20s, [&] { note("second "); });
  clock.after(20s, [&] { note("third "); });
  clock.after(10s, [&] {
    executor->post([&] {
      note("work ");
      clock.after(10s, [&] { note("fourth "); });
    });
  });
  clock.after(31s, [&] { note("late "); });
  clock.advance(30s);
  EXPECT_THAT(events, testing::ElementsAre("work 10", "early 10", "second 20", "third 20", "fourth 20"));
  EXPECT_EQ(clock.now(), start + 30s);
  EXPECT_EQ(clock.pendingTimers(), 1U);
  clock.setNow(start - 1h);  // timers do not care
  clock.advance(1s);
  EXPECT_EQ(events.back(), "late -3599");
  clock.advanceTo(start);
  EXPECT_EQ(clock.now(), start);
  clock.advanceTo(start - 1s);
  EXPECT_EQ(clock.now(), start) << "time does not go back by itself";
}

TEST(ManualClock, timeZoneIsAFunctionOfTheInstant) {
  ManualClock clock(start);
  EXPECT_EQ(clock.localOffset(start), 0s);
  clock.setTimeZone([](Clock::TimePoint instant) { return instant < start ? 3600s : 7200s; });
  EXPECT_EQ(clock.localOffset(start - 1s), 3600s);
  EXPECT_EQ(clock.localOffset(start), 7200s);
}

TEST(SystemClockDeathTest, localOffsetFollowsTheTimeZone) {
  // The zone is read once a process, so each row needs a process of its own.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const struct {
    const char* zone;
    int january, july;
  } rows[] = {{"QQQ-5:30", 19800, 19800}, {"EST5EDT,M3.2.0,M11.1.0", -18000, -14400}};
  for (const auto& row : rows) {
    EXPECT_EXIT(
        {
          ::setenv("TZ", row.zone, 1);
          const SystemClock clock(nullptr);
          const auto january = clock.localOffset(Clock::TimePoint(1'768'478'400s - 1ns));
          const auto july = clock.localOffset(Clock::TimePoint(1'784'116'800s));
          ::_exit(january.count() == row.january && july.count() == row.july ? 42 : 1);
        },
        testing::ExitedWithCode(42), "")
        << row.zone;
  }
}

}  // namespace
}  // namespace quillmar::platform
