#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "service/ServedRequest.h"
#include "service/ServiceExchange.h"

namespace quillmar::service {

struct DevelopmentServiceOptions {
  std::uint16_t port = 0;            ///< 0: a free one
  std::string certificateFile = {};  ///< PEM, with the chain; together with the key it makes the service speak HTTPS
  std::string keyFile = {};          ///< PEM
  std::function<void(const ServedRequest&)> onRequest = {};  ///< called after each answer was made, before it is sent
};

/// Serves a handler over HTTP/1.1 or HTTPS on 127.0.0.1, with one thread of its own for all connections. The handler
/// and the callback are called on that thread.
class DevelopmentService {
 public:
  static constexpr std::size_t maxBodyBytes = 8U << 20U;

  DevelopmentService(DevelopmentServiceOptions options, ServiceHandler handler);
  ~DevelopmentService();

  DevelopmentService(const DevelopmentService&) = delete;
  DevelopmentService& operator=(const DevelopmentService&) = delete;

  /// Begins to listen. Throws `std::runtime_error` when the port or a file cannot be used.
  void start();

  /// Closes all connections and waits for the thread. Not to be called by the handler.
  void stop() noexcept;

  /// The port that is listened on; 0 before `start`.
  std::uint16_t port() const noexcept;

  /// "http://127.0.0.1:" or "https://127.0.0.1:" and the port.
  std::string url() const;

 private:
  struct Server;

  DevelopmentServiceOptions options_;
  ServiceHandler handler_;
  std::unique_ptr<Server> server_;
};

}  // namespace quillmar::service
