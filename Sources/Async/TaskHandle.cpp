#include "Async/TaskHandle.h"

namespace quillmar {

void TaskHandle::cancel() noexcept {
  std::function<void()> endWait;
  {
    const std::lock_guard lock(mutex_);
    cancelled_ = true;
    endWait.swap(endWait_);
  }
  if (endWait) {
    endWait();
  }
}

bool TaskHandle::isCancelled() const noexcept {
  const std::lock_guard lock(mutex_);
  return cancelled_;
}

void TaskHandle::onCancel(std::function<void()> endWait) {
  {
    const std::lock_guard lock(mutex_);
    if (!cancelled_) {
      endWait_.swap(endWait);
      return;
    }
  }
  if (endWait) {
    endWait();
  }
}

}  // namespace quillmar
