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

/// What the methods, the header names and the products of HTTP are made of; anything else could end one early.
constexpr bool isTokenCharacter(char c) noexcept {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

}  // namespace quillmar
