#include "quillmar/simulated/ManualExecutor.h"

#include <utility>

namespace quillmar::simulated {

ManualExecutor::~ManualExecutor() {
  // What is dropped may post once more from a destructor.
  for (std::deque<std::function<void()>> dropped; !work_.empty(); dropped.clear()) {
    const std::lock_guard lock(mutex_);
    dropped.swap(work_);
  }
}

void ManualExecutor::post(std::function<void()> work) {
  const std::lock_guard lock(mutex_);
  work_.push_back(std::move(work));
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

}  // namespace quillmar::simulated
