#pragma once

#include <future>
#include <memory>
#include <stdexcept>
#include <utility>

#include "Async/Task.h"
#include "Logging/ErrorDescription.h"
#include "quillmar/simulated/ManualClock.h"
#include "quillmar/simulated/ManualExecutor.h"

namespace quillmar::test {

template <class Result>
Task<void> keepResult(Task<Result> task, std::shared_ptr<std::promise<Result>> result) {
  try {
    result->set_value(co_await std::move(task));
  } catch (...) {
    result->set_exception(std::current_exception());
  }
}

/// Runs a task to its end on a hand-cranked executor, and on a manual clock if it needs one; gives its result or throws
/// its error.
template <class Result>
Result runTask(Task<Result> task, const std::shared_ptr<simulated::ManualClock>& clock = nullptr) {
  const auto executor = std::make_shared<simulated::ManualExecutor>();
  const auto promise = std::make_shared<std::promise<Result>>();
  std::future<Result> result = promise->get_future();
  spawn(executor, keepResult(std::move(task), promise));
  for (int i = 0; i < 100; ++i) {
    executor->runUntilIdle();
    if (result.wait_for(std::chrono::seconds(0)) == std::future_status::ready) {
      return result.get();
    }
    if (clock) {
      clock->advance(std::chrono::seconds(1));
    }
  }
  throw std::runtime_error("the task did not end");
}

inline Task<bool> withResult(Task<void> task) {
  co_await std::move(task);
  co_return true;
}

/// What went wrong when the task ran, as logs describe it; empty when nothing did.
template <class Result>
std::string failureOf(Task<Result> task, const std::shared_ptr<simulated::ManualClock>& clock = nullptr) {
  try {
    runTask(std::move(task), clock);
    return {};
  } catch (const std::exception& error) {
    return textualDescription(error);
  }
}

}  // namespace quillmar::test
