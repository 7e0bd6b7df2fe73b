#include "Platform/Apple/FirstUnlock.h"

#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include "Platform/Apple/AppleFileManager.h"

namespace quillmar::platform {

FirstUnlock::FirstUnlock(std::string folder) : folder_(std::move(folder)) {}

bool FirstUnlock::hasHappened() {
  if (happened_.load(std::memory_order_relaxed)) {
    return true;
  }
  PosixFileManager files(std::nullopt);
  const std::string marker = folder_ + "/unlocked";
  std::string content;
  std::error_code error = files.readFile(marker, content);
  if (error == std::errc::no_such_file_or_directory && !folder_.empty()) {
    files.createDirectory(folder_);
    protectItem(folder_, Backup::keep);
    error = files.writeFile(marker, "1", WriteMode::direct);
    protectItem(marker, Backup::leaveOut);
  }
  // The system's word for protected content. Any other error does not pass with an unlock, so nothing waits for that.
  const bool happened = error != std::errc::operation_not_permitted;
  happened_.store(happened, std::memory_order_relaxed);
  return happened;
}

}  // namespace quillmar::platform
