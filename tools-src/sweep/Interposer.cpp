// To be loaded ahead of the C library (LD_PRELOAD). Counts the calls of the process that touch a folder, and ends the
// process in place of one of them, or lets some of them fail, as an environment variable says.

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "Run.h"

namespace {

using quillmar::sweep::Injection;

const Injection injection = [] {
  Injection read;
  const char* text = std::getenv(Injection::variable);
  std::istringstream(text == nullptr ? "" : text) >> read.kind >> read.first >> read.count >> read.variant >>
      read.reads >> read.folder;
  return read;
}();

/// What a call does.
enum Group { writing, resizing, syncing, naming, looking, locking, connecting, nothing };

/// What the calls of each group fail with.
constexpr std::array<int, 2> errors[] = {{ENOSPC, EIO},   {ENOSPC, EACCES}, {EIO, ENOSPC},
                                         {EACCES, EROFS}, {EIO, EACCES},    {EAGAIN, EAGAIN}};

std::string pathOf(const char* path) {
  return path;
}

struct Socket {};  ///< counts as lying in the folder

std::string pathOf(Socket) {
  return injection.folder + "/a socket";
}

std::string pathOf(int descriptor) {
  std::array<char, 4096> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = ::readlink(link.c_str(), path.data(), path.size());
  return {path.data(), static_cast<std::size_t>(length < 0 ? 0 : length)};
}

Group groupOfOpen(int flags) {
  return (flags & (O_CREAT | O_TRUNC)) != 0 ? resizing : looking;
}

Group groupOfControl(int command, const void* argument) {
  const bool locks = command == F_SETLK || command == F_SETLK64;
  return locks && static_cast<const struct flock*>(argument)->l_type != F_UNLCK ? locking : nothing;
}

std::atomic<std::size_t> calls{0};  ///< of all threads together

template <class File>
bool isHit(const char* name, Group group, File file, const std::size_t* size) {
  bool counts = group != nothing && (injection.reads || group != looking);
  if (group == connecting) {
    counts = injection.kind == Injection::forbid;
  }
  if (injection.kind == Injection::tear) {
    counts = group == writing && *size > 1;
  } else if (group == locking) {  // one that is never to be had costs the whole wait for it at each write
    counts = injection.reads && injection.count == 1;
  }
  if (injection.kind == Injection::none || !counts) {
    return false;
  }
  const int earlier = errno;
  const std::string path = pathOf(file);
  errno = earlier;
  if (path.rfind(injection.folder + '/', 0) != 0) {
    return false;
  }
  const std::size_t call = ++calls;
  if (call == injection.first) {  // comes through here, too, but is not in the folder
    std::ofstream(injection.folder + Injection::reportSuffix) << name << ' ' << path.substr(path.rfind('/') + 1);
  }
  return call >= injection.first && call - injection.first < injection.count;
}

template <class File, class Call>
auto intercept(const char* name, Group group, File file, std::size_t* size, Call call) -> decltype(call()) {
  if (!isHit(name, group, file, size)) {
    return call();
  }
  if (injection.kind == Injection::fail) {
    errno = errors[group][injection.variant];
    return (decltype(call()))-1L;  // NOLINT(performance-no-int-to-ptr): as MAP_FAILED is defined
  }
  if (injection.kind == Injection::tear) {
    *size /= 2;
    call();
  }
  for (;;) {
    ::kill(::getpid(), SIGKILL);
  }
}

}  // namespace

// Under another name in C++, because of the C library's own declarations.
// NOLINTBEGIN(bugprone-macro-parentheses): a type and a list of parameters take none
#define INTERPOSE(Result, name, parameters, arguments, group, file, size)                               \
  extern "C" __attribute__((visibility("default"))) Result interposed_##name parameters __asm__(#name); \
  Result interposed_##name parameters {                                                                 \
    static const auto original = reinterpret_cast<Result(*) parameters>(::dlsym(RTLD_NEXT, #name));     \
    return intercept(#name, group, file, size, [&] { return original arguments; });                     \
  }

// NOLINTEND(bugprone-macro-parentheses)

// A call that exists for files of any size, too.
#define INTERPOSE_BOTH(Result, name, ...) INTERPOSE(Result, name, __VA_ARGS__) INTERPOSE(Result, name##64, __VA_ARGS__)
static_assert(sizeof(off_t) == sizeof(off64_t));

// clang-format off
INTERPOSE_BOTH(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode), groupOfOpen(flags), path, nullptr)
INTERPOSE_BOTH(int, openat, (int at, const char* path, int flags, mode_t mode), (at, path, flags, mode), groupOfOpen(flags), path, nullptr)
INTERPOSE_BOTH(int, creat, (const char* path, mode_t mode), (path, mode), resizing, path, nullptr)
INTERPOSE(ssize_t, write, (int file, const void* data, size_t size), (file, data, size), writing, file, &size)
INTERPOSE(ssize_t, writev, (int file, const void* parts, int count), (file, parts, count), resizing, file, nullptr)
INTERPOSE_BOTH(ssize_t, pwrite, (int file, const void* data, size_t size, off64_t at), (file, data, size, at), writing, file, &size)
INTERPOSE_BOTH(int, ftruncate, (int file, off64_t size), (file, size), resizing, file, nullptr)
INTERPOSE_BOTH(int, truncate, (const char* path, off64_t size), (path, size), resizing, path, nullptr)
INTERPOSE(int, fsync, (int file), (file), syncing, file, nullptr)
INTERPOSE(int, fdatasync, (int file), (file), syncing, file, nullptr)
INTERPOSE(int, rename, (const char* path, const char* target), (path, target), naming, path, nullptr)
INTERPOSE(int, renameat, (int at, const char* path, int to, const char* target), (at, path, to, target), naming, path, nullptr)
INTERPOSE(int, unlink, (const char* path), (path), naming, path, nullptr)
INTERPOSE(int, unlinkat, (int at, const char* path, int flags), (at, path, flags), naming, path, nullptr)
INTERPOSE(int, remove, (const char* path), (path), naming, path, nullptr)
INTERPOSE(int, rmdir, (const char* path), (path), naming, path, nullptr)
INTERPOSE(int, mkdir, (const char* path, mode_t mode), (path, mode), naming, path, nullptr)
INTERPOSE(int, fchmod, (int file, mode_t mode), (file, mode), naming, file, nullptr)
INTERPOSE(int, socket, (int domain, int type, int protocol), (domain, type, protocol), connecting, Socket(), nullptr)
INTERPOSE(ssize_t, read, (int file, void* data, size_t size), (file, data, size), looking, file, nullptr)
INTERPOSE_BOTH(ssize_t, pread, (int file, void* data, size_t size, off64_t at), (file, data, size, at), looking, file, nullptr)
INTERPOSE_BOTH(void*, mmap, (void* place, size_t size, int access, int flags, int file, off64_t at), (place, size, access, flags, file, at), looking, file, nullptr)
INTERPOSE_BOTH(int, stat, (const char* path, void* status), (path, status), looking, path, nullptr)
INTERPOSE_BOTH(int, lstat, (const char* path, void* status), (path, status), looking, path, nullptr)
INTERPOSE_BOTH(int, fstat, (int file, void* status), (file, status), looking, file, nullptr)
INTERPOSE(int, access, (const char* path, int mode), (path, mode), looking, path, nullptr)
INTERPOSE_BOTH(int, fcntl, (int file, int command, void* argument), (file, command, argument), groupOfControl(command, argument), file, nullptr)
