#include "Platform/Apple/OsLogSink.h"

#include <os/log.h>

#include <string>

namespace quillmar::platform {

namespace {

os_log_type_t typeOf(LogSeverity severity) {
  switch (severity) {
    case LogSeverity::info:
      return OS_LOG_TYPE_INFO;
    case LogSeverity::debug:
      return OS_LOG_TYPE_DEBUG;
    case LogSeverity::error:
      break;
  }
  return OS_LOG_TYPE_ERROR;
}

}  // namespace

void OsLogSink::write(std::string_view subsystem, std::string_view category, LogSeverity severity,
                      std::string_view line) noexcept {
  try {
    // The system keeps these objects and gives the same one for the same names.
    const os_log_t log = os_log_create(std::string(subsystem).c_str(), std::string(category).c_str());
    os_log_with_type(log, typeOf(severity), "%{public}s", std::string(line).c_str());
  } catch (...) {  // out of memory: the line is lost
  }
}

}  // namespace quillmar::platform
