#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Async/Task.h"
#include "Logging/ErrorDescription.h"
#include "quillmar/simulated/ManualClock.h"
#include "quillmar/simulated/ManualExecutor.h"

namespace quillmar::test {

template <class Result>
Task<void> keepResult(Task<Result> task, std::shared_ptr<std::optional<Result>> result,
                      std::shared_ptr<std::exception_ptr> failure) {
  try {
    *result = co_await std::move(task);
  } catch (...) {
    *failure = std::current_exception();
  }
}

/// Runs a task to its end on a hand-cranked executor, and on a manual clock if it needs one; gives its result or throws
/// its error.
template <class Result>
Result runTask(Task<Result> task, const std::shared_ptr<simulated::ManualClock>& clock = nullptr) {
  const auto executor = std::make_shared<simulated::ManualExecutor>();
  const auto result = std::make_shared<std::optional<Result>>();
  const auto failure = std::make_shared<std::exception_ptr>();
  spawn(executor, keepResult(std::move(task), result, failure));
  for (int i = 0; i < 100 && !*result && !*failure; ++i) {
    executor->runUntilIdle();
    if (clock) {
      clock->advance(std::chrono::seconds(1));
    }
  }
  if (*failure) {
    std::rethrow_exception(*failure);
  }
  if (!*result) {
    throw std::runtime_error("the task did not end");
  }
  return std::move(**result);
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
