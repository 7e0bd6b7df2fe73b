#pragma once

#include <functional>
#include <memory>

#include "quillmar/platform/Executor.h"

namespace quillmar::platform {

/// Runs work on a dispatch queue.
class DispatchExecutor : public Executor {
 public:
  /// On the queue of the app's main thread.
  static std::shared_ptr<DispatchExecutor> main();

  /// On the system's threads for work that the user does not wait for.
  static std::shared_ptr<DispatchExecutor> utility();

  /// Drops what has not started. What is running goes on.
  ~DispatchExecutor() override;
  DispatchExecutor(const DispatchExecutor&) = delete;
  DispatchExecutor& operator=(const DispatchExecutor&) = delete;

  void post(std::function<void()> work) override;

 private:
  struct State;
  explicit DispatchExecutor(std::shared_ptr<State> state) noexcept;

  const std::shared_ptr<State> state_;
};

}  // namespace quillmar::platform
