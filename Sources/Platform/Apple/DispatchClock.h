#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "quillmar/platform/Clock.h"

namespace quillmar::platform {

/// The system's wall clock and time zone, and dispatch timers. These stand still while the device sleeps, and fire on
/// the system's threads.
class DispatchClock : public Clock {
 public:
  DispatchClock();
  ~DispatchClock() override;

  TimePoint now() const noexcept override;
  std::chrono::seconds localOffset(TimePoint instant) const noexcept override;
  TimerId after(std::chrono::nanoseconds delay, std::function<void()> callback) override;
  void cancel(TimerId timer) noexcept override;

 private:
  struct State;
  const std::shared_ptr<State> state_;
};

}  // namespace quillmar::platform
