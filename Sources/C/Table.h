#pragma once

#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "C/Structures.h"

namespace quillmar {

/// A host's table of functions. Its context is released with it.
template <class Functions>
class Table {
 public:
  explicit Table(const Functions& functions) noexcept : functions_(functions) {}
  ~Table() {
    if (functions_.release != nullptr) {
      functions_.release(functions_.context);
    }
  }
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  /// The context, for whoever knows its release function.
  void* contextOf(void (*release)(void*)) const noexcept {
    return functions_.release == release ? functions_.context : nullptr;
  }

  template <auto Function>
  bool has() const noexcept {
    return functions_.*Function != nullptr;
  }

  /// Calls a function that is there, with the context in front.
  template <auto Function, class... Arguments>
  auto call(Arguments... arguments) const {
    return (functions_.*Function)(functions_.context, arguments...);
  }

  /// The same for one that may be missing; that gives nothing.
  template <auto Function, class... Arguments>
  auto callIfThere(Arguments... arguments) const {
    using Result = std::invoke_result_t<decltype(functions_.*Function), void*, Arguments...>;
    return has<Function>() ? call<Function>(arguments...) : Result();
  }

 private:
  const Functions functions_;
};

/// An adapter over a host's table, if that has what it must have; null otherwise.
template <class Adapter, class Functions, class... Required>
std::shared_ptr<Adapter> adapterOver(const Functions* given, Required... required) {
  const std::optional<Functions> functions = received(given);
  if (!functions || !((*functions.*required != nullptr) && ...)) {
    return nullptr;
  }
  // When memory runs out, the table stays the host's: nothing may fail from here on that would release it.
  auto adapter = std::make_shared<Adapter>();
  adapter->table = std::make_shared<const Table<Functions>>(*functions);
  return adapter;
}

/// What a host holds until it calls it or drops it.
template <class Callback>
struct Pending {
  Callback callback;

  /// The callback, which is the caller's now; the handle is gone. Null for null.
  template <class Handle>
  static Callback taken(Handle* handle) noexcept {
    const std::unique_ptr<Handle> owned(handle);
    return owned ? std::move(owned->callback) : Callback();
  }
};

/// A handle of that kind for a host.
template <class Handle, class Callback>
Handle* handed(Callback callback) {
  auto handle = std::make_unique<Handle>();
  handle->callback = std::move(callback);
  return handle.release();
}

}  // namespace quillmar
