#include "Async/ActivityCounter.h"

#include <algorithm>

namespace quillmar {

std::chrono::steady_clock::time_point deadlineAfter(std::chrono::milliseconds timeout) {
  using Clock = std::chrono::steady_clock;
  const auto now = Clock::now();
  const auto most = std::chrono::floor<std::chrono::milliseconds>(Clock::time_point::max() - now);
  return now + std::clamp(timeout, std::chrono::milliseconds(0), most);
}

void ActivityCounter::end() noexcept {
  if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    // The lock makes sure that a waiter is either before its test of the count or asleep.
    const std::lock_guard lock(mutex_);
    idle_.notify_all();
  }
}

bool ActivityCounter::waitUntilIdle(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  return idle_.wait_until(lock, deadline, [this] { return count() == 0; });
}

}  // namespace quillmar
