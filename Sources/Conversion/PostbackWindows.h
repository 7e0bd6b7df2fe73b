#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "quillmar/ConversionValues.h"

namespace quillmar {

/// Where windows 0, 1 and 2 begin since the first run, and where the last one ends.
using WindowBorders = std::array<std::int64_t, 4>;
constexpr WindowBorders windowDays{0, 3, 8, 36};
constexpr WindowBorders platformWindowHours{0, 48, 168, 840};

constexpr std::int64_t windowStart(Window window, const WindowBorders& borders = windowDays) noexcept {
  return borders[static_cast<std::size_t>(window)];
}

constexpr std::int64_t windowEnd(Window window, const WindowBorders& borders = windowDays) noexcept {
  return borders[static_cast<std::size_t>(window) + 1];
}

/// The window so many days, or hours, after the first run; nothing before the first and after the last.
constexpr std::optional<Window> windowAt(std::int64_t since, const WindowBorders& borders = windowDays) noexcept {
  for (const Window window : allWindows) {
    if (since >= windowStart(window, borders) && since < windowEnd(window, borders)) {
      return window;
    }
  }
  return std::nullopt;
}

}  // namespace quillmar
