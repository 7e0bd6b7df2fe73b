#include "support/ScriptedServer.h"

#include <algorithm>
#include <array>
#include <boost/asio.hpp>
#include <cstdlib>
#include <mutex>
#include <string_view>
#include <thread>

namespace quillmar::testing {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

constexpr auto resultAsTuple = asio::as_tuple(asio::use_awaitable);

std::size_t bodyLength(const std::string& head) {
  constexpr std::string_view name = "Content-Length: ";
  const std::size_t at = head.find(name);
  return at == std::string::npos ? 0 : std::strtoul(head.c_str() + at + name.size(), nullptr, 10);
}

}  // namespace

struct ScriptedServer::State {
  Script script;
  mutable std::mutex mutex;
  std::vector<std::string> requests;
  asio::io_context io{1};
  tcp::acceptor acceptor{io, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  std::thread thread;

  static asio::awaitable<void> pause(std::chrono::milliseconds duration) {
    asio::steady_timer timer(co_await asio::this_coro::executor, duration);
    co_await timer.async_wait(resultAsTuple);
  }

  static asio::awaitable<void> play(tcp::socket socket, State& state) {
    const Script& script = state.script;
    std::string head;
    auto buffer = asio::dynamic_buffer(head, 1U << 20U);
    if (script.waitsForHead) {
      const auto [cut, size] = co_await asio::async_read_until(socket, buffer, "\r\n\r\n", resultAsTuple);
      // The body too: closing with something unread would reset the connection.
      const std::size_t end = size + bodyLength(head);
      if (!cut && head.size() < end) {
        co_await asio::async_read(socket, buffer, asio::transfer_exactly(end - head.size()), resultAsTuple);
      }
      const std::lock_guard lock(state.mutex);
      state.requests.push_back(head);
    }
    if (script.silenceAtFirst.count() > 0) {
      co_await pause(script.silenceAtFirst);
    }
    socket.set_option(tcp::no_delay(true));
    const std::size_t piece = script.byteByByte ? 1 : std::max<std::size_t>(script.bytes.size(), 1);
    boost::system::error_code failed;
    std::size_t sent = 0;
    for (std::size_t from = 0; from < script.bytes.size() && !failed; from += piece) {
      std::tie(failed, sent) =
          co_await asio::async_write(socket, asio::buffer(script.bytes.data() + from, piece), resultAsTuple);
    }
    std::string more = script.filler;
    while (script.then == Script::Then::endless && more.size() < 65536) {
      more += script.filler;
    }
    while (!failed && script.then != Script::Then::close && script.then != Script::Then::reset) {
      if (script.then == Script::Then::hang) {  // until the client gives up
        std::array<char, 4096> ignored{};
        std::tie(failed, sent) = co_await socket.async_read_some(asio::buffer(ignored), resultAsTuple);
        continue;
      }
      if (script.then == Script::Then::drip) {
        co_await pause(script.interval);
      }
      std::tie(failed, sent) = co_await asio::async_write(socket, asio::buffer(more), resultAsTuple);
    }
    if (script.then == Script::Then::reset) {
      socket.set_option(asio::socket_base::linger(true, 0), failed);
    }
  }

  static asio::awaitable<void> acceptAll(State& state) {
    for (;;) {
      tcp::socket socket = co_await state.acceptor.async_accept(asio::use_awaitable);
      asio::co_spawn(state.io, play(std::move(socket), state), asio::detached);
    }
  }
};

ScriptedServer::ScriptedServer(Script script) : state_(std::make_unique<State>()) {
  state_->script = std::move(script);
  asio::co_spawn(state_->io, State::acceptAll(*state_), asio::detached);
  state_->thread = std::thread([state = state_.get()] { state->io.run(); });
}

ScriptedServer::~ScriptedServer() {
  state_->io.stop();
  state_->thread.join();
}

std::string ScriptedServer::url() const {
  return "http://127.0.0.1:" + std::to_string(state_->acceptor.local_endpoint().port()) + "/";
}

std::vector<std::string> ScriptedServer::requests() const {
  const std::lock_guard lock(state_->mutex);
  return state_->requests;
}

}  // namespace quillmar::testing
