#include "service/DevelopmentService.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/stream_traits.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <chrono>
#include <exception>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

namespace quillmar::service {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace ssl = boost::asio::ssl;
using asio::ip::tcp;
using PlainStream = beast::tcp_stream;
using SecureStream = beast::ssl_stream<beast::tcp_stream>;

constexpr auto kPatience = std::chrono::seconds(60);        // for the next request, and for each step of it
constexpr auto kClosingPatience = std::chrono::seconds(2);  // for a client that goes on sending after a refusal
constexpr auto kAcceptPause = std::chrono::milliseconds(50);
constexpr std::uint32_t kMaxHeaderBytes = 64U << 10U;

constexpr auto resultAsTuple = asio::as_tuple(asio::use_awaitable);

ServiceRequest toServiceRequest(http::request<http::string_body>&& message) {
  ServiceRequest request;
  request.method = std::string(message.method_string());
  request.target = std::string(message.target());
  for (const auto& field : message) {
    const auto [place, added] = request.headers.emplace(field.name_string(), field.value());
    if (!added) {
      place->second.append(", ").append(field.value());
    }
  }
  request.body = std::move(message.body());
  return request;
}

http::response<http::string_body> toResponse(ServiceAnswer&& answer, unsigned version, bool keepAlive) {
  http::response<http::string_body> response;
  response.version(version);
  response.result(static_cast<unsigned>(answer.status));
  for (const auto& [name, value] : answer.headers) {
    response.set(name, value);
  }
  const bool mayHaveBody = answer.status >= 200 && answer.status != 204 && answer.status != 304;
  if (mayHaveBody) {
    response.set(http::field::content_type, answer.contentType);
    response.body() = std::move(answer.body);
  }
  response.keep_alive(keepAlive);
  response.prepare_payload();
  return response;
}

}  // namespace

/// Everything that the coroutines use. They are destroyed with `io`, before the rest.
struct DevelopmentService::Server {
  Server(const DevelopmentServiceOptions& options_, const ServiceHandler& handler_)
      : options(options_), handler(handler_) {}

  const DevelopmentServiceOptions& options;
  const ServiceHandler& handler;
  std::optional<ssl::context> tls;
  std::uint16_t port = 0;
  std::uint64_t connections = 0;
  asio::io_context io{1};
  std::thread thread;

  void listen() {
    if (!options.certificateFile.empty() || !options.keyFile.empty()) {
      loadCertificate();
    }
    tcp::acceptor acceptor(io);
    try {
      const tcp::endpoint endpoint(asio::ip::address_v4::loopback(), options.port);
      acceptor.open(endpoint.protocol());
      acceptor.set_option(asio::socket_base::reuse_address(true));
      acceptor.bind(endpoint);
      acceptor.listen();
      port = acceptor.local_endpoint().port();
    } catch (const boost::system::system_error& error) {
      throw std::runtime_error(fmt::format("cannot listen on 127.0.0.1:{}: {}", options.port, error.code().message()));
    }
    spawn(acceptConnections(*this, std::move(acceptor)));
    thread = std::thread([this] { io.run(); });  // joined before this goes
  }

  void loadCertificate() {
    tls.emplace(ssl::context::tls_server);
    std::string file = options.certificateFile;
    try {
      tls->set_options(ssl::context::default_workarounds | ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1);
      tls->use_certificate_chain_file(file);
      file = options.keyFile;
      tls->use_private_key_file(file, ssl::context::pem);
    } catch (const boost::system::system_error& error) {
      throw std::runtime_error(fmt::format("{}: {}", file, error.code().message()));
    }
  }

  void spawn(asio::awaitable<void> task) {
    // A connection that fails, for want of memory, ends; the others go on.
    asio::co_spawn(io, std::move(task), [](const std::exception_ptr&) {});
  }

  static asio::awaitable<void> acceptConnections(Server& server, tcp::acceptor acceptor) {
    for (;;) {
      auto [error, socket] = co_await acceptor.async_accept(resultAsTuple);
      if (error) {  // out of file descriptors, or the client was gone at once
        asio::steady_timer pause(server.io, kAcceptPause);
        co_await pause.async_wait(resultAsTuple);
        continue;
      }
      boost::system::error_code ignored;
      static_cast<void>(socket.set_option(tcp::no_delay(true), ignored));
      const std::uint64_t connection = ++server.connections;
      PlainStream stream(std::move(socket));
      if (server.tls) {
        server.spawn(serveSecurely(server, std::move(stream), connection));
      } else {
        server.spawn(servePlainly(server, std::move(stream), connection));
      }
    }
  }

  static asio::awaitable<void> servePlainly(Server& server, PlainStream stream, std::uint64_t connection) {
    co_await serve(server, stream, connection);
    boost::system::error_code ignored;
    static_cast<void>(stream.socket().shutdown(tcp::socket::shutdown_send, ignored));
    co_await drain(stream);
  }

  static asio::awaitable<void> serveSecurely(Server& server, PlainStream plain, std::uint64_t connection) {
    SecureStream stream(std::move(plain), *server.tls);
    beast::get_lowest_layer(stream).expires_after(kPatience);
    const auto [error] = co_await stream.async_handshake(ssl::stream_base::server, resultAsTuple);
    if (error) {
      co_return;
    }
    co_await serve(server, stream, connection);
    beast::get_lowest_layer(stream).expires_after(kClosingPatience);
    co_await stream.async_shutdown(resultAsTuple);
  }

  /// Answers one request after the other until either side has had enough.
  template <class Stream>
  static asio::awaitable<void> serve(Server& server, Stream& stream, std::uint64_t connection) {
    beast::flat_buffer buffer;
    bool keepAlive = true;
    while (keepAlive) {
      http::request_parser<http::string_body> parser;
      parser.body_limit(maxBodyBytes);
      parser.header_limit(kMaxHeaderBytes);
      beast::get_lowest_layer(stream).expires_after(kPatience);
      const auto [readError, received] = co_await http::async_read(stream, buffer, parser, resultAsTuple);

      ServedRequest served;
      ServiceAnswer answer;
      unsigned version = 11;
      if (readError) {
        const int status = statusOfReadError(readError);
        if (status == 0) {
          co_return;
        }
        keepAlive = false;
        answer.status = status;
        served.method = std::string(parser.get().method_string());
        served.path = std::string(parser.get().target());
      } else {
        keepAlive = parser.get().keep_alive();
        version = parser.get().version();
        const ServiceRequest request = toServiceRequest(parser.release());
        answer = server.answer(request);
        served.method = request.method;
        served.path = request.target;
        served.bodyBytes = request.body.size();
      }
      served.path.resize(std::min(served.path.find('?'), served.path.size()));
      served.status = answer.status;
      served.event = answer.event;
      served.authorized = answer.authorized;
      served.connection = connection;
      if (server.options.onRequest) {
        server.options.onRequest(served);
      }
      if (answer.delay.count() > 0) {
        beast::get_lowest_layer(stream).expires_never();
        asio::steady_timer pause(server.io, answer.delay);
        co_await pause.async_wait(resultAsTuple);
      }
      auto response = toResponse(std::move(answer), version, keepAlive);
      beast::get_lowest_layer(stream).expires_after(kPatience);
      const auto [writeError, sent] = co_await http::async_write(stream, response, resultAsTuple);
      keepAlive = keepAlive && !writeError;
    }
  }

  /// 0 when there is nobody left to answer.
  static int statusOfReadError(const boost::system::error_code& error) {
    if (error == http::error::body_limit) {
      return 413;
    }
    if (error == http::error::header_limit || error == http::error::buffer_overflow) {
      return 431;
    }
    const boost::system::error_code parsing = http::make_error_code(http::error::bad_method);
    const bool gone = error == http::error::end_of_stream || error == http::error::partial_message;
    return error.category() == parsing.category() && !gone ? 400 : 0;
  }

  /// Reads what a client still sends: closing at once would make its system throw our last answer away.
  static asio::awaitable<void> drain(PlainStream& stream) {
    std::array<char, 16384> bytes{};
    stream.expires_after(kClosingPatience);
    for (;;) {
      const auto [error, count] = co_await stream.async_read_some(asio::buffer(bytes), resultAsTuple);
      if (error) {
        co_return;
      }
    }
  }

  ServiceAnswer answer(const ServiceRequest& request) const noexcept {
    try {
      return handler(request);
    } catch (const std::exception& error) {
      ServiceAnswer answer;
      answer.status = 500;
      answer.contentType = "text/plain";
      answer.body = error.what();
      return answer;
    }
  }
};

DevelopmentService::DevelopmentService(DevelopmentServiceOptions options, ServiceHandler handler)
    : options_(std::move(options)), handler_(std::move(handler)) {}

DevelopmentService::~DevelopmentService() {
  stop();
}

void DevelopmentService::start() {
  stop();
  auto server = std::make_unique<Server>(options_, handler_);
  server->listen();
  server_ = std::move(server);
}

void DevelopmentService::stop() noexcept {
  if (server_) {
    server_->io.stop();
    server_->thread.join();
    server_.reset();
  }
}

std::uint16_t DevelopmentService::port() const noexcept {
  return server_ ? server_->port : 0;
}

std::string DevelopmentService::url() const {
  const bool secure = !options_.certificateFile.empty() || !options_.keyFile.empty();
  return fmt::format("{}://127.0.0.1:{}", secure ? "https" : "http", port());
}

}  // namespace quillmar::service
