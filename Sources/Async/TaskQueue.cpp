#include "Async/TaskQueue.h"

#include <exception>
#include <utility>

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"

namespace quillmar {

/// The place of a running task; given back when the task is done or dropped.
class TaskQueue::Slot {
 public:
  explicit Slot(std::shared_ptr<TaskQueue> queue) noexcept : queue_(std::move(queue)) {}
  ~Slot() {
    if (queue_) {
      queue_->release();
    }
  }
  Slot(Slot&&) noexcept = default;
  Slot& operator=(Slot&&) = delete;
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;

 private:
  std::shared_ptr<TaskQueue> queue_;
};

TaskQueue::TaskQueue(std::shared_ptr<SerialExecutor> serial, std::size_t limit,
                     std::shared_ptr<ActivityCounter> activity)
    : serial_(std::move(serial)), limit_(limit), activity_(std::move(activity)) {}

void TaskQueue::post(MakeTask makeTask) {
  {
    const std::lock_guard lock(incomingMutex_);
    incoming_.push_back(std::move(makeTask));
    activity_->begin();
    if (incoming_.size() > 1) {
      return;  // whoever posted the first of them sees to it that they are started
    }
  }
  {
    const std::lock_guard lock(mutex_);
    if (pumping_ || running_ >= limit_) {
      return;
    }
    pumping_ = true;
  }
  postPump();
}

TaskQueue::MakeTask TaskQueue::postWithin(std::size_t most, bool dropsOldest, MakeTask makeTask) {
  MakeTask dropped;
  {
    const std::lock_guard lock(mutex_);
    const std::lock_guard incomingLock(incomingMutex_);
    if (waiting_.size() + incoming_.size() >= most) {
      if (!dropsOldest) {
        return makeTask;
      }
      auto& oldest = waiting_.empty() ? incoming_ : waiting_;
      dropped = std::move(oldest.front());
      oldest.pop_front();
    }
  }
  if (dropped) {
    activity_->end();
  }
  post(std::move(makeTask));
  return dropped;
}

bool TaskQueue::someWait() {
  if (waiting_.empty()) {
    const std::lock_guard lock(incomingMutex_);
    waiting_.swap(incoming_);
  }
  return !waiting_.empty();
}

void TaskQueue::postPump() {
  try {
    serial_->post([self = shared_from_this()] { self->pump(); });
  } catch (...) {
    pump();  // out of memory; pumping only starts tasks, or drops them, and may be done on any thread
  }
}

void TaskQueue::pump() {
  for (;;) {
    MakeTask makeTask;
    {
      const std::lock_guard lock(mutex_);
      if (running_ >= limit_ || !someWait()) {
        pumping_ = false;
        return;
      }
      makeTask = std::move(waiting_.front());
      waiting_.pop_front();
      ++running_;
    }
    Slot slot(shared_from_this());
    try {
      spawn(serial_, run(std::move(slot), std::move(makeTask)));
    } catch (...) {
      Log::error("TaskQueue - Dropped an item: {}", textualDescription(std::current_exception()));
    }
  }
}

void TaskQueue::release() noexcept {
  bool pumpNow = false;
  {
    const std::lock_guard lock(mutex_);
    --running_;
    if (!pumping_ && someWait()) {
      pumping_ = pumpNow = true;
    }
  }
  if (pumpNow) {
    postPump();
  }
  activity_->end();
}

// The slot is a parameter, so that it is given back also when the task is dropped half-way.
Task<void> TaskQueue::run([[maybe_unused]] Slot slot, MakeTask makeTask) {
  Task<void> task = makeTask();
  co_await std::move(task);
}

}  // namespace quillmar
