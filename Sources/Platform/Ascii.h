#pragma once

#include <algorithm>
#include <string_view>

namespace quillmar {

/// The names in HTTP and the schemes and hosts of URLs ignore the case of ASCII letters, whatever the locale.
constexpr char lowerAscii(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::ranges::equal(a, b, {}, lowerAscii, lowerAscii);
}

}  // namespace quillmar
