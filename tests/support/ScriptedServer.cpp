#include "support/ScriptedServer.h"

#include <boost/asio.hpp>
#include <thread>

namespace quillmar::testing {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

constexpr auto resultAsTuple = asio::as_tuple(asio::use_awaitable);

asio::awaitable<void> play(tcp::socket socket, Script script) {
  std::string head;
  auto buffer = asio::dynamic_buffer(head, 1U << 20U);
  co_await asio::async_read_until(socket, buffer, "\r\n\r\n", resultAsTuple);
  auto [failed, sent] = co_await asio::async_write(socket, asio::buffer(script.bytes), resultAsTuple);
  const std::string more(script.then == Script::Then::endless ? 65536 : 1, 'x');
  asio::steady_timer timer(socket.get_executor());
  while (!failed && script.then != Script::Then::close) {
    if (script.then == Script::Then::hang) {  // until the client gives up
      std::tie(failed, sent) = co_await socket.async_read_some(asio::buffer(head), resultAsTuple);
      continue;
    }
    if (script.then == Script::Then::drip) {
      timer.expires_after(script.interval);
      co_await timer.async_wait(resultAsTuple);
    }
    std::tie(failed, sent) = co_await asio::async_write(socket, asio::buffer(more), resultAsTuple);
  }
}

asio::awaitable<void> acceptAll(tcp::acceptor& acceptor, const Script& script) {
  for (;;) {
    tcp::socket socket = co_await acceptor.async_accept(asio::use_awaitable);
    asio::co_spawn(acceptor.get_executor(), play(std::move(socket), script), asio::detached);
  }
}

}  // namespace

struct ScriptedServer::State {
  Script script;
  asio::io_context io{1};
  tcp::acceptor acceptor{io, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  std::thread thread;
};

ScriptedServer::ScriptedServer(Script script) : state_(std::make_unique<State>()) {
  state_->script = std::move(script);
  asio::co_spawn(state_->io, acceptAll(state_->acceptor, state_->script), asio::detached);
  state_->thread = std::thread([state = state_.get()] { state->io.run(); });
}

ScriptedServer::~ScriptedServer() {
  state_->io.stop();
  state_->thread.join();
}

std::string ScriptedServer::url() const {
  return "http://127.0.0.1:" + std::to_string(state_->acceptor.local_endpoint().port()) + "/";
}

}  // namespace quillmar::testing
