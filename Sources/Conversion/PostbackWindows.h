#pragma once

#include <cstdint>
#include <optional>

#include "quillmar/ConversionValues.h"

namespace quillmar {

/// The days since the first run at which the windows begin.
constexpr std::int64_t windowStart(Window window) noexcept {
  switch (window) {
    case Window::window1:
      return 3;
    case Window::window2:
      return 8;
    default:
      return 0;
  }
}

/// The day on which a window is over.
constexpr std::int64_t windowEnd(Window window) noexcept {
  switch (window) {
    case Window::window0:
      return windowStart(Window::window1);
    case Window::window1:
      return windowStart(Window::window2);
    default:
      return 36;
  }
}

/// The window of a day, counted from the first run; nothing before the first day and after the last.
constexpr std::optional<Window> windowOfDay(std::int64_t day) noexcept {
  for (const Window window : allWindows) {
    if (day >= windowStart(window) && day < windowEnd(window)) {
      return window;
    }
  }
  return std::nullopt;
}

}  // namespace quillmar
