#pragma once

#include <chrono>
#include <string>

namespace quillmar::bench {

/// A server in a process of its own: one event loop that answers like the event service, at once or after a while. It
/// ends with the object. To be made before the process has threads.
class FastServer {
 public:
  explicit FastServer(std::chrono::milliseconds delay = std::chrono::milliseconds(0));
  ~FastServer();
  FastServer(const FastServer&) = delete;
  FastServer& operator=(const FastServer&) = delete;

  const std::string& url() const noexcept { return url_; }

 private:
  int process_ = 0;
  int lifeline_ = -1;  ///< the server ends when this is closed, so also when we crash
  std::string url_;
};

}  // namespace quillmar::bench
