#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace quillmar::testing {

/// What a connection gets once it has sent a request head.
struct Script {
  enum class Then : std::uint8_t {
    close,
    hang,     ///< say nothing more
    drip,     ///< one byte each interval
    endless,  ///< bytes as fast as they are taken
  };

  std::string bytes;
  Then then = Then::close;
  std::chrono::milliseconds interval{50};
};

/// A server on a free loopback port that treats each connection as its script says. One thread.
class ScriptedServer {
 public:
  explicit ScriptedServer(Script script);
  ~ScriptedServer();

  std::string url() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quillmar::testing
