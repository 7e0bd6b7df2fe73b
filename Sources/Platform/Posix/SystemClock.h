#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Platform/Posix/ThreadPoolExecutor.h"
#include "quillmar/platform/Clock.h"

namespace quillmar::platform {

/// The system's wall clock and time zone. Timers run on the steady clock and fire on the pool's threads.
class SystemClock : public Clock {
 public:
  explicit SystemClock(std::shared_ptr<ThreadPoolExecutor> executor);
  ~SystemClock() override;

  TimePoint now() const noexcept override;
  std::chrono::seconds localOffset(TimePoint instant) const noexcept override;
  TimerId after(std::chrono::nanoseconds delay, std::function<void()> callback) override;
  void cancel(TimerId timer) noexcept override;

 private:
  struct State;
  std::shared_ptr<ThreadPoolExecutor> executor_;  ///< outlives the timers, which belong to its context
  std::shared_ptr<State> state_;
};

}  // namespace quillmar::platform
