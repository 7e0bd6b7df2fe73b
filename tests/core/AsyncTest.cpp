#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>

#include "Async/ActivityCounter.h"
#include "Async/SerialExecutor.h"
#include "Async/Task.h"
#include "Async/TaskQueue.h"
#include "quillmar/simulated/ManualExecutor.h"
#include "support/LogCapture.h"

using namespace quillmar;
using namespace std::chrono_literals;
using simulated::ManualExecutor;
using testing::ElementsAre;

namespace {

/// Runs each item on a thread of its own; waits for all of them at the end.
class ThreadsExecutor : public platform::Executor {
 public:
  ~ThreadsExecutor() override { join(); }
  void post(std::function<void()> work) override {
    const std::lock_guard lock(mutex_);
    threads_.emplace_back(std::move(work));
  }
  void join() {
    for (std::vector<std::thread> threads; threads = take(), !threads.empty();) {
      for (std::thread& thread : threads) {
        thread.join();
      }
    }
  }

 private:
  std::vector<std::thread> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(threads_, {});
  }
  std::mutex mutex_;
  std::vector<std::thread> threads_;
};

TEST(SerialExecutor, keepsTheOrderAndLetsOthersHaveTheirTurn) {
  const auto lower = std::make_shared<ManualExecutor>();
  const auto serial = std::make_shared<SerialExecutor>(lower, "test");
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) {
    serial->post([&order, i] { order.push_back(i); });
  }
  serial->post([&] { serial->post([&order] { order.push_back(101); }); });
  lower->post([&order] { order.push_back(-1); });
  lower->runUntilIdle();
  ASSERT_EQ(order.size(), 102u);
  const auto other = std::find(order.begin(), order.end(), -1);
  EXPECT_LT(other - order.begin(), 100) << "a full queue must not starve the executor";
  order.erase(other);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_EQ(order.back(), 101);
}

/// Callbacks that tasks wait for, to be called or dropped by the test.
struct Gate {
  std::vector<std::function<void(int)>> callbacks;
  std::vector<int> results;
  std::vector<int> started;
};

Task<void> waitAtGate(std::shared_ptr<Gate> gate, int number, std::shared_ptr<int> alive) {
  gate->started.push_back(number);
  std::function<void(std::function<void(int)>)> start = [weak =
                                                             std::weak_ptr(gate)](std::function<void(int)> callback) {
    weak.lock()->callbacks.push_back(std::move(callback));
  };
  const int result = co_await awaitCallback<int>(std::move(start));
  gate->results.push_back(result + *alive);
}

TEST(TaskQueue, startsInOrderUpToTheLimitAndGivesSlotsOfDroppedTasksBack) {
  const auto executor = std::make_shared<ManualExecutor>();
  const auto activity = std::make_shared<ActivityCounter>();
  const auto queue = std::make_shared<TaskQueue>(executor, "test", 2, activity);
  const auto gate = std::make_shared<Gate>();
  const auto alive = std::make_shared<int>(0);
  for (int i = 0; i < 5; ++i) {
    queue->post([gate, i, alive] { return waitAtGate(gate, i, alive); });
  }
  EXPECT_EQ(activity->count(), 5);
  executor->runUntilIdle();
  EXPECT_THAT(gate->started, ElementsAre(0, 1));
  gate->callbacks[1](11);
  executor->runUntilIdle();
  EXPECT_THAT(gate->started, ElementsAre(0, 1, 2));
  gate->callbacks[0] = nullptr;  // the platform drops the callback: the task ends there
  executor->runUntilIdle();
  EXPECT_THAT(gate->started, ElementsAre(0, 1, 2, 3));
  gate->callbacks[2](12);
  gate->callbacks[3](13);
  executor->runUntilIdle();
  gate->callbacks[4](14);
  executor->runUntilIdle();
  EXPECT_THAT(gate->results, ElementsAre(11, 12, 13, 14));
  EXPECT_EQ(activity->count(), 0);
  queue->post([gate, alive]() -> Task<void> { throw std::runtime_error("no task"); });
  queue->post([gate, alive] { return waitAtGate(gate, 6, alive); });
  executor->runUntilIdle();
  EXPECT_EQ(gate->started.back(), 6) << "a task that cannot be made gives its place back";
  gate->callbacks.clear();
  executor->runUntilIdle();
  EXPECT_EQ(activity->count(), 0);
}

TEST(TaskQueue, neverRunsMoreThanTheLimitOnThreads) {
  const auto executor = std::make_shared<ThreadsExecutor>();
  const auto activity = std::make_shared<ActivityCounter>();
  const auto queue = std::make_shared<TaskQueue>(executor, "test", 3, activity);
  const auto gate = std::make_shared<Gate>();
  for (int i = 0; i < 50; ++i) {
    queue->post([gate, i]() -> Task<void> {
      gate->started.push_back(i);  // the queue is serial
      return sleepFor(std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{}), 1s);  // dropped at once
    });
  }
  EXPECT_TRUE(activity->waitUntilIdle(60s));
  executor->join();
  EXPECT_EQ(gate->started.size(), 50u);
  EXPECT_TRUE(std::is_sorted(gate->started.begin(), gate->started.end()));
}

Task<void> collect(std::function<void(std::function<void(int)>)> start, std::vector<int>& results,
                   std::shared_ptr<int> alive) {
  results.push_back(co_await awaitCallback<int>(std::move(start)) + *alive);
}

TEST(AwaitCallback, resumesOnceOnItsOwnExecutorWhereverTheCallbackComesFrom) {
  using Callback = std::function<void(int)>;
  const struct {
    const char* what;
    std::function<void(Callback)> start;
    std::vector<int> expected;
  } rows[] = {
      {"inside start", [](const Callback& callback) { callback(1); }, {1}},
      {"twice", [](const Callback& callback) { callback(1), callback(2); }, {1}},
      {"from copies", [](const Callback& callback) { Callback(callback)(1), Callback(callback)(2); }, {1}},
      {"another thread", [](const Callback& callback) { std::thread([callback] { callback(3); }).join(); }, {3}},
      {"threads that race",
       [](const Callback& callback) {
         std::thread first([callback] { callback(4); });
         callback(4);
         first.join();
       },
       {4}},
      {"never", [](const Callback&) {}, {}},
  };
  for (const auto& row : rows) {
    const auto executor = std::make_shared<ManualExecutor>();
    std::vector<int> results;
    auto alive = std::make_shared<int>(0);
    const std::weak_ptr<int> watch = alive;
    spawn(executor, collect(row.start, results, std::move(alive)));
    EXPECT_FALSE(watch.expired()) << row.what;
    executor->runOne();
    EXPECT_THAT(results, testing::IsEmpty()) << row.what << ": not inside the callback";
    executor->runUntilIdle();
    EXPECT_EQ(results, row.expected) << row.what;
    EXPECT_TRUE(watch.expired()) << row.what << ": the task is gone";
  }
}

Task<void> note(std::vector<std::string>& notes, std::string text, bool fail) {
  notes.push_back(std::move(text));
  if (fail) {
    throw std::runtime_error("boom");
  }
  co_return;
}

Task<void> goThereAndBack(std::shared_ptr<platform::Executor> there, std::vector<std::string>& notes, bool fail,
                          [[maybe_unused]] std::shared_ptr<int> alive = nullptr) {
  notes.emplace_back("before");
  Task<void> task = note(notes, "there", fail);
  co_await runOn(std::move(there), std::move(task));
  notes.emplace_back("after");
}

TEST(Task, runOnRunsThereComesBackAndPassesExceptionsOn) {
  const test::LogCapture log;
  const auto here = std::make_shared<ManualExecutor>();
  const auto there = std::make_shared<ManualExecutor>();
  std::vector<std::string> notes;
  spawn(here, goThereAndBack(there, notes, false));
  here->runUntilIdle();
  EXPECT_THAT(notes, ElementsAre("before"));
  there->runUntilIdle();
  EXPECT_THAT(notes, ElementsAre("before", "there"));
  here->runUntilIdle();
  EXPECT_THAT(notes, ElementsAre("before", "there", "after"));
  notes.clear();
  spawn(here, goThereAndBack(there, notes, true));
  while (here->runOne() || there->runOne()) {
  }
  EXPECT_THAT(notes, ElementsAre("before", "there"));
  EXPECT_THAT(log.messages(), ElementsAre("error: Task - Ended by an unexpected error: boom"));
}

/// Has shut down.
struct ClosedExecutor : platform::Executor {
  void post(std::function<void()>) override {}
};

TEST(Task, runOnAnExecutorThatHasShutDownDropsTheCaller) {
  const auto here = std::make_shared<ManualExecutor>();
  std::vector<std::string> notes;
  auto alive = std::make_shared<int>(0);
  const std::weak_ptr<int> watch = alive;
  spawn(here, goThereAndBack(std::make_shared<ClosedExecutor>(), notes, false, std::move(alive)));
  here->runUntilIdle();
  EXPECT_TRUE(watch.expired());
  EXPECT_THAT(notes, ElementsAre("before"));
}

Task<void> sleepAndNote(std::shared_ptr<platform::Clock> clock, std::vector<std::string>& notes,
                        [[maybe_unused]] std::shared_ptr<int> alive) {
  Task<void> sleep = sleepFor(std::move(clock), 10s);
  co_await std::move(sleep);
  notes.emplace_back("awake");
}

TEST(Task, sleepsOnTheClockAndGoesWithIt) {
  const auto executor = std::make_shared<ManualExecutor>();
  auto clock = std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{}, executor);
  std::vector<std::string> notes;
  spawn(executor, sleepAndNote(clock, notes, nullptr));
  clock->advance(9999ms);
  EXPECT_THAT(notes, testing::IsEmpty());
  clock->advance(1ms);
  EXPECT_THAT(notes, ElementsAre("awake"));
  auto alive = std::make_shared<int>(0);
  const std::weak_ptr<int> watch = alive;
  spawn(executor, sleepAndNote(clock, notes, std::move(alive)));
  executor->runUntilIdle();
  EXPECT_FALSE(watch.expired());
  clock.reset();
  executor->runUntilIdle();
  EXPECT_TRUE(watch.expired()) << "clock and task must not keep each other alive";
}

TEST(ActivityCounter, waitsForTheLastActivity) {
  const auto counter = std::make_shared<ActivityCounter>();
  EXPECT_TRUE(counter->waitUntilIdle(0ms));
  Activity first(counter);
  Activity second(std::move(first));
  EXPECT_FALSE(counter->waitUntilIdle(1ms));
  first = Activity(counter);
  first = std::move(second);
  EXPECT_EQ(counter->count(), 1) << "what is assigned over has ended";
  std::thread ending([activity = std::move(first)]() mutable { activity.end(); });
  EXPECT_TRUE(counter->waitUntilIdle(60s));
  ending.join();
}

}  // namespace
