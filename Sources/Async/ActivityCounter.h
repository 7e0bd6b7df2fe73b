#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

namespace quillmar {

/// The moment that lies `timeout` ahead, or the last one that there is.
std::chrono::steady_clock::time_point deadlineAfter(std::chrono::milliseconds timeout);

/// Counts what is in flight, so that a host can wait until nothing is.
class ActivityCounter {
 public:
  void begin() noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
  void end() noexcept;

  /// Blocks until the count is zero or the time is over; true for the former.
  bool waitUntilIdle(std::chrono::steady_clock::time_point deadline);

  std::int64_t count() const noexcept { return count_.load(std::memory_order_acquire); }

 private:
  std::atomic<std::int64_t> count_{0};
  std::mutex mutex_;
  std::condition_variable idle_;
};

/// One thing in flight, for as long as the object lives.
class Activity {
 public:
  explicit Activity(std::shared_ptr<ActivityCounter> counter) noexcept : counter_(std::move(counter)) {
    counter_->begin();
  }
  ~Activity() { end(); }
  Activity(Activity&& other) noexcept = default;
  Activity& operator=(Activity&& other) noexcept {
    end();
    counter_ = std::move(other.counter_);
    return *this;
  }
  Activity(const Activity&) = delete;
  Activity& operator=(const Activity&) = delete;

  void end() noexcept {
    if (counter_) {
      std::exchange(counter_, nullptr)->end();
    }
  }

 private:
  std::shared_ptr<ActivityCounter> counter_;
};

}  // namespace quillmar
