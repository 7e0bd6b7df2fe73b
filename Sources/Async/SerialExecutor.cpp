#include "Async/SerialExecutor.h"

#include <algorithm>
#include <new>
#include <utility>

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"

namespace quillmar {

namespace {
/// How many items run before other users of the lower executor get their turn.
constexpr int itemsPerTurn = 64;
}  // namespace

/// What is posted to the lower executor. Items may hold this queue, so they must not wait in it for ever when the
/// turn is dropped.
class SerialExecutor::Turn {
 public:
  explicit Turn(std::shared_ptr<SerialExecutor> queue) noexcept : queue_(std::move(queue)) {}
  ~Turn() {
    if (const auto queue = take()) {
      queue->dropAll();
    }
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  std::shared_ptr<SerialExecutor> take() noexcept { return std::exchange(queue_, nullptr); }

 private:
  std::shared_ptr<SerialExecutor> queue_;
};

SerialExecutor::SerialExecutor(std::shared_ptr<platform::Executor> lower, const char* label)
    : lower_(std::move(lower)), label_(label) {}

void SerialExecutor::post(std::function<void()> work) {
  const std::function<void()>* posted = nullptr;  // stays where it is: items come and go at the ends only
  {
    const std::lock_guard lock(mutex_);
    posted = &work_.emplace_back(std::move(work));
    if (running_) {
      return;
    }
    running_ = true;
  }
  if (!postTurn()) {
    // Nothing was posted. What others have posted meanwhile waits for the next one.
    const std::lock_guard lock(mutex_);
    running_ = false;
    work_.erase(std::find_if(work_.begin(), work_.end(), [posted](const auto& item) { return &item == posted; }));
    throw std::bad_alloc();
  }
}

bool SerialExecutor::postTurn() noexcept {
  std::shared_ptr<Turn> turn;
  try {
    turn = std::make_shared<Turn>(shared_from_this());
    lower_->post([turn] { turn->take()->run(); });
    return true;
  } catch (...) {  // out of memory
    if (turn) {
      turn->take();
    }
    return false;
  }
}

void SerialExecutor::dropAll() noexcept {
  std::deque<std::function<void()>> dropped;  // destroyed outside the lock
  const std::lock_guard lock(mutex_);
  running_ = false;
  dropped.swap(work_);
}

void SerialExecutor::run() {
  for (int i = 0; i < itemsPerTurn || !postTurn(); ++i) {
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
    try {
      item();
    } catch (...) {  // a seam that threw what it must not; the queue goes on
      Log::error("{} - Unexpected error: {}", label_, textualDescription(std::current_exception()));
    }
  }
}

}  // namespace quillmar
