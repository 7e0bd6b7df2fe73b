#include "quillmar/platform/Clock.h"

#include <gmock/gmock.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "Platform/Posix/SystemClock.h"
#include "quillmar/simulated/ManualClock.h"

namespace quillmar::platform {
namespace {

using namespace std::chrono_literals;
using simulated::ManualClock;

class ClockContract : public testing::TestWithParam<bool> {
 protected:
  ~ClockContract() override { clock_.reset(); }  // ends the threads before what they use goes

  void note(char event) {
    const std::lock_guard lock(mutex_);
    events_ += event;
    noted_.notify_all();
  }

  /// Lets the time pass until that many events are noted.
  std::string waitFor(std::size_t count) {
    if (manual_) {
      std::static_pointer_cast<ManualClock>(clock_)->advance(1s);
    }
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(noted_.wait_for(lock, 30s, [&] { return events_.size() >= count; })) << events_;
    return events_;
  }

  const bool manual_ = GetParam();
  std::mutex mutex_;
  std::condition_variable noted_;
  std::string events_;
  std::shared_ptr<Clock> clock_ = manual_ ? std::shared_ptr<Clock>(std::make_shared<ManualClock>(Clock::TimePoint()))
                                          : std::make_shared<SystemClock>(std::make_shared<ThreadPoolExecutor>(2));
};

INSTANTIATE_TEST_SUITE_P(SystemAndManual, ClockContract, testing::Bool());

TEST_P(ClockContract, timersFireInTheirOrderNotEarlyAndNotInsideAfter) {
  const auto began = clock_->now();
  std::unique_lock lock(mutex_);  // a callback inside after() would wait for it for ever
  clock_->after(60ms, [this] { note('d'); });
  clock_->after(-5s, [this] {
    note('a');
    clock_->after(0s, [this] {
      note('b');
      clock_->after(5ms, [this] { note('c'); });
    });
  });
  EXPECT_EQ(events_, "");
  lock.unlock();
  const std::string events = waitFor(4);
  EXPECT_TRUE(events == "abcd" || !manual_) << events;
  EXPECT_THAT(events, testing::AnyOf("abcd", "abdc", "adbc", "dabc")) << "a slow machine may be late";
  EXPECT_GE(clock_->now() - began, 50ms) << "with room for a wall clock that is being slewed";
}

TEST_P(ClockContract, timersThatAreCancelledOrOutliveTheClockLoseTheirCallback) {
  const auto token = std::make_shared<int>();
  const auto later = clock_->after(500h, [token] { FAIL(); });
  const auto soon = clock_->after(5ms, [this, token] { note('x'); });
  for (const Clock::TimerId cancelled : {soon, later, later, Clock::TimerId{987654321}}) {
    clock_->cancel(cancelled);
  }
  EXPECT_EQ(token.use_count(), 1);
  std::atomic<Clock::TimerId> firing{0};
  firing = clock_->after(20ms, [&] {
    clock_->cancel(firing);
    note('a');
  });
  EXPECT_EQ(waitFor(1), "a");
  clock_->after(1h, [token] { FAIL(); });
  clock_->after(std::chrono::nanoseconds::max(), [token] { FAIL(); });
  clock_.reset();
  EXPECT_EQ(token.use_count(), 1);
}

}  // namespace
}  // namespace quillmar::platform
