#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

namespace quillmar {

/// The life of an instance between two resets. Work remembers the epoch that it began in; what a reset overtakes ends
/// without effect. Effects run with a lock held, so that no reset comes between the look and the effect: they may use
/// the settings store, the file manager and the clock, and call no other code of a host.
class Epoch {
 public:
  std::uint64_t current() const noexcept { return number_.load(std::memory_order_acquire); }

  /// Begins the next epoch with `effect`.
  template <class Effect>
  void raise(Effect effect) {
    const std::lock_guard lock(mutex_);
    number_.fetch_add(1, std::memory_order_release);
    effect();
  }

  /// Runs `effect` if the epoch is still the one that the work began in; tells whether it was.
  template <class Effect>
  bool during(std::uint64_t begun, Effect effect) {
    const std::lock_guard lock(mutex_);
    if (begun != current()) {
      return false;
    }
    effect();
    return true;
  }

 private:
  std::mutex mutex_;
  std::atomic<std::uint64_t> number_{0};
};

}  // namespace quillmar
