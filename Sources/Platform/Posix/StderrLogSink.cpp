#include "Platform/Posix/StderrLogSink.h"

#include <cerrno>
#include <string>

#include "Platform/Posix/NoWriteSignals.h"

namespace quillmar::platform {

void StderrLogSink::write(std::string_view, std::string_view, LogSeverity, std::string_view line) noexcept {
  const NoWriteSignals noSignals;
  try {
    std::string text;
    text.reserve(line.size() + 1);
    text.append(line).push_back('\n');
    while (::write(descriptor_, text.data(), text.size()) == -1 && errno == EINTR) {
    }
  } catch (...) {  // out of memory: the line is lost
  }
}

}  // namespace quillmar::platform
