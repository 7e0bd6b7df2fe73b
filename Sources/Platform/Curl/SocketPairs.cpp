#include "Platform/Curl/SocketPairs.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <vector>

#include "Platform/Curl/CurlHandles.h"

namespace quillmar::platform {

namespace {

/// What tells our bytes from anybody's.
using Mark = std::array<std::uint64_t, 2>;

/// Whether children would inherit it, as they do one end of a socket pair of libcurl's.
bool isInheritedPairEnd(int fd) noexcept {
  sockaddr address{};
  socklen_t size = sizeof(address);
  const int flags = ::fcntl(fd, F_GETFD);
  return flags != -1 && (flags & FD_CLOEXEC) == 0 && ::getsockname(fd, &address, &size) == 0 &&
         address.sa_family == AF_UNIX && size == sizeof(address.sa_family);
}

std::vector<int> inheritedPairEnds() {
  std::vector<int> ends;
  const std::unique_ptr<DIR, Release<::closedir>> folder(::opendir("/proc/self/fd"));
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else has this folder
  while (const dirent* entry = folder ? ::readdir(folder.get()) : nullptr) {
    if (const int fd = std::atoi(entry->d_name); entry->d_name[0] != '.' && isInheritedPairEnd(fd)) {
      ends.push_back(fd);
    }
  }
  return ends;
}

int bytesToRead(int fd) noexcept {
  int bytes = -1;
  return ::ioctl(fd, SIOCINQ, &bytes) == 0 ? bytes : -1;
}

void closeOnExec(int fd) noexcept {
  static_cast<void>(::fcntl(fd, F_SETFD, FD_CLOEXEC));
}

/// `reader` is the end that libcurl reads: it never looks at what comes out at the other one, so that is where the mark
/// that is put into this one shows, and nowhere else.
void closePairOnExec(int reader, const std::vector<int>& ends) noexcept {
  closeOnExec(reader);
  const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
  const Mark mark{static_cast<std::uint64_t>(now), reinterpret_cast<std::uintptr_t>(&mark)};
  if (::send(reader, mark.data(), sizeof(mark), MSG_DONTWAIT | MSG_NOSIGNAL) != sizeof(mark)) {
    return;
  }
  for (const int fd : ends) {
    Mark seen{};
    if (bytesToRead(fd) == sizeof(mark) &&
        ::recv(fd, seen.data(), sizeof(seen), MSG_PEEK | MSG_DONTWAIT) == sizeof(seen) && seen == mark) {
      static_cast<void>(::recv(fd, seen.data(), sizeof(seen), MSG_DONTWAIT));
      return closeOnExec(fd);
    }
  }
}

}  // namespace

/// Our reading end has as many bytes to read as there were wake-ups, and none after libcurl has taken them. If one end
/// alone does so each time, it is that.
void closeWakeUpPairOnExec(CURLM* multi) noexcept try {
  const std::vector<int> ends = inheritedPairEnds();
  std::vector<int> readers = ends;
  const auto keepThoseWith = [&](int bytes) {
    std::erase_if(readers, [=](int fd) { return bytesToRead(fd) != bytes; });
  };
  keepThoseWith(0);
  for (const int wakeUps : {1, 3}) {
    for (int i = 0; i < wakeUps; ++i) {
      curl_multi_wakeup(multi);
    }
    keepThoseWith(wakeUps);
    curl_multi_poll(multi, nullptr, 0, 0, nullptr);
    keepThoseWith(0);
  }
  if (readers.size() == 1) {
    closePairOnExec(readers.front(), ends);
  }
} catch (const std::exception&) {  // no memory for the list
}

/// Of what libcurl waits for, these alone are no connections.
void closeResolverPairsOnExec(CURLM* multi) noexcept try {
  fd_set reading;
  fd_set writing;
  fd_set other;
  for (fd_set* set : {&reading, &writing, &other}) {
    FD_ZERO(set);
  }
  int last = -1;
  curl_multi_fdset(multi, &reading, &writing, &other, &last);  // leaves out what no set has room for
  std::vector<int> ends;
  for (int fd = 0; fd <= last; ++fd) {
    if (FD_ISSET(fd, &reading) && isInheritedPairEnd(fd)) {
      ends = ends.empty() ? inheritedPairEnds() : std::move(ends);
      closePairOnExec(fd, ends);
    }
  }
} catch (const std::exception&) {  // no memory for the list
}

}  // namespace quillmar::platform
