#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "quillmar/platform/LogSink.h"

namespace quillmar::simulated {

/// Keeps the log lines.
class RecordingLogSink : public platform::LogSink {
 public:
  /// What `write` was called with.
  struct Line {
    platform::LogSeverity severity;
    std::string subsystem;
    std::string category;
    std::string text;
  };

  void write(std::string_view subsystem, std::string_view category, platform::LogSeverity severity,
             std::string_view line) noexcept override;

  /// Every line since the last `clear`, in order. Any thread.
  std::vector<Line> lines() const;
  /// Forgets the lines. Any thread.
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<Line> lines_;
};

}  // namespace quillmar::simulated
