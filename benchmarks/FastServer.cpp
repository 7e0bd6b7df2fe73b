#include "FastServer.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "Fixtures.h"

namespace quillmar::bench {

namespace {

int require(int result) {
  if (result == -1) {
    throw std::system_error(errno, std::generic_category(), "the bench's server");
  }
  return result;
}

std::string response(std::string_view body) {
  return fmt::format("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: {}\r\n\r\n{}", body.size(),
                     body);
}

class Loop {
 public:
  Loop(int listener, int lifeline, std::chrono::milliseconds delay)
      : listener_(listener), lifeline_(lifeline), delay_(delay), epoll_(require(::epoll_create1(0))) {
    watch(listener_);
    watch(lifeline_);
  }

  void run() {
    std::array<epoll_event, 64> events{};
    for (;;) {
      const int count = ::epoll_wait(epoll_, events.data(), events.size(), untilNextAnswer());
      for (int i = 0; i < count; ++i) {
        const int ready = events[static_cast<std::size_t>(i)].data.fd;
        if (ready == lifeline_) {
          return;
        }
        ready == listener_ ? acceptOne() : receive(ready);
      }
      while (!due_.empty() && due_.front().first <= SteadyClock::now()) {
        answer(due_.front().second.first, due_.front().second.second);
        due_.pop_front();
      }
    }
  }

 private:
  void watch(int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    require(::epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event));
  }

  int untilNextAnswer() const {
    if (due_.empty()) {
      return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due_.front().first - SteadyClock::now());
    return std::max(0, static_cast<int>(left.count()));
  }

  void acceptOne() {
    const int connection = require(::accept(listener_, nullptr, nullptr));
    const int on = 1;
    require(::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)));
    received_[connection];
    watch(connection);
  }

  void receive(int connection) {
    std::array<char, 16384> buffer{};
    const ssize_t count = ::read(connection, buffer.data(), buffer.size());
    std::string& bytes = received_[connection];
    if (count <= 0) {
      received_.erase(connection);
      ::close(connection);
      return;
    }
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
    while (const std::optional<std::size_t> size = requestSize(bytes)) {
      const bool isGet = bytes.starts_with("GET");
      bytes.erase(0, *size);
      if (delay_.count() == 0 || isGet) {
        answer(connection, isGet);
      } else {
        due_.push_back({SteadyClock::now() + delay_, {connection, isGet}});
      }
    }
  }

  static std::optional<std::size_t> requestSize(const std::string& bytes) {
    const std::size_t head = bytes.find("\r\n\r\n");
    if (head == std::string::npos) {
      return std::nullopt;
    }
    const std::size_t length = bytes.find("Content-Length: ");
    const std::size_t body = length < head ? std::strtoul(bytes.c_str() + length + 16, nullptr, 10) : 0;
    return bytes.size() >= head + 4 + body ? std::optional(head + 4 + body) : std::nullopt;
  }

  void answer(int connection, bool isGet) {
    const std::string_view bytes = isGet ? configuration_ : success_;
    if (received_.contains(connection)) {
      static_cast<void>(::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL));  // fits into the socket's buffer
    }
  }

  const int listener_;
  const int lifeline_;
  const std::chrono::milliseconds delay_;
  const int epoll_;
  const std::string configuration_ = response(configurationResponse());
  const std::string success_ = response(R"({"status":"success","message":"Event logged"})");
  std::map<int, std::string> received_;  ///< by connection, what has come and not been answered
  std::deque<std::pair<SteadyClock::time_point, std::pair<int, bool>>> due_;
};

}  // namespace

FastServer::FastServer(std::chrono::milliseconds delay) {
  const int listener = require(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  require(::bind(listener, reinterpret_cast<sockaddr*>(&address), size));
  require(::listen(listener, 64));
  require(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size));
  url_ = fmt::format("http://127.0.0.1:{}", ntohs(address.sin_port));
  std::array<int, 2> ends{};
  require(::pipe(ends.data()));
  process_ = require(::fork());
  if (process_ == 0) {
    ::close(ends[1]);
    try {
      Loop(listener, ends[0], delay).run();
    } catch (...) {
      ::_exit(1);
    }
    ::_exit(0);
  }
  ::close(ends[0]);
  ::close(listener);
  lifeline_ = ends[1];
}

FastServer::~FastServer() {
  ::close(lifeline_);
  ::waitpid(process_, nullptr, 0);
}

}  // namespace quillmar::bench
