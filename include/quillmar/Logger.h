#pragma once

#include "quillmar/Export.h"
#include "quillmar/LogLevel.h"

namespace quillmar {

/// The log of the library, one for the process. Where its lines go is `platform::LogSink`.
class QUILLMAR_API Logger {
 public:
  Logger() = delete;

  /// What is logged: lines up to this level. Off at first; each `Quillmar::configure` puts the level of its instance
  /// here. A change takes effect with the next line. Any thread.
  /// @{
  static LogLevel logLevel() noexcept;
  static void setLogLevel(LogLevel level) noexcept;
  /// @}
};

}  // namespace quillmar
