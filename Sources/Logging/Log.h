#pragma once

#include <fmt/format.h>

#include <atomic>
#include <memory>
#include <string_view>
#include <utility>

#include "Logging/Controls.h"
#include "quillmar/LogLevel.h"
#include "quillmar/platform/Clock.h"
#include "quillmar/platform/LogSink.h"

namespace quillmar {

/// The one way out for log lines, behind the public `Logger`. All members are static; all may be called from any
/// thread.
///
/// A line is "[Quillmar] - [<timestamp>] <message>". The timestamp is deliberately that of the first line of the
/// process: it is computed once. A message that does not pass the threshold is not composed at all. Messages hold texts
/// of others: names of events, what a service answered. What could break out of the line is escaped here, for all.
class Log {
 public:
  static LogLevel logLevel() noexcept { return level_.load(std::memory_order_relaxed); }
  static void setLogLevel(LogLevel level) noexcept { level_.store(level, std::memory_order_relaxed); }

  static bool passes(LogLevel level) noexcept { return logLevel() >= level; }

  /// A finished message.
  static void info(std::string_view message) noexcept { write(LogLevel::info, message); }
  static void debug(std::string_view message) noexcept { write(LogLevel::debug, message); }
  static void error(std::string_view message) noexcept { write(LogLevel::error, message); }

  /// A message that is composed only when it passes.
  template <class First, class... Rest>
  static void info(fmt::format_string<First, Rest...> format, First&& first, Rest&&... rest) noexcept {
    compose(LogLevel::info, format, fmt::make_format_args(first, rest...));
  }
  template <class First, class... Rest>
  static void debug(fmt::format_string<First, Rest...> format, First&& first, Rest&&... rest) noexcept {
    compose(LogLevel::debug, format, fmt::make_format_args(first, rest...));
  }
  template <class First, class... Rest>
  static void error(fmt::format_string<First, Rest...> format, First&& first, Rest&&... rest) noexcept {
    compose(LogLevel::error, format, fmt::make_format_args(first, rest...));
  }

  /// A finished message that is laid out in lines. Whoever composed it vouches that its line ends are their own.
  static void errorInLines(std::string_view message) noexcept {
    compose(LogLevel::error, "{}", fmt::make_format_args(message), LineEnds::kept);
  }

  /// Where lines go, and the clock of the timestamp. Without a sink they go nowhere. A sink that was replaced is let go
  /// of when the line that is on its way to it has been written.
  static void setSink(std::shared_ptr<platform::LogSink> sink, const std::shared_ptr<platform::Clock>& clock) noexcept;

 private:
  static void write(LogLevel level, std::string_view message) noexcept {
    compose(level, "{}", fmt::make_format_args(message));
  }
  static void compose(LogLevel level, fmt::string_view format, fmt::format_args arguments,
                      LineEnds lineEnds = LineEnds::escaped) noexcept {
    if (passes(level)) {
      composeAndLog(level, format, arguments, lineEnds);
    }
  }
  static void composeAndLog(LogLevel level, fmt::string_view format, fmt::format_args arguments,
                            LineEnds lineEnds) noexcept;

  static inline std::atomic<LogLevel> level_{LogLevel::off};
};

}  // namespace quillmar
