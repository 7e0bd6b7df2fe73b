#include "Async/SerialExecutor.h"

#include <utility>

namespace quillmar {

namespace {
/// How many items run before other users of the lower executor get their turn.
constexpr int itemsPerTurn = 64;
}  // namespace

SerialExecutor::SerialExecutor(std::shared_ptr<platform::Executor> lower, const char* label)
    : lower_(std::move(lower)), label_(label) {}

void SerialExecutor::post(std::function<void()> work) {
  {
    const std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    if (running_) {
      return;
    }
    running_ = true;
  }
  lower_->post([self = shared_from_this()] { self->run(); });
}

void SerialExecutor::run() {
  for (int i = 0; i < itemsPerTurn; ++i) {
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
  lower_->post([self = shared_from_this()] { self->run(); });
}

}  // namespace quillmar
