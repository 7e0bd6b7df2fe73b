#pragma once

#include <numeric>

#include "quillmar/Health.h"

namespace quillmar::test {

/// How many events are in some count.
inline std::uint64_t sumOf(const QuillmarHealth& health) {
  return std::accumulate(health.ended.begin(), health.ended.end(),
                         health.queued + health.underWay + health.parked + health.kept);
}

}  // namespace quillmar::test
