#include "Promises.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "Logging/Logger.h"
#include "quillmar/simulated/ManualClock.h"

namespace quillmar::fuzz {

namespace {
class DiscardingSink : public platform::LogSink {
 public:
  void write(std::string_view, std::string_view, platform::LogSeverity, std::string_view line) noexcept override {
    require(!line.empty(), "a log line has a text");
  }
};
}  // namespace

void require(bool kept, const char* promise) {
  if (!kept) {
    std::fprintf(stderr, "Broken promise: %s\n", promise);
    std::abort();
  }
}

void composeLogLines() {
  static const bool isOn = [] {
    Logger::setSink(std::make_shared<DiscardingSink>(),
                    std::make_shared<simulated::ManualClock>(platform::Clock::TimePoint{}));
    Logger::setLogLevel(LogLevel::info);
    return true;
  }();
  static_cast<void>(isOn);
}

}  // namespace quillmar::fuzz
