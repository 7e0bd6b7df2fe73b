#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace quillmar::testing {

/// What a connection gets once it has sent a request.
struct Script {
  enum class Then : std::uint8_t {
    close,
    reset,    ///< close so that the client's system hears of an error
    hang,     ///< say nothing more
    drip,     ///< the filler, again and again, each interval
    endless,  ///< the filler as fast as it is taken
  };

  std::string bytes = {};
  Then then = Then::close;
  std::chrono::milliseconds interval{50};
  std::string filler = "x";
  bool waitsForHead = true;     ///< false: speaks first
  bool byteByByte = false;      ///< each of the bytes in a packet of its own
  bool answersFirst = false;    ///< the first request gets an empty 200; with the second comes the above
  int connections = 1'000'000;  ///< after so many, nobody listens
  int together = 1;             ///< so many requests are held until the last of them has come
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
