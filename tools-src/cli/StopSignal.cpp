#include "StopSignal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>

namespace quillmar::cli {
namespace {

std::atomic<StopSignal*> listening{nullptr};
static_assert(std::atomic<StopSignal*>::is_always_lock_free);

extern "C" void stopOnSignal(int) {
  const int saved = errno;
  if (StopSignal* const stop = listening.load()) {
    stop->raise();
  }
  errno = saved;
}

}  // namespace

StopSignal::StopSignal() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (descriptor_ < 0) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
}

StopSignal::~StopSignal() {
  StopSignal* self = this;
  listening.compare_exchange_strong(self, nullptr);
  close(descriptor_);
}

void StopSignal::listenForSignals() {
  listening.store(this);
  struct sigaction action{};
  action.sa_handler = stopOnSignal;
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

void StopSignal::raise() noexcept {
  const std::uint64_t one = 1;
  // It can fail only when it was raised before.
  [[maybe_unused]] const auto written = write(descriptor_, &one, sizeof one);
}

bool StopSignal::raised() const noexcept {
  return waitFor(std::chrono::nanoseconds{0});
}

bool StopSignal::waitFor(std::chrono::nanoseconds duration) const noexcept {
  using Steady = std::chrono::steady_clock;
  const auto end = Steady::now() + duration;
  for (;;) {
    // Rounded up, so that a rest of less than a millisecond does not spin.
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(end - Steady::now()).count();
    const int slice = static_cast<int>(std::clamp<std::int64_t>(rest, 0, 60'000));
    pollfd entry{descriptor_, POLLIN, 0};
    if (poll(&entry, 1, slice) > 0) {
      return true;
    }
    if (Steady::now() >= end) {
      return false;
    }
  }
}

void StopSignal::wait() const noexcept {
  while (!waitFor(std::chrono::hours(1))) {
  }
}

}  // namespace quillmar::cli
