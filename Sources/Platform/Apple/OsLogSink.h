#pragma once

#include "quillmar/platform/LogSink.h"

namespace quillmar::platform {

/// The unified logging. Lines are public: the app has chosen to see them. The system cuts them off after about a
/// thousand bytes.
class OsLogSink : public LogSink {
 public:
  void write(std::string_view subsystem, std::string_view category, LogSeverity severity,
             std::string_view line) noexcept override;
};

}  // namespace quillmar::platform
