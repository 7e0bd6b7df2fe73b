#include "Platform/OwnProcess.h"

#include <pthread.h>

#include <atomic>
#include <new>
#include <utility>

namespace quillmar {

namespace {

std::atomic<bool> used{false};
std::atomic<bool> leftBehind{false};  ///< in a child of a process that had used the library

/// Registered when the library is loaded. A process that forks before it uses the library may do so in the child.
[[maybe_unused]] const int registered = ::pthread_atfork(
    nullptr, nullptr, [] { leftBehind.store(used.load(std::memory_order_relaxed), std::memory_order_relaxed); });

}  // namespace

bool OwnProcess::isHere() noexcept {
  if (!used.load(std::memory_order_relaxed)) {
    used.store(true, std::memory_order_relaxed);
  }
  return !leftBehind.load(std::memory_order_relaxed);
}

void OwnProcess::abandon(std::shared_ptr<void> object) noexcept {
  struct Kept {
    std::shared_ptr<void> object;
    Kept* next;
  };
  static std::atomic<Kept*> list{nullptr};  // a list, so that it stays reachable
  if (auto* const kept = new (std::nothrow) Kept{std::move(object), list.load()}) {
    while (!list.compare_exchange_weak(kept->next, kept)) {
    }
  }
}

}  // namespace quillmar
