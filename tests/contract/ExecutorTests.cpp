#include "quillmar/platform/Executor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>

#include "Platform/Posix/ThreadPoolExecutor.h"
#include "quillmar/simulated/ManualExecutor.h"

namespace quillmar::platform {
namespace {

using namespace std::chrono_literals;
using simulated::ManualExecutor;

class ExecutorContract : public testing::TestWithParam<bool> {
 protected:
  /// Lets the executor run until `done` is set, and ends it, so that nothing uses the test's locals any more.
  void runUntil(std::future<void> done) {
    if (manual_) {
      std::static_pointer_cast<ManualExecutor>(executor_)->runUntilIdle();
    }
    ASSERT_EQ(done.wait_for(30s), std::future_status::ready);
    executor_.reset();
  }

  /// Fails when the work runs inside of this call.
  void post(std::function<void()> work) {
    posting = true;
    executor_->post([work = std::move(work)] {
      EXPECT_FALSE(posting);
      work();
    });
    posting = false;
  }

  static inline thread_local bool posting = false;
  const bool manual_ = GetParam();
  std::shared_ptr<Executor> executor_ =
      manual_ ? std::shared_ptr<Executor>(std::make_shared<ManualExecutor>()) : std::make_shared<ThreadPoolExecutor>(2);
};

INSTANTIATE_TEST_SUITE_P(PoolAndManual, ExecutorContract, testing::Bool());

TEST_P(ExecutorContract, eachItemOfManyThreadsRunsOnceAndNotInsidePost) {
  constexpr std::size_t perThread = 4000;
  std::vector<std::atomic<int>> runs(4 * perThread);
  std::atomic<std::size_t> left{runs.size()};
  std::promise<void> done;
  const auto run = [&](std::size_t item) {
    ++runs[item];
    if (--left == 0) {
      done.set_value();
    }
  };
  std::vector<std::jthread> threads;
  for (std::size_t first = 0; first < runs.size(); first += perThread) {
    threads.emplace_back([&, first] {
      for (std::size_t item = first; item < first + perThread; item += 2) {
        post([&, item] {
          post([&, item] { run(item + 1); });
          run(item);
        });
      }
    });
  }
  threads.clear();
  runUntil(done.get_future());
  EXPECT_TRUE(std::ranges::all_of(runs, [](const auto& count) { return count == 1; }));
}

TEST_P(ExecutorContract, whatHasNotStartedIsDropped) {
  const auto token = std::make_shared<int>();
  std::atomic<int> runs{0};
  std::promise<void> release;
  const auto released = release.get_future().share();
  for (int i = 0; i < 2 && !manual_; ++i) {  // both threads are kept busy until the executor goes
    std::promise<void> started;
    executor_->post([&started, released] {
      started.set_value();
      released.wait();
    });
    started.get_future().wait();
  }
  for (int i = 0; i < 100; ++i) {
    executor_->post([token, &runs] { ++runs; });
  }
  std::jthread destroyer([this] { executor_.reset(); });
  release.set_value();  // may come before the pool is told to stop, so some of the items may run
  destroyer.join();
  EXPECT_EQ(token.use_count(), 1) << "run or dropped, all work is destroyed";
  EXPECT_TRUE(runs == 0 || !manual_) << runs;
}

TEST(ThreadPoolExecutor, mayBeDestroyedByItsOwnWork) {
  // The last work to be destroyed tells that the thread is through with everything.
  const auto dropped = std::make_shared<std::promise<void>>();
  std::future<void> isDropped = dropped->get_future();
  std::shared_ptr<void> last(nullptr, [dropped](void*) { dropped->set_value(); });
  auto executor = std::make_shared<ThreadPoolExecutor>(2);
  auto* const raw = executor.get();
  raw->post([executor = std::move(executor), last]() mutable {
    executor->post([last] {});
    executor.reset();
  });
  last.reset();
  EXPECT_EQ(isDropped.wait_for(30s), std::future_status::ready);
}

}  // namespace
}  // namespace quillmar::platform
