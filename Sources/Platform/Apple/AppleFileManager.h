#pragma once

#include <optional>
#include <string>

#include "Platform/Posix/PosixFileManager.h"

namespace quillmar::platform {

/// The app's documents folder, or nothing when there is none.
std::optional<std::string> appDocumentsFolder();

/// Where an app keeps what its user does not see; empty when there is none.
std::string appSupportFolder();

/// Whether the content can be fetched again, so that backups need not have it.
enum class Backup : bool { leaveOut, keep };

/// Lets the file, or what will be created in the folder, be read from the first unlock of the device on, also while it
/// is locked again. Failures are passed over: the file is there all the same.
void protectItem(const std::string& path, Backup backup);

/// The file system, with the protection above for all that is written. The library's documents come from its service
/// and are left out of backups.
class AppleFileManager : public PosixFileManager {
 public:
  using PosixFileManager::PosixFileManager;

  std::error_code createDirectory(const std::string& path) override;
  std::error_code createFile(const std::string& path) override;
  std::error_code writeFile(const std::string& path, std::string_view content, WriteMode mode) override;
};

}  // namespace quillmar::platform
