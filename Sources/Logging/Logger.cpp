#include "quillmar/Logger.h"

#include "Logging/Log.h"

namespace quillmar {

LogLevel Logger::logLevel() noexcept {
  return Log::logLevel();
}

void Logger::setLogLevel(LogLevel level) noexcept {
  Log::setLogLevel(level);
}

}  // namespace quillmar
