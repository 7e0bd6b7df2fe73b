#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "quillmar/platform/FileManager.h"

namespace quillmar {

enum class PersistenceItemError {
  invalidFilename = 1,  ///< no documents directory, or the library's folder could not be created
  notFile,              ///< the file was not there and could not be created
};

std::error_code make_error_code(PersistenceItemError error) noexcept;

/// Throws the system's error, if it is one, with the path that it is about.
void throwIf(std::error_code error, const std::string& path);

/// One file in the library's folder of the documents directory: <documents>/Quillmar/<filename>. Each operation makes
/// the folder, and the file, if they are not there. Runs on the calling thread.
class PersistenceFile {
 public:
  PersistenceFile(std::shared_ptr<platform::FileManager> fileManager, std::string filename);

  const std::string& filename() const noexcept { return filename_; }

  /// Whether the file is there. Never fails, but may create the folder.
  bool exists() const;

  /// The file's path, with the folder made and, unless it was there, the file created empty. Throws a
  /// `PersistenceItemError`.
  std::string existingPath() const;

  /// The file's path, whether or not it and the folder are there; empty without a documents directory.
  std::string usualPath() const;

  std::optional<platform::FileStamp> stamp(const std::string& path) const { return fileManager_->stamp(path); }

  // Each throws the system's error, with the path.
  std::string read(const std::string& path) const;
  void write(const std::string& path, std::string_view content) const;
  void remove(const std::string& path) const;

 private:
  std::optional<std::string> folder() const;
  std::optional<std::string> makeUrl() const;

  const std::shared_ptr<platform::FileManager> fileManager_;
  const std::string filename_;
};

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::PersistenceItemError> : std::true_type {};
