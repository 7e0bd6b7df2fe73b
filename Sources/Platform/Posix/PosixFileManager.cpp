#include "Platform/Posix/PosixFileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "Platform/Posix/NoWriteSignals.h"
#include "Platform/Posix/SystemFiles.h"

namespace quillmar::platform {

namespace {

constexpr mode_t directoryMode = 0700;
constexpr mode_t fileMode = 0600;
constexpr std::size_t largestFile = std::size_t{64} << 20;

std::error_code lastError() {
  return {errno, std::generic_category()};
}

/// Calls a system function again for as long as signals interrupt it.
template <class Call>
auto retrying(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) {
    result = call();
  }
  return result;
}

/// An open file or folder; closed when it goes.
class Descriptor {
 public:
  Descriptor(const std::string& path, int flags)
      : value_(retrying([&] { return ::open(path.c_str(), flags | O_CLOEXEC, fileMode); })) {}
  ~Descriptor() {
    if (value_ != -1) {
      ::close(value_);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  explicit operator bool() const noexcept { return value_ != -1; }
  int get() const noexcept { return value_; }

  /// Closes the file; some file systems tell of a failed write only now.
  std::error_code close() {
    // Interrupted or not, the descriptor is gone afterwards.
    const int result = ::close(std::exchange(value_, -1));
    return result == -1 && errno != EINTR ? lastError() : std::error_code{};
  }

 private:
  int value_;
};

std::error_code writeAll(int file, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = retrying([&] { return ::write(file, content.data(), content.size()); });
    if (written == -1) {
      return lastError();
    }
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return {};
}

std::error_code sync(int file) {
  return retrying([&] { return syncToDisk(file); }) == -1 ? lastError() : std::error_code{};
}

/// Of what is at the path itself, be it a link.
std::optional<struct stat> status(const std::string& path) {
  struct stat result{};
  return ::lstat(path.c_str(), &result) == 0 ? std::optional(result) : std::nullopt;
}

/// Of a folder, which may be reached by links.
std::optional<struct stat> folderStatus(const std::string& path) {
  struct stat result{};
  return ::stat(path.c_str(), &result) == 0 ? std::optional(result) : std::nullopt;
}

/// Opens a file that must be a regular one of this user: neither a link that somebody placed there, nor a pipe, which
/// would hold us.
std::error_code openOwn(std::optional<Descriptor>& file, const std::string& path, int flags) {
  struct stat found{};
  file.emplace(path, flags | O_NOFOLLOW | O_NONBLOCK);
  if (!*file || ::fstat(file->get(), &found) == -1) {
    return lastError();
  }
  if (S_ISDIR(found.st_mode)) {
    return std::make_error_code(std::errc::is_a_directory);
  }
  if (!S_ISREG(found.st_mode)) {
    return std::make_error_code(std::errc::operation_not_supported);
  }
  return found.st_uid == ::geteuid() ? std::error_code{} : std::make_error_code(std::errc::operation_not_permitted);
}

std::int64_t nanoseconds(const struct timespec& time) {
  return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

std::error_code writeDirectly(const std::string& path, std::string_view content) {
  std::optional<Descriptor> file;
  if (const std::error_code failure = openOwn(file, path, O_WRONLY | O_CREAT)) {
    return failure;
  }
  if (retrying([&] { return ::ftruncate(file->get(), 0); }) == -1) {
    return lastError();
  }
  const std::error_code failure = writeAll(file->get(), content);
  const std::error_code closeFailure = file->close();
  return failure ? failure : closeFailure;
}

/// Writes a new file, down to the disk.
std::error_code writeNewFile(Descriptor& file, std::string_view content) {
  if (const std::error_code failure = writeAll(file.get(), content)) {
    return failure;
  }
  if (const std::error_code failure = sync(file.get())) {
    return failure;
  }
  return file.close();
}

std::error_code writeAtomically(const std::string& path, std::string_view content) {
  // Unique in the process by the counter, among processes by the identifier. A left-over of a killed process that had
  // the same identifier is passed over.
  static std::atomic<unsigned> counter{0};
  std::string temporary;
  std::optional<Descriptor> file;
  do {
    temporary = path + "." + std::to_string(::getpid()) + "-" + std::to_string(++counter) + ".tmp";
    file.emplace(temporary, O_WRONLY | O_CREAT | O_EXCL);
  } while (!*file && errno == EEXIST);
  if (!*file) {
    return lastError();
  }
  std::error_code failure = writeNewFile(*file, content);
  if (!failure && ::rename(temporary.c_str(), path.c_str()) == -1) {
    failure = lastError();
  }
  if (failure) {
    ::unlink(temporary.c_str());
    return failure;
  }
  // The new name must reach the disk as well. The new content is in place already, so a folder that cannot be opened
  // or synced (some file systems refuse) is no failure of the write.
  const std::size_t slash = path.rfind('/');
  const Descriptor folder(slash == std::string::npos ? "." : path.substr(0, slash + 1), O_RDONLY | O_DIRECTORY);
  if (folder) {
    static_cast<void>(sync(folder.get()));
  }
  return {};
}

}  // namespace

PosixFileManager::PosixFileManager(std::optional<std::string> documentsDirectory)
    : documentsDirectory_(std::move(documentsDirectory)) {}

std::optional<std::string> PosixFileManager::documentsDirectory() const {
  return documentsDirectory_;
}

bool PosixFileManager::fileExists(const std::string& path) const {
  if (status(path)) {
    return true;
  }
  const int error = errno;
  return error == EIO || error == ENOMEM || error == ESTALE;
}

std::optional<FileStamp> PosixFileManager::stamp(const std::string& path) const {
  const auto found = status(path);
  if (!found || !S_ISREG(found->st_mode)) {
    return std::nullopt;
  }
  return FileStamp{static_cast<std::uint64_t>(found->st_dev), static_cast<std::uint64_t>(found->st_ino),
                   static_cast<std::uint64_t>(found->st_size), nanoseconds(modificationTime(*found)),
                   nanoseconds(changeTime(*found))};
}

std::error_code PosixFileManager::createDirectory(const std::string& path) {
  for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string folder = path.substr(0, end);
    // Looked at first, since a read-only file system answers for an existing folder with its own error.
    auto found = folderStatus(folder);
    if (!found && ::mkdir(folder.c_str(), directoryMode) == -1) {
      const std::error_code failure = lastError();
      found = folderStatus(folder);  // somebody else may have made it meanwhile
      if (!found) {
        return failure;
      }
    }
    if (found && !S_ISDIR(found->st_mode)) {
      return std::make_error_code(end == std::string::npos ? std::errc::file_exists : std::errc::not_a_directory);
    }
    if (end == std::string::npos) {
      return {};
    }
  }
}

std::error_code PosixFileManager::createFile(const std::string& path) {
  const Descriptor file(path, O_WRONLY | O_CREAT | O_EXCL);
  if (file || errno != EEXIST) {
    return file ? std::error_code{} : lastError();
  }
  const auto found = status(path);
  return found && S_ISDIR(found->st_mode) ? std::make_error_code(std::errc::is_a_directory) : std::error_code{};
}

std::error_code PosixFileManager::removeItem(const std::string& path) {
  return std::remove(path.c_str()) == -1 ? lastError() : std::error_code{};
}

std::error_code PosixFileManager::readFile(const std::string& path, std::string& content) const {
  std::optional<Descriptor> file;
  if (const std::error_code failure = openOwn(file, path, O_RDONLY)) {
    return failure;
  }
  std::string bytes;
  constexpr std::size_t step = std::size_t{64} << 10;
  for (std::size_t size = 0;;) {
    bytes.resize(size + step);
    const ssize_t count = retrying([&] { return ::read(file->get(), bytes.data() + size, step); });
    if (count == -1) {
      return lastError();
    }
    size += static_cast<std::size_t>(count);
    if (size > largestFile) {
      return std::make_error_code(std::errc::file_too_large);
    }
    if (count == 0) {
      bytes.resize(size);
      content = std::move(bytes);
      return {};
    }
  }
}

std::error_code PosixFileManager::writeFile(const std::string& path, std::string_view content, WriteMode mode) {
  if (content.size() > largestFile) {
    return std::make_error_code(std::errc::file_too_large);  // nobody could read it again
  }
  const NoWriteSignals noSignals;
  return mode == WriteMode::atomic ? writeAtomically(path, content) : writeDirectly(path, content);
}

}  // namespace quillmar::platform
