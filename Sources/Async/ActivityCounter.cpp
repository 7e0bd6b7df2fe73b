#include "Async/ActivityCounter.h"

namespace quillmar {

void ActivityCounter::end() noexcept {
  if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    // The lock makes sure that a waiter is either before its test of the count or asleep.
    const std::lock_guard lock(mutex_);
    idle_.notify_all();
  }
}

bool ActivityCounter::waitUntilIdle(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return idle_.wait_for(lock, timeout, [this] { return count() == 0; });
}

}  // namespace quillmar
