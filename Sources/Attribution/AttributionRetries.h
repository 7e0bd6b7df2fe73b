#pragma once

#include <chrono>
#include <cstddef>
#include <exception>
#include <optional>

#include "quillmar/platform/Clock.h"

namespace quillmar {

/// When the attribution is asked for again, with `liveAttribution`. Seven requests at most, in one run of the app.
class AttributionRetries {
 public:
  /// How long to wait after an attempt that failed so; nothing when another one will not do.
  std::optional<std::chrono::seconds> waitAfter(const std::exception_ptr& failure, platform::Clock::TimePoint now);

 private:
  std::size_t notReady_ = 0;
  std::size_t passing_ = 0;
};

}  // namespace quillmar
