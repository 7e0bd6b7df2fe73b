#pragma once

#include "Async/Task.h"
#include "Logging/ErrorDescription.h"
#include "quillmar/simulated/ManualClock.h"

namespace quillmar::test {

/// What goes wrong, as logs describe it; empty when nothing does.
inline std::string failureOf(const std::function<void()>& operation) {
  try {
    operation();
    return {};
  } catch (...) {
    return textualDescription(std::current_exception());
  }
}

template <class Result>
Task<void> keepFailure(Task<Result> task, std::shared_ptr<std::optional<std::string>> failure) {
  try {
    co_await std::move(task);
    *failure = "";
  } catch (...) {
    *failure = textualDescription(std::current_exception());
  }
}

/// The same of a task, which runs on a hand-cranked executor, and on a manual clock if it needs one.
template <class Result>
std::string failureOf(Task<Result> task, const std::shared_ptr<simulated::ManualClock>& clock = nullptr) {
  const auto executor = std::make_shared<simulated::ManualExecutor>();
  const auto failure = std::make_shared<std::optional<std::string>>();
  spawn(executor, keepFailure(std::move(task), failure));
  for (int i = 0; i < 100 && !*failure; ++i) {
    executor->runUntilIdle();
    clock ? clock->advance(std::chrono::seconds(1)) : void();
  }
  return failure->value_or("the task did not end");
}

}  // namespace quillmar::test
