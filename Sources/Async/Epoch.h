#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

namespace quillmar {

/// The life of an instance between two resets. Work remembers the epoch that it began in; what a reset overtakes ends
/// without effect. Effects run with a lock held, so that no reset comes between the look and the effect: they may use
/// the settings store, the file manager and the clock, and call no other code of a host.
class Epoch {
 public:
  /// The epoch that some work began in, for work that does not know whose epochs these are. Made of nothing, it never
  /// ends.
  class Term {
   public:
    Term() noexcept = default;
    Term(std::shared_ptr<Epoch> epoch, std::uint64_t begun) noexcept : epoch_(std::move(epoch)), begun_(begun) {}

    bool isOver() const noexcept { return epoch_ && epoch_->current() != begun_; }

    /// Runs `effect` unless it is over; tells whether it was not.
    template <class Effect>
    bool during(Effect effect) const {
      if (epoch_) {
        return epoch_->during(begun_, std::move(effect));
      }
      effect();
      return true;
    }

   private:
    std::shared_ptr<Epoch> epoch_;
    std::uint64_t begun_ = 0;
  };

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
