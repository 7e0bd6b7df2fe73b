#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

namespace quillmar::test {

/// Where a completion leaves its value for the thread that waits. A second call of it ends the test program.
/// ThreadSanitizer sees all of this, which it cannot of a promise that is broken.
template <class Value>
class Outcome {
 public:
  std::function<void(Value)> completion() {
    // The deleter runs when the last copy of the completion goes.
    const std::shared_ptr<State> call(state_.get(), [owner = state_](State* state) { state->end({}); });
    return [call](Value value) { call->end(std::move(value)) ? void() : std::abort(); };
  }

  /// The value; nothing when the completion was destroyed without a call.
  std::optional<Value> await() const {
    std::unique_lock lock(state_->mutex);
    if (!state_->changed.wait_for(lock, std::chrono::seconds(60), [this] { return state_->ended; })) {
      throw std::runtime_error("the completion was neither called nor destroyed");
    }
    return state_->value;
  }

 private:
  struct State {
    /// False when it had ended before.
    bool end(std::optional<Value> result) {
      const std::lock_guard lock(mutex);
      if (!ended) {
        value = std::move(result);
      }
      changed.notify_all();
      return !std::exchange(ended, true);
    }

    std::mutex mutex;
    std::condition_variable changed;
    bool ended = false;
    std::optional<Value> value;
  };

  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace quillmar::test
