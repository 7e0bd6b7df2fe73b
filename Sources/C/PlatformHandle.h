#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>

#include "C/Table.h"
#include "quillmar/platform/Platform.h"

namespace quillmar {

/// Counts who holds a handle.
struct Counted {
  std::atomic<std::size_t> references{1};
};

template <class Handle>
void retain(Handle* handle) noexcept {
  if (handle != nullptr) {
    handle->references.fetch_add(1, std::memory_order_relaxed);
  }
}

template <class Handle>
void release(Handle* handle) noexcept {
  if (handle != nullptr && handle->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete handle;
  }
}

}  // namespace quillmar

struct quillmar_platform : quillmar::Counted {
  mutable std::mutex mutex;
  quillmar::platform::Platform members;
};

namespace quillmar {

/// As it is now.
inline platform::Platform membersOf(const quillmar_platform& handle) {
  const std::lock_guard lock(handle.mutex);
  return handle.members;
}

/// Puts an adapter over the host's table in the place of a member, if the table has what it must have.
template <class Adapter, class Member, class Functions, class... Required>
quillmar_status setMember(quillmar_platform* handle, Member platform::Platform::* member, const Functions* given,
                          Required... required) noexcept {
  if (handle == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    Member adapter = adapterOver<Adapter>(given, required...);
    if (!adapter) {
      return QUILLMAR_ERROR_INVALID_ARGUMENT;
    }
    const std::lock_guard lock(handle->mutex);
    (handle->members.*member).swap(adapter);
    return QUILLMAR_OK;
  });
}

}  // namespace quillmar
