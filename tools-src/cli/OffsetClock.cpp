#include "OffsetClock.h"

#include <utility>

namespace quillmar::cli {

OffsetClock::OffsetClock(std::shared_ptr<platform::Clock> clock, std::chrono::seconds offset)
    : clock_(std::move(clock)), offset_(offset) {}

platform::Clock::TimePoint OffsetClock::now() const noexcept {
  return clock_->now() + offset_;
}

std::chrono::seconds OffsetClock::localOffset(TimePoint instant) const noexcept {
  return clock_->localOffset(instant);
}

platform::Clock::TimerId OffsetClock::after(std::chrono::nanoseconds delay, std::function<void()> callback) {
  return clock_->after(delay, std::move(callback));
}

void OffsetClock::cancel(TimerId timer) noexcept {
  clock_->cancel(timer);
}

}  // namespace quillmar::cli
