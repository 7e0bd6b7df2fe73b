#include "support/ScriptedServer.h"

#include <algorithm>
#include <array>
#include <boost/asio.hpp>
#include <thread>

namespace quillmar::testing {

namespace asio = boost::asio;
using asio::ip::tcp;
using Then = Script::Then;

namespace {

constexpr auto resultAsTuple = asio::as_tuple(asio::use_awaitable);

asio::awaitable<void> play(tcp::socket socket, const Script& script) {
  std::string head;
  if (script.waitsForHead) {
    co_await asio::async_read_until(socket, asio::dynamic_buffer(head), "\r\n\r\n", resultAsTuple);
  }
  socket.set_option(tcp::no_delay(true));
  const std::size_t piece = script.byteByByte ? 1 : std::max<std::size_t>(script.bytes.size(), 1);
  boost::system::error_code failed;
  std::size_t size = 0;
  for (std::size_t from = 0; from < script.bytes.size() && !failed; from += piece) {
    const auto bytes = asio::buffer(script.bytes.data() + from, piece);
    std::tie(failed, size) = co_await asio::async_write(socket, bytes, resultAsTuple);
  }
  std::string more = script.filler;
  while (script.then == Then::endless && more.size() < 65536) {
    more += script.filler;
  }
  asio::steady_timer pause(socket.get_executor());
  while (!failed && (script.then == Then::drip || script.then == Then::endless)) {
    if (script.then == Then::drip) {
      pause.expires_after(script.interval);
      co_await pause.async_wait(resultAsTuple);
    }
    std::tie(failed, size) = co_await asio::async_write(socket, asio::buffer(more), resultAsTuple);
  }
  if (script.then == Then::reset) {
    socket.set_option(asio::socket_base::linger(true, 0), failed);
    co_return;
  }
  if (script.then == Then::close) {
    socket.shutdown(tcp::socket::shutdown_send, failed);
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
  tcp::acceptor acceptor{io, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  std::thread thread;

  asio::awaitable<void> acceptAll() {
    for (;;) {
      tcp::socket socket = co_await acceptor.async_accept(asio::use_awaitable);
      asio::co_spawn(io, play(std::move(socket), script), asio::detached);
    }
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
  return "http://127.0.0.1:" + std::to_string(state_->acceptor.local_endpoint().port());
}

}  // namespace quillmar::testing
