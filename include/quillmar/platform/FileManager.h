#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "quillmar/Export.h"

namespace quillmar::platform {

/// What tells one state of a file from another without reading it.
struct FileStamp {
  std::uint64_t volume = 0;
  std::uint64_t file = 0;  ///< the file's identity on its volume (inode)
  std::uint64_t size = 0;
  std::int64_t modified = 0;  ///< nanoseconds; only compared
  std::int64_t changed = 0;   ///< nanoseconds; only compared

  friend bool operator==(const FileStamp& a, const FileStamp& b) noexcept {
    return a.volume == b.volume && a.file == b.file && a.size == b.size && a.modified == b.modified &&
           a.changed == b.changed;
  }
};

/// How the content of a file is replaced.
enum class WriteMode : std::uint8_t {
  direct,  ///< replace the content in place
  atomic,  ///< write a temporary file and move it into place: a reader sees the old content or the new
};

/// The files of the app. On Apple systems: `NSFileManager`.
///
/// All operations run on the calling thread and may block on the disk. The library calls them on the executor, but for
/// `enableASAAttributionTracking`, which looks for the stored attribution on its caller's thread. Paths are absolute
/// and UTF-8. What is created is readable and writable by the user only. Errors are those of the system
/// (`std::system_category` or `std::generic_category`); nothing is thrown for them.
class QUILLMAR_API FileManager {
 public:
  virtual ~FileManager() = default;

  /// The documents directory of the app, without a trailing "/", or nothing when there is none. Need not exist yet.
  virtual std::optional<std::string> documentsDirectory() const = 0;

  /// Whether a file or folder is there. True also when that cannot be told for the moment (a read error), since what
  /// is absent may be created anew, and then is empty.
  virtual bool fileExists(const std::string& path) const = 0;

  /// The stamp of the file, or nothing when there is none or it cannot be told.
  virtual std::optional<FileStamp> stamp(const std::string& path) const = 0;

  /// Creates the folder and those above it. An existing folder is no error.
  virtual std::error_code createDirectory(const std::string& path) = 0;

  /// Creates an empty file. An existing file is left alone and is no error, also when it came a moment ago: looking
  /// and creating are one step, so that nobody's content is lost. A folder in its place is an error.
  virtual std::error_code createFile(const std::string& path) = 0;

  /// Removes a file or an empty folder. One that is absent is an error.
  virtual std::error_code removeItem(const std::string& path) = 0;

  /// Reads the whole file into `content`, which is left alone on an error.
  virtual std::error_code readFile(const std::string& path, std::string& content) const = 0;

  /// Gives the file this content; it is created when it is not there, its folder is not.
  virtual std::error_code writeFile(const std::string& path, std::string_view content, WriteMode mode) = 0;
};

}  // namespace quillmar::platform
