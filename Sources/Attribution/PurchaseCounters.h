#pragma once

#include <atomic>
#include <cstdint>

namespace quillmar {

/// Which purchase went which way. Shared by all that handle purchases of one facade.
struct PurchaseCounters {
  std::atomic<std::uint64_t> sent{0};
  std::atomic<std::uint64_t> failed{0};
  std::atomic<std::uint64_t> unverified{0};
  std::atomic<std::uint64_t> skipped{0};
  std::atomic<std::uint64_t> dropped{0};
};

}  // namespace quillmar
