#pragma once

#include <cstdint>
#include <string_view>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// The level that a line belongs to.
enum class LogSeverity : std::uint8_t { info, debug, error };

/// Takes the library's log lines. On Apple systems: the unified logging.
class QUILLMAR_API LogSink {
 public:
  virtual ~LogSink() = default;

  /// One finished line, without a line end, to be written as it stands ("%" and braces mean nothing). Control
  /// characters in it are escaped; only the payload of a purchase is laid out with line ends. Called from any thread,
  /// also from several at once; it should not block for long. The arguments are valid only during the call.
  virtual void write(std::string_view subsystem, std::string_view category, LogSeverity severity,
                     std::string_view line) noexcept = 0;
};

}  // namespace quillmar::platform
