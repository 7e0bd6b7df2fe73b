#include "Async/Task.h"

#include <exception>

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"

namespace quillmar {

namespace {

// The clock is held weakly while its timer holds the task, so that the two do not keep each other alive.
Task<void> sleepOn(std::weak_ptr<platform::Clock> weakClock, std::chrono::nanoseconds duration) {
  std::function<void(std::function<void(bool)>)> start = [weakClock, duration](std::function<void(bool)> wake) {
    if (const auto clock = weakClock.lock()) {
      clock->after(duration, [wake = std::move(wake)] { wake(true); });
    }
  };
  co_await awaitCallback<bool>(std::move(start));
}

}  // namespace

Task<void> sleepFor(std::shared_ptr<platform::Clock> clock, std::chrono::nanoseconds duration) {
  return sleepOn(clock, duration);
}

Task<void> runOn(std::shared_ptr<platform::Executor> executor, Task<void> task) {
  const TaskExecutor here = co_await boost::asio::this_coro::executor;
  if (here.seam() == executor) {
    co_await std::move(task);
    co_return;
  }
  const TaskExecutor there(std::move(executor));
  const boost::asio::use_awaitable_t<TaskExecutor> token;
  co_await boost::asio::co_spawn(there, std::move(task), token);
}

void spawn(const std::shared_ptr<platform::Executor>& executor, Task<void> task) {
  boost::asio::co_spawn(TaskExecutor(executor), std::move(task), [](const std::exception_ptr& failure) {
    if (!failure) {
      return;
    }
    Log::error("Task - Ended by an unexpected error: {}", textualDescription(failure));
  });
}

}  // namespace quillmar
