#pragma once

#include <functional>
#include <mutex>

namespace quillmar {

/// The handle of a task that can be asked to end early. A task that waits names what ends the wait. Any thread.
class TaskHandle {
 public:
  /// Calls what the task has named, on this thread. Further calls do nothing.
  void cancel() noexcept;

  bool isCancelled() const noexcept;

  /// What `cancel` calls, in place of what was named before; called at once when the task is cancelled already.
  void onCancel(std::function<void()> endWait);

 private:
  mutable std::mutex mutex_;
  bool cancelled_ = false;
  std::function<void()> endWait_;
};

}  // namespace quillmar
