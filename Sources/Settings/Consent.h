#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "Async/Epoch.h"
#include "quillmar/platform/Executor.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// Whether the user lets the library work: one object for all that works over a settings store. It stores nothing: a
/// host says at each start what the user wants.
///
/// Nobody asks for consent at first. Once it is required, calls are held until it is granted, then made in their order;
/// those that come meanwhile go behind. Any thread.
class Consent {
 public:
  /// What works with consent.
  class Worker {
   public:
    virtual ~Worker() = default;
    /// Ends what was begun without effect. When it returns, nothing of that writes any more.
    virtual void stop() = 0;
  };

  static std::shared_ptr<Consent> of(const std::shared_ptr<platform::UserDefaults>& store);

  void join(std::weak_ptr<Worker> worker);

  /// From now on nothing works without it.
  void require() noexcept;

  bool mayWork() const noexcept { return state() <= State::granted; }
  /// It is required, and not even about to be given.
  bool isDenied() const noexcept { return state() == State::denied; }

  enum class Held { no, yes, full };
  /// Keeps a call until there is consent; no: there is. It hands its work to a queue, that of start-up if it likes, and
  /// begins nothing in a later epoch than that of now.
  using Call = std::function<void(platform::Executor& startUp)>;
  Held hold(Call call);
  /// The same for an event, of which at most so many are kept until consent is about to be given.
  Held holdEvent(Call event, std::size_t most);
  std::size_t heldEvents() const;

  /// Consent is about to be given. True when `open` has to follow.
  bool grant() noexcept;
  /// On the queue of start-up: runs `prepare`, then makes the calls that are held, and lets everything work. Does
  /// nothing when consent was withdrawn meanwhile.
  void open(const std::function<void()>& prepare, platform::Executor& startUp);

  /// For work that goes on when its worker is stopped. `revoke` ends terms after it has stopped the workers: whoever
  /// takes one looks then whether its worker was stopped.
  Epoch::Term term() const noexcept { return {epoch_, epoch_->current()}; }

  /// Nothing works from now on, and what is held is forgotten. Between the two steps it stops all workers
  /// and ends all terms.
  void revoke(const std::function<void()>& before, const std::function<void()>& erase);

 private:
  enum class State { notRequired, granted, denied, opening };

  State state() const noexcept { return state_.load(std::memory_order_acquire); }
  Held holdAnyway(Call call, std::size_t events);
  bool takeHeld(std::deque<Call>& calls);

  const std::shared_ptr<Epoch> epoch_ = std::make_shared<Epoch>();
  std::atomic<State> state_{State::notRequired};
  std::mutex turns_;  ///< one opens or revokes at a time
  mutable std::mutex mutex_;
  std::deque<Call> held_;
  std::size_t heldEvents_ = 0;
  std::vector<std::weak_ptr<Worker>> workers_;
};

}  // namespace quillmar
