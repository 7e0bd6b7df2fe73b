#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "quillmar/platform/FileManager.h"

namespace quillmar::simulated {

/// A small file system in memory: folders, files, the errors of a missing parent or a folder in the way.
class InMemoryFileManager : public platform::FileManager {
 public:
  /// Empty. The documents directory is not created; without one, there is none to be had.
  explicit InMemoryFileManager(std::optional<std::string> documentsDirectory = "/documents");

  std::optional<std::string> documentsDirectory() const override;
  bool fileExists(const std::string& path) const override;
  std::optional<platform::FileStamp> stamp(const std::string& path) const override;
  std::error_code createDirectory(const std::string& path) override;
  std::error_code createFile(const std::string& path) override;
  std::error_code removeItem(const std::string& path) override;
  std::error_code readFile(const std::string& path, std::string& content) const override;
  std::error_code writeFile(const std::string& path, std::string_view content, platform::WriteMode mode) override;

 private:
  struct File {
    std::string content;
    std::uint64_t identity = 0;
    std::int64_t changed = 0;
  };

  std::error_code checkFile(const std::string& path) const;
  std::error_code checkParent(const std::string& path) const;

  mutable std::mutex mutex_;
  std::optional<std::string> documentsDirectory_;
  std::set<std::string> directories_;
  std::map<std::string, File> files_;
  std::uint64_t lastIdentity_ = 0;
  std::int64_t ticks_ = 0;
};

}  // namespace quillmar::simulated
