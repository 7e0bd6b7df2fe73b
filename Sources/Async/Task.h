#pragma once

#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "Async/TaskExecutor.h"
#include "quillmar/platform/Clock.h"

namespace quillmar {

/// An asynchronous operation of the library: a coroutine that runs on an executor seam.
///
/// Write tasks as functions, never as capturing lambdas; name arguments before handing them to an awaited call; hold
/// what outlives the call weakly and lock it again after each suspension.
template <class T = void>
using Task = boost::asio::awaitable<T, TaskExecutor>;

/// Awaits an operation that reports its end through a callback. `start` gets the callback; the task goes on, on its
/// own executor, when the callback is first called, and is destroyed when the callback is destroyed uncalled. The
/// callback may come on any thread, also inside `start`; further calls are ignored, and it never throws. What `start`
/// throws is thrown to the task.
template <class Result>
Task<Result> awaitCallback(std::function<void(std::function<void(Result)>)> start) {
  using Token = boost::asio::use_awaitable_t<TaskExecutor>;
  const Token token;
  std::optional<Result> outcome =
      co_await boost::asio::async_initiate<const Token, void(std::exception_ptr, std::optional<Result>)>(
          [](auto handler, std::function<void(std::function<void(Result)>)> begin) {
            using Handler = decltype(handler);
            struct Waiting {
              explicit Waiting(Handler h) : executor(boost::asio::get_associated_executor(h)), handler(std::move(h)) {}
              void goOn(std::exception_ptr failure, std::optional<Result> result) noexcept {
                if (called.exchange(true)) {
                  return;
                }
                executor.execute(
                    [resumed = std::move(handler), failure = std::move(failure), value = std::move(result)]() mutable {
                      std::move(resumed)(std::move(failure), std::move(value));
                    });
              }
              TaskExecutor executor;
              Handler handler;
              std::atomic<bool> called{false};
            };
            auto waiting = std::make_shared<Waiting>(std::move(handler));
            try {
              begin([waiting](Result result) { waiting->goOn(nullptr, std::move(result)); });
            } catch (...) {
              waiting->goOn(std::current_exception(), std::nullopt);
            }
          },
          token, std::move(start));
  co_return std::move(*outcome);
}

/// Lets time pass. A task that sleeps on a clock that is destroyed is dropped.
Task<void> sleepFor(std::shared_ptr<platform::Clock> clock, std::chrono::nanoseconds duration);

/// Runs `task` on `executor`; at once if the caller is there already. The caller goes on, on its own executor, when the
/// task has ended, and gets the exception that leaves it; it is dropped together with the task.
Task<void> runOn(std::shared_ptr<platform::Executor> executor, Task<void> task);

/// Starts `task` on `executor`, apart from the caller. An exception that leaves it is logged, not passed on.
void spawn(const std::shared_ptr<platform::Executor>& executor, Task<void> task);

}  // namespace quillmar
