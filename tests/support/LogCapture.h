#pragma once

#include "Logging/Log.h"
#include "quillmar/simulated/ManualClock.h"
#include "quillmar/simulated/RecordingLogSink.h"

namespace quillmar::test {

/// Records the log of the process for as long as it lives; afterwards the log is off again.
class LogCapture {
 public:
  explicit LogCapture(
      LogLevel level = LogLevel::info,
      std::shared_ptr<platform::Clock> clock = std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{}))
      : clock_(std::move(clock)), sink_(std::make_shared<simulated::RecordingLogSink>()) {
    Log::setSink(sink_, clock_);
    Log::setLogLevel(level);
  }
  ~LogCapture() {
    Log::setLogLevel(LogLevel::off);
    Log::setSink(nullptr, nullptr);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<simulated::RecordingLogSink::Line> lines() const { return sink_->lines(); }

  /// The messages behind the timestamp, each with its severity: "error: Something failed".
  std::vector<std::string> messages() const {
    std::vector<std::string> messages;
    for (const auto& line : lines()) {
      const char* const severities[] = {"info: ", "debug: ", "error: "};
      const std::size_t timestamp = line.text.find("[", 1);
      messages.push_back(severities[static_cast<int>(line.severity)] +
                         line.text.substr(line.text.find("] ", timestamp) + 2));
    }
    return messages;
  }

  void clear() const { sink_->clear(); }

  const std::shared_ptr<simulated::RecordingLogSink>& sink() const { return sink_; }

 private:
  std::shared_ptr<platform::Clock> clock_;
  std::shared_ptr<simulated::RecordingLogSink> sink_;
};

}  // namespace quillmar::test
