#pragma once

#include <memory>

#include "quillmar/platform/Clock.h"

namespace quillmar::cli {

/// Another clock, shifted by a constant. Timers are not affected: they go by what passes, not by the time of day.
class OffsetClock : public platform::Clock {
 public:
  OffsetClock(std::shared_ptr<platform::Clock> clock, std::chrono::seconds offset);

  TimePoint now() const noexcept override;
  std::chrono::seconds localOffset(TimePoint instant) const noexcept override;
  TimerId after(std::chrono::nanoseconds delay, std::function<void()> callback) override;
  void cancel(TimerId timer) noexcept override;

 private:
  std::shared_ptr<platform::Clock> clock_;
  std::chrono::seconds offset_;
};

}  // namespace quillmar::cli
