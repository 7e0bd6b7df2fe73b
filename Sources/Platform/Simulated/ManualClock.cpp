#include "quillmar/simulated/ManualClock.h"

#include <algorithm>

namespace quillmar::simulated {

using std::chrono::nanoseconds;

ManualClock::ManualClock(TimePoint start, std::shared_ptr<ManualExecutor> executor)
    : now_(start), executor_(std::move(executor)) {}

ManualClock::TimePoint ManualClock::now() const noexcept {
  const std::lock_guard lock(mutex_);
  return now_;
}

std::chrono::seconds ManualClock::localOffset(TimePoint instant) const noexcept {
  std::function<std::chrono::seconds(TimePoint)> offsetAt;
  {
    const std::lock_guard lock(mutex_);
    offsetAt = offsetAt_;
  }
  return offsetAt ? offsetAt(instant) : std::chrono::seconds{0};
}

ManualClock::TimerId ManualClock::after(nanoseconds delay, std::function<void()> callback) {
  const std::lock_guard lock(mutex_);
  const nanoseconds due = elapsed_ + std::clamp(delay, nanoseconds{0}, nanoseconds::max() - elapsed_);
  timers_.emplace(std::pair(due, ++lastTimer_), std::move(callback));
  return lastTimer_;
}

void ManualClock::cancel(TimerId timer) noexcept {
  std::function<void()> dropped;  // destroyed outside the lock
  const std::lock_guard lock(mutex_);
  const auto found =
      std::find_if(timers_.begin(), timers_.end(), [timer](const auto& entry) { return entry.first.second == timer; });
  if (found != timers_.end()) {
    dropped = std::move(found->second);
    timers_.erase(found);
  }
}

void ManualClock::cancelAll() noexcept {
  decltype(timers_) dropped;  // destroyed outside the lock
  const std::lock_guard lock(mutex_);
  dropped.swap(timers_);
}

void ManualClock::advance(nanoseconds by) {
  crank();
  std::unique_lock lock(mutex_);
  const nanoseconds target = elapsed_ + std::max(by, nanoseconds{0});
  const auto moveTo = [this](nanoseconds elapsed) {
    now_ += std::chrono::duration_cast<TimePoint::duration>(elapsed - elapsed_);
    elapsed_ = elapsed;
  };
  while (!timers_.empty() && timers_.begin()->first.first <= target) {
    moveTo(timers_.begin()->first.first);
    const auto due = timers_.extract(timers_.begin());
    lock.unlock();
    due.mapped()();
    crank();
    lock.lock();
  }
  moveTo(target);
}

void ManualClock::advanceTo(TimePoint instant) {
  advance(instant - now());
}

void ManualClock::setNow(TimePoint now) {
  const std::lock_guard lock(mutex_);
  now_ = now;
}

void ManualClock::setTimeZone(std::function<std::chrono::seconds(TimePoint)> offsetAt) {
  const std::lock_guard lock(mutex_);
  offsetAt_ = std::move(offsetAt);
}

std::size_t ManualClock::pendingTimers() const {
  const std::lock_guard lock(mutex_);
  return timers_.size();
}

void ManualClock::crank() {
  if (executor_) {
    executor_->runUntilIdle();
  }
}

}  // namespace quillmar::simulated
