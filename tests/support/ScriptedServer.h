#pragma once

#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <thread>

namespace quillmar::test {

namespace asio = boost::asio;

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
  explicit ScriptedServer(Script script) : script_(std::move(script)) {
    asio::co_spawn(io_, acceptAll(), asio::detached);
    thread_ = std::thread([this] { io_.run(); });
  }
  ~ScriptedServer() {
    io_.stop();
    thread_.join();
  }

  /// Without a slash at its end.
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  /// Read to their end so far.
  int requests() const { return requests_; }
  /// Connections that the script has closed so far.
  int closed() const { return closed_; }

 private:
  using tcp = asio::ip::tcp;
  using Then = Script::Then;
  static constexpr auto resultAsTuple = asio::as_tuple(asio::use_awaitable);

  asio::awaitable<void> acceptAll() {
    for (int i = 0; i < script_.connections; ++i) {
      tcp::socket socket = co_await acceptor_.async_accept(asio::use_awaitable);
      asio::co_spawn(io_, play(std::move(socket)), asio::detached);
    }
    acceptor_.close();
  }

  asio::awaitable<void> readRequest(tcp::socket& socket, std::string& buffer) {
    const auto [failed, head] =
        co_await asio::async_read_until(socket, asio::dynamic_buffer(buffer), "\r\n\r\n", resultAsTuple);
    const std::size_t length = buffer.find("Content-Length: ");
    const std::size_t size = head + (length < head ? std::stoul(buffer.substr(length + 16)) : 0);
    if (buffer.size() < size) {
      const auto rest = asio::transfer_exactly(size - buffer.size());
      co_await asio::async_read(socket, asio::dynamic_buffer(buffer), rest, resultAsTuple);
    }
    if (failed || buffer.size() < size) {
      co_return;
    }
    buffer.erase(0, size);
    const int last = (requests_++ / script_.together + 1) * script_.together;
    nextRequest_.cancel();
    while (requests_ < last) {
      co_await nextRequest_.async_wait(resultAsTuple);
    }
  }

  asio::awaitable<void> play(tcp::socket socket) {
    std::string received;
    for (int i = 0; i < script_.answers; ++i) {
      const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
      co_await readRequest(socket, received);
      co_await asio::async_write(socket, asio::buffer(answer), resultAsTuple);
    }
    if (script_.waitsForRequest) {
      co_await readRequest(socket, received);
    }
    auto [failed, size] = co_await asio::async_write(socket, asio::buffer(script_.bytes), resultAsTuple);
    std::string more = script_.filler;
    while (script_.then == Then::endless && more.size() < 65536) {
      more += script_.filler;
    }
    asio::steady_timer pause(io_);
    while (!failed && (script_.then == Then::drip || script_.then == Then::endless)) {
      if (script_.then == Then::drip) {
        pause.expires_after(std::chrono::milliseconds(10));
        co_await pause.async_wait(resultAsTuple);
      }
      std::tie(failed, size) = co_await asio::async_write(socket, asio::buffer(more), resultAsTuple);
    }
    if (script_.then == Then::close) {
      socket.shutdown(tcp::socket::shutdown_send, failed);
      ++closed_;
    }
    // Until the client gives up: closing with something unread would reset the connection.
    std::array<char, 4096> ignored{};
    while (!failed) {
      std::tie(failed, size) = co_await socket.async_read_some(asio::buffer(ignored), resultAsTuple);
    }
  }

  const Script script_;
  std::atomic<int> requests_{0};
  std::atomic<int> closed_{0};
  asio::io_context io_{1};
  asio::steady_timer nextRequest_{io_, asio::steady_timer::time_point::max()};
  tcp::acceptor acceptor_{io_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  const std::uint16_t port_ = acceptor_.local_endpoint().port();
  std::thread thread_;
};

}  // namespace quillmar::test
