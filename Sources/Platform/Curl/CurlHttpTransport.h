#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "quillmar/platform/HttpTransport.h"

namespace quillmar::platform {

class CurlEngine;

struct CurlHttpTransportOptions {
  std::string caFile = {};  ///< PEM file with the issuers to trust instead of the system's; or empty
  /// Connections at a time, 1 to 1000, and exchanges while no server offers to share one; the others wait in a queue.
  std::size_t maxConnections = 6;
  std::size_t maxBodyBytes = 2U << 20U;  ///< the largest response body, counted after decompression
  /// The proxy for https, "http://host:port" or another URL that libcurl takes; or none. The environment is not asked.
  /// What goes by plain http does without: a proxy could read it.
  std::string proxy = {};
  std::string noProxy = {};  ///< the hosts that are called without it, as libcurl reads "no_proxy"
};

/// The transport on libcurl. One thread, started by the first request, does all transfers and calls all completions.
///
/// By https a server may offer HTTP/2. Its requests then share one connection, up to a hundred at a time. Until the
/// first connection has told, other requests wait for it.
///
/// Connecting, until the first byte is sent, is one silence for a request's time-out. The whole exchange, redirects
/// included, may take ten times as long. The time that a request waits in the queue does not count. `start` throws when
/// there is not enough memory for another request or no thread to be had; the request was not taken then.
///
/// A request goes onto the wire once, as does each one that follows a redirect: libcurl's own second attempt on another
/// connection is for GET and HEAD without a body only. Where a kept connection dies before the answer, the outcome is
/// `URLError::networkConnectionLost`; one that the server closed while it lay idle costs nothing.
///
/// "Content-Length" is always that of the body, whatever the request's headers say. A request whose method or headers
/// cannot be sent as they are, because they would end the line, fails with `URLError::badURL`.
///
/// Redirects turn a POST into a GET after 301 and 302, and every method but HEAD after 303. Credentials stay behind
/// when scheme, host or port changes, and do not come back when a later redirect returns.
class CurlHttpTransport final : public HttpTransport {
 public:
  explicit CurlHttpTransport(CurlHttpTransportOptions options = {});

  /// Waits for a completion that is running, unless this is called by one.
  ~CurlHttpTransport() override;

  CurlHttpTransport(const CurlHttpTransport&) = delete;
  CurlHttpTransport& operator=(const CurlHttpTransport&) = delete;

  RequestId start(HttpRequest request, Completion completion) override;
  void cancel(RequestId request) noexcept override;

 private:
  std::shared_ptr<CurlEngine> engine_;
};

}  // namespace quillmar::platform
