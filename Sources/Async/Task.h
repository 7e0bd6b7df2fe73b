#pragma once

#include <atomic>
#include <boost/asio/awaitable.hpp>
#include <chrono>
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
Task<void> awaitSignal(std::function<void(std::function<void()>)> start);

/// The same for a callback that brings a result.
template <class Result>
Task<Result> awaitCallback(std::function<void(std::function<void(Result)>)> start) {
  struct Outcome {
    std::atomic<bool> isThere{false};
    std::optional<Result> result;
  };
  const auto outcome = std::make_shared<Outcome>();
  std::function<void(std::function<void()>)> signalled = [outcome, start = std::move(start)](auto goOn) {
    start([outcome, goOn = std::move(goOn)](Result result) {
      if (!outcome->isThere.exchange(true)) {
        outcome->result = std::move(result);
        goOn();
      }
    });
  };
  co_await awaitSignal(std::move(signalled));
  co_return std::move(*outcome->result);
}

/// Lets time pass. A task that sleeps on a clock that is destroyed is dropped.
Task<void> sleepFor(std::shared_ptr<platform::Clock> clock, std::chrono::nanoseconds duration);

/// Runs `task` on `executor`; at once if the caller is there already. The caller goes on, on its own executor, when the
/// task has ended, and gets the exception that leaves it; it is dropped together with the task.
Task<void> runOn(std::shared_ptr<platform::Executor> executor, Task<void> task);

/// Starts `task` on `executor`, apart from the caller. An exception that leaves it is logged, not passed on.
void spawn(const std::shared_ptr<platform::Executor>& executor, Task<void> task);

}  // namespace quillmar
