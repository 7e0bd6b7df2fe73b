#include "Async/SerialExecutor.h"

#include <cstddef>
#include <utility>

namespace quillmar {

namespace {
/// How many items run before other users of the lower executor get their turn.
constexpr int itemsPerTurn = 64;
}  // namespace

SerialExecutor::SerialExecutor(std::shared_ptr<platform::Executor> lower, const char* label)
    : lower_(std::move(lower)), label_(label) {}

void SerialExecutor::post(std::function<void()> work) {
  std::deque<std::function<void()>>::difference_type place = 0;
  {
    const std::lock_guard lock(mutex_);
    place = static_cast<decltype(place)>(work_.size());
    work_.push_back(std::move(work));
    if (running_) {
      return;
    }
    running_ = true;
  }
  try {
    lower_->post([self = shared_from_this()] { self->run(); });
  } catch (...) {
    // Nobody runs the queue, so the item is where it was put. What others have added meanwhile waits for the next post.
    std::function<void()> dropped;  // destroyed outside the lock
    const std::lock_guard lock(mutex_);
    dropped.swap(work_[static_cast<std::size_t>(place)]);
    work_.erase(work_.begin() + place);
    running_ = false;
    throw;
  }
}

void SerialExecutor::run() {
  for (int i = 0;; ++i) {
    if (i >= itemsPerTurn && giveWay()) {
      return;
    }
    std::function<void()> item;
    {
      const std::lock_guard lock(mutex_);
      if (work_.empty()) {
        running_ = false;
        return;
      }
      item = std::move(work_.front());
      work_.pop_front();
    }
    item();
  }
}

/// False when there is no memory for another turn; then this one goes on.
bool SerialExecutor::giveWay() {
  try {
    lower_->post([self = shared_from_this()] { self->run(); });
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace quillmar
