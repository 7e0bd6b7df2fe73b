#include "Platform/Apple/HeldExecutor.h"

#include <mutex>
#include <utility>
#include <vector>

namespace quillmar::platform {

struct HeldExecutor::State {
  State(std::shared_ptr<Executor> executor, std::shared_ptr<Clock> timers, std::function<bool()> test)
      : target(std::move(executor)), clock(std::move(timers)), isReady(std::move(test)) {}

  const std::shared_ptr<Executor> target;
  const std::shared_ptr<Clock> clock;
  const std::function<bool()> isReady;
  std::mutex mutex;
  bool open = false;
  std::vector<std::function<void()>> held;

  static void postTest(const std::weak_ptr<State>& weak) {
    if (const auto state = weak.lock()) {
      state->target->post([weak] { test(weak); });
    }
  }

  static void test(const std::weak_ptr<State>& weak) {
    const auto state = weak.lock();
    if (!state) {
      return;
    }
    if (!state->isReady()) {
      state->clock->after(interval, [weak] { postTest(weak); });
      return;
    }
    // Posted with the lock held, so that nobody's later work comes in between; a post runs nothing.
    const std::lock_guard lock(state->mutex);
    state->open = true;
    for (std::function<void()>& work : state->held) {
      state->target->post(std::move(work));
    }
    state->held.clear();
  }
};

HeldExecutor::HeldExecutor(std::shared_ptr<Executor> target, std::shared_ptr<Clock> clock,
                           std::function<bool()> isReady)
    : state_(std::make_shared<State>(std::move(target), std::move(clock), std::move(isReady))) {}

void HeldExecutor::post(std::function<void()> work) {
  std::unique_lock lock(state_->mutex);
  if (state_->open) {
    lock.unlock();
    state_->target->post(std::move(work));
    return;
  }
  state_->held.push_back(std::move(work));
  if (state_->held.size() == 1) {
    State::postTest(state_);
  }
}

}  // namespace quillmar::platform
