#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <latch>
#include <mutex>
#include <thread>

#include "Platform/Posix/SystemClock.h"
#include "quillmar/simulated/ManualClock.h"

namespace quillmar::platform {
namespace {

using namespace std::chrono_literals;
using simulated::ManualClock;
using simulated::ManualExecutor;

TEST(Executors, runEachItemOfManyThreadsOnceAndNotInsidePost) {
  for (const bool pools : {false, true}) {
    const auto manual = std::make_shared<ManualExecutor>();
    std::shared_ptr<Executor> executor = manual;
    if (pools) {
      executor = std::make_shared<ThreadPoolExecutor>(2);
    }
    std::vector<std::atomic<int>> runs(16'000);
    std::atomic<std::size_t> next{0};
    std::latch left(std::ssize(runs));
    static thread_local bool posting = false;
    const auto post = [&executor](auto work) {
      posting = true;
      executor->post([work] {
        EXPECT_FALSE(posting);
        work();
      });
      posting = false;
    };
    const auto run = [&](std::size_t item) {
      ++runs[item];
      left.count_down();
    };
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (std::size_t item = next.fetch_add(2); item < runs.size(); item = next.fetch_add(2)) {
          post([&, item] {
            post([&, item] { run(item + 1); });
            run(item);
          });
        }
      });
    }
    threads.clear();
    manual->runUntilIdle();
    left.wait();
    executor.reset();  // nothing uses the locals any more
    EXPECT_TRUE(std::ranges::all_of(runs, [](const auto& count) { return count == 1; }));
  }
}

TEST(ThreadPoolExecutor, namesItsThreadsAndMayBeDestroyedByItsOwnWork) {
  // The last work to be destroyed tells that the thread is through with everything.
  const auto dropped = std::make_shared<std::latch>(1);
  std::shared_ptr<void> last(nullptr, [dropped](void*) { dropped->count_down(); });
  auto executor = std::make_shared<ThreadPoolExecutor>(2);
  auto* const raw = executor.get();
  raw->post([executor = std::move(executor), last]() mutable {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    EXPECT_STREQ(name, "quillmar-work");
    executor->post([last] {});
    executor.reset();
  });
  last.reset();
  dropped->wait();
}

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
