#pragma once

#include <optional>
#include <string>

#include "quillmar/platform/FileManager.h"

namespace quillmar::platform {

/// The file system. An atomic write has reached the disk when it returns. A file of more than 64 MiB is not read.
class PosixFileManager : public FileManager {
 public:
  explicit PosixFileManager(std::optional<std::string> documentsDirectory);

  std::optional<std::string> documentsDirectory() const override;
  bool fileExists(const std::string& path) const override;
  std::optional<FileStamp> stamp(const std::string& path) const override;
  std::error_code createDirectory(const std::string& path) override;
  std::error_code createFile(const std::string& path) override;
  std::error_code removeItem(const std::string& path) override;
  std::error_code readFile(const std::string& path, std::string& content) const override;
  std::error_code writeFile(const std::string& path, std::string_view content, WriteMode mode) override;

 private:
  std::optional<std::string> documentsDirectory_;
};

}  // namespace quillmar::platform
