#pragma once

#include <unistd.h>

#include "quillmar/platform/LogSink.h"

namespace quillmar::platform {

/// Writes each line to standard error in one piece, so that lines of several threads do not mix.
class StderrLogSink : public LogSink {
 public:
  explicit StderrLogSink(int descriptor = STDERR_FILENO) noexcept : descriptor_(descriptor) {}

  void write(std::string_view subsystem, std::string_view category, LogSeverity severity,
             std::string_view line) noexcept override;

 private:
  int descriptor_;  ///< not owned
};

}  // namespace quillmar::platform
