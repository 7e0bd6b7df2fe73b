#include "support/ScriptedServer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <thread>

namespace quillmar::testing {

using namespace std::string_view_literals;
namespace asio = boost::asio;
using asio::ip::tcp;
using Then = Script::Then;

namespace {

constexpr auto resultAsTuple = asio::as_tuple(asio::use_awaitable);

struct Progress {
  asio::steady_timer nextRequest;
  std::atomic<int> requests{0};
  std::atomic<int> closed{0};
};

asio::awaitable<void> readRequest(tcp::socket& socket, std::string& buffer, const Script& script, Progress& progress) {
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
  const int last = (progress.requests++ / script.together + 1) * script.together;
  progress.nextRequest.cancel();
  while (progress.requests < last) {
    co_await progress.nextRequest.async_wait(resultAsTuple);
  }
}

asio::awaitable<void> play(tcp::socket socket, const Script& script, Progress& progress) {
  std::string received;
  for (int i = 0; i < script.answers; ++i) {
    const auto answer = asio::buffer("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"sv);
    co_await readRequest(socket, received, script, progress);
    co_await asio::async_write(socket, answer, resultAsTuple);
  }
  if (script.waitsForRequest) {
    co_await readRequest(socket, received, script, progress);
  }
  auto [failed, size] = co_await asio::async_write(socket, asio::buffer(script.bytes), resultAsTuple);
  std::string more = script.filler;
  while (script.then == Then::endless && more.size() < 65536) {
    more += script.filler;
  }
  asio::steady_timer pause(socket.get_executor());
  while (!failed && (script.then == Then::drip || script.then == Then::endless)) {
    if (script.then == Then::drip) {
      pause.expires_after(std::chrono::milliseconds(10));
      co_await pause.async_wait(resultAsTuple);
    }
    std::tie(failed, size) = co_await asio::async_write(socket, asio::buffer(more), resultAsTuple);
  }
  if (script.then == Then::close) {
    socket.shutdown(tcp::socket::shutdown_send, failed);
    ++progress.closed;
  }
  // Until the client gives up: closing with something unread would reset the connection.
  std::array<char, 4096> ignored{};
  while (!failed) {
    std::tie(failed, size) = co_await socket.async_read_some(asio::buffer(ignored), resultAsTuple);
  }
}

}  // namespace

struct ScriptedServer::State {
  Script script;
  asio::io_context io{1};
  Progress progress{asio::steady_timer(io, asio::steady_timer::time_point::max())};
  tcp::acceptor acceptor{io, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  const std::uint16_t port = acceptor.local_endpoint().port();
  std::thread thread;

  asio::awaitable<void> acceptAll() {
    for (int i = 0; i < script.connections; ++i) {
      tcp::socket socket = co_await acceptor.async_accept(asio::use_awaitable);
      asio::co_spawn(io, play(std::move(socket), script, progress), asio::detached);
    }
    acceptor.close();
  }
};

ScriptedServer::ScriptedServer(Script script) : state_(std::make_unique<State>()) {
  state_->script = std::move(script);
  asio::co_spawn(state_->io, state_->acceptAll(), asio::detached);
  state_->thread = std::thread([state = state_.get()] { state->io.run(); });
}

ScriptedServer::~ScriptedServer() {
  state_->io.stop();
  state_->thread.join();
}

std::string ScriptedServer::url() const {
  return "http://127.0.0.1:" + std::to_string(state_->port);
}

int ScriptedServer::requests() const {
  return state_->progress.requests;
}

int ScriptedServer::closed() const {
  return state_->progress.closed;
}

}  // namespace quillmar::testing
