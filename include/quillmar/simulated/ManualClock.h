#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "quillmar/platform/Clock.h"
#include "quillmar/simulated/ManualExecutor.h"

namespace quillmar::simulated {

/// A clock that goes only when it is told to. Its time zone is UTC, or what `setTimeZone` says.
class ManualClock : public platform::Clock {
 public:
  /// The executor, if given, is run until it is idle before and after each step of `advance`.
  explicit ManualClock(TimePoint start, std::shared_ptr<ManualExecutor> executor = nullptr);

  TimePoint now() const noexcept override;
  std::chrono::seconds localOffset(TimePoint instant) const noexcept override;
  TimerId after(std::chrono::nanoseconds delay, std::function<void()> callback) override;
  void cancel(TimerId timer) noexcept override;

  /// Lets the time pass and fires the timers that come due, each at its own time and in their order.
  /// @{
  void advance(std::chrono::nanoseconds by);
  void advanceTo(TimePoint instant);
  /// @}

  /// Sets the time without firing anything: somebody changed the clock.
  void setNow(TimePoint now);

  /// The offset of the local zone from UTC as a function of the instant.
  void setTimeZone(std::function<std::chrono::seconds(TimePoint)> offsetAt);

  /// Drops the timers that wait.
  void cancelAll() noexcept;

  /// How many timers wait.
  std::size_t pendingTimers() const;

 private:
  void crank();

  mutable std::mutex mutex_;
  TimePoint now_;
  std::chrono::nanoseconds elapsed_{0};
  TimerId lastTimer_ = 0;
  /// By due time on a scale that clock changes do not touch, then by age.
  std::map<std::pair<std::chrono::nanoseconds, TimerId>, std::function<void()>> timers_;
  std::function<std::chrono::seconds(TimePoint)> offsetAt_;
  std::shared_ptr<ManualExecutor> executor_;
};

}  // namespace quillmar::simulated
