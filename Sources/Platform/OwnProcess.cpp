#include "Platform/OwnProcess.h"

#include <unistd.h>

#include <atomic>
#include <new>
#include <utility>

namespace quillmar {

bool OwnProcess::isHere() noexcept {
  static std::atomic<pid_t> owner{0};
  const pid_t self = ::getpid();
  pid_t found = owner.load(std::memory_order_relaxed);
  if (found == 0 && owner.compare_exchange_strong(found, self, std::memory_order_relaxed)) {
    return true;
  }
  return found == self;
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
