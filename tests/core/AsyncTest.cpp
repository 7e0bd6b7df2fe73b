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

TEST(SerialExecutor, keepsTheOrderAndLetsOthersHaveTheirTurn) {
  const auto lower = std::make_shared<ManualExecutor>();
  const auto serial = std::make_shared<SerialExecutor>(lower, "test");
  std::vector<int> order;
  bool starved = true;
  for (int i = 0; i < 100; ++i) {
    serial->post([&order, i] { order.push_back(i); });
  }
  serial->post([&] { serial->post([&order] { order.push_back(100); }); });
  lower->post([&] { starved = order.size() >= 100; });
  lower->runUntilIdle();
  EXPECT_EQ(order.size(), 101u);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_FALSE(starved);
}

/// Callbacks that tasks wait for, to be called or dropped by the test.
struct Gate {
  std::vector<std::function<void(int)>> callbacks;
  std::vector<int> results;
  std::vector<int> started;
};

Task<void> waitAtGate(Gate& gate, int number) {
  gate.started.push_back(number);
  std::function<void(std::function<void(int)>)> start = [&gate](std::function<void(int)> callback) {
    gate.callbacks.push_back(std::move(callback));
  };
  gate.results.push_back(co_await awaitCallback<int>(std::move(start)));
}

TEST(TaskQueue, startsInOrderUpToTheLimitAndGivesSlotsOfDroppedTasksBack) {
  Gate gate;
  const auto executor = std::make_shared<ManualExecutor>();
  const auto activity = std::make_shared<ActivityCounter>();
  const auto queue = std::make_shared<TaskQueue>(std::make_shared<SerialExecutor>(executor, "test"), 2, activity);
  for (int i = 0; i < 4; ++i) {
    queue->post([&gate, i] { return waitAtGate(gate, i); });
  }
  EXPECT_EQ(activity->count(), 4);
  executor->runUntilIdle();
  EXPECT_THAT(gate.started, ElementsAre(0, 1));
  gate.callbacks[1](11);
  executor->runUntilIdle();
  EXPECT_THAT(gate.started, ElementsAre(0, 1, 2));
  gate.callbacks[0] = nullptr;  // the platform drops the callback: the task ends there
  executor->runUntilIdle();
  EXPECT_THAT(gate.started, ElementsAre(0, 1, 2, 3));
  gate.callbacks[2](12);
  gate.callbacks[3](13);
  executor->runUntilIdle();
  EXPECT_THAT(gate.results, ElementsAre(11, 12, 13));
  EXPECT_EQ(activity->count(), 0);
  queue->post([]() -> Task<void> { throw std::runtime_error("no task"); });
  executor->runUntilIdle();
  EXPECT_EQ(activity->count(), 0) << "a task that cannot be made gives its place back";
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

Task<void> goThereAndBack(std::shared_ptr<platform::Executor> there, std::vector<std::string>& notes, bool fail) {
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
  spawn(here, goThereAndBack(there, notes, true));
  while (here->runOne() || there->runOne()) {
  }
  EXPECT_THAT(notes, ElementsAre("before", "there", "after", "before", "there"));
  EXPECT_THAT(log.messages(), ElementsAre("error: Task - Ended by an unexpected error: boom"));
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
  Activity first(counter);
  EXPECT_FALSE(counter->waitUntilIdle(1ms));
  first = Activity(counter);
  EXPECT_EQ(counter->count(), 1) << "what is assigned over has ended";
  const std::jthread ending([activity = std::move(first)]() mutable { activity.end(); });
  EXPECT_TRUE(counter->waitUntilIdle(60s));
}

}  // namespace
