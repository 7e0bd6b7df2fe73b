#include "Async/Task.h"

#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <exception>

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"

namespace quillmar {

namespace {

// The clock is held weakly while its timer holds the task, so that the two do not keep each other alive.
Task<void> sleepOn(std::weak_ptr<platform::Clock> weakClock, std::chrono::nanoseconds duration) {
  std::function<void(std::function<void()>)> start = [weakClock, duration](std::function<void()> wake) {
    if (const auto clock = weakClock.lock()) {
      clock->after(duration, std::move(wake));
    }
  };
  co_await awaitSignal(std::move(start));
}

}  // namespace

Task<void> awaitSignal(std::function<void(std::function<void()>)> start) {
  using Token = boost::asio::use_awaitable_t<TaskExecutor>;
  return boost::asio::async_initiate<const Token, void(std::exception_ptr)>(
      [](auto handler, std::function<void(std::function<void()>)> begin) {
        using Handler = decltype(handler);
        struct Waiting {
          explicit Waiting(Handler h) : executor(boost::asio::get_associated_executor(h)), handler(std::move(h)) {}
          void goOn(std::exception_ptr failure) noexcept {
            if (!called.exchange(true)) {
              executor.execute([resumed = std::move(handler), failure = std::move(failure)]() mutable {
                std::move(resumed)(std::move(failure));
              });
            }
          }
          TaskExecutor executor;
          Handler handler;
          std::atomic<bool> called{false};
        };
        auto waiting = std::make_shared<Waiting>(std::move(handler));
        try {
          begin([waiting] { waiting->goOn(nullptr); });
        } catch (...) {
          waiting->goOn(std::current_exception());
        }
      },
      Token(), std::move(start));
}

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
