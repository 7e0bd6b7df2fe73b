#pragma once

#include <cstdint>
#include <string_view>

namespace quillmar {

/// A sum over bytes that tells damage and another content, by accident, not on purpose. Goes on from an earlier one.
constexpr std::uint64_t fnv1a(std::string_view bytes, std::uint64_t sum = 0xcbf29ce484222325U) noexcept {
  for (const char c : bytes) {
    sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  }
  return sum;
}

}  // namespace quillmar
