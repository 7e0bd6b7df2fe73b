#include "Settings/MockSwitch.h"

#include <atomic>

namespace quillmar {

namespace {
std::atomic<bool> mockSwitch{false};
}  // namespace

bool MockSwitch::isOn() noexcept {
  return mockSwitch.load(std::memory_order_relaxed);
}

void MockSwitch::set(bool on) noexcept {
  mockSwitch.store(on, std::memory_order_relaxed);
}

}  // namespace quillmar
