#include "Platform/Posix/SystemClock.h"

#include <algorithm>
#include <boost/asio/steady_timer.hpp>
#include <map>
#include <mutex>
#include <utility>

#include "Platform/Posix/LocalOffset.h"

namespace quillmar::platform {

struct SystemClock::State {
  struct Timer {
    boost::asio::steady_timer timer;
    std::function<void()> callback;
  };

  std::mutex mutex;
  TimerId lastTimer = 0;
  std::map<TimerId, Timer> timers;

  void fire(TimerId id) {
    std::unique_lock lock(mutex);
    auto timer = timers.extract(id);
    lock.unlock();
    if (timer) {
      timer.mapped().callback();
    }
  }
};

SystemClock::SystemClock(std::shared_ptr<ThreadPoolExecutor> executor)
    : executor_(std::move(executor)), state_(std::make_shared<State>()) {}

SystemClock::~SystemClock() {
  std::map<TimerId, State::Timer> dropped;
  const std::lock_guard lock(state_->mutex);
  dropped.swap(state_->timers);
}

SystemClock::TimePoint SystemClock::now() const noexcept {
  return std::chrono::system_clock::now();
}

std::chrono::seconds SystemClock::localOffset(TimePoint instant) const noexcept {
  return platform::localOffset(instant);
}

SystemClock::TimerId SystemClock::after(std::chrono::nanoseconds delay, std::function<void()> callback) {
  boost::asio::steady_timer timer(executor_->context(), std::max(delay, std::chrono::nanoseconds{0}));
  const std::lock_guard lock(state_->mutex);
  const TimerId id = ++state_->lastTimer;
  State::Timer& entry = state_->timers.emplace(id, State::Timer{std::move(timer), std::move(callback)}).first->second;
  entry.timer.async_wait([weak = std::weak_ptr(state_), id](const boost::system::error_code& aborted) {
    if (const std::shared_ptr<State> state = aborted ? nullptr : weak.lock()) {
      state->fire(id);
    }
  });
  return id;
}

void SystemClock::cancel(TimerId timer) noexcept {
  std::unique_lock lock(state_->mutex);
  const auto dropped = state_->timers.extract(timer);
  lock.unlock();  // the callback is destroyed outside the lock
}

}  // namespace quillmar::platform
