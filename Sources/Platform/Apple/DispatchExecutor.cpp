#include "Platform/Apple/DispatchExecutor.h"

#include <dispatch/dispatch.h>

#include <list>
#include <mutex>
#include <utility>

namespace quillmar::platform {

/// What waits. A queue of the system gives nothing back, so it only learns that there is one more item to run.
struct DispatchExecutor::State {
  explicit State(dispatch_queue_t target) : queue(target) {}

  const dispatch_queue_t queue;  ///< one of the system's, which are never released
  std::mutex mutex;
  std::list<std::function<void()>> waiting;

  static void runOne(void* context) {
    const std::unique_ptr<std::shared_ptr<State>> state(static_cast<std::shared_ptr<State>*>(context));
    std::list<std::function<void()>> one;
    {
      const std::lock_guard lock((*state)->mutex);
      if (!(*state)->waiting.empty()) {
        one.splice(one.end(), (*state)->waiting, (*state)->waiting.begin());
      }
    }
    if (!one.empty()) {
      one.front()();
    }
  }
};

DispatchExecutor::DispatchExecutor(std::shared_ptr<State> state) noexcept : state_(std::move(state)) {}

std::shared_ptr<DispatchExecutor> DispatchExecutor::main() {
  return std::shared_ptr<DispatchExecutor>(new DispatchExecutor(std::make_shared<State>(dispatch_get_main_queue())));
}

std::shared_ptr<DispatchExecutor> DispatchExecutor::utility() {
  return std::shared_ptr<DispatchExecutor>(
      new DispatchExecutor(std::make_shared<State>(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0))));
}

DispatchExecutor::~DispatchExecutor() {
  std::list<std::function<void()>> dropped;  // destroyed without the lock
  const std::lock_guard lock(state_->mutex);
  dropped.swap(state_->waiting);
}

void DispatchExecutor::post(std::function<void()> work) {
  auto context = std::make_unique<std::shared_ptr<State>>(state_);
  std::list<std::function<void()>> one;
  one.push_back(std::move(work));
  {
    const std::lock_guard lock(state_->mutex);
    state_->waiting.splice(state_->waiting.end(), one);
  }
  dispatch_async_f(state_->queue, context.release(), &State::runOne);
}

}  // namespace quillmar::platform
