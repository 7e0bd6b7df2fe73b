#include "quillmar/simulated/ManualExecutor.h"

#include <utility>

namespace quillmar::simulated {

ManualExecutor::~ManualExecutor() {
  shutDown();
}

void ManualExecutor::post(std::function<void()> work) {
  const std::lock_guard lock(mutex_);
  if (!isShutDown_) {
    work_.push_back(std::move(work));
  }
}

std::size_t ManualExecutor::runUntilIdle() {
  std::size_t count = 0;
  while (runOne()) {
    ++count;
  }
  return count;
}

bool ManualExecutor::runOne() {
  std::function<void()> work;
  {
    const std::lock_guard lock(mutex_);
    if (work_.empty()) {
      return false;
    }
    work = std::move(work_.front());
    work_.pop_front();
  }
  work();
  return true;
}

void ManualExecutor::shutDown() noexcept {
  std::deque<std::function<void()>> dropped;  // destroyed outside the lock: it may post once more
  const std::lock_guard lock(mutex_);
  isShutDown_ = true;
  dropped.swap(work_);
}

}  // namespace quillmar::simulated
