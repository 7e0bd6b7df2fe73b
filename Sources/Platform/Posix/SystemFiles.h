#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

// Where the POSIX systems differ about files.

namespace quillmar::platform {

#if defined(__APPLE__)

inline const timespec& modificationTime(const struct stat& status) {
  return status.st_mtimespec;
}

inline const timespec& changeTime(const struct stat& status) {
  return status.st_ctimespec;
}

/// Waits until the content is on the disk. Here fsync() leaves it in the drive's memory. Some file systems do not know
/// the stronger call.
inline int syncToDisk(int file) {
  const int result = ::fcntl(file, F_FULLFSYNC);
  return result == -1 && (errno == ENOTSUP || errno == ENOTTY || errno == EINVAL) ? ::fsync(file) : result;
}

#else

inline const timespec& modificationTime(const struct stat& status) {
  return status.st_mtim;
}

inline const timespec& changeTime(const struct stat& status) {
  return status.st_ctim;
}

/// Waits until the content is on the disk.
inline int syncToDisk(int file) {
  return ::fsync(file);
}

#endif

}  // namespace quillmar::platform
