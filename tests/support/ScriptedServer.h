#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace quillmar::testing {

/// What a connection gets once it has sent a request.
struct Script {
  enum class Then : std::uint8_t {
    close,
    hang,     ///< say nothing more
    drip,     ///< the filler, again and again, with pauses
    endless,  ///< the filler as fast as it is taken
  };

  std::string bytes = {};
  Then then = Then::close;
  std::string filler = "x";
  bool waitsForRequest = true;  ///< false: does not read it
  int answers = 0;              ///< so many requests get an empty 200 first
  int together = 1;             ///< so many requests are held until the last of them has come
  int connections = 1'000'000;  ///< after so many, nobody listens
};

/// A server on a free loopback port that treats each connection as its script says. One thread.
class ScriptedServer {
 public:
  explicit ScriptedServer(Script script);
  ~ScriptedServer();

  std::string url() const;  ///< without a slash at its end
  int requests() const;     ///< read to their end so far
  int closed() const;       ///< connections that the script has closed so far

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quillmar::testing
