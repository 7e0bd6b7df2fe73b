#include "Network/NetworkGate.h"

#include <utility>

#include "Logging/Guarded.h"
#include "Logging/Log.h"

namespace quillmar {

NetworkGate::NetworkGate(std::shared_ptr<platform::HttpTransport> transport,
                         std::shared_ptr<platform::Executor> serial) noexcept
    : transport_(std::move(transport)), serial_(std::move(serial)) {}

void NetworkGate::start(platform::HttpRequest request, Completion completion) {
  if (isHolding_.load(std::memory_order_acquire)) {
    const std::lock_guard lock(mutex_);
    if (isHolding_.load(std::memory_order_relaxed)) {
      if (!isAbandoned_) {
        held_.push_back({std::move(request), std::move(completion)});
      }
      return;
    }
  }
  transport_->start(std::move(request), std::move(completion));
}

void NetworkGate::setClosed(bool closed) {
  {
    const std::lock_guard lock(mutex_);
    if (isClosed_ == closed) {
      return;
    }
    isClosed_ = closed;
    hasWarned_ = false;
    isHolding_.store(true, std::memory_order_release);
  }
  Log::debug(closed ? "NetworkGate - Requests are held back" : "NetworkGate - Requests go on");
  if (!closed) {
    serial_->post([weak = weak_from_this()] {
      if (const auto self = weak.lock()) {
        self->release();
      }
    });
  }
}

/// One by one and without the lock. What comes meanwhile waits behind the others.
void NetworkGate::release() {
  for (;;) {
    Request next;
    {
      const std::lock_guard lock(mutex_);
      if (isClosed_) {
        return;
      }
      if (held_.empty()) {
        isHolding_.store(false, std::memory_order_release);
        return;
      }
      next = std::move(held_.front());
      held_.pop_front();
    }
    guarded("sending what was held back",
            [&] { transport_->start(std::move(next.request), std::move(next.completion)); });
  }
}

void NetworkGate::warnWhileClosed() {
  bool isNews = false;
  {
    const std::lock_guard lock(mutex_);
    isNews = isClosed_ && !std::exchange(hasWarned_, true);
  }
  if (isNews) {
    Log::error(
        "NetworkGate - The network is paused: requests that are held back are waited for until the time is over");
  }
}

NetworkGate::Requests NetworkGate::takeHeld() noexcept {
  const std::lock_guard lock(mutex_);
  return std::exchange(held_, {});
}

void NetworkGate::abandon() noexcept {
  {
    const std::lock_guard lock(mutex_);
    isAbandoned_ = true;
  }
  takeHeld();
}

}  // namespace quillmar
