#include "quillmar/platform/Executor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Posix/ThreadPoolExecutor.h"
#include "quillmar/simulated/ManualExecutor.h"

namespace quillmar::platform {
namespace {

using simulated::ManualExecutor;

struct Adapter {
  const char* name;
  std::shared_ptr<Executor> (*make)();
};

class ExecutorContract : public testing::TestWithParam<Adapter> {
 protected:
  /// Lets the executor run until `done` is set, and ends it, so that nothing uses the test's locals any more.
  void runUntil(std::future<void> done) {
    if (auto* manual = dynamic_cast<ManualExecutor*>(executor_.get())) {
      manual->runUntilIdle();
    }
    ASSERT_EQ(done.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    executor_.reset();
  }

  std::shared_ptr<Executor> executor_ = GetParam().make();
};

TEST_P(ExecutorContract, eachItemOfManyThreadsRunsOnce) {
  constexpr std::size_t threadCount = 4;
  constexpr std::size_t perThread = 2000;
  std::vector<std::atomic<int>> runs(threadCount * perThread * 2);
  std::atomic<std::size_t> left{runs.size()};
  std::promise<void> done;
  const auto run = [&](std::size_t item) {
    ++runs[item];
    if (--left == 0) {
      done.set_value();
    }
  };
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([&, thread] {
      for (std::size_t i = 0; i < perThread; ++i) {
        const std::size_t item = 2 * (thread * perThread + i);
        executor_->post([&, item] {
          executor_->post([&, item] { run(item + 1); });
          run(item);
        });
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  runUntil(done.get_future());
  for (const auto& count : runs) {
    ASSERT_EQ(count, 1);
  }
}

TEST_P(ExecutorContract, postNeverRunsTheWorkItself) {
  std::promise<void> done;
  std::mutex mutex;
  const auto guarded = [&](const std::function<void()>& next) {
    return [&, next] {
      const std::lock_guard lock(mutex);  // deadlocks, or trips a sanitizer, inside the other one's post()
      next();
    };
  };
  {
    const std::lock_guard lock(mutex);
    executor_->post(guarded([&] { executor_->post(guarded([&] { done.set_value(); })); }));
  }
  runUntil(done.get_future());
}

TEST_P(ExecutorContract, whatHasNotStartedIsDropped) {
  const auto token = std::make_shared<int>();
  std::atomic<int> runs{0};
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  std::vector<std::promise<void>> running(2);
  const bool isPool = dynamic_cast<ManualExecutor*>(executor_.get()) == nullptr;
  if (isPool) {  // both threads are kept busy until the executor goes
    for (auto& started : running) {
      executor_->post([&started, released] {
        started.set_value();
        released.wait();
      });
    }
    for (auto& started : running) {
      ASSERT_EQ(started.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    }
  }
  for (int i = 0; i < 100; ++i) {
    executor_->post([token, &runs] { ++runs; });
  }
  EXPECT_EQ(token.use_count(), 101);
  std::thread destroyer([this] { executor_.reset(); });
  if (isPool) {
    // The destructor stops the pool before it waits; only then may the threads go on. There is nothing to see of that
    // from outside, so the count of runs is bounded, not zero.
    release.set_value();
  }
  destroyer.join();
  EXPECT_EQ(token.use_count(), 1) << "run or dropped, all work is destroyed";
  if (!isPool) {
    EXPECT_EQ(runs, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Adapters, ExecutorContract,
    testing::Values(Adapter{"Manual", []() -> std::shared_ptr<Executor> { return std::make_shared<ManualExecutor>(); }},
                    Adapter{"ThreadPool",
                            []() -> std::shared_ptr<Executor> { return std::make_shared<ThreadPoolExecutor>(); }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ManualExecutor, runsInOrderAndOneAtATime) {
  ManualExecutor executor;
  std::string order;
  executor.post([&] {
    order += 'a';
    executor.post([&] { order += 'c'; });
  });
  executor.post([&] { order += 'b'; });
  EXPECT_TRUE(executor.runOne());
  EXPECT_EQ(order, "a");
  EXPECT_EQ(executor.runUntilIdle(), 2U);
  EXPECT_EQ(order, "abc");
  EXPECT_FALSE(executor.runOne());
}

TEST(ThreadPoolExecutor, twoItemsRunAtTheSameTime) {
  std::promise<void> second;
  std::future<void> secondRan = second.get_future();
  std::promise<std::future_status> first;
  std::future<std::future_status> firstSaw = first.get_future();
  ThreadPoolExecutor executor;
  executor.post([&] { first.set_value(secondRan.wait_for(std::chrono::seconds(30))); });
  executor.post([&] { second.set_value(); });
  EXPECT_EQ(firstSaw.get(), std::future_status::ready);
}

TEST(ThreadPoolExecutor, mayBeDestroyedByItsOwnWork) {
  // The last work to be destroyed tells that the thread is through with everything.
  const auto dropped = std::make_shared<std::promise<void>>();
  std::future<void> isDropped = dropped->get_future();
  std::shared_ptr<void> last(nullptr, [dropped](void*) { dropped->set_value(); });
  auto executor = std::make_shared<ThreadPoolExecutor>();
  auto* const raw = executor.get();
  raw->post([executor = std::move(executor), last]() mutable {
    executor->post([last] {});
    executor.reset();
  });
  last.reset();
  EXPECT_EQ(isDropped.wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

}  // namespace
}  // namespace quillmar::platform
