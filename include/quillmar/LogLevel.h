#pragma once

#include <cstdint>
#include <optional>

namespace quillmar {

/// How much the library writes to its log. The order deliberately differs from the usual one:
/// `info` is the most verbose level and `debug` lies below it.
enum class LogLevel : std::int8_t {
  off = 0,    ///< nothing
  error = 1,  ///< error lines
  debug = 2,  ///< error and debug lines
  info = 3,   ///< error, debug and info lines
};

/// The level with this raw value, or nothing for a number outside 0...3.
constexpr std::optional<LogLevel> logLevelFromRawValue(int rawValue) noexcept {
  if (rawValue < 0 || rawValue > 3) {
    return std::nullopt;
  }
  return static_cast<LogLevel>(rawValue);
}

}  // namespace quillmar
