#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "quillmar/platform/Executor.h"

namespace quillmar {

/// A serial queue: runs its items one at a time, in the order of posting, on a lower executor. Drops them when the
/// lower executor drops what it was to run.
class SerialExecutor : public platform::Executor, public std::enable_shared_from_this<SerialExecutor> {
 public:
  /// `label` names the queue in a debugger.
  SerialExecutor(std::shared_ptr<platform::Executor> lower, const char* label);

  void post(std::function<void()> work) override;

  const char* label() const noexcept { return label_; }

 private:
  class Turn;

  void run();
  void dropAll() noexcept;
  bool postTurn() noexcept;

  const std::shared_ptr<platform::Executor> lower_;
  const char* const label_;
  std::mutex mutex_;
  std::deque<std::function<void()>> work_;
  bool running_ = false;
};

}  // namespace quillmar
