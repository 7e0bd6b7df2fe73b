#include "Platform/Apple/DispatchClock.h"

#include <dispatch/dispatch.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <new>
#include <utility>

#include "Platform/Posix/LocalOffset.h"

namespace quillmar::platform {

struct DispatchClock::State {
  /// A source that was started; cancelled and let go when it goes. Its handlers may still run once after that.
  struct CancelSource {
    void operator()(dispatch_source_t source) const noexcept {
      dispatch_source_cancel(source);
      dispatch_release(source);
    }
  };
  struct Timer {
    std::unique_ptr<dispatch_source_s, CancelSource> source;
    std::function<void()> callback;
  };
  /// What the handlers of a source know; owned by the source until its cancel handler has run.
  struct Context {
    std::weak_ptr<State> state;
    TimerId id;
  };

  std::mutex mutex;
  TimerId lastTimer = 0;
  std::map<TimerId, Timer> timers;

  static void fire(void* context) {
    const auto& [weak, id] = *static_cast<Context*>(context);
    const auto state = weak.lock();
    if (!state) {
      return;
    }
    std::unique_lock lock(state->mutex);
    auto timer = state->timers.extract(id);
    lock.unlock();
    if (timer) {
      timer.mapped().callback();
    }
  }
  static void forget(void* context) { delete static_cast<Context*>(context); }
};

DispatchClock::DispatchClock() : state_(std::make_shared<State>()) {}

DispatchClock::~DispatchClock() {
  std::map<TimerId, State::Timer> dropped;  // destroyed without the lock
  const std::lock_guard lock(state_->mutex);
  dropped.swap(state_->timers);
}

DispatchClock::TimePoint DispatchClock::now() const noexcept {
  return std::chrono::system_clock::now();
}

std::chrono::seconds DispatchClock::localOffset(TimePoint instant) const noexcept {
  return platform::localOffset(instant);
}

DispatchClock::TimerId DispatchClock::after(std::chrono::nanoseconds delay, std::function<void()> callback) {
  dispatch_source_t const source =
      dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_global_queue(QOS_CLASS_UTILITY, 0));
  if (source == nullptr) {
    throw std::bad_alloc();
  }
  const std::lock_guard lock(state_->mutex);
  const TimerId id = state_->lastTimer + 1;
  auto context = std::make_unique<State::Context>(State::Context{state_, id});
  state_->lastTimer = id;
  dispatch_set_context(source, context.release());
  dispatch_source_set_event_handler_f(source, &State::fire);
  dispatch_source_set_cancel_handler_f(source, &State::forget);
  dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, std::max<std::int64_t>(delay.count(), 0)),
                            DISPATCH_TIME_FOREVER, 0);
  dispatch_resume(source);
  std::unique_ptr<dispatch_source_s, State::CancelSource> started(source);
  state_->timers.emplace(id, State::Timer{std::move(started), std::move(callback)});
  return id;
}

void DispatchClock::cancel(TimerId timer) noexcept {
  std::unique_lock lock(state_->mutex);
  const auto dropped = state_->timers.extract(timer);
  lock.unlock();  // the callback is destroyed outside the lock
}

}  // namespace quillmar::platform
