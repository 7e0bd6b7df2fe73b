#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>

#include "Async/TaskQueue.h"
#include "support/LogCapture.h"

using namespace quillmar;
using simulated::ManualExecutor;
using testing::ElementsAre;

namespace {

TEST(SerialExecutor, keepsTheOrderAndLetsOthersHaveTheirTurn) {
  const auto lower = std::make_shared<ManualExecutor>();
  const auto serial = std::make_shared<SerialExecutor>(lower, "test");
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) {
    serial->post([&order, i] { order.push_back(i); });
  }
  serial->post([&] { serial->post([&order] { order.push_back(100); }); });
  std::size_t doneBefore = 0;
  lower->post([&] { doneBefore = order.size(); });
  lower->runUntilIdle();
  EXPECT_TRUE(order.size() == 101 && std::is_sorted(order.begin(), order.end()));
  EXPECT_LT(doneBefore, 100u);
}

using Callback = std::function<void(int)>;

Task<void> collect(std::function<void(Callback)> start, std::vector<int>& results,
                   [[maybe_unused]] std::shared_ptr<int> alive) {
  results.push_back(co_await awaitCallback<int>(std::move(start)));
}

TEST(TaskQueue, startsUpToTheLimitAndGivesSlotsOfDroppedTasksBack) {
  std::vector<Callback> callbacks;
  std::vector<int> results;
  const auto executor = std::make_shared<ManualExecutor>();
  const auto activity = std::make_shared<ActivityCounter>();
  const auto queue = std::make_shared<TaskQueue>(std::make_shared<SerialExecutor>(executor, "test"), 2, activity);
  for (int i = 0; i < 4; ++i) {
    queue->post([&] {
      return collect([&](Callback callback) { callbacks.push_back(std::move(callback)); }, results, nullptr);
    });
  }
  EXPECT_EQ(activity->count(), 4);
  const auto startedAfter = [&](const auto& step) {
    step();
    executor->runUntilIdle();
    return callbacks.size();
  };
  EXPECT_EQ(startedAfter([] {}), 2u);
  EXPECT_EQ(startedAfter([&] { callbacks[1](11); }), 3u);
  EXPECT_EQ(startedAfter([&] { callbacks[0] = nullptr; }), 4u) << "dropped by the platform: the task ends there";
  callbacks[2](12);
  callbacks[3](13);
  queue->post([]() -> Task<void> { throw std::runtime_error("a task that cannot be made gives its place back"); });
  executor->runUntilIdle();
  EXPECT_THAT(results, ElementsAre(11, 12, 13));
  EXPECT_EQ(activity->count(), 0);
}

TEST(AwaitCallback, resumesOnceOnItsOwnExecutorWhereverTheCallbackComesFrom) {
  const std::tuple<const char*, std::function<void(Callback)>, std::vector<int>> rows[] = {
      {"inside start, twice", [](const Callback& callback) { callback(1), callback(2); }, {1}},
      {"threads that race",
       [](const Callback& callback) {
         const std::jthread first([callback] { callback(4); });
         callback(4);
       },
       {4}},
  };
  for (const auto& [what, start, expected] : rows) {
    const auto executor = std::make_shared<ManualExecutor>();
    std::vector<int> results;
    auto alive = std::make_shared<int>(0);
    const std::weak_ptr<int> watch = alive;
    spawn(executor, collect(start, results, std::move(alive)));
    EXPECT_FALSE(watch.expired()) << what;
    executor->runOne();
    EXPECT_THAT(results, testing::IsEmpty()) << what << ": not inside the callback";
    executor->runUntilIdle();
    EXPECT_EQ(results, expected) << what;
    EXPECT_TRUE(watch.expired()) << what << ": the task is gone";
  }
}

Task<void> note(std::string& notes, bool fail) {
  notes += "there ";
  if (fail) {
    throw std::runtime_error("boom");
  }
  co_return;
}

Task<void> goThereAndBack(std::shared_ptr<platform::Executor> there, std::string& notes, bool fail) {
  Task<void> task = note(notes, fail);
  co_await runOn(std::move(there), std::move(task));
  notes += "after ";
}

TEST(Task, runOnRunsThereComesBackAndPassesExceptionsOn) {
  const test::LogCapture log;
  const auto here = std::make_shared<ManualExecutor>(), there = std::make_shared<ManualExecutor>();
  for (const bool fail : {false, true}) {
    std::string notes;
    spawn(here, goThereAndBack(there, notes, fail));
    here->runUntilIdle();
    EXPECT_EQ(notes, "");
    there->runUntilIdle();
    EXPECT_EQ(notes, "there ");
    here->runUntilIdle();
    EXPECT_EQ(notes, fail ? "there " : "there after ");
  }
  EXPECT_THAT(log.messages(), ElementsAre("error: Task - Ended by an unexpected error: boom"));
}

}  // namespace
