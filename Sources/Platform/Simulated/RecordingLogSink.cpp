#include "quillmar/simulated/RecordingLogSink.h"

namespace quillmar::simulated {

void RecordingLogSink::write(std::string_view subsystem, std::string_view category, platform::LogSeverity severity,
                             std::string_view line) noexcept {
  try {
    const std::lock_guard lock(mutex_);
    lines_.push_back({severity, std::string(subsystem), std::string(category), std::string(line)});
  } catch (...) {  // out of memory: the line is lost
  }
}

std::vector<RecordingLogSink::Line> RecordingLogSink::lines() const {
  const std::lock_guard lock(mutex_);
  return lines_;
}

void RecordingLogSink::clear() {
  const std::lock_guard lock(mutex_);
  lines_.clear();
}

}  // namespace quillmar::simulated
