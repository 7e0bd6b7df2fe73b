#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <type_traits>

#include "quillmar/c/quillmar.h"

namespace quillmar {

/// What a host of any version gave: what it does not know counts as zero. Nothing for null, and for a structure whose
/// size was forgotten.
template <class Structure>
std::optional<Structure> received(const Structure* given) noexcept {
  static_assert(std::is_trivially_copyable_v<Structure> && offsetof(Structure, size) == 0);
  if (given == nullptr || given->size < sizeof(std::size_t)) {
    return std::nullopt;
  }
  Structure result{};
  std::memcpy(static_cast<void*>(&result), given, std::min(given->size, sizeof(Structure)));
  return result;
}

/// Hands a structure to a host of any version: as much as that has room for.
template <class Structure>
quillmar_status hand(Structure result, Structure* target) noexcept {
  if (target == nullptr || target->size < sizeof(std::size_t)) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  result.size = target->size;
  std::memcpy(static_cast<void*>(target), &result, std::min(result.size, sizeof(Structure)));
  return QUILLMAR_OK;
}

/// Runs what a function of the interface does; nothing gets out to the host.
template <class Body>
quillmar_status statusOf(Body body) noexcept {
  try {
    return body();
  } catch (...) {  // what is called throws for lack of memory only
    return QUILLMAR_ERROR_OUT_OF_MEMORY;
  }
}

inline const char* orEmpty(const char* text) noexcept {
  return text != nullptr ? text : "";
}

}  // namespace quillmar
