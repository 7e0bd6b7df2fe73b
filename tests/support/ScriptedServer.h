#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

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

/// A server on a free loopback port that misbehaves as it is told: each connection gets the next script, all further
/// ones the last. One thread.
class ScriptedServer {
 public:
  explicit ScriptedServer(std::vector<Script> scripts);
  ~ScriptedServer();

  std::string url() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quillmar::testing
